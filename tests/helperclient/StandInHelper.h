#pragma once

#include "helperclient/wire/WireCodec.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QMutex>
#include <QPointer>
#include <QTemporaryDir>
#include <QThread>

#include <functional>

// A stand-in for vantrelo-helper: a Unix socket server on its own thread that speaks the wire
// protocol, answers as a test tells it to and records what it receives.
class StandInHelper {
public:
    // Write sends `bytes` as they stand; Close hangs up unanswered; Hold leaves the request
    // unanswered until a Release answers every held one, newest first, with its "bsdName".
    struct Response {
        enum class Kind { Write, Close, Hold, Release } kind = Kind::Write;
        QByteArray bytes;
    };
    using Handler = std::function<Response(const wire::Request &)>;
    struct Record {
        int connections = 0;
        QList<wire::Request> requests;
    };

    static Response reply(const wire::Request &request, const wire::ReplyDictionary &reply) {
        return {Response::Kind::Write, wire::encodeReply({request.id, reply})};
    }
    // Code 7 gets "1.0.1", everything else an empty result.
    static Response defaultResponse(const wire::Request &request) {
        return reply(request, {{QStringLiteral("result"),
                                request.code == 7 ? QStringLiteral("1.0.1") : QString()}});
    }

    explicit StandInHelper(Handler handler = defaultResponse)
        : m_handler(std::move(handler)) {
        m_context->moveToThread(&m_thread);
        QObject::connect(&m_thread, &QThread::finished, m_context, &QObject::deleteLater);
        m_thread.start();
    }
    ~StandInHelper() {
        m_thread.quit();
        m_thread.wait();
    }

    // Listens on `path`, or on a fresh path in a scratch folder.
    bool listen(const QString &path = {}) {
        m_path = path.isEmpty() ? m_dir.filePath(QStringLiteral("helper.sock")) : path;
        bool ok = false;
        QMetaObject::invokeMethod(
            m_context,
            [this, &ok] {
                auto *server = new QLocalServer(m_context);
                QObject::connect(server, &QLocalServer::newConnection, m_context, [this, server] {
                    while (QLocalSocket *socket = server->nextPendingConnection())
                        serve(socket);
                });
                ok = server->listen(m_path);
            },
            Qt::BlockingQueuedConnection);
        return ok;
    }
    QString socketPath() const { return m_path; }

    void setHandler(Handler handler) {
        QMutexLocker lock(&m_mutex);
        m_handler = std::move(handler);
    }
    Record record() const {
        QMutexLocker lock(&m_mutex);
        return m_seen;
    }

private:
    void serve(QLocalSocket *socket);

    QTemporaryDir m_dir;
    QString m_path;
    QThread m_thread;
    QObject *m_context = new QObject; // lives on m_thread, with the server and its sockets
    mutable QMutex m_mutex;
    Handler m_handler;
    Record m_seen;
    QList<std::pair<QPointer<QLocalSocket>, wire::Request>> m_held;
};
