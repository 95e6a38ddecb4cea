#include "ctl/HelperCommands.h"

#include "StandInHelper.h"
#include "util/InstallPaths.h"

#include <QTemporaryDir>

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

TEST_F(CtlHelperCommands, HelperVersionPrintsTheVersion) {
    const CtlRun r = run({u"helper-version"_s});
    EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, u"1.0.1\n"_s);
    ASSERT_EQ(m_server.requests().size(), 1);
    EXPECT_EQ(m_server.requests()[0].code, 7u);
    EXPECT_TRUE(m_server.requests()[0].parameter.isEmpty());
}

TEST_F(CtlHelperCommands, EmptyVersionIsAFailure) {
    m_server.setHandler([](const wire::Request &) { return Response{}; });
    const CtlRun r = run({u"helper-version"_s});
    EXPECT_NE(r.exitCode, 0);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_FALSE(r.err.isEmpty());
}

TEST_F(CtlHelperCommands, DeviceCommandsSendTheKernelNameAndFollowTheResult) {
    // /dev/null stands in for a device node: the tool only resolves the name.
    m_server.setHandler([](const wire::Request &request) {
        Response response;
        response.reply.insert(u"result"_s,
                              request.code == 4 ? u"erase refused: in use"_s : QString());
        return response;
    });
    struct Case {
        QStringList arguments;
        quint64 code;
        wire::Dictionary parameter;
        int exitCode;
    };
    const QList<Case> cases = {
        {{u"repair"_s, u"/dev/null"_s}, 3, {{u"bsdName"_s, u"null"_s}}, 0},
        {{u"erase"_s, u"null"_s}, 4, {{u"bsdName"_s, u"null"_s}}, 1},
        {{u"rename"_s, u"/dev/null"_s, u"New Label"_s},
         8,
         {{u"bsdName"_s, u"null"_s}, {u"newName"_s, u"New Label"_s}},
         0},
        {{u"mount-rw"_s, u"/dev/null"_s},
         1,
         {{u"bsdName"_s, u"null"_s}, {u"name"_s, u"null"_s}},
         0},
        {{u"eject"_s, u"/dev/null"_s}, 2, {{u"bsdName"_s, u"null"_s}, {u"name"_s, u"null"_s}}, 0},
        {{u"open"_s, u"/media/x"_s}, 0, {{u"mountPath"_s, u"/media/x"_s}}, 0},
    };
    for (const Case &c : cases) {
        const qsizetype before = m_server.requests().size();
        const CtlRun r = run(c.arguments);
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        EXPECT_EQ(r.exitCode, c.exitCode) << r.err.toStdString();
        const QList<wire::Request> requests = m_server.requests();
        ASSERT_EQ(requests.size(), before + 1);
        EXPECT_EQ(requests.last().code, c.code);
        EXPECT_EQ(requests.last().parameter, c.parameter);
        EXPECT_TRUE(r.out.startsWith(u"result: "_s));
    }
}

TEST_F(CtlHelperCommands, MissingResultIsAFailure) {
    m_server.setHandler([](const wire::Request &) {
        return Response{Response::Kind::Reply, {{u"other"_s, u"x"_s}}, {}};
    });
    const CtlRun r = run({u"repair"_s, u"/dev/null"_s});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, u"other: x\n"_s);
}

TEST(CtlHelperCommandsNoServer, UnreachableHelperFailsWithAReason) {
    QTemporaryDir dir;
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket,
                              dir.filePath(u"absent.sock"_s));
    const CtlRun r = run({u"helper-version"_s});
    InstallPaths::clearOverrides();
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_TRUE(r.err.startsWith(u"helper unavailable: "_s)) << r.err.toStdString();
    EXPECT_EQ(r.err.count(u'\n'), 1);
}

struct BadArguments {
    const char *name;
    QStringList arguments;
};

class CtlHelperCommandsUsage : public testing::TestWithParam<BadArguments> {};

TEST_P(CtlHelperCommandsUsage, IsRejectedBeforeAnythingIsSent) {
    QTemporaryDir dir;
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket, dir.filePath(u"s"_s));
    const CtlRun r = run(GetParam().arguments);
    InstallPaths::clearOverrides();
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_FALSE(r.err.isEmpty());
    EXPECT_FALSE(r.err.contains(u"unavailable"_s));
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, CtlHelperCommandsUsage,
    testing::Values(BadArguments{"NoDevice", {u"repair"_s}},
                    BadArguments{"TooMany", {u"erase"_s, u"sdb1"_s, u"extra"_s}},
                    BadArguments{"RenameWithoutName", {u"rename"_s, u"/dev/null"_s}},
                    BadArguments{"UnknownDevice", {u"repair"_s, u"no-such-device-xyz"_s}},
                    BadArguments{"VersionWithOperand", {u"helper-version"_s, u"x"_s}}),
    [](const testing::TestParamInfo<BadArguments> &param) {
        return std::string(param.param.name);
    });

TEST(CtlHelperCommandsVerbs, KnowsItsVerbs) {
    for (const char *verb :
         {"mount-rw", "open", "eject", "repair", "erase", "rename", "helper-version"})
        EXPECT_TRUE(isHelperCommand(QString::fromLatin1(verb))) << verb;
    EXPECT_FALSE(isHelperCommand(u"list"_s));
    EXPECT_FALSE(isHelperCommand(u"mount"_s));
}

} // namespace
