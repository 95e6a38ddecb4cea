#include "helper/HelperServer.h"

#include "helperclient/wire/WireClient.h"
#include "tests/support/QtPrinters.h"

#include <QSemaphore>
#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;
using wire::WireClient;

namespace {

constexpr int kHangGuardMs = 60000;

QByteArray frameOf(const QByteArray &body) {
    QByteArray frame(4, '\0');
    qToBigEndian(quint32(body.size()), frame.data());
    return frame + body;
}

TEST(ReadRequests, FramesSplitAnywhereAreReassembled) {
    const QByteArray stream =
        wire::encodeRequest({7, 1, {{u"bsdName"_s, u"sdb1"_s}}}) + wire::encodeRequest({8, 7, {}});
    for (qsizetype chunk = 1; chunk <= stream.size(); ++chunk) {
        wire::FrameReader reader;
        QList<wire::Request> requests;
        for (qsizetype offset = 0; offset < stream.size(); offset += chunk)
            ASSERT_TRUE(
                helper::readRequests(reader, QByteArrayView(stream.mid(offset, chunk)), &requests));
        ASSERT_EQ(requests.size(), 2) << "chunk " << chunk;
        EXPECT_EQ(requests[0].parameter.value(u"bsdName"_s), u"sdb1"_s);
        EXPECT_EQ(requests[1].id, 8u);
    }
}

TEST(ReadRequests, BrokenStreamsAreRejected) {
    const QList<QByteArray> broken{
        frameOf("not cbor at all"),
        frameOf(QByteArray::fromHex("a0")),                       // empty map
        frameOf(QByteArray::fromHex("83010203")),                 // array
        QByteArray::fromHex("00010001") + QByteArray(65537, 'x'), // oversize prefix
        QByteArray::fromHex("ffffffff"),
        wire::encodeReply({1, {{u"result"_s, u""_s}}}), // a reply is not a request
    };
    for (const QByteArray &bytes : broken) {
        wire::FrameReader reader;
        QList<wire::Request> requests;
        EXPECT_FALSE(helper::readRequests(reader, bytes, &requests))
            << bytes.left(16).toHex().data();
    }
}

// Version answers at once; code 3 on disk "slow" blocks until the test lets it go.
class ScriptedHandler : public helper::RequestHandler {
public:
    helper::Plan plan(const wire::Request &request, const helper::Caller &caller) const override {
        if (request.code == 7)
            return {helper::HelperCommands::result(u"1.0.1"_s), {}, {}};
        if (request.code == 3)
            return {std::nullopt, u"slow"_s, [this] {
                        started.release();
                        release.acquire();
                        return helper::HelperCommands::result(u"slow done"_s);
                    }};
        if (request.code == 9)
            return {std::nullopt, request.parameter.value(u"disk"_s), [caller] {
                        return helper::HelperCommands::result(QString::number(caller.uid));
                    }};
        return {helper::HelperCommands::result(u"unsupported"_s), {}, {}};
    }
    mutable QSemaphore started, release;
};

class HelperServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        socketPath = dir.filePath(u"helper.sock"_s);
        QString why;
        listenFd = helper::listenOnPath(socketPath, &why);
        ASSERT_GE(listenFd, 0) << why.toStdString();
        server = std::make_unique<helper::HelperServer>(listenFd, handler, scheduler);
        loop = std::thread([this] { served = server->run(); });
    }
    void TearDown() override {
        handler.release.release(100);
        if (server)
            server->stop();
        if (loop.joinable())
            loop.join();
        EXPECT_TRUE(served);
        server.reset();
        if (listenFd >= 0)
            ::close(listenFd);
    }
    std::unique_ptr<WireClient> client() {
        QString why;
        auto c = WireClient::connectTo(socketPath, &why);
        EXPECT_TRUE(c) << why.toStdString();
        return c;
    }

    QTemporaryDir dir;
    QString socketPath;
    int listenFd = -1;
    ScriptedHandler handler;
    helper::DiskScheduler scheduler{4};
    std::unique_ptr<helper::HelperServer> server;
    std::thread loop;
    std::atomic<bool> served{false};
};

TEST_F(HelperServerTest, VersionAnswersWhileALongCommandRunsAndRepliesMatchTheirIds) {
    auto worker = client();
    ASSERT_TRUE(worker->send({100, 3, {}}));
    ASSERT_TRUE(handler.started.tryAcquire(1, kHangGuardMs));
    ASSERT_TRUE(worker->send({101, 7, {}}));
    EXPECT_EQ(worker->receive().value_or(wire::Reply{}).id, 101u);
    auto other = client();
    EXPECT_EQ(other->result(7), u"1.0.1"_s);
    EXPECT_EQ(other->result(9, {{u"disk"_s, u"sdc"_s}}), QString::number(::getuid()));
    handler.release.release();
    const auto second = worker->receive().value_or(wire::Reply{});
    EXPECT_EQ(second.id, 100u);
    EXPECT_EQ(second.reply.value(u"result"_s), u"slow done"_s);
}

// Fifty clients at once, garbage and clients leaving mid-command are tried against the real
// daemon in the integration tests.

TEST(ListenOnPath, RefusesALiveSocketAndReplacesAStaleOne) {
    QTemporaryDir dir;
    const QString path = dir.filePath(u"s.sock"_s);
    QString why;
    const int first = helper::listenOnPath(path, &why);
    ASSERT_GE(first, 0) << why.toStdString();
    EXPECT_EQ(helper::listenOnPath(path, &why), -1);
    EXPECT_TRUE(why.contains(u"already"_s));
    ::close(first);
    const int second = helper::listenOnPath(path, &why);
    EXPECT_GE(second, 0) << why.toStdString();
    ::close(second);
    const QString plainFile = dir.filePath(u"file"_s);
    QFile(plainFile).open(QIODevice::WriteOnly);
    EXPECT_EQ(helper::listenOnPath(plainFile, &why), -1);
}

} // namespace
