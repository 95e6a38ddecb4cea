#pragma once

#include "helperclient/wire/WireCodec.h"

#include <QList>
#include <QMutex>
#include <QString>
#include <QTemporaryDir>
#include <QThread>

#include <functional>

class QLocalServer;
class QLocalSocket;

// A stand-in for vantrelo-helper: a Unix socket server on its own thread that speaks the wire
// protocol and answers as a test tells it to. It records every frame it receives.
class StandInHelper {
public:
    struct Response {
        enum class Kind {
            Reply, // send `reply` under the request's id
            Raw,   // send `raw` as it stands
            Close, // close the connection without answering
            Hold,  // answer later through releaseHeld(), or never
        };
        Kind kind = Kind::Reply;
        wire::Dictionary reply;
        QByteArray raw;
    };
    using Handler = std::function<Response(const wire::Request &)>;

    // The default handler answers code 7 with "1.0.1" and everything else with an empty result.
    explicit StandInHelper(Handler handler = {});
    ~StandInHelper();
    StandInHelper(const StandInHelper &) = delete;
    StandInHelper &operator=(const StandInHelper &) = delete;

    // Listens on `path`, or on a fresh path in a scratch folder when empty.
    bool listen(const QString &path = {});
    QString socketPath() const { return m_path; }

    void setHandler(Handler handler);
    int connectionCount() const;
    QList<QByteArray> receivedFrames() const; // length prefix included
    QList<wire::Request> requests() const;
    int heldCount() const;
    // Answers the held requests, newest first when asked, with what `answer` gives for each.
    void releaseHeld(bool newestFirst,
                     const std::function<wire::Dictionary(const wire::Request &)> &answer);

    static Response defaultResponse(const wire::Request &request);

private:
    class Server;

    QTemporaryDir m_dir;
    QString m_path;
    QThread m_thread;
    Server *m_server = nullptr;
};
