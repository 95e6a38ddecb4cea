#include "helper/HelperServer.h"

#include "helperclient/wire/WireClient.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/Wait.h"

#include <QFile>
#include <QScopeGuard>
#include <QSemaphore>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

constexpr uid_t kNobody = 65534;

// Version answers at once (plan() of the first one from `holdUid` waits for `planGate`); code 3
// holds disk "slow" until the test lets it go; code 5 asks for authorization on disk "d", which
// waits for `authorizeGate` and answers `verdict`; code 9 runs on the disk it names and answers
// with the caller's uid. Work notes the disk it ran on when it ends; plan() notes the caller.
class ScriptedHandler : public helper::RequestHandler {
public:
    helper::Plan plan(const wire::Request &request, const helper::Caller &caller) const override {
        {
            std::lock_guard lock(mutex);
            planned.push_back(caller);
        }
        if (request.code == 7) {
            if (caller.uid == holdUid && !held.exchange(true)) {
                planHeld.release();
                planGate.acquire();
            }
            return {helper::HelperCommands::result(u"1.0.1"_s), {}, {}, {}};
        }
        const QString disk = request.code == 3   ? u"slow"_s
                             : request.code == 5 ? u"d"_s
                                                 : request.parameter.value(u"disk"_s);
        std::function<QString()> authorize;
        if (request.code == 5)
            authorize = [this] {
                authorizing.release();
                authorizeGate.acquire();
                return verdict;
            };
        return {std::nullopt, disk, authorize, [this, disk, caller, code = request.code] {
                    if (code == 3) {
                        started.release();
                        release.acquire();
                    }
                    std::lock_guard lock(mutex);
                    finished << disk;
                    return helper::HelperCommands::result(QString::number(caller.uid));
                }};
    }
    void mountTableChanged() const override { mountChanges.release(); }

    uid_t holdUid = uid_t(-1);
    QString verdict;
    mutable std::atomic<bool> held = false;
    mutable QSemaphore started, release, planHeld, planGate, authorizing, authorizeGate,
        mountChanges;
    mutable std::mutex mutex;
    mutable QStringList finished;
    mutable std::vector<helper::Caller> planned;
};

// A process of uid 65534 that opens `connections` connections, sends `bytes` on each, tells how
// many got an answer and then waits to be ended. After fork() it makes system calls only: the
// test's other threads may hold locks the child would never see released.
class NobodyClient {
public:
    NobodyClient(const QString &socketPath, int connections, const QByteArray &bytes)
        : m_fds(size_t(connections), -1) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray path = QFile::encodeName(socketPath);
        std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
        int report[2];
        if (::pipe(report) != 0)
            return;
        m_pid = ::fork();
        if (m_pid == 0) {
            ::close(report[0]);
            run(address, bytes, report[1]);
        }
        ::close(report[1]);
        m_report = report[0];
    }
    ~NobodyClient() {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
        if (m_report >= 0)
            ::close(m_report);
    }
    pid_t pid() const { return m_pid; }
    // Waits until every connection has its bytes.
    bool sent() { return nextReport() == 's'; }
    // Waits until each connection was answered or closed; how many were answered.
    int answered() { return nextReport(); }

private:
    [[noreturn]] void run(const sockaddr_un &address, const QByteArray &bytes, int report) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)
            ::_exit(1);
        for (int &fd : m_fds) {
            fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
            if (::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
                ::_exit(1);
        }
        // A connection the server turned away may be closed before its bytes go out.
        for (int fd : m_fds) {
            for (qsizetype offset = 0; offset < bytes.size();) {
                const ssize_t n = ::send(fd, bytes.constData() + offset,
                                         size_t(bytes.size() - offset), MSG_NOSIGNAL);
                if (n <= 0)
                    break;
                offset += n;
            }
        }
        char status = 's';
        [[maybe_unused]] ssize_t written = ::write(report, &status, 1);
        status = 0;
        for (int fd : m_fds) {
            pollfd ready{fd, POLLIN, 0};
            char byte;
            if (::poll(&ready, 1, 60000) == 1 && ::recv(fd, &byte, 1, MSG_PEEK) == 1)
                ++status;
        }
        written = ::write(report, &status, 1);
        for (;;)
            ::pause();
    }
    int nextReport() {
        char byte = -1;
        return m_report >= 0 && ::read(m_report, &byte, 1) == 1 ? byte : -1;
    }

    std::vector<int> m_fds;
    pid_t m_pid = -1;
    int m_report = -1;
};

QByteArray versionRequests(int count) {
    QByteArray bytes;
    for (int id = 1; id <= count; ++id)
        bytes += wire::encodeRequest({quint64(id), 7, {}});
    return bytes;
}

// The server on a scratch socket, serving on its own thread until the test ends.
class HelperServerTest : public ::testing::Test {
protected:
    void start(helper::HelperServer::Limits limits = {}, int jobsPerUser = 8) {
        // Another uid must reach the socket inside.
        ::chmod(QFile::encodeName(dir.path()).constData(), 0711);
        socketPath = dir.filePath(u"helper.sock"_s);
        QString why;
        listenFd = helper::listenOnPath(socketPath, &why);
        ASSERT_GE(listenFd, 0) << why.toStdString();
        scheduler = std::make_unique<helper::DiskScheduler>(4, 16, jobsPerUser);
        server = std::make_unique<helper::HelperServer>(listenFd, handler, *scheduler, limits);
        loop = std::thread([this] { served = server->run(); });
    }
    void TearDown() override {
        for (QSemaphore *gate : {&handler.release, &handler.planGate, &handler.authorizeGate})
            gate->release(10);
        if (!server)
            return;
        server->stop();
        loop.join();
        EXPECT_TRUE(served);
        ::close(listenFd);
    }

    QTemporaryDir dir;
    QString socketPath;
    int listenFd = -1;
    ScriptedHandler handler;
    std::unique_ptr<helper::DiskScheduler> scheduler;
    std::unique_ptr<helper::HelperServer> server;
    std::thread loop;
    bool served = false;
};

TEST_F(HelperServerTest, OneCommandPerDiskOthersInParallelAndVersionAlwaysAnswers) {
    start();
    auto worker = wire::WireClient::connectTo(socketPath);
    auto queued = wire::WireClient::connectTo(socketPath);
    auto other = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(worker && queued && other);
    ASSERT_TRUE(worker->send({100, 3, {}}));
    ASSERT_TRUE(handler.started.tryAcquire(1, 60000));
    ASSERT_TRUE(queued->send({200, 9, {{u"disk"_s, u"slow"_s}}}));
    ASSERT_TRUE(worker->send({101, 7, {}}));
    EXPECT_EQ(worker->receive().value_or(wire::Reply{}).id, 101u);
    EXPECT_EQ(other->result(9, {{u"disk"_s, u"sdc"_s}}), QString::number(::getuid()));
    handler.release.release();
    EXPECT_EQ(worker->receive().value_or(wire::Reply{}).id, 100u);
    EXPECT_EQ(queued->receive().value_or(wire::Reply{}).id, 200u);
    EXPECT_EQ(handler.finished, QStringList({u"sdc"_s, u"slow"_s, u"slow"_s}));
}

// One user holding every slot would lock everyone else out of the helper.
TEST_F(HelperServerTest, AUserBeyondTheirShareOfConnectionsIsTurnedAway) {
    helper::HelperServer::Limits limits;
    limits.maxConnectionsPerUser = 2;
    start(limits);
    auto first = wire::WireClient::connectTo(socketPath);
    auto second = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(second->result(7), u"1.0.1"_s);
    auto third = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(third); // the kernel accepts; the server closes it unanswered
    EXPECT_TRUE(third->closedByServer());
    EXPECT_EQ(first->result(7), u"1.0.1"_s);
    first.reset();
    // The freed slot is given to the next connection once the server has seen the close.
    EXPECT_TRUE(testsupport::waitUntil([&] {
        auto fourth = wire::WireClient::connectTo(socketPath);
        return fourth && fourth->result(7) == u"1.0.1"_s;
    }));
}

#define SKIP_UNLESS_ROOT()                                                                         \
    if (::geteuid() != 0)                                                                          \
    GTEST_SKIP() << "needs root to act as another user or to mount"

// Root's request, sent while the loop is busy with a flood of uid 65534, is read in the next round:
// before it, the flooding user gets at most one round's budget in each of the two rounds.
TEST_F(HelperServerTest, AFloodingUserDelaysAnotherUserByOneRoundAtMost) {
    SKIP_UNLESS_ROOT();
    helper::HelperServer::Limits limits;
    limits.requestsPerRound = 4;
    handler.holdUid = kNobody;
    start(limits);
    auto root = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(root);
    ASSERT_EQ(root->result(7), u"1.0.1"_s);
    NobodyClient flood(socketPath, 4, versionRequests(200));
    ASSERT_TRUE(flood.sent());
    ASSERT_TRUE(handler.planHeld.tryAcquire(1, 60000));
    ASSERT_TRUE(root->send({42, 7, {}}));
    handler.planGate.release();
    ASSERT_EQ(root->receive().value_or(wire::Reply{}).id, 42u);
    std::lock_guard lock(handler.mutex);
    const auto rootAgain =
        std::find_if(handler.planned.begin() + 1, handler.planned.end(),
                     [](const helper::Caller &caller) { return caller.uid == 0; });
    ASSERT_NE(rootAgain, handler.planned.end());
    EXPECT_LE(rootAgain - handler.planned.begin() - 1, 2 * limits.requestsPerRound);
}

// The handler learns the caller from the socket's peer: another user's process, not this one.
TEST_F(HelperServerTest, TheHandlerSeesTheConnectingProcessAndItsUser) {
    SKIP_UNLESS_ROOT();
    start();
    NobodyClient nobody(socketPath, 1, wire::encodeRequest({1, 9, {{u"disk"_s, u"sdc"_s}}}));
    ASSERT_TRUE(nobody.sent());
    EXPECT_EQ(nobody.answered(), 1);
    std::lock_guard lock(handler.mutex);
    ASSERT_EQ(handler.planned.size(), 1u);
    EXPECT_EQ(handler.planned[0].uid, kNobody);
    EXPECT_EQ(handler.planned[0].gid, kNobody);
    EXPECT_EQ(handler.planned[0].pid, nobody.pid());
    EXPECT_EQ(handler.finished, QStringList{u"sdc"_s});
}

TEST_F(HelperServerTest, IdleConnectionsAreClosedWhileBusyOnesStay) {
    helper::HelperServer::Limits limits;
    limits.idleLimit = std::chrono::milliseconds(50);
    start(limits);
    auto busy = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(busy && busy->send({1, 3, {}}));
    ASSERT_TRUE(handler.started.tryAcquire(1, 60000));
    auto idle = wire::WireClient::connectTo(socketPath);
    auto halfSent = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(idle && halfSent && halfSent->sendRaw(wire::encodeRequest({2, 7, {}}).first(6)));
    EXPECT_TRUE(idle->closedByServer());
    EXPECT_TRUE(halfSent->closedByServer());
    handler.release.release();
    EXPECT_EQ(busy->receive().value_or(wire::Reply{}).id, 1u);
}

TEST_F(HelperServerTest, TheLastSlotsAreKeptForRootAndAdministrators) {
    SKIP_UNLESS_ROOT();
    helper::HelperServer::Limits limits;
    limits.maxConnections = 4;
    limits.reservedConnections = 2;
    start(limits);
    NobodyClient user(socketPath, 3, versionRequests(1));
    ASSERT_TRUE(user.sent());
    EXPECT_EQ(user.answered(), 2);
    auto first = wire::WireClient::connectTo(socketPath);
    auto second = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->result(7), u"1.0.1"_s);
    EXPECT_EQ(second->result(7), u"1.0.1"_s);
    auto beyond = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(beyond);
    EXPECT_TRUE(beyond->closedByServer());
}

// Authorization may wait for a person for minutes; the disk stays free for others meanwhile, and
// only a yes lets the work run.
TEST_F(HelperServerTest, APendingAuthorizationLeavesItsDiskFree) {
    helper::HelperServer::Limits limits;
    limits.maxAuthorizingPerUser = 1;
    start(limits);
    const QString uid = QString::number(::getuid());
    const struct {
        QString verdict, answer;
        QStringList finished;
    } cases[] = {
        {u""_s, uid, {u"d"_s, u"d"_s}},
        {u"Not authorized: test."_s, u"Not authorized: test."_s, {u"d"_s}},
    };
    for (const auto &c : cases) {
        handler.verdict = c.verdict;
        handler.finished.clear();
        auto asker = wire::WireClient::connectTo(socketPath);
        auto other = wire::WireClient::connectTo(socketPath);
        ASSERT_TRUE(asker && other && asker->send({1, 5, {}}));
        ASSERT_TRUE(handler.authorizing.tryAcquire(1, 60000));
        EXPECT_EQ(other->result(9, {{u"disk"_s, u"d"_s}}, 60000), uid);
        EXPECT_TRUE(other->result(5, {}, 60000).contains(u"waiting for authorization"_s));
        handler.authorizeGate.release();
        EXPECT_EQ(asker->receive().value_or(wire::Reply{}).reply.value(u"result"_s), c.answer);
        std::lock_guard lock(handler.mutex);
        EXPECT_EQ(handler.finished, c.finished);
    }
}

TEST_F(HelperServerTest, AUserBeyondTheirShareOfJobsIsAskedToWait) {
    start({}, 3);
    auto worker = wire::WireClient::connectTo(socketPath);
    auto other = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(worker && other && worker->send({1, 3, {}}));
    ASSERT_TRUE(handler.started.tryAcquire(1, 60000));
    ASSERT_TRUE(worker->send({2, 9, {{u"disk"_s, u"slow"_s}}}));
    ASSERT_TRUE(worker->send({3, 9, {{u"disk"_s, u"slow"_s}}}));
    EXPECT_EQ(other->result(9, {{u"disk"_s, u"sdc"_s}}, 60000),
              u"You already have 3 commands running or waiting. Try again when they have "
              u"finished."_s);
    handler.release.release();
    for (quint64 id : {1, 2, 3})
        EXPECT_EQ(worker->receive().value_or(wire::Reply{}).id, id);
    EXPECT_EQ(other->result(9, {{u"disk"_s, u"sdc"_s}}), QString::number(::getuid()));
}

TEST_F(HelperServerTest, MountTableChangesArePassedToTheHandler) {
    SKIP_UNLESS_ROOT();
    start();
    QTemporaryDir target;
    const QByteArray path = QFile::encodeName(target.path());
    ASSERT_EQ(::mount("vantrelo-server-test", path.constData(), "tmpfs", 0, "size=1m"), 0)
        << std::strerror(errno);
    auto unmount = qScopeGuard([&] { ::umount2(path.constData(), MNT_DETACH); });
    EXPECT_TRUE(handler.mountChanges.tryAcquire(1, 60000));
    unmount.dismiss();
    ASSERT_EQ(::umount2(path.constData(), 0), 0);
    EXPECT_TRUE(handler.mountChanges.tryAcquire(1, 60000));
}

} // namespace
