#include "helper/DeviceFacts.h"
#include "helper/DiskScheduler.h"
#include "helper/HelperCommands.h"
#include "helper/HelperLogging.h"
#include "helper/HelperServer.h"
#include "helper/PolkitAuthorizer.h"
#include "helper/ToolRunner.h"
#include "helper/VolumeProbe.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

helper::HelperServer *g_server = nullptr;

extern "C" void stopServer(int) {
    if (g_server)
        g_server->stop();
}

} // namespace

int main(int argc, char *argv[]) {
    ::umask(022);
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(u"vantrelo-helper"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(VANTRELO_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Privileged helper of Vantrelo: mounts NTFS volumes read/write for their user, and "
        u"repairs, erases, renames and ejects them on request."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption socketOption(
        u"socket"_s, u"Listen on PATH instead of the socket passed by systemd."_s, u"PATH"_s);
    parser.addOption(socketOption);
    parser.process(application);

    QString why;
    const QString socketPath = parser.value(socketOption);
    const int listenFd =
        socketPath.isEmpty() ? helper::inheritedSocket() : helper::listenOnPath(socketPath, &why);
    if (listenFd < 0) {
        std::fprintf(stderr, "vantrelo-helper: %s\n",
                     qPrintable(socketPath.isEmpty()
                                    ? u"no socket: start it through vantrelo-helper.socket or "
                                      u"pass --socket PATH"_s
                                    : u"cannot listen on %1: %2"_s.arg(socketPath, why)));
        return 1;
    }
    if (::geteuid() != 0)
        qCWarning(lcHelper) << "not running as root: mounting will answer nofulldiskaccess";

    helper::ProcessToolRunner runner;
    const helper::DeviceFacts facts;
    helper::HelperSettings settings;
    settings.privileged = ::geteuid() == 0;
    const helper::BlkidVolumeProbe probe;
    const helper::PolkitAuthorizer authorizer;
    const helper::HelperCommands commands(runner, facts, probe, authorizer, settings);
    helper::DiskScheduler scheduler;
    int status = 0;
    {
        helper::HelperServer server(listenFd, commands, scheduler);
        g_server = &server;
        struct sigaction action {};
        action.sa_handler = stopServer;
        sigemptyset(&action.sa_mask);
        sigaction(SIGTERM, &action, nullptr);
        sigaction(SIGINT, &action, nullptr);
        qCInfo(lcHelper) << "serving"
                         << (socketPath.isEmpty() ? u"the systemd socket"_s : socketPath);
        status = server.run() ? 0 : 1;
        std::signal(SIGTERM, SIG_DFL);
        std::signal(SIGINT, SIG_DFL);
        g_server = nullptr;
    }
    ::close(listenFd);
    if (!socketPath.isEmpty())
        QFile::remove(socketPath);
    return status;
}
