#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QProcess>
#include <QThread>

#include <functional>

namespace helpertest {

// Lets events run until `done` holds or the generous bound passes; the caller asserts on the
// outcome, never on the time taken.
inline bool waitUntil(const std::function<bool()> &done, int boundMs = 20000) {
    QDeadlineTimer deadline(boundMs);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::usleep(500);
    }
    return true;
}

// Counts the lines logged in one category, starting with a prefix, while it exists.
class LogCapture {
public:
    LogCapture(const char *category, const QString &prefix);
    ~LogCapture();
    int count() const;
};

// A dbus-daemon of `type` ("system" or "session") with an open policy, listening in `folder`:
// only the test's own processes are on it. Returns its address, or empty with a reason.
QString startBusDaemon(QProcess &daemon, const QString &folder, const QString &type, QString *why);
// Stops a process this test started: SIGTERM to its pid, then SIGKILL.
void stopProcess(QProcess &process);

} // namespace helpertest
