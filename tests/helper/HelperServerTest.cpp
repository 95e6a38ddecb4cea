#include "helper/HelperServer.h"

#include "helperclient/wire/WireClient.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/Wait.h"

#include <QFile>
#include <QScopeGuard>
#include <QSemaphore>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
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

// A connection whose peer is uid 65534. The kernel takes the credentials at connect(), and the
// raw system calls change this thread's ids only, never the server thread's.
std::unique_ptr<wire::WireClient> connectAsNobody(const QString &socketPath) {
    std::unique_ptr<wire::WireClient> client;
    if (::syscall(SYS_setresgid, -1, kNobody, -1) == 0 &&
        ::syscall(SYS_setresuid, -1, kNobody, -1) == 0)
        client = wire::WireClient::connectTo(socketPath);
    if (::syscall(SYS_setresuid, -1, 0, -1) != 0 || ::syscall(SYS_setresgid, -1, 0, -1) != 0)
        std::abort(); // the test would go on as nobody
    return client;
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

#define SKIP_UNLESS_ROOT()                                                                         \
    if (::geteuid() != 0)                                                                          \
    GTEST_SKIP() << "needs root to act as another user or to mount"

TEST_F(HelperServerTest, OneCommandPerDiskOthersInParallelAndVersionAlwaysAnswers) {
    start();
    auto worker = wire::WireClient::connectTo(socketPath);
    auto queued = wire::WireClient::connectTo(socketPath);
    auto other = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(worker && queued && other && worker->send({100, 3, {}}));
    ASSERT_TRUE(handler.started.tryAcquire(1, 60000));
    ASSERT_TRUE(queued->send({200, 9, {{u"disk"_s, u"slow"_s}}}) && worker->send({101, 7, {}}));
    EXPECT_EQ(worker->receive().value_or(wire::Reply{}).id, 101u);
    EXPECT_EQ(other->result(9, {{u"disk"_s, u"sdc"_s}}), QString::number(::getuid()));
    handler.release.release();
    EXPECT_EQ(worker->receive().value_or(wire::Reply{}).id, 100u);
    EXPECT_EQ(queued->receive().value_or(wire::Reply{}).id, 200u);
    EXPECT_EQ(handler.finished, QStringList({u"sdc"_s, u"slow"_s, u"slow"_s}));
}

// A broken frame closes its own connection only, and a client that leaves mid-frame or before
// its answer disturbs nobody: the next command on that disk still runs.
TEST_F(HelperServerTest, BrokenAndAbandonedConnectionsLeaveOthersServed) {
    start();
    auto steady = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(steady);
    {
        auto leaving = wire::WireClient::connectTo(socketPath);
        auto partial = wire::WireClient::connectTo(socketPath);
        ASSERT_TRUE(leaving && partial && leaving->send({1, 3, {}}));
        ASSERT_TRUE(partial->sendRaw(wire::encodeRequest({1, 7, {}}).left(5)));
        ASSERT_TRUE(handler.started.tryAcquire(1, 60000));
    }
    // Not CBOR, an oversize length, a reply instead of a request.
    for (const QByteArray &garbage :
         {QByteArray::fromHex("0000000568656c6c6f"), QByteArray::fromHex("ffffffff00"),
          wire::encodeReply({1, {{u"result"_s, u""_s}}})}) {
        auto bad = wire::WireClient::connectTo(socketPath);
        ASSERT_TRUE(bad && bad->sendRaw(garbage));
        EXPECT_TRUE(bad->closedByServer());
        EXPECT_EQ(steady->result(7), u"1.0.1"_s);
    }
    handler.release.release();
    EXPECT_EQ(steady->result(9, {{u"disk"_s, u"slow"_s}}), QString::number(::getuid()));
}

// One user holding every slot would lock everyone else out of the helper.
TEST_F(HelperServerTest, AUserBeyondTheirShareOfConnectionsIsTurnedAway) {
    helper::HelperServer::Limits limits;
    limits.maxConnectionsPerUser = 2;
    start(limits);
    auto first = wire::WireClient::connectTo(socketPath);
    auto second = wire::WireClient::connectTo(socketPath);
    auto third = wire::WireClient::connectTo(socketPath); // the kernel accepts, the server closes
    ASSERT_TRUE(first && second && third);
    EXPECT_EQ(second->result(7), u"1.0.1"_s);
    EXPECT_TRUE(third->closedByServer());
    first.reset();
    // The freed slot goes to the next connection once the server has seen the close.
    EXPECT_TRUE(testsupport::waitUntil([&] {
        auto fourth = wire::WireClient::connectTo(socketPath);
        return fourth && fourth->result(7) == u"1.0.1"_s;
    }));
}

// The caller comes from the socket's peer (another user here, not this one), and the last slots
// are kept for root and administrators.
TEST_F(HelperServerTest, AnotherUsersConnectionsAreTheirsAndLeaveTheLastSlotsToRoot) {
    SKIP_UNLESS_ROOT();
    helper::HelperServer::Limits limits;
    limits.maxConnections = 4;
    limits.reservedConnections = 2;
    start(limits);
    std::vector<std::unique_ptr<wire::WireClient>> users, roots;
    // In this order: the server takes them in turn.
    for (int i = 0; i < 3; ++i)
        users.push_back(connectAsNobody(socketPath));
    for (int i = 0; i < 3; ++i)
        roots.push_back(wire::WireClient::connectTo(socketPath));
    for (const auto &[clients, uid] : {std::pair(&users, u"65534"_s), std::pair(&roots, u"0"_s)}) {
        ASSERT_TRUE((*clients)[0] && (*clients)[1] && (*clients)[2]);
        EXPECT_EQ((*clients)[0]->result(9, {{u"disk"_s, u"sdc"_s}}), uid);
        EXPECT_EQ((*clients)[1]->result(7), u"1.0.1"_s);
        EXPECT_TRUE((*clients)[2]->closedByServer());
    }
    std::lock_guard lock(handler.mutex);
    const helper::Caller &caller = handler.planned.at(0);
    EXPECT_EQ(std::tuple(caller.uid, caller.gid, caller.pid),
              std::tuple(kNobody, kNobody, ::getpid()));
}

// Root's request, sent while the loop is busy with a flood of uid 65534, is read in the next round:
// before it, the flooding user gets at most one round's budget in each of the two rounds.
TEST_F(HelperServerTest, AFloodingUserDelaysAnotherUserByOneRoundAtMost) {
    SKIP_UNLESS_ROOT();
    helper::HelperServer::Limits limits;
    limits.requestsPerRound = 4;
    handler.holdUid = kNobody;
    start(limits);
    auto root = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(root && root->result(7) == u"1.0.1"_s);
    QByteArray requests;
    for (quint64 id = 1; id <= 200; ++id)
        requests += wire::encodeRequest({id, 7, {}});
    std::vector<std::unique_ptr<wire::WireClient>> flood;
    for (int i = 0; i < 4; ++i) {
        flood.push_back(connectAsNobody(socketPath));
        ASSERT_TRUE(flood.back() && flood.back()->sendRaw(requests));
    }
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

// Authorization may wait for a person for minutes; the disk stays free for others meanwhile, a
// second one from the same user is asked to wait, and only a yes lets the work run.
TEST_F(HelperServerTest, APendingAuthorizationLeavesItsDiskFree) {
    helper::HelperServer::Limits limits;
    limits.maxAuthorizingPerUser = 1;
    start(limits);
    const QString uid = QString::number(::getuid()), no = u"Not authorized: test."_s;
    for (const auto &[verdict, answer, finished] :
         {std::tuple(u""_s, uid, QStringList{u"d"_s, u"d"_s}),
          std::tuple(no, no, QStringList{u"d"_s})}) {
        handler.verdict = verdict;
        handler.finished.clear();
        auto asker = wire::WireClient::connectTo(socketPath);
        auto other = wire::WireClient::connectTo(socketPath);
        ASSERT_TRUE(asker && other && asker->send({1, 5, {}}));
        ASSERT_TRUE(handler.authorizing.tryAcquire(1, 60000));
        EXPECT_EQ(other->result(9, {{u"disk"_s, u"d"_s}}, 60000), uid);
        EXPECT_TRUE(other->result(5, {}, 60000).contains(u"waiting for authorization"_s));
        handler.authorizeGate.release();
        EXPECT_EQ(asker->receive().value_or(wire::Reply{}).reply.value(u"result"_s), answer);
        std::lock_guard lock(handler.mutex);
        EXPECT_EQ(handler.finished, finished);
    }
}

TEST_F(HelperServerTest, AUserBeyondTheirShareOfJobsIsAskedToWait) {
    start({}, 3);
    auto worker = wire::WireClient::connectTo(socketPath);
    auto other = wire::WireClient::connectTo(socketPath);
    ASSERT_TRUE(worker && other && worker->send({1, 3, {}}));
    ASSERT_TRUE(handler.started.tryAcquire(1, 60000));
    for (quint64 id : {2, 3})
        ASSERT_TRUE(worker->send({id, 9, {{u"disk"_s, u"slow"_s}}}));
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
