#pragma once

#include "helperclient/CommandDelegate.h"
#include "helperclient/wire/WireCodec.h"

#include <QHash>
#include <QObject>

class QLocalSocket;

// One connection to the helper socket, living on the command channel's thread. It connects on its
// first command. Any transport fault ends it for good: every pending reply is dropped with one log
// line each and failed() tells the channel to make a new one.
class HelperConnection : public QObject {
    Q_OBJECT

public:
    using ErrorHandler = std::function<void(const QString &reason)>;

    HelperConnection(const QString &socketPath, QObject *parent = nullptr);
    ~HelperConnection() override;

    void send(quint64 code, const wire::Dictionary &parameter, CommandDelegate::ReplyHandler reply,
              ErrorHandler onError);
    // No new commands come here any more; it goes away once its last reply is in.
    void retire();
    bool hasFailed() const { return m_failed; }

Q_SIGNALS:
    void failed();

private:
    struct Pending {
        CommandDelegate::ReplyHandler reply;
        ErrorHandler onError;
    };

    void onReadyRead();
    void fail(const QString &reason);
    void deleteWhenIdle();

    QString m_socketPath;
    QLocalSocket *m_socket = nullptr;
    wire::FrameReader m_reader;
    QHash<quint64, Pending> m_pending;
    QByteArray m_unsent; // frames written before the socket finished connecting
    quint64 m_nextId = 1;
    bool m_failed = false;
    bool m_retired = false;
};
