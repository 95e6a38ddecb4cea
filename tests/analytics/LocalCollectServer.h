#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QTcpServer>
#include <QUrl>

#include <functional>

class QTcpSocket;

// A small HTTP/1.1 server standing in for the GA4 collection endpoint. What it does with each
// request is decided by a policy, so a test can make it accept, refuse, hang or drop the
// connection halfway through a batch.
class LocalCollectServer : public QObject {
    Q_OBJECT

public:
    enum class Answer { Accept, Refuse, BadRequest, Hang, CloseMidBody, CloseAfterBody };

    struct Request {
        QByteArray method;
        QByteArray target;
        QByteArray contentType;
        QJsonObject body;
        Answer answer;
    };

    LocalCollectServer();
    ~LocalCollectServer() override;

    QUrl endpoint() const;
    // Answer for the n-th request (0-based) that arrives; Accept when unset.
    void setPolicy(std::function<Answer(int)> policy) { m_policy = std::move(policy); }

    const QList<Request> &requests() const { return m_requests; }
    int connectionCount() const { return m_connections; }
    // The "event_label" of every event in requests answered 2xx, in arrival order.
    QStringList deliveredLabels() const;

private:
    void accept();
    void readFrom(QTcpSocket *socket);

    QTcpServer m_server;
    std::function<Answer(int)> m_policy;
    QList<Request> m_requests;
    QHash<QTcpSocket *, QByteArray> m_buffers;
    int m_connections = 0;
    int m_seen = 0;
};

// Runs the event loop until the condition holds; false if it still does not after a generous
// bound, so a broken uploader fails the test instead of hanging it.
bool waitUntil(const std::function<bool()> &condition, int boundMs = 20000);
