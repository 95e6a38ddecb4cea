#include "StandInHelper.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QMutexLocker>
#include <QPointer>
#include <QtEndian>

using namespace Qt::StringLiterals;

class StandInHelper::Server : public QObject {
public:
    explicit Server(Handler handler)
        : m_handler(std::move(handler)) {}

    bool listen(const QString &path) {
        m_server = new QLocalServer(this);
        QLocalServer::removeServer(path);
        connect(m_server, &QLocalServer::newConnection, this, [this] {
            while (QLocalSocket *socket = m_server->nextPendingConnection())
                accept(socket);
        });
        return m_server->listen(path);
    }

    void accept(QLocalSocket *socket) {
        {
            QMutexLocker lock(&mutex);
            ++connections;
        }
        auto reader = std::make_shared<wire::FrameReader>();
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket, reader] {
            reader->append(socket->readAll());
            QByteArray body;
            wire::FrameReader::Status status;
            while ((status = reader->next(&body)) == wire::FrameReader::Status::Frame) {
                const auto request = wire::decodeRequest(body);
                {
                    QMutexLocker lock(&mutex);
                    QByteArray frame(wire::kPrefixSize, '\0');
                    qToBigEndian(quint32(body.size()), frame.data());
                    frames.append(frame + body);
                    if (request)
                        requests.append(*request);
                }
                if (!request) {
                    socket->abort();
                    return;
                }
                if (!respond(socket, *request))
                    return;
            }
            if (status == wire::FrameReader::Status::Error)
                socket->abort();
        });
    }

    // False once the connection is gone.
    bool respond(QLocalSocket *socket, const wire::Request &request) {
        Handler handler;
        {
            QMutexLocker lock(&mutex);
            handler = m_handler;
        }
        const Response response = handler ? handler(request) : defaultResponse(request);
        switch (response.kind) {
        case Response::Kind::Reply:
            socket->write(wire::encodeReply({request.id, response.reply}));
            socket->flush();
            return true;
        case Response::Kind::Raw:
            socket->write(response.raw);
            socket->flush();
            return true;
        case Response::Kind::Close:
            socket->flush();
            socket->disconnectFromServer();
            return false;
        case Response::Kind::Hold: {
            QMutexLocker lock(&mutex);
            held.append({QPointer<QLocalSocket>(socket), request});
            return true;
        }
        }
        return true;
    }

    void release(bool newestFirst,
                 const std::function<wire::Dictionary(const wire::Request &)> &answer) {
        QList<std::pair<QPointer<QLocalSocket>, wire::Request>> toAnswer;
        {
            QMutexLocker lock(&mutex);
            toAnswer = std::exchange(held, {});
        }
        if (newestFirst)
            std::reverse(toAnswer.begin(), toAnswer.end());
        for (const auto &[socket, request] : toAnswer) {
            if (socket) {
                socket->write(wire::encodeReply({request.id, answer(request)}));
                socket->flush();
            }
        }
    }

    void setHandler(Handler handler) {
        QMutexLocker lock(&mutex);
        m_handler = std::move(handler);
    }

    mutable QMutex mutex;
    int connections = 0;
    QList<QByteArray> frames;
    QList<wire::Request> requests;
    QList<std::pair<QPointer<QLocalSocket>, wire::Request>> held;

private:
    Handler m_handler;
    QLocalServer *m_server = nullptr;
};

StandInHelper::StandInHelper(Handler handler) {
    m_server = new Server(std::move(handler));
    m_server->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, m_server, &QObject::deleteLater);
    m_thread.setObjectName(u"stand-in-helper"_s);
    m_thread.start();
}

StandInHelper::~StandInHelper() {
    m_thread.quit();
    m_thread.wait();
}

bool StandInHelper::listen(const QString &path) {
    m_path = path.isEmpty() ? m_dir.filePath(u"helper.sock"_s) : path;
    bool ok = false;
    QMetaObject::invokeMethod(
        m_server, [this, &ok] { ok = m_server->listen(m_path); }, Qt::BlockingQueuedConnection);
    return ok;
}

void StandInHelper::setHandler(Handler handler) {
    m_server->setHandler(std::move(handler));
}

int StandInHelper::connectionCount() const {
    QMutexLocker lock(&m_server->mutex);
    return m_server->connections;
}

QList<QByteArray> StandInHelper::receivedFrames() const {
    QMutexLocker lock(&m_server->mutex);
    return m_server->frames;
}

QList<wire::Request> StandInHelper::requests() const {
    QMutexLocker lock(&m_server->mutex);
    return m_server->requests;
}

int StandInHelper::heldCount() const {
    QMutexLocker lock(&m_server->mutex);
    return int(m_server->held.size());
}

void StandInHelper::releaseHeld(
    bool newestFirst, const std::function<wire::Dictionary(const wire::Request &)> &answer) {
    QMetaObject::invokeMethod(
        m_server, [this, newestFirst, answer] { m_server->release(newestFirst, answer); },
        Qt::BlockingQueuedConnection);
}

StandInHelper::Response StandInHelper::defaultResponse(const wire::Request &request) {
    Response response;
    response.reply.insert(u"result"_s, request.code == 7 ? u"1.0.1"_s : QString());
    return response;
}
