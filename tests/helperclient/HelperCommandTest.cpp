#include "helperclient/wire/HelperCommand.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace helpercommand;

namespace {

TEST(HelperVersionRule, ComparesNumericallyWithOnePointZeroPointZero) {
    const std::pair<const char *, bool> versions[] = {
        {"1.0.1", true},   {"1.10", true},    {"1.1", true},    {"2", true},
        {"1.0.0.1", true}, {"1.0.10", true},  {"1.0.0 ", true}, {"99999999999999999999.0", true},
        {"1.0.0", false},  {"1.0", false},    {"1", false},     {"", false},
        {"0.9.9", false},  {"01.0.0", false},
    };
    for (const auto &[text, current] : versions) {
        const QString version = QString::fromUtf8(text);
        EXPECT_EQ(isHelperVersionCurrent(version), current) << text;
        EXPECT_EQ(isHelperVersionCurrent(wire::Dictionary{{u"result"_s, version}}), current)
            << text;
    }
    // A reply without "result" is too old.
    EXPECT_FALSE(isHelperVersionCurrent(wire::Dictionary{}));
    EXPECT_FALSE(isHelperVersionCurrent(wire::Dictionary{{u"version"_s, u"2.0"_s}}));
    EXPECT_EQ(resultOf({{u"result"_s, QString()}}), QString());
    EXPECT_EQ(resultOf({{u"Result"_s, u"x"_s}}), std::nullopt);
}

} // namespace
