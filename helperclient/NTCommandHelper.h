#pragma once

#include "helperclient/CommandDelegate.h"

#include <QObject>
#include <QPointer>
#include <QThread>

class HelperConnection;

// The application's one client of the helper socket. Commands may be sent from any thread; the
// socket, the reply handlers and the error handling all live on the channel's own thread. A
// transport fault drops the pending commands (their handlers never run) and the next command goes
// over a new connection. There is no retry, time-out or queueing.
class NTCommandHelper : public QObject, public CommandDelegate {
    Q_OBJECT

public:
    using ErrorHandler = std::function<void(const QString &reason)>;

    // Process-wide instance, created on first use and never destroyed.
    static NTCommandHelper *shared();

    // Builds the first connection at once; own instances are for tests and tools.
    explicit NTCommandHelper(QObject *parent = nullptr);
    ~NTCommandHelper() override;

    // Replaces the connection; commands already sent on the old one still get their replies.
    void setup();

    void sendCommand(quint64 code, const wire::Dictionary &parameter,
                     ReplyHandler withReply) override;
    // Same, and tells `onError` (on the channel thread) when the command is dropped, for callers
    // such as the command-line tool that must not wait for ever.
    void sendCommand(quint64 code, const wire::Dictionary &parameter, ReplyHandler withReply,
                     ErrorHandler onError);

    // The thread replies and errors are delivered on.
    QThread *channelThread() { return &m_thread; }

private:
    class Channel;

    QThread m_thread;
    Channel *m_channel = nullptr; // lives on m_thread
};
