#pragma once

#include <QHash>
#include <QJsonObject>
#include <QTcpServer>
#include <QUrl>

#include <functional>

class QTcpSocket;

// A small HTTP/1.1 server standing in for the GA4 collection endpoint. A policy decides how it
// answers each request, so a test can make it accept, refuse, hang or drop a batch halfway.
class LocalCollectServer {
public:
    enum class Answer { Accept, Refuse, BadRequest, Hang, CloseMidBody };
    struct Request {
        QByteArray head;  // request line and headers
        QJsonObject body; // empty when the connection was dropped halfway
        Answer answer;
    };

    LocalCollectServer();
    QUrl endpoint() const;
    // Answer for the n-th request (0-based) that arrives.
    void setPolicy(std::function<Answer(int)> policy) { m_policy = std::move(policy); }
    const QList<Request> &requests() const { return m_requests; }
    // The "event_label" of every event in accepted requests, in arrival order.
    QStringList deliveredLabels() const;

private:
    void readFrom(QTcpSocket *socket);

    std::function<Answer(int)> m_policy = [](int) { return Answer::Accept; };
    QList<Request> m_requests;
    QHash<QTcpSocket *, QByteArray> m_buffers;
    QTcpServer m_server; // last: its sockets go before what they use
};
