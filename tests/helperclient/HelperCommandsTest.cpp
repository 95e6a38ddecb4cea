#include "ctl/HelperCommands.h"

#include "StandInHelper.h"
#include "util/InstallPaths.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using Response = StandInHelper::Response;

namespace {

struct CtlRun {
    int exitCode = -1;
    QString out;
    QString err;
};

CtlRun run(const QStringList &arguments) {
    CtlRun result;
    QTextStream out(&result.out);
    QTextStream err(&result.err);
    result.exitCode = runHelperCommand(arguments, out, err);
    out.flush();
    err.flush();
    return result;
}

class CtlHelperCommands : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_server.listen());
        InstallPaths::setOverride(InstallPaths::Component::HelperSocket, m_server.socketPath());
    }
    void TearDown() override { InstallPaths::clearOverrides(); }

    StandInHelper m_server;
};

TEST_F(CtlHelperCommands, EachCommandSendsItsRequestAndFollowsTheResult) {
    // /dev/null stands in for a device node: the tool only resolves the name.
    m_server.setHandler([](const wire::Request &request) {
        if (request.code == 4)
            return Response::reply({{u"result"_s, u"erase refused: in use"_s}});
        return StandInHelper::defaultResponse(request);
    });
    const wire::Dictionary null = {{u"bsdName"_s, u"null"_s}};
    const wire::Dictionary nullNamed = {{u"bsdName"_s, u"null"_s}, {u"name"_s, u"null"_s}};
    const struct {
        QStringList arguments;
        quint64 code;
        wire::Dictionary parameter;
        int exitCode;
        QString out;
    } cases[] = {
        {{u"helper-version"_s}, 7, {}, 0, u"1.0.1\n"_s},
        {{u"repair"_s, u"/dev/null"_s}, 3, null, 0, u"result: "_s},
        {{u"erase"_s, u"null"_s}, 4, null, 1, u"result: erase refused: in use"_s},
        {{u"rename"_s, u"/dev/null"_s, u"New Label"_s},
         8,
         {{u"bsdName"_s, u"null"_s}, {u"newName"_s, u"New Label"_s}},
         0,
         u"result: "_s},
        {{u"mount-rw"_s, u"/dev/null"_s}, 1, nullNamed, 0, u"result: "_s},
        {{u"eject"_s, u"/dev/null"_s}, 2, nullNamed, 0, u"result: "_s},
        {{u"open"_s, u"/media/x"_s}, 0, {{u"mountPath"_s, u"/media/x"_s}}, 0, u"result: "_s},
    };
    for (const auto &c : cases) {
        const qsizetype before = m_server.record().requests.size();
        const CtlRun r = run(c.arguments);
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        EXPECT_EQ(r.exitCode, c.exitCode) << r.err.toStdString();
        EXPECT_TRUE(r.out.startsWith(c.out)) << r.out.toStdString();
        const QList<wire::Request> requests = m_server.record().requests;
        ASSERT_EQ(requests.size(), before + 1);
        EXPECT_EQ(requests.last().code, c.code);
        EXPECT_EQ(requests.last().parameter, c.parameter);
    }
}

TEST_F(CtlHelperCommands, MissingVersionOrResultIsAFailure) {
    m_server.setHandler([](const wire::Request &request) {
        return Response::reply(request.code == 7 ? wire::Dictionary()
                                                 : wire::Dictionary{{u"other"_s, u"x"_s}});
    });
    const CtlRun version = run({u"helper-version"_s});
    EXPECT_NE(version.exitCode, 0);
    EXPECT_TRUE(version.out.isEmpty());
    EXPECT_FALSE(version.err.isEmpty());
    const CtlRun repair = run({u"repair"_s, u"/dev/null"_s});
    EXPECT_EQ(repair.exitCode, 1);
    EXPECT_EQ(repair.out, u"other: x\n"_s);
}

TEST(CtlHelperCommandsNoServer, BadArgumentsAndAnUnreachableHelperFailWithAReason) {
    QTemporaryDir dir;
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket, dir.filePath(u"absent"_s));
    const CtlRun unreachable = run({u"helper-version"_s});
    EXPECT_EQ(unreachable.exitCode, 3);
    EXPECT_TRUE(unreachable.err.startsWith(u"helper unavailable: "_s))
        << unreachable.err.toStdString();
    EXPECT_EQ(unreachable.err.count(u'\n'), 1);

    // Rejected before anything is sent: no socket is tried.
    const QList<QStringList> usage = {{u"repair"_s},
                                      {u"erase"_s, u"sdb1"_s, u"extra"_s},
                                      {u"rename"_s, u"/dev/null"_s},
                                      {u"repair"_s, u"no-such-device-xyz"_s},
                                      {u"helper-version"_s, u"x"_s}};
    for (const QStringList &arguments : usage) {
        const CtlRun r = run(arguments);
        SCOPED_TRACE(arguments.join(u' ').toStdString());
        EXPECT_EQ(r.exitCode, 2);
        EXPECT_FALSE(r.err.isEmpty());
        EXPECT_FALSE(r.err.contains(u"unavailable"_s));
    }
    InstallPaths::clearOverrides();
}

TEST(CtlHelperCommandsVerbs, KnowsItsVerbs) {
    for (const char *verb :
         {"mount-rw", "open", "eject", "repair", "erase", "rename", "helper-version"})
        EXPECT_TRUE(isHelperCommand(QString::fromLatin1(verb))) << verb;
    EXPECT_FALSE(isHelperCommand(u"list"_s));
    EXPECT_FALSE(isHelperCommand(u"mount"_s));
}

} // namespace
