#pragma once

#include "helperclient/wire/WireCodec.h"

#include <QList>
#include <QString>
#include <QTemporaryDir>
#include <QThread>

#include <functional>

// A stand-in for vantrelo-helper: a Unix socket server on its own thread that speaks the wire
// protocol and answers as a test tells it to. It records every body it receives.
class StandInHelper {
public:
    struct Response {
        enum class Kind { Reply, Raw, Close, Hold };
        Kind kind = Kind::Reply;
        wire::Dictionary dictionary; // sent under the request's id
        QByteArray bytes;            // sent as it stands
        static Response reply(wire::Dictionary d) { return {Kind::Reply, std::move(d), {}}; }
        static Response raw(QByteArray bytes) { return {Kind::Raw, {}, std::move(bytes)}; }
        static Response close() { return {Kind::Close, {}, {}}; } // without answering
        static Response hold() { return {Kind::Hold, {}, {}}; }   // until releaseHeld(), or never
    };
    using Handler = std::function<Response(const wire::Request &)>;
    using Answer = std::function<wire::Dictionary(const wire::Request &)>;

    // Without a handler, code 7 gets "1.0.1" and everything else an empty result.
    explicit StandInHelper(Handler handler = {});
    ~StandInHelper();
    StandInHelper(const StandInHelper &) = delete;
    StandInHelper &operator=(const StandInHelper &) = delete;

    // Listens on `path`, or on a fresh path in a scratch folder when empty.
    bool listen(const QString &path = {});
    QString socketPath() const { return m_path; }

    void setHandler(Handler handler);
    // What the server has seen so far.
    struct Record {
        int connections = 0;
        QList<QByteArray> bodies; // every frame, without its length prefix
        QList<wire::Request> requests;
        int held = 0;
    };
    Record record() const;
    // Answers the held requests, newest first when asked, with what `answer` gives for each.
    void releaseHeld(bool newestFirst, const Answer &answer);

    static Response defaultResponse(const wire::Request &request);

private:
    class Server;

    QTemporaryDir m_dir;
    QString m_path;
    QThread m_thread;
    Server *m_server = nullptr;
};
