#include "ctl/HelperCommands.h"

#include "StandInHelper.h"
#include "util/InstallPaths.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

struct CtlRun {
    int exitCode = -1;
    QString out, err;
};

CtlRun run(const char *commandLine) {
    CtlRun result;
    QTextStream out(&result.out), err(&result.err);
    result.exitCode = runHelperCommand(QString::fromUtf8(commandLine).split(u' '), out, err);
    out.flush();
    err.flush();
    return result;
}

// /dev/null stands in for a device node: the tool only resolves its name.
TEST(CtlHelperCommands, EachCommandSendsItsRequestPrintsTheReplyAndExitsByTheResult) {
    StandInHelper server([](const wire::Request &request) {
        return request.code == 4   ? StandInHelper::reply(request, {{u"result"_s, u"in use"_s}})
               : request.code == 2 ? StandInHelper::reply(request, {{u"other"_s, u"x"_s}})
                                   : StandInHelper::defaultResponse(request);
    });
    ASSERT_TRUE(server.listen());
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket, server.socketPath());
    const QString null = u"null"_s;
    const struct {
        const char *commandLine;
        quint64 code;
        wire::Dictionary parameter;
        int exitCode;
        const char *out;
    } cases[] = {
        {"helper-version", 7, {}, 0, "1.0.1\n"},
        {"repair /dev/null", 3, {{u"bsdName"_s, null}}, 0, "result: \n"},
        {"erase null", 4, {{u"bsdName"_s, null}}, 1, "result: in use\n"},
        {"rename /dev/null N", 8, {{u"bsdName"_s, null}, {u"newName"_s, u"N"_s}}, 0, "result: \n"},
        {"mount-rw /dev/null", 1, {{u"bsdName"_s, null}, {u"name"_s, null}}, 0, "result: \n"},
        {"eject /dev/null", 2, {{u"bsdName"_s, null}, {u"name"_s, null}}, 1, "other: x\n"},
        {"open /media/x", 0, {{u"mountPath"_s, u"/media/x"_s}}, 0, "result: \n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.commandLine);
        const CtlRun r = run(c.commandLine);
        EXPECT_EQ(r.exitCode, c.exitCode) << r.err.toStdString();
        EXPECT_EQ(r.out, QString::fromUtf8(c.out));
        EXPECT_EQ(r.exitCode == 0, r.err.isEmpty()); // a failure says why
        const QList<wire::Request> requests = server.record().requests;
        ASSERT_EQ(requests.size(), &c - cases + 1);
        EXPECT_EQ(requests.last().code, c.code);
        EXPECT_EQ(requests.last().parameter, c.parameter);
    }

    // Rejected before any socket is tried.
    for (const char *usage :
         {"repair", "erase sdb1 extra", "repair no-such-device-xyz", "helper-version x"}) {
        const CtlRun r = run(usage);
        EXPECT_EQ(r.exitCode, 2) << usage;
        EXPECT_FALSE(r.err.isEmpty()) << usage;
    }
    EXPECT_EQ(server.record().connections, int(std::size(cases)));
    QTemporaryDir dir;
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket, dir.filePath(u"absent"_s));
    const CtlRun unreachable = run("helper-version");
    EXPECT_EQ(unreachable.exitCode, 3);
    EXPECT_TRUE(unreachable.err.startsWith(u"helper unavailable: "_s))
        << unreachable.err.toStdString();
    EXPECT_EQ(unreachable.err.count(u'\n'), 1);
    InstallPaths::clearOverrides();
}

} // namespace
