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

using Clock = std::chrono::steady_clock;

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

bool readRequests(wire::FrameReader &reader, QByteArrayView bytes, QList<wire::Request> *requests,
                  qsizetype limit) {
    reader.append(bytes);
    for (qsizetype taken = 0; taken < limit; ++taken) {
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
    return true;
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
    bool lookedUp = false;
    wire::FrameReader reader;
    // The reader may still hold complete requests that the last round had no budget for.
    bool backlog = false;
    QByteArray output;
    int inFlight = 0;
    bool broken = false;
    Clock::time_point lastActive;
    bool idle() const { return inFlight == 0 && output.isEmpty() && !backlog; }
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
    // The kernel flags this file with POLLPRI whenever the mount table changes (proc(5)).
    m_mountInfo = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (m_mountInfo < 0)
        qCWarning(lcHelper) << "mount table changes go unnoticed:" << systemError();
    m_authorizers.setMaxThreadCount(m_limits.authorizationThreads);
}

HelperServer::~HelperServer() {
    // Authorizations hand work to the scheduler, and work posts into m_replies: both must finish
    // before the server goes.
    m_authorizers.waitForDone();
    m_scheduler.waitForDone();
    m_connections.clear();
    for (int *fd : {&m_wake[0], &m_wake[1], &m_stop[0], &m_stop[1], &m_mountInfo})
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
        fds.assign({{m_stop[0], POLLIN, 0},
                    {m_wake[0], POLLIN, 0},
                    {m_listenFd, POLLIN, 0},
                    {m_mountInfo, POLLPRI, 0}});
        const size_t fixed = fds.size();
        ids.clear();
        for (const auto &[id, connection] : m_connections) {
            fds.push_back({connection->fd,
                           short(connection->output.isEmpty() ? POLLIN : POLLIN | POLLOUT), 0});
            ids.push_back(id);
        }
        const int ready = ::poll(fds.data(), nfds_t(fds.size()), pollTimeout());
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
        if (fds[3].revents & (POLLPRI | POLLERR))
            m_handler.mountTableChanged();
        if (fds[2].revents & POLLIN)
            acceptAll();
        serveRound(std::span(fds).subspan(fixed), ids);
        closeIdle();
    }
}

int HelperServer::pollTimeout() const {
    std::optional<Clock::time_point> earliest;
    for (const auto &[id, connection] : m_connections) {
        if (connection->backlog)
            return 0;
        if (connection->idle())
            earliest = std::min(earliest.value_or(Clock::time_point::max()),
                                connection->lastActive + m_limits.idleLimit);
    }
    // Nothing to time out: sleep until something happens.
    if (!earliest)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*earliest - Clock::now());
    return int(std::clamp<qint64>(left.count(), 0, std::numeric_limits<int>::max()));
}

void HelperServer::acceptAll() {
    // The rest wait in the backlog for the next round, so a stream of connections refused one by
    // one cannot hold the loop either.
    constexpr int kAcceptsPerRound = 32;
    for (int accepted = 0; accepted < kAcceptsPerRound; ++accepted) {
        const int fd = ::accept4(m_listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) {
            if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
                qCWarning(lcHelper) << "accept failed:" << systemError();
            return;
        }
        auto connection = std::make_unique<Connection>();
        connection->fd = fd;
        if (!Caller::credentialsOf(fd, &connection->caller)) {
            qCWarning(lcHelper) << "a caller without credentials was refused";
            continue;
        }
        if (!admits(*connection))
            continue;
        connection->id = m_nextId++;
        connection->lastActive = Clock::now();
        m_connections.emplace(connection->id, std::move(connection));
    }
}

// The cheap checks on the uid come first; the user database is asked only for the reserve.
bool HelperServer::admits(Connection &connection) {
    const uid_t uid = connection.caller.uid;
    const int open = int(m_connections.size());
    if (open >= m_limits.maxConnections) {
        qCWarning(lcHelper) << "too many connections; refusing one from uid" << uid;
        return false;
    }
    const auto sameUser = [&](const auto &entry) { return entry.second->caller.uid == uid; };
    if (std::count_if(m_connections.begin(), m_connections.end(), sameUser) >=
        m_limits.maxConnectionsPerUser) {
        qCWarning(lcHelper) << "uid" << uid << "holds too many connections; refusing one";
        return false;
    }
    if (open >= m_limits.maxConnections - m_limits.reservedConnections && uid != 0 &&
        !lookedUp(connection).administrator) {
        qCWarning(lcHelper) << "only the slots kept for administrators are left; refusing uid"
                            << uid;
        return false;
    }
    return true;
}

const Caller &HelperServer::lookedUp(Connection &connection) {
    if (!connection.lookedUp) {
        connection.caller.lookUp();
        connection.lookedUp = true;
    }
    return connection.caller;
}

// Reads every user's connections in turn, each user up to the budget of the round; a connection
// whose user has spent it keeps its bytes in the socket until the next round.
void HelperServer::serveRound(std::span<const pollfd> connectionFds,
                              const std::vector<quint64> &ids) {
    std::map<uid_t, int> spent;
    std::optional<quint64> resumeAt;
    const size_t first = size_t(std::lower_bound(ids.begin(), ids.end(), m_resumeAt) - ids.begin());
    for (size_t k = 0; k < ids.size(); ++k) {
        const size_t i = (first + k) % ids.size();
        auto it = m_connections.find(ids[i]);
        if (it == m_connections.end())
            continue;
        Connection &connection = *it->second;
        const short revents = connectionFds[i].revents;
        if (revents & POLLOUT)
            writeTo(connection);
        if (!connection.broken &&
            (connection.backlog || (revents & (POLLIN | POLLHUP | POLLERR)))) {
            int &used = spent[connection.caller.uid];
            if (used < m_limits.requestsPerRound)
                used += readFrom(connection, m_limits.requestsPerRound - used);
            else if (!resumeAt)
                resumeAt = connection.id;
        }
        if (connection.broken)
            m_connections.erase(it);
    }
    m_resumeAt = resumeAt.value_or(0);
}

// Dispatches up to `budget` requests, buffered ones first; returns how many.
int HelperServer::readFrom(Connection &connection, int budget) {
    QList<wire::Request> requests;
    bool intact = readRequests(connection.reader, {}, &requests, budget);
    bool ended = false;
    // A bounded number of reads, so one busy client cannot hold the loop.
    for (int chunk = 0; intact && !ended && requests.size() < budget && chunk < 8; ++chunk) {
        char buffer[16384];
        const ssize_t n = ::recv(connection.fd, buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        ended = n <= 0;
        if (ended)
            break;
        connection.lastActive = Clock::now();
        intact = readRequests(connection.reader, QByteArrayView(buffer, n), &requests,
                              budget - requests.size());
    }
    connection.backlog = requests.size() == budget;
    for (const wire::Request &request : std::as_const(requests)) {
        dispatch(connection, request);
        if (connection.broken)
            return int(requests.size());
    }
    if (!intact)
        qCWarning(lcHelper) << "closing a connection of uid" << connection.caller.uid
                            << "that sent a malformed message";
    connection.broken = ended || !intact;
    return int(requests.size());
}

void HelperServer::closeIdle() {
    const Clock::time_point now = Clock::now();
    std::erase_if(m_connections, [&](const auto &entry) {
        const Connection &connection = *entry.second;
        if (!connection.idle() || now < connection.lastActive + m_limits.idleLimit)
            return false;
        qCInfo(lcHelper) << "closing an idle connection of uid" << connection.caller.uid;
        return true;
    });
}

void HelperServer::dispatch(Connection &connection, const wire::Request &request) {
    Plan plan = m_handler.plan(request, lookedUp(connection));
    if (plan.immediate) {
        queueReply(connection, {request.id, *plan.immediate});
        return;
    }
    if (connection.inFlight >= m_limits.maxInFlightPerConnection) {
        qCWarning(lcHelper) << "closing a connection with too many commands waiting";
        connection.broken = true;
        return;
    }
    // Every answer from here on comes back through postReply().
    ++connection.inFlight;
    Job job{connection.id, request.id, connection.caller.uid, plan.disk, std::move(plan.work)};
    if (plan.authorize)
        authorizeThenSubmit(std::move(job), std::move(plan.authorize));
    else
        submit(std::move(job));
}

// Asking polkit may wait for a person typing a password, so it runs on a pool of its own and the
// disk is locked only once the answer is yes.
void HelperServer::authorizeThenSubmit(Job job, std::function<QString()> authorize) {
    if (!takeAuthorizationSlot(job.owner)) {
        postReply(job.connectionId,
                  {job.requestId,
                   HelperCommands::result(
                       u"You already have %1 commands waiting for authorization. Answer or "
                       u"cancel those first."_s.arg(m_limits.maxAuthorizingPerUser))});
        return;
    }
    m_authorizers.start([this, job = std::move(job), authorize = std::move(authorize)]() mutable {
        const QString refusal = authorize();
        releaseAuthorizationSlot(job.owner);
        if (refusal.isEmpty())
            submit(std::move(job));
        else
            postReply(job.connectionId, {job.requestId, HelperCommands::result(refusal)});
    });
}

bool HelperServer::takeAuthorizationSlot(uid_t uid) {
    std::lock_guard lock(m_authorizingMutex);
    int &pending = m_authorizing[uid];
    if (pending >= m_limits.maxAuthorizingPerUser)
        return false;
    ++pending;
    return true;
}

void HelperServer::releaseAuthorizationSlot(uid_t uid) {
    std::lock_guard lock(m_authorizingMutex);
    if (--m_authorizing[uid] == 0)
        m_authorizing.erase(uid);
}

// Runs on the loop or on an authorization thread.
void HelperServer::submit(Job job) {
    const quint64 connectionId = job.connectionId;
    const quint64 requestId = job.requestId;
    const QString refusal = m_scheduler.submit(
        job.disk, job.owner, [this, connectionId, requestId, work = std::move(job.work)] {
            postReply(connectionId, {requestId, work()});
        });
    if (!refusal.isEmpty())
        postReply(connectionId, {requestId, HelperCommands::result(refusal)});
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
        connection.lastActive = Clock::now();
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
        connection.lastActive = Clock::now();
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
