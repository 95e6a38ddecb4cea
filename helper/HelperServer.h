#pragma once

#include "helper/Caller.h"
#include "helper/DiskScheduler.h"
#include "helper/HelperCommands.h"
#include "helperclient/wire/WireCodec.h"

#include <QByteArray>
#include <QList>

#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace helper {

// Feeds received bytes to a connection's frame reader and collects the complete requests. False
// when the stream is broken (oversize length, a body that is not a request): the connection must
// be closed. This is exactly what the server runs on untrusted input.
bool readRequests(wire::FrameReader &reader, QByteArrayView bytes, QList<wire::Request> *requests);

// Socket helpers for main(): -1 with a reason when it fails.
int listenOnPath(const QString &path, QString *why);
// The socket systemd passed (LISTEN_FDS=1 for this process), or -1.
int inheritedSocket();

// The daemon's event loop over a listening Unix socket. Requests are read and planned on the loop
// thread; work runs on the scheduler's threads and the replies come back through a wake-up pipe.
class HelperServer {
public:
    struct Limits {
        int maxConnections = 256;
        // So one local user cannot take every slot and lock the others out.
        int maxConnectionsPerUser = 64;
        int maxInFlightPerConnection = 32;
        qsizetype maxQueuedOutput = 1024 * 1024;
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
    void acceptAll();
    bool admits(const Caller &caller) const;
    void readFrom(Connection &connection);
    void writeTo(Connection &connection);
    void dispatch(Connection &connection, const wire::Request &request);
    void postReply(quint64 connectionId, const wire::Reply &reply);
    void collectReplies();
    void queueReply(Connection &connection, const wire::Reply &reply);

    int m_listenFd;
    const RequestHandler &m_handler;
    DiskScheduler &m_scheduler;
    Limits m_limits;
    int m_wake[2] = {-1, -1};
    int m_stop[2] = {-1, -1};
    quint64 m_nextId = 1;
    std::map<quint64, std::unique_ptr<Connection>> m_connections;

    std::mutex m_replyMutex;
    std::vector<std::pair<quint64, QByteArray>> m_replies;
};

} // namespace helper
