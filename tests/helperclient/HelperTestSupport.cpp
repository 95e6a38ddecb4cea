#include "HelperTestSupport.h"

#include <QFile>
#include <QFileInfo>

#include <atomic>

using namespace Qt::StringLiterals;

namespace helpertest {
namespace {

QByteArray s_category;
QString s_prefix;
std::atomic<int> s_count = 0;
QtMessageHandler s_previous = nullptr;

void handler(QtMsgType type, const QMessageLogContext &context, const QString &text) {
    if (context.category && s_category == context.category && text.startsWith(s_prefix))
        ++s_count;
    if (s_previous)
        s_previous(type, context, text);
}

} // namespace

LogCapture::LogCapture(const char *category, const QString &prefix) {
    s_category = category;
    s_prefix = prefix;
    s_count = 0;
    s_previous = qInstallMessageHandler(&handler);
}

LogCapture::~LogCapture() {
    qInstallMessageHandler(s_previous);
}

int LogCapture::count() const {
    return s_count;
}

QString startBusDaemon(QProcess &daemon, const QString &folder, const QString &type, QString *why) {
    const QString socket = folder + u"/bus"_s;
    QFile config(folder + u"/bus.conf"_s);
    if (!config.open(QIODevice::WriteOnly)) {
        *why = u"cannot write a bus configuration"_s;
        return {};
    }
    config.write("<busconfig><type>" + type.toUtf8() +
                 "</type><listen>unix:path=" + socket.toUtf8() +
                 "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                 "<allow user=\"*\"/><allow own=\"*\"/>"
                 "<allow send_type=\"method_call\"/><allow send_type=\"signal\"/>"
                 "<allow send_requested_reply=\"true\" send_type=\"method_return\"/>"
                 "<allow send_requested_reply=\"true\" send_type=\"error\"/>"
                 "<allow receive_type=\"method_call\"/><allow receive_type=\"method_return\"/>"
                 "<allow receive_type=\"error\"/><allow receive_type=\"signal\"/>"
                 "</policy></busconfig>");
    config.close();
    // The address is printed once the bus accepts connections; the socket file alone appears
    // at bind(), before listen(), and a client connecting then is refused.
    daemon.start(u"dbus-daemon"_s, {u"--config-file="_s + config.fileName(), u"--nofork"_s,
                                    u"--nopidfile"_s, u"--print-address"_s});
    if (!daemon.waitForStarted(10000)) {
        *why = u"dbus-daemon cannot be started: "_s + daemon.errorString();
        return {};
    }
    if (!waitUntil([&] { return daemon.canReadLine() || daemon.state() != QProcess::Running; },
                   10000) ||
        !daemon.canReadLine()) {
        *why = u"dbus-daemon printed no address: "_s +
               QString::fromLocal8Bit(daemon.readAllStandardError());
        return {};
    }
    return QString::fromUtf8(daemon.readLine()).trimmed();
}

void stopProcess(QProcess &process) {
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(10000))
        process.kill();
    process.waitForFinished(5000);
}

} // namespace helpertest
