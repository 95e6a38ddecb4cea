#include "helper/HelperServer.h"

#include "helperclient/wire/WireClient.h"
#include "tests/support/QtPrinters.h"

#include <QSemaphore>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

// Version answers at once; code 3 holds disk "slow" until the test lets it go; code 9 runs on the
// disk it names and answers with the caller's uid. Work notes the disk it ran on when it ends.
class ScriptedHandler : public helper::RequestHandler {
public:
    helper::Plan plan(const wire::Request &request, const helper::Caller &caller) const override {
        if (request.code == 7)
            return {helper::HelperCommands::result(u"1.0.1"_s), {}, {}, {}};
        const QString disk = request.code == 3 ? u"slow"_s : request.parameter.value(u"disk"_s);
        return {std::nullopt, disk, {}, [this, disk, caller, code = request.code] {
                    if (code == 3) {
                        started.release();
                        release.acquire();
                    }
                    std::lock_guard lock(mutex);
                    finished << disk;
                    return helper::HelperCommands::result(QString::number(caller.uid));
                }};
    }
    mutable QSemaphore started, release;
    mutable std::mutex mutex;
    mutable QStringList finished;
};

// The server on a scratch socket, serving on its own thread until the test ends.
class HelperServerTest : public ::testing::Test {
protected:
    void start(helper::HelperServer::Limits limits = {}) {
        socketPath = dir.filePath(u"helper.sock"_s);
        QString why;
        listenFd = helper::listenOnPath(socketPath, &why);
        ASSERT_GE(listenFd, 0) << why.toStdString();
        server = std::make_unique<helper::HelperServer>(listenFd, handler, scheduler, limits);
        loop = std::thread([this] { served = server->run(); });
    }
    void TearDown() override {
        handler.release.release(10);
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
    helper::DiskScheduler scheduler{4};
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
    std::unique_ptr<wire::WireClient> fourth;
    for (int attempt = 0; attempt < 200 && !fourth; ++attempt) {
        fourth = wire::WireClient::connectTo(socketPath);
        if (fourth && fourth->result(7) != u"1.0.1"_s)
            fourth.reset();
    }
    EXPECT_TRUE(fourth);
}

} // namespace
