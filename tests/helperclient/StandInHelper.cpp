#include "StandInHelper.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QMutexLocker>
#include <QPointer>

#include <algorithm>

using namespace Qt::StringLiterals;

class StandInHelper::Server : public QObject {
public:
    bool listen(const QString &path) {
        auto *server = new QLocalServer(this);
        QLocalServer::removeServer(path);
        connect(server, &QLocalServer::newConnection, this, [this, server] {
            while (QLocalSocket *socket = server->nextPendingConnection())
                accept(socket);
        });
        return server->listen(path);
    }

    void accept(QLocalSocket *socket) {
        {
            QMutexLocker lock(&mutex);
            ++seen.connections;
        }
        auto reader = std::make_shared<wire::FrameReader>();
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket, reader] {
            reader->append(socket->readAll());
            QByteArray body;
            wire::FrameReader::Status status;
            while ((status = reader->next(&body)) == wire::FrameReader::Status::Frame) {
                const auto request = wire::decodeRequest(body);
                Handler current;
                {
                    QMutexLocker lock(&mutex);
                    seen.bodies.append(body);
                    if (request)
                        seen.requests.append(*request);
                    current = handler;
                }
                if (!request) {
                    socket->abort();
                    return;
                }
                if (!respond(socket, *request,
                             current ? current(*request) : defaultResponse(*request)))
                    return;
            }
            if (status == wire::FrameReader::Status::Error)
                socket->abort();
        });
    }

    // False once the connection is gone.
    bool respond(QLocalSocket *socket, const wire::Request &request, const Response &response) {
        switch (response.kind) {
        case Response::Kind::Reply:
            socket->write(wire::encodeReply({request.id, response.dictionary}));
            break;
        case Response::Kind::Raw:
            socket->write(response.bytes);
            break;
        case Response::Kind::Close:
            socket->disconnectFromServer();
            return false;
        case Response::Kind::Hold: {
            QMutexLocker lock(&mutex);
            held.append({QPointer<QLocalSocket>(socket), request});
            return true;
        }
        }
        socket->flush();
        return true;
    }

    void release(bool newestFirst, const Answer &answer) {
        QMutexLocker lock(&mutex);
        auto toAnswer = std::exchange(held, {});
        lock.unlock();
        if (newestFirst)
            std::reverse(toAnswer.begin(), toAnswer.end());
        for (const auto &[socket, request] : toAnswer)
            if (socket)
                respond(socket, request, Response::reply(answer(request)));
    }

    mutable QMutex mutex;
    Handler handler;
    Record seen;
    QList<std::pair<QPointer<QLocalSocket>, wire::Request>> held;
};

StandInHelper::StandInHelper(Handler handler)
    : m_server(new Server) {
    m_server->handler = std::move(handler);
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
    QMutexLocker lock(&m_server->mutex);
    m_server->handler = std::move(handler);
}

StandInHelper::Record StandInHelper::record() const {
    QMutexLocker lock(&m_server->mutex);
    Record record = m_server->seen;
    record.held = int(m_server->held.size());
    return record;
}

void StandInHelper::releaseHeld(bool newestFirst, const Answer &answer) {
    QMetaObject::invokeMethod(
        m_server, [this, newestFirst, answer] { m_server->release(newestFirst, answer); },
        Qt::BlockingQueuedConnection);
}

StandInHelper::Response StandInHelper::defaultResponse(const wire::Request &request) {
    return Response::reply({{u"result"_s, request.code == 7 ? u"1.0.1"_s : QString()}});
}
