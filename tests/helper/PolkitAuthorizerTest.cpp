#include "helper/PolkitAuthorizer.h"

#include "tests/support/PrivatePolkit.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <gtest/gtest.h>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The daemon tests see polkit's "yes" and "a password is needed"; a rule's plain "no" is only
// reachable here.
TEST(PolkitAuthorizer, SaysWhichAnswerPolkitGave) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "polkitd and its rules need root";
    testsupport::PrivatePolkit polkit;
    QString why;
    ASSERT_TRUE(polkit.start(QStringLiteral(VANTRELO_POLKIT_POLICY), &why)) << why.toStdString();
    const uid_t withoutRule = 65534, refused = 1, granted = 2;
    ASSERT_TRUE(polkit.refuseTo(refused, &why)) << why.toStdString();
    ASSERT_TRUE(polkit.grantTo(granted, &why)) << why.toStdString();
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", polkit.address().toUtf8());
    const helper::PolkitAuthorizer authorizer;

    const struct {
        uid_t uid;
        bool allowed;
        QString why;
    } cases[] = {{withoutRule, false, u"administrator's password is needed"_s},
                 {refused, false, u"policy does not allow"_s},
                 {granted, true, u""_s}};
    for (const auto &expected : cases) {
        // This process stands in for the caller; polkitd takes the uid it is given.
        const auto caller = helper::Caller::forIds(::getpid(), expected.uid, expected.uid);
        const auto decision =
            authorizer.check(caller, u"com.corvin.vantrelo.erase-system"_s, u"erase sdz1"_s);
        EXPECT_EQ(decision.allowed, expected.allowed) << expected.uid;
        EXPECT_TRUE(decision.refusal.contains(expected.why)) << decision.refusal.toStdString();
        EXPECT_EQ(decision.refusal.startsWith(u"Not authorized: erase sdz1. "_s), !expected.allowed)
            << decision.refusal.toStdString();
    }
    qunsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

} // namespace
