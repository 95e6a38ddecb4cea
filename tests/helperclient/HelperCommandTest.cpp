#include "helperclient/HelperCommand.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct VersionRule {
    const char *version;
    bool current;
};

class HelperVersionRule : public testing::TestWithParam<VersionRule> {};

TEST_P(HelperVersionRule, ComparesNumericallyWithOnePointZeroPointZero) {
    const VersionRule rule = GetParam();
    const QString version = QString::fromUtf8(rule.version);
    EXPECT_EQ(helpercommand::isHelperVersionCurrent(version), rule.current);
    EXPECT_EQ(helpercommand::isHelperVersionCurrent(wire::Dictionary{{u"result"_s, version}}),
              rule.current);
}

INSTANTIATE_TEST_SUITE_P(Versions, HelperVersionRule,
                         testing::Values(VersionRule{"1.0.1", true}, VersionRule{"1.10", true},
                                         VersionRule{"1.1", true}, VersionRule{"2", true},
                                         VersionRule{"1.0.0.1", true}, VersionRule{"1.0.10", true},
                                         VersionRule{"1.0.0", false}, VersionRule{"1.0", false},
                                         VersionRule{"1", false}, VersionRule{"", false},
                                         VersionRule{"0.9.9", false}, VersionRule{"01.0.0", false},
                                         VersionRule{"1.0.0 ", true},
                                         VersionRule{"99999999999999999999.0", true}));

TEST(HelperVersionRuleReply, MissingResultIsTooOld) {
    EXPECT_FALSE(helpercommand::isHelperVersionCurrent(wire::Dictionary{}));
    EXPECT_FALSE(helpercommand::isHelperVersionCurrent(wire::Dictionary{{u"version"_s, u"2.0"_s}}));
}

struct Ordering {
    const char *left;
    const char *right;
    int expected;
};

class NumericCompare : public testing::TestWithParam<Ordering> {};

TEST_P(NumericCompare, OrdersBothWays) {
    const Ordering o = GetParam();
    const QString left = QString::fromUtf8(o.left);
    const QString right = QString::fromUtf8(o.right);
    EXPECT_EQ(helpercommand::compareNumeric(left, right), o.expected);
    EXPECT_EQ(helpercommand::compareNumeric(right, left), -o.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Pairs, NumericCompare,
    testing::Values(Ordering{"1.9", "1.10", -1}, Ordering{"1.0", "1.0.0", -1},
                    Ordering{"1.0.0", "1.0.0", 0}, Ordering{"007", "7", 0},
                    Ordering{"a2", "a10", -1}, Ordering{"a", "b", -1}, Ordering{"", "0", -1},
                    Ordering{"1.0a", "1.0b", -1}, Ordering{"10", "9a", 1},
                    Ordering{"123456789012345678901", "123456789012345678902", -1}));

TEST(HelperCommandResult, OnlyTheResultKeyCounts) {
    EXPECT_EQ(helpercommand::resultOf({{u"result"_s, QString()}}), QString());
    EXPECT_EQ(helpercommand::resultOf({{u"Result"_s, u"x"_s}}), std::nullopt);
    EXPECT_EQ(helpercommand::resultOf({}), std::nullopt);
}

} // namespace
