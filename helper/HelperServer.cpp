#include "helper/HelperServer.h"

#include "helper/HelperLogging.h"

#include <QFile>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

using namespace Qt::StringLiterals;

namespace helper {

namespace {

void closeFd(int &fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

QString systemError() {
    return QString::fromLocal8Bit(std::strerror(errno));
}

bool fillAddress(const QString &path, sockaddr_un *address) {
    const QByteArray bytes = QFile::encodeName(path);
    if (bytes.isEmpty() || size_t(bytes.size()) >= sizeof address->sun_path)
        return false;
    std::memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    std::memcpy(address->sun_path, bytes.constData(), size_t(bytes.size()));
    return true;
}

} // namespace

bool readRequests(wire::FrameReader &reader, QByteArrayView bytes, QList<wire::Request> *requests) {
    reader.append(bytes);
    for (;;) {
        QByteArray body;
        switch (reader.next(&body)) {
        case wire::FrameReader::Status::NeedMore:
            return true;
        case wire::FrameReader::Status::Error:
            return false;
        case wire::FrameReader::Status::Frame:
            break;
        }
        std::optional<wire::Request> request = wire::decodeRequest(body);
        if (!request)
            return false;
        requests->append(std::move(*request));
    }
}

int listenOnPath(const QString &path, QString *why) {
    sockaddr_un address{};
    if (!fillAddress(path, &address)) {
        *why = u"the socket path is empty or too long"_s;
        return -1;
    }
    struct stat info {};
    if (::lstat(address.sun_path, &info) == 0) {
        if (!S_ISSOCK(info.st_mode)) {
            *why = u"%1 exists and is not a socket"_s.arg(path);
            return -1;
        }
        // A socket nobody answers on is left over from an earlier run.
        const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool alive = probe >= 0 && ::connect(probe, reinterpret_cast<sockaddr *>(&address),
                                                   sizeof address) == 0;
        if (probe >= 0)
            ::close(probe);
        if (alive) {
            *why = u"another helper already serves %1"_s.arg(path);
            return -1;
        }
        ::unlink(address.sun_path);
    }
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        *why = systemError();
        return -1;
    }
    // Anyone may connect: callers are told apart by their credentials, not by the file mode.
    if (::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        ::chmod(address.sun_path, 0666) != 0 || ::listen(fd, SOMAXCONN) != 0) {
        *why = systemError();
        ::close(fd);
        return -1;
    }
    return fd;
}

int inheritedSocket() {
    const char *pid = std::getenv("LISTEN_PID");
    const char *fds = std::getenv("LISTEN_FDS");
    if (!pid || !fds || QByteArray(pid).toLongLong() != ::getpid() || QByteArray(fds) != "1")
        return -1;
    ::unsetenv("LISTEN_PID");
    ::unsetenv("LISTEN_FDS");
    ::unsetenv("LISTEN_FDNAMES");
    constexpr int kFirstInherited = 3;
    int type = 0;
    socklen_t length = sizeof type;
    if (::getsockopt(kFirstInherited, SOL_SOCKET, SO_TYPE, &type, &length) != 0 ||
        type != SOCK_STREAM)
        return -1;
    ::fcntl(kFirstInherited, F_SETFD, FD_CLOEXEC);
    ::fcntl(kFirstInherited, F_SETFL, ::fcntl(kFirstInherited, F_GETFL) | O_NONBLOCK);
    return kFirstInherited;
}

struct HelperServer::Connection {
    quint64 id = 0;
    int fd = -1;
    Caller caller;
    wire::FrameReader reader;
    QByteArray output;
    int inFlight = 0;
    bool broken = false;
    ~Connection() { closeFd(fd); }
};

HelperServer::HelperServer(int listenFd, const RequestHandler &handler, DiskScheduler &scheduler)
    : HelperServer(listenFd, handler, scheduler, Limits{}) {}

HelperServer::HelperServer(int listenFd, const RequestHandler &handler, DiskScheduler &scheduler,
                           Limits limits)
    : m_listenFd(listenFd)
    , m_handler(handler)
    , m_scheduler(scheduler)
    , m_limits(limits) {
    if (::pipe2(m_wake, O_CLOEXEC | O_NONBLOCK) != 0 ||
        ::pipe2(m_stop, O_CLOEXEC | O_NONBLOCK) != 0)
        qCCritical(lcHelper) << "no wake-up pipe:" << systemError();
}

HelperServer::~HelperServer() {
    // Work still running posts into m_replies; it must finish before the server goes.
    m_scheduler.waitForDone();
    m_connections.clear();
    for (int *fd : {&m_wake[0], &m_wake[1], &m_stop[0], &m_stop[1]})
        closeFd(*fd);
}

void HelperServer::stop() {
    const char byte = 's';
    [[maybe_unused]] const ssize_t written = ::write(m_stop[1], &byte, 1);
}

bool HelperServer::run() {
    if (m_listenFd < 0 || m_wake[0] < 0 || m_stop[0] < 0)
        return false;
    std::vector<pollfd> fds;
    std::vector<quint64> ids;
    for (;;) {
        fds.clear();
        ids.clear();
        fds.push_back({m_stop[0], POLLIN, 0});
        fds.push_back({m_wake[0], POLLIN, 0});
        fds.push_back({m_listenFd, POLLIN, 0});
        for (const auto &[id, connection] : m_connections) {
            short events = POLLIN;
            if (!connection->output.isEmpty())
                events |= POLLOUT;
            fds.push_back({connection->fd, events, 0});
            ids.push_back(id);
        }
        const int ready = ::poll(fds.data(), nfds_t(fds.size()), -1);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            qCCritical(lcHelper) << "poll failed:" << systemError();
            return false;
        }
        if (fds[0].revents)
            return true;
        if (fds[1].revents) {
            char drain[256];
            while (::read(m_wake[0], drain, sizeof drain) > 0) {
            }
            collectReplies();
        }
        if (fds[2].revents & POLLIN)
            acceptAll();
        for (size_t i = 0; i < ids.size(); ++i) {
            const short revents = fds[i + 3].revents;
            auto it = m_connections.find(ids[i]);
            if (it == m_connections.end() || revents == 0)
                continue;
            Connection &connection = *it->second;
            if (revents & (POLLIN | POLLHUP | POLLERR))
                readFrom(connection);
            if (!connection.broken && (revents & POLLOUT))
                writeTo(connection);
            if (connection.broken)
                m_connections.erase(it);
        }
    }
}

void HelperServer::acceptAll() {
    for (;;) {
        const int fd = ::accept4(m_listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) {
            if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
                qCWarning(lcHelper) << "accept failed:" << systemError();
            return;
        }
        auto connection = std::make_unique<Connection>();
        connection->fd = fd;
        if (!Caller::fromSocket(fd, &connection->caller)) {
            qCWarning(lcHelper) << "a caller without credentials was refused";
            continue;
        }
        if (!admits(connection->caller))
            continue;
        connection->id = m_nextId++;
        m_connections.emplace(connection->id, std::move(connection));
    }
}

bool HelperServer::admits(const Caller &caller) const {
    if (int(m_connections.size()) >= m_limits.maxConnections) {
        qCWarning(lcHelper) << "too many connections; refusing one from uid" << caller.uid;
        return false;
    }
    const auto sameUser = [&](const auto &entry) { return entry.second->caller.uid == caller.uid; };
    if (std::count_if(m_connections.begin(), m_connections.end(), sameUser) >=
        m_limits.maxConnectionsPerUser) {
        qCWarning(lcHelper) << "uid" << caller.uid << "holds too many connections; refusing one";
        return false;
    }
    return true;
}

void HelperServer::readFrom(Connection &connection) {
    char buffer[16384];
    // A bounded number of reads per wake-up, so one busy client cannot starve the others.
    for (int round = 0; round < 8; ++round) {
        const ssize_t n = ::recv(connection.fd, buffer, sizeof buffer, 0);
        if (n == 0) {
            connection.broken = true;
            return;
        }
        if (n < 0) {
            if (errno == EINTR)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                connection.broken = true;
            return;
        }
        QList<wire::Request> requests;
        const bool intact = readRequests(connection.reader, QByteArrayView(buffer, n), &requests);
        for (const wire::Request &request : std::as_const(requests)) {
            dispatch(connection, request);
            if (connection.broken)
                return;
        }
        if (!intact) {
            qCWarning(lcHelper) << "closing a connection of uid" << connection.caller.uid
                                << "that sent a malformed message";
            connection.broken = true;
            return;
        }
    }
}

void HelperServer::dispatch(Connection &connection, const wire::Request &request) {
    Plan plan = m_handler.plan(request, connection.caller);
    if (plan.immediate) {
        queueReply(connection, {request.id, *plan.immediate});
        return;
    }
    if (connection.inFlight >= m_limits.maxInFlightPerConnection) {
        qCWarning(lcHelper) << "closing a connection with too many commands waiting";
        connection.broken = true;
        return;
    }
    qCInfo(lcHelper) << "command" << request.code << "from uid" << connection.caller.uid << "pid"
                     << connection.caller.pid << "on" << plan.disk;
    const quint64 connectionId = connection.id;
    const quint64 requestId = request.id;
    const bool taken = m_scheduler.submit(plan.disk, [this, connectionId, requestId,
                                                      authorize = std::move(plan.authorize),
                                                      work = std::move(plan.work)] {
        const QString refusal = authorize ? authorize() : QString();
        postReply(connectionId,
                  {requestId, refusal.isEmpty() ? work() : HelperCommands::result(refusal)});
    });
    if (!taken) {
        queueReply(connection, {request.id, HelperCommands::result(
                                                u"Too many commands are waiting for this disk. "
                                                u"Try again when they have finished."_s)});
        return;
    }
    ++connection.inFlight;
}

void HelperServer::queueReply(Connection &connection, const wire::Reply &reply) {
    QByteArray frame = wire::encodeReply(reply);
    if (frame.isEmpty())
        frame = wire::encodeReply(
            {reply.id, HelperCommands::result(u"The answer was too long to send."_s)});
    if (connection.output.size() + frame.size() > m_limits.maxQueuedOutput) {
        qCWarning(lcHelper) << "closing a connection that does not read its replies";
        connection.broken = true;
        return;
    }
    connection.output.append(frame);
    writeTo(connection);
}

void HelperServer::writeTo(Connection &connection) {
    while (!connection.output.isEmpty()) {
        const ssize_t n = ::send(connection.fd, connection.output.constData(),
                                 size_t(connection.output.size()), MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                connection.broken = true;
            return;
        }
        connection.output.remove(0, n);
    }
}

void HelperServer::postReply(quint64 connectionId, const wire::Reply &reply) {
    QByteArray frame = wire::encodeReply(reply);
    if (frame.isEmpty())
        frame = wire::encodeReply(
            {reply.id, HelperCommands::result(u"The answer was too long to send."_s)});
    {
        std::lock_guard lock(m_replyMutex);
        m_replies.emplace_back(connectionId, std::move(frame));
    }
    const char byte = 'r';
    [[maybe_unused]] const ssize_t written = ::write(m_wake[1], &byte, 1);
}

void HelperServer::collectReplies() {
    std::vector<std::pair<quint64, QByteArray>> replies;
    {
        std::lock_guard lock(m_replyMutex);
        replies.swap(m_replies);
    }
    for (auto &[connectionId, frame] : replies) {
        auto it = m_connections.find(connectionId);
        // The client left while its command ran; the work is done, the answer has nowhere to go.
        if (it == m_connections.end())
            continue;
        Connection &connection = *it->second;
        --connection.inFlight;
        if (connection.output.size() + frame.size() > m_limits.maxQueuedOutput) {
            connection.broken = true;
        } else {
            connection.output.append(frame);
            writeTo(connection);
        }
        if (connection.broken)
            m_connections.erase(it);
    }
}

} // namespace helper
