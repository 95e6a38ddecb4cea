#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QMutex>
#include <QMutexLocker>
#include <QStringList>
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

// Collects the lines logged in one category while it exists.
class LogCapture {
public:
    explicit LogCapture(const char *category);
    ~LogCapture();
    QStringList lines() const;
    qsizetype count(const QString &prefix) const;

private:
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &text);
};

} // namespace helpertest
