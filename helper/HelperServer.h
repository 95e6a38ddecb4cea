#pragma once

#include "helper/Caller.h"
#include "helper/DiskScheduler.h"
#include "helper/HelperCommands.h"
#include "helperclient/wire/WireCodec.h"

#include <QByteArray>
#include <QList>
#include <QThreadPool>

#include <poll.h>

#include <chrono>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace helper {

// Feeds received bytes to a connection's frame reader and takes up to `limit` complete requests,
// leaving the rest in the reader. False when the stream is broken (oversize length, a body that is
// not a request): the connection must be closed. This is exactly what the server runs on
// untrusted input.
bool readRequests(wire::FrameReader &reader, QByteArrayView bytes, QList<wire::Request> *requests,
                  qsizetype limit = std::numeric_limits<qsizetype>::max());

// Socket helpers for main(): -1 with a reason when it fails.
int listenOnPath(const QString &path, QString *why);
// The socket systemd passed (LISTEN_FDS=1 for this process), or -1.
int inheritedSocket();

// The daemon's event loop over a listening Unix socket. Requests are read and planned on the loop
// thread, a bounded number per user and round so nobody waits behind another user's flood;
// authorizations run on a pool of their own (they may wait for a person), work on the scheduler's
// threads, and the replies come back through a wake-up pipe.
class HelperServer {
public:
    struct Limits {
        int maxConnections = 256;
        // The last slots are kept for root and administrators, so they can still get in to help.
        int reservedConnections = 16;
        // So one local user cannot take every slot and lock the others out.
        int maxConnectionsPerUser = 64;
        int maxInFlightPerConnection = 32;
        qsizetype maxQueuedOutput = 1024 * 1024;
        // Requests read per user in one round of the loop, immediate answers included.
        int requestsPerRound = 16;
        // A connection with nothing running, queued or unsent is closed after this long.
        std::chrono::milliseconds idleLimit{std::chrono::seconds(60)};
        int authorizationThreads = 8;
        // Ejecting every disk asks for several at once.
        int maxAuthorizingPerUser = 8;
    };

    HelperServer(int listenFd, const RequestHandler &handler, DiskScheduler &scheduler);
    HelperServer(int listenFd, const RequestHandler &handler, DiskScheduler &scheduler,
                 Limits limits);
    ~HelperServer();
    HelperServer(const HelperServer &) = delete;
    HelperServer &operator=(const HelperServer &) = delete;

    // Serves until stop(); returns false if the loop could not run.
    bool run();
    // Safe from a signal handler and from any thread.
    void stop();

private:
    struct Connection;
    struct Job {
        quint64 connectionId = 0;
        quint64 requestId = 0;
        uid_t owner = 0;
        QString disk;
        std::function<wire::Dictionary()> work;
    };
    void acceptAll();
    bool admits(Connection &connection);
    static const Caller &lookedUp(Connection &connection);
    int pollTimeout() const;
    void serveRound(std::span<const pollfd> connectionFds, const std::vector<quint64> &ids);
    int readFrom(Connection &connection, int budget);
    void closeIdle();
    void writeTo(Connection &connection);
    void dispatch(Connection &connection, const wire::Request &request);
    void authorizeThenSubmit(Job job, std::function<QString()> authorize);
    bool takeAuthorizationSlot(uid_t uid);
    void releaseAuthorizationSlot(uid_t uid);
    void submit(Job job);
    void postReply(quint64 connectionId, quint64 requestId, const wire::Dictionary &reply);
    void collectReplies();
    void queueReply(Connection &connection, quint64 requestId, const wire::Dictionary &reply);

    int m_listenFd;
    const RequestHandler &m_handler;
    DiskScheduler &m_scheduler;
    Limits m_limits;
    int m_wake[2] = {-1, -1};
    int m_stop[2] = {-1, -1};
    int m_mountInfo = -1;
    quint64 m_nextId = 1;
    std::map<quint64, std::unique_ptr<Connection>> m_connections;
    // Where the next round starts reading: the first connection the last round had no budget for.
    quint64 m_resumeAt = 0;

    QThreadPool m_authorizers;
    std::mutex m_authorizingMutex;
    std::map<uid_t, int> m_authorizing;

    std::mutex m_replyMutex;
    std::vector<std::pair<quint64, QByteArray>> m_replies;
};

} // namespace helper
