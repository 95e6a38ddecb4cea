#include "helper/HelperServer.h"

#include "helperclient/wire/WireClient.h"
#include "tests/support/QtPrinters.h"

#include <QScopeGuard>
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
            return {helper::HelperCommands::result(u"1.0.1"_s), {}, {}};
        const QString disk = request.code == 3 ? u"slow"_s : request.parameter.value(u"disk"_s);
        return {std::nullopt, disk, [this, disk, caller, code = request.code] {
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

TEST(HelperServer, OneCommandPerDiskOthersInParallelAndVersionAlwaysAnswers) {
    QTemporaryDir dir;
    const QString socketPath = dir.filePath(u"helper.sock"_s);
    QString why;
    const int listenFd = helper::listenOnPath(socketPath, &why);
    ASSERT_GE(listenFd, 0) << why.toStdString();
    ScriptedHandler handler;
    helper::DiskScheduler scheduler(4);
    helper::HelperServer server(listenFd, handler, scheduler);
    bool served = false;
    std::thread loop([&] { served = server.run(); });
    const auto stop = qScopeGuard([&] {
        handler.release.release(10);
        server.stop();
        loop.join();
        EXPECT_TRUE(served);
        ::close(listenFd);
    });

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

} // namespace
