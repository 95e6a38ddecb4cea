#include "ctl/HelperCommands.h"

#include "StandInHelper.h"
#include "util/InstallPaths.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Folders `open` showed; "busy" cannot be shown.
QStringList opened;

std::tuple<int, QString, QString>
run(const char *commandLine, std::optional<std::chrono::milliseconds> bound = std::nullopt) {
    QString outText, errText;
    QTextStream out(&outText), err(&errText);
    const int exitCode = runHelperCommand(
        QString::fromUtf8(commandLine).split(u' '), out, err, bound, [](const QString &path) {
            opened << path;
            return path.endsWith(u"busy"_s) ? u"no session"_s : QString();
        });
    out.flush();
    err.flush();
    return {exitCode, outText, errText};
}

// /dev/null stands in for a device node: the tool only resolves its name.
TEST(CtlHelperCommands, EachCommandSendsItsRequestPrintsTheReplyAndExitsByTheResult) {
    StandInHelper server([](const wire::Request &request) {
        switch (request.code) {
        case 4:
            return StandInHelper::reply(request, {{u"result"_s, u"in use"_s}});
        case 2:
            return StandInHelper::reply(request, {{u"other"_s, u"x"_s}});
        case 1:
            return StandInHelper::reply(request, {{u"result"_s, 5}, {u"extra"_s, true}});
        default:
            return StandInHelper::defaultResponse(request);
        }
    });
    ASSERT_TRUE(server.listen());
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket, server.socketPath());
    const QString null = u"null"_s;
    const wire::Dictionary both{{u"bsdName"_s, null}, {u"name"_s, null}};
    // clang-format off
    const struct {
        const char *commandLine; quint64 code; wire::Dictionary parameter; int exitCode;
        const char *out, *err = "";
    } cases[] = {
        {"helper-version", 7, {}, 0, "1.0.1\n"},
        {"repair /dev/null", 3, {{u"bsdName"_s, null}}, 0, "result: \n"},
        {"erase null", 4, {{u"bsdName"_s, null}}, 1, "result: in use\n",
         "erase failed: in use\n"},
        {"rename /dev/null N", 8, {{u"bsdName"_s, null}, {u"newName"_s, u"N"_s}}, 0, "result: \n"},
        {"mount-rw /dev/null", 1, both, 1, "extra: true\nresult: 5\n",
         "mount-rw failed: the helper gave an unexpected answer (result: 5)\n"},
        {"eject /dev/null", 2, both, 1, "other: x\n", "eject failed: the reply has no result\n"},
        {"open /media/x", 0, {{u"mountPath"_s, u"/media/x"_s}}, 0,
         "result: \nopened /media/x in a file browser\n"},
        {"open /media/busy", 0, {{u"mountPath"_s, u"/media/busy"_s}}, 1, "result: \n",
         "open: /media/busy can be opened, but was not: no session\n"},
    };
    // clang-format on
    qsizetype sent = 0;
    for (const auto &[commandLine, code, parameter, exitCode, out, err] : cases) {
        SCOPED_TRACE(commandLine);
        const auto [actualExit, actualOut, actualErr] = run(commandLine);
        EXPECT_EQ(actualExit, exitCode);
        EXPECT_EQ(actualOut, QString::fromUtf8(out));
        EXPECT_EQ(actualErr, QString::fromUtf8(err));
        const QList<wire::Request> requests = server.record().requests;
        ASSERT_EQ(requests.size(), ++sent);
        EXPECT_EQ(requests.last().code, code);
        EXPECT_EQ(requests.last().parameter, parameter);
    }
    EXPECT_EQ(opened, QStringList({u"/media/x"_s, u"/media/busy"_s}));
    // Rejected before any socket is tried.
    for (const char *usage :
         {"repair", "erase sdb1 extra", "repair no-such-device-xyz", "helper-version x"}) {
        const auto [exitCode, out, err] = run(usage);
        EXPECT_TRUE(exitCode == 2 && !err.isEmpty()) << usage;
    }
    EXPECT_EQ(server.record().connections, sent);

    server.setHandler([](const wire::Request &) {
        return StandInHelper::Response{StandInHelper::Response::Kind::Hold, {}};
    });
    EXPECT_EQ(run("repair /dev/null", std::chrono::milliseconds(50)),
              std::tuple(4, QString(), u"no reply from the helper within 0.05 s\n"_s));
    QTemporaryDir dir;
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket, dir.filePath(u"absent"_s));
    const auto [exitCode, out, err] = run("helper-version");
    EXPECT_EQ(exitCode, 3);
    EXPECT_TRUE(err.startsWith(u"helper unavailable: "_s) && err.count(u'\n') == 1)
        << err.toStdString();
    InstallPaths::clearOverrides();
}

} // namespace
