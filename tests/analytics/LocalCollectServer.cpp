#include "LocalCollectServer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTcpSocket>

using namespace Qt::StringLiterals;

LocalCollectServer::LocalCollectServer() {
    // Sockets stay children of the server until it goes, so no buffer key is ever reused.
    QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
        while (QTcpSocket *socket = m_server.nextPendingConnection())
            QObject::connect(socket, &QTcpSocket::readyRead, socket,
                             [this, socket] { readFrom(socket); });
    });
    m_server.listen(QHostAddress::LocalHost, 0);
}

QUrl LocalCollectServer::endpoint() const {
    return QUrl(u"http://127.0.0.1:%1/mp/collect"_s.arg(m_server.serverPort()));
}

QStringList LocalCollectServer::deliveredLabels() const {
    QStringList labels;
    for (const Request &request : m_requests)
        for (const QJsonValue &event : request.body[u"events"_s].toArray())
            if (request.answer == Answer::Accept)
                labels.append(event[u"params"_s][u"event_label"_s].toString());
    return labels;
}

void LocalCollectServer::readFrom(QTcpSocket *socket) {
    // By Answer: the ones that get a reply at all.
    static const char *const status[] = {"204 No Content", "503 Service Unavailable",
                                         "400 Bad Request"};
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    for (qsizetype headerEnd; (headerEnd = buffer.indexOf("\r\n\r\n")) >= 0;) {
        Request request{buffer.left(headerEnd), {}, m_policy(int(m_requests.size()))};
        const qsizetype lengthAt = request.head.toLower().indexOf("\r\ncontent-length:");
        const qsizetype length =
            lengthAt < 0 ? 0
                         : request.head.mid(lengthAt + 17).split('\r')[0].trimmed().toLongLong();
        const qsizetype bodyStart = headerEnd + 4;
        if (request.answer == Answer::CloseMidBody && buffer.size() > bodyStart) {
            // Part of the batch has arrived: vanish before the rest.
            m_requests.append(request);
            buffer.clear();
            return socket->abort();
        }
        if (buffer.size() < bodyStart + length)
            return;
        request.body = QJsonDocument::fromJson(buffer.mid(bodyStart, length)).object();
        buffer.remove(0, bodyStart + length);
        m_requests.append(request);
        if (int(request.answer) < 3)
            socket->write("HTTP/1.1 "_ba + status[int(request.answer)] +
                          "\r\nContent-Length: 0\r\n\r\n");
    }
}
