#include "LocalCollectServer.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTcpSocket>
#include <QThread>

using namespace Qt::StringLiterals;

LocalCollectServer::LocalCollectServer()
    : m_policy([](int) { return Answer::Accept; }) {
    connect(&m_server, &QTcpServer::newConnection, this, &LocalCollectServer::accept);
    m_server.listen(QHostAddress::LocalHost, 0);
}

LocalCollectServer::~LocalCollectServer() {
    // The sockets must not report their disconnection to a half-destroyed server.
    const QList<QTcpSocket *> sockets = m_server.findChildren<QTcpSocket *>();
    for (QTcpSocket *socket : sockets) {
        socket->disconnect(this);
        delete socket;
    }
}

QUrl LocalCollectServer::endpoint() const {
    return QUrl(u"http://127.0.0.1:%1/mp/collect"_s.arg(m_server.serverPort()));
}

QStringList LocalCollectServer::deliveredLabels() const {
    QStringList labels;
    for (const Request &request : m_requests) {
        if (request.answer != Answer::Accept)
            continue;
        const QJsonArray events = request.body.value(u"events"_s).toArray();
        for (const QJsonValue &event : events)
            labels.append(event[u"params"_s][u"event_label"_s].toString());
    }
    return labels;
}

void LocalCollectServer::accept() {
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        ++m_connections;
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_buffers.remove(socket);
            socket->deleteLater();
        });
    }
}

void LocalCollectServer::readFrom(QTcpSocket *socket) {
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    for (;;) {
        const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
        if (headerEnd < 0)
            return;
        const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
        qsizetype length = 0;
        QByteArray contentType;
        for (const QByteArray &line : lines) {
            const qsizetype colon = line.indexOf(':');
            if (colon < 0)
                continue;
            const QByteArray name = line.left(colon).trimmed().toLower();
            if (name == "content-length")
                length = line.mid(colon + 1).trimmed().toLongLong();
            else if (name == "content-type")
                contentType = line.mid(colon + 1).trimmed();
        }
        const Answer answer = m_policy(m_seen);
        if (answer == Answer::CloseMidBody && buffer.size() > headerEnd + 4) {
            // Part of the batch has arrived: vanish before the rest.
            ++m_seen;
            buffer.clear();
            socket->abort();
            return;
        }
        if (buffer.size() < headerEnd + 4 + length)
            return;
        const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
        Request request;
        request.method = requestLine.value(0);
        request.target = requestLine.value(1);
        request.contentType = contentType;
        request.body = QJsonDocument::fromJson(buffer.mid(headerEnd + 4, length)).object();
        request.answer = answer;
        buffer.remove(0, headerEnd + 4 + length);
        ++m_seen;
        m_requests.append(request);
        if (answer == Answer::CloseAfterBody) {
            // The whole batch arrived, but no answer ever leaves.
            m_buffers.remove(socket);
            socket->abort();
            return;
        }
        if (const char *status = answer == Answer::Accept       ? "204 No Content"
                                 : answer == Answer::Refuse     ? "503 Service Unavailable"
                                 : answer == Answer::BadRequest ? "400 Bad Request"
                                                                : nullptr)
            socket->write("HTTP/1.1 "_ba + status + "\r\nContent-Length: 0\r\n\r\n");
    }
}

bool waitUntil(const std::function<bool()> &condition, int boundMs) {
    QDeadlineTimer deadline(boundMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(1);
    }
    return true;
}
