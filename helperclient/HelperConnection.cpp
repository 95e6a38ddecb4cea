#include "helperclient/HelperConnection.h"

#include "helperclient/HelperClientLogging.h"

#include <QLocalSocket>

using namespace Qt::StringLiterals;

HelperConnection::HelperConnection(const QString &socketPath, QObject *parent)
    : QObject(parent)
    , m_socketPath(socketPath) {}

HelperConnection::~HelperConnection() = default;

void HelperConnection::send(quint64 code, const wire::Dictionary &parameter,
                            CommandDelegate::ReplyHandler reply, ErrorHandler onError) {
    const quint64 id = m_nextId++;
    const QByteArray frame = wire::encodeRequest({id, code, parameter});
    if (frame.isEmpty()) {
        // Too big to send: only this command fails, the connection is still fine.
        const QString reason =
            u"request of code %1 exceeds %2 bytes"_s.arg(code).arg(wire::kMaxMessageSize);
        qCWarning(lcHelperClient, "sendCommand error:%s", qUtf8Printable(reason));
        if (onError)
            onError(reason);
        return;
    }
    m_pending.insert(id, {std::move(reply), std::move(onError)});
    if (m_failed) {
        fail(u"connection already closed"_s);
        return;
    }
    if (!m_socket) {
        m_socket = new QLocalSocket(this);
        connect(m_socket, &QLocalSocket::readyRead, this, &HelperConnection::onReadyRead);
        connect(m_socket, &QLocalSocket::connected, this, [this] {
            m_socket->write(m_unsent);
            m_unsent.clear();
            m_socket->flush();
        });
        connect(m_socket, &QLocalSocket::disconnected, this,
                [this] { fail(u"connection closed by the helper"_s); });
        connect(m_socket, &QLocalSocket::errorOccurred, this,
                [this](QLocalSocket::LocalSocketError) {
                    if (m_socket->state() == QLocalSocket::ConnectedState)
                        fail(m_socket->errorString());
                    else
                        fail(u"helper not reachable at %1 (%2)"_s.arg(m_socketPath,
                                                                      m_socket->errorString()));
                });
        m_unsent = frame;
        // Errors such as a missing socket file arrive synchronously from here.
        m_socket->connectToServer(m_socketPath);
        return;
    }
    if (m_socket->state() == QLocalSocket::ConnectedState) {
        m_socket->write(frame);
        m_socket->flush();
    } else {
        m_unsent.append(frame);
    }
}

void HelperConnection::onReadyRead() {
    m_reader.append(m_socket->readAll());
    QByteArray body;
    for (;;) {
        switch (m_reader.next(&body)) {
        case wire::FrameReader::Status::NeedMore:
            return;
        case wire::FrameReader::Status::Error:
            fail(u"reply larger than %1 bytes"_s.arg(wire::kMaxMessageSize));
            return;
        case wire::FrameReader::Status::Frame:
            break;
        }
        const auto reply = wire::decodeReply(body);
        if (!reply) {
            fail(u"malformed reply"_s);
            return;
        }
        const auto it = m_pending.find(reply->id);
        if (it == m_pending.end()) {
            qCWarning(lcHelperClient, "reply for unknown command id %llu ignored", reply->id);
            continue;
        }
        const Pending pending = std::move(*it);
        m_pending.erase(it);
        if (pending.reply)
            pending.reply(reply->reply);
        if (m_failed)
            return;
    }
    deleteWhenIdle();
}

void HelperConnection::fail(const QString &reason) {
    if (m_failed && m_pending.isEmpty())
        return;
    const bool first = !m_failed;
    m_failed = true;
    const auto pending = std::exchange(m_pending, {});
    m_unsent.clear();
    for (const Pending &command : pending) {
        qCWarning(lcHelperClient, "sendCommand error:%s", qUtf8Printable(reason));
        if (command.onError)
            command.onError(reason);
    }
    if (m_socket) {
        // Stop further signals from a socket that is being given up on.
        m_socket->disconnect(this);
        m_socket->abort();
    }
    if (first)
        Q_EMIT failed();
    deleteWhenIdle();
}

void HelperConnection::retire() {
    m_retired = true;
    deleteWhenIdle();
}

void HelperConnection::deleteWhenIdle() {
    if (m_retired && (m_pending.isEmpty() || m_failed))
        deleteLater();
}
