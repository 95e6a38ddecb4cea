#include "helper/PolkitAuthorizer.h"

#include "tests/helper/DaemonFixture.h"
#include "tests/support/QtPrinters.h"

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The daemon tests see polkit's "yes" and "a password is needed"; a rule's plain "no" is only
// reachable here.
TEST_F(DaemonTest, PolkitAuthorizerSaysWhichAnswerPolkitGave) {
    QString why;
    ASSERT_TRUE(polkit.refuseTo(1, &why) && polkit.grantTo(2, &why)) << why.toStdString();
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", polkit.address().toUtf8());
    const helper::PolkitAuthorizer authorizer;
    const struct {
        uid_t uid;
        QString refusal;
    } cases[] = {{65534, u"Not authorized: erase sdz1. An administrator's password is needed"_s},
                 {1, u"Not authorized: erase sdz1. The system's policy does not allow"_s},
                 {2, u""_s}};
    for (const auto &c : cases) {
        // This process stands in for the caller; polkitd takes the uid it is given.
        const auto decision =
            authorizer.check(helper::Caller::forIds(::getpid(), c.uid, c.uid),
                             u"com.corvin.vantrelo.erase-system"_s, u"erase sdz1"_s);
        EXPECT_EQ(decision.allowed, c.refusal.isEmpty()) << c.uid;
        EXPECT_EQ(decision.refusal.left(c.refusal.size()), c.refusal) << c.uid;
    }
    qunsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

} // namespace
