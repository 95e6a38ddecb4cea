#include "helperclient/NTCommandHelper.h"

#include "HelperTestSupport.h"
#include "StandInHelper.h"
#include "helperclient/HelperCommand.h"
#include "util/InstallPaths.h"

#include <QThread>
#include <QtEndian>

#include <gtest/gtest.h>

#include <atomic>

using namespace Qt::StringLiterals;
using helpertest::waitUntil;
using Response = StandInHelper::Response;

namespace {

// Collects what reply handlers see, from whichever thread they run on.
struct Replies {
    QMutex mutex;
    QList<wire::Dictionary> dictionaries;
    QList<QThread *> threads;

    CommandDelegate::ReplyHandler handler() {
        return [this](const wire::Dictionary &reply) {
            QMutexLocker lock(&mutex);
            dictionaries.append(reply);
            threads.append(QThread::currentThread());
        };
    }
    qsizetype size() {
        QMutexLocker lock(&mutex);
        return dictionaries.size();
    }
};

class CommandChannel : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_server.listen());
        InstallPaths::setOverride(InstallPaths::Component::HelperSocket, m_server.socketPath());
    }
    void TearDown() override { InstallPaths::clearOverrides(); }

    StandInHelper m_server;
    helpertest::LogCapture m_log{"vantrelo.helperclient"};
};

TEST_F(CommandChannel, EachCodeSendsItsParameterKeys) {
    NTCommandHelper helper;
    Replies replies;
    using namespace helpercommand;
    const QList<std::pair<quint64, wire::Dictionary>> commands = {
        {kOpen, openParameter(u"/media/u/DATA"_s)},
        {kMountReadWrite, mountParameter(u"DATA"_s, u"sdb1"_s)},
        {kEject, ejectParameter(u"DATA"_s, u"sdb1"_s)},
        {kRepair, repairParameter(u"sdb1"_s)},
        {kErase, eraseParameter(u"sdb1"_s)},
        {kHelperVersion, helperVersionParameter()},
        {kRename, renameParameter(u"New Name"_s, u"sdb1"_s)},
    };
    for (const auto &[code, parameter] : commands)
        helper.sendCommand(code, parameter, replies.handler());
    ASSERT_TRUE(waitUntil([&] { return replies.size() == commands.size(); }));

    const QList<wire::Request> received = m_server.requests();
    ASSERT_EQ(received.size(), commands.size());
    const QList<quint64> codes = {0, 1, 2, 3, 4, 7, 8};
    const QList<QStringList> keys = {{u"mountPath"_s},
                                     {u"bsdName"_s, u"name"_s},
                                     {u"bsdName"_s, u"name"_s},
                                     {u"bsdName"_s},
                                     {u"bsdName"_s},
                                     {},
                                     {u"bsdName"_s, u"newName"_s}};
    for (qsizetype i = 0; i < received.size(); ++i) {
        EXPECT_EQ(received[i].code, codes[i]);
        EXPECT_EQ(received[i].parameter.keys(), keys[i]) << "code " << codes[i];
    }
    EXPECT_EQ(received[6].parameter.value(u"newName"_s), u"New Name"_s);

    // Byte for byte: code 7 carries an empty map, and repair a one-entry map.
    const QList<QByteArray> frames = m_server.receivedFrames();
    ASSERT_EQ(frames.size(), 7);
    EXPECT_EQ(frames[5].toHex(), QByteArray("00000016a3626964066463"
                                            "6f64650769706172616d65746572a0"));
    EXPECT_EQ(frames[3].toHex(), QByteArray("00000023a3626964046463"
                                            "6f64650369706172616d65746572"
                                            "a16762736"
                                            "44e616d65"
                                            "6473646231"));
    EXPECT_EQ(replies.dictionaries[5].value(u"result"_s), u"1.0.1"_s);
    EXPECT_EQ(m_server.connectionCount(), 1);
}

TEST_F(CommandChannel, RepliesRunOnTheChannelThread) {
    NTCommandHelper helper;
    Replies replies;
    helper.sendCommand(7, {}, replies.handler());
    ASSERT_TRUE(waitUntil([&] { return replies.size() == 1; }));
    EXPECT_NE(replies.threads[0], QThread::currentThread());
    EXPECT_EQ(replies.threads[0], helper.channelThread());
}

TEST_F(CommandChannel, OutOfOrderRepliesReachTheirOwnCommand) {
    m_server.setHandler([](const wire::Request &) {
        return Response{Response::Kind::Hold, {}, {}};
    });
    NTCommandHelper helper;
    QMutex mutex;
    QList<std::pair<QString, QString>> seen; // sent path, answered path
    for (const QString &path : {u"/a"_s, u"/b"_s, u"/c"_s}) {
        helper.sendCommand(0, helpercommand::openParameter(path),
                           [&, path](const wire::Dictionary &reply) {
                               QMutexLocker lock(&mutex);
                               seen.append({path, reply.value(u"result"_s)});
                           });
    }
    ASSERT_TRUE(waitUntil([&] { return m_server.heldCount() == 3; }));
    m_server.releaseHeld(true, [](const wire::Request &request) {
        return wire::Dictionary{{u"result"_s, request.parameter.value(u"mountPath"_s)}};
    });
    ASSERT_TRUE(waitUntil([&] {
        QMutexLocker lock(&mutex);
        return seen.size() == 3;
    }));
    const QList<std::pair<QString, QString>> expected = {
        {u"/c"_s, u"/c"_s}, {u"/b"_s, u"/b"_s}, {u"/a"_s, u"/a"_s}};
    EXPECT_EQ(seen, expected);
}

TEST_F(CommandChannel, ClosedConnectionDropsEveryPendingCommandAndTheNextOneReconnects) {
    std::atomic<int> calls = 0;
    m_server.setHandler([&](const wire::Request &request) {
        // Two commands wait; the third makes the helper go away.
        return Response{request.code == 3 ? Response::Kind::Close : Response::Kind::Hold, {}, {}};
    });
    NTCommandHelper helper;
    std::atomic<int> errors = 0;
    for (quint64 code : {0, 1, 3})
        helper.sendCommand(
            code, {}, [&](const wire::Dictionary &) { ++calls; },
            [&](const QString &) { ++errors; });
    ASSERT_TRUE(waitUntil([&] { return errors == 3; }));
    EXPECT_EQ(m_log.count(u"sendCommand error:"_s), 3);

    m_server.setHandler({});
    Replies replies;
    helper.sendCommand(7, {}, replies.handler());
    ASSERT_TRUE(waitUntil([&] { return replies.size() == 1; }));
    EXPECT_EQ(m_server.connectionCount(), 2);
    // The held replies are gone with their connection: nothing may call the dropped handlers.
    m_server.releaseHeld(false, [](const wire::Request &) { return wire::Dictionary(); });
    helper.sendCommand(7, {}, replies.handler());
    ASSERT_TRUE(waitUntil([&] { return replies.size() == 2; }));
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(m_log.count(u"sendCommand error:"_s), 3);
}

struct BadReply {
    const char *name;
    QByteArray raw;
};

class CommandChannelBadReply : public CommandChannel,
                               public testing::WithParamInterface<BadReply> {};

TEST_P(CommandChannelBadReply, IsATransportError) {
    const QByteArray raw = GetParam().raw;
    m_server.setHandler([raw](const wire::Request &request) {
        if (request.code == 7)
            return StandInHelper::defaultResponse(request);
        return Response{Response::Kind::Raw, {}, raw};
    });
    NTCommandHelper helper;
    std::atomic<int> calls = 0;
    std::atomic<int> errors = 0;
    helper.sendCommand(
        1, {}, [&](const wire::Dictionary &) { ++calls; }, [&](const QString &) { ++errors; });
    ASSERT_TRUE(waitUntil([&] { return errors == 1; }));
    EXPECT_EQ(m_log.count(u"sendCommand error:"_s), 1);

    Replies replies;
    helper.sendCommand(7, {}, replies.handler());
    ASSERT_TRUE(waitUntil([&] { return replies.size() == 1; }));
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(m_server.connectionCount(), 2);
}

QByteArray framed(const QByteArray &body) {
    QByteArray frame(4, '\0');
    qToBigEndian(quint32(body.size()), frame.data());
    return frame + body;
}

QByteArray oversizeReply() {
    // A well-formed reply one byte over the limit.
    const QString padding(wire::kMaxMessageSize, u'x');
    QByteArray body = QByteArray::fromHex("a2626964016572"
                                          "65706c79a166726573756c74");
    body += QByteArray::fromHex("7a") + QByteArray(4, '\0') + padding.toUtf8();
    qToBigEndian(quint32(padding.size()), body.data() + body.size() - padding.size() - 4);
    return framed(body);
}

INSTANTIATE_TEST_SUITE_P(
    Replies, CommandChannelBadReply,
    testing::Values(
        BadReply{"Oversize", oversizeReply()},
        BadReply{"OversizePrefixOnly", QByteArray::fromHex("00010001")},
        BadReply{"NotAMap", framed(QByteArray::fromHex("8101"))},
        BadReply{"RequestShape", framed(QByteArray::fromHex("a3626964016463"
                                                            "6f64650169706172616d65746572a0"))},
        BadReply{"NumberResult", framed(QByteArray::fromHex("a2626964016572"
                                                            "65706c79a166726573756c7401"))},
        BadReply{"Garbage", framed("not cbor at all")}),
    [](const testing::TestParamInfo<BadReply> &param) { return std::string(param.param.name); });

TEST_F(CommandChannel, UnansweredCommandBlocksNothing) {
    m_server.setHandler([](const wire::Request &request) {
        if (request.code == 7)
            return StandInHelper::defaultResponse(request);
        return Response{Response::Kind::Hold, {}, {}};
    });
    NTCommandHelper helper;
    std::atomic<int> calls = 0;
    helper.sendCommand(1, helpercommand::mountParameter(u"A"_s, u"sdb1"_s),
                       [&](const wire::Dictionary &) { ++calls; });
    Replies replies;
    helper.sendCommand(7, {}, replies.handler());
    ASSERT_TRUE(waitUntil([&] { return replies.size() == 1; }));
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(m_server.heldCount(), 1);
    EXPECT_EQ(m_log.count(u"sendCommand error:"_s), 0);
}

TEST_F(CommandChannel, MissingHelperIsAnErrorAndAStartedHelperIsFoundLater) {
    QTemporaryDir dir;
    const QString path = dir.filePath(u"later.sock"_s);
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket, path);
    NTCommandHelper helper;
    std::atomic<int> calls = 0;
    std::atomic<int> errors = 0;
    helper.sendCommand(
        7, {}, [&](const wire::Dictionary &) { ++calls; }, [&](const QString &) { ++errors; });
    ASSERT_TRUE(waitUntil([&] { return errors == 1; }));
    EXPECT_EQ(m_log.count(u"sendCommand error:"_s), 1);

    StandInHelper late;
    ASSERT_TRUE(late.listen(path));
    Replies replies;
    helper.sendCommand(7, {}, replies.handler());
    ASSERT_TRUE(waitUntil([&] { return replies.size() == 1; }));
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(late.connectionCount(), 1);
}

TEST_F(CommandChannel, SetupKeepsRepliesOfTheOldConnectionComing) {
    m_server.setHandler([](const wire::Request &request) {
        if (request.code == 7)
            return StandInHelper::defaultResponse(request);
        return Response{Response::Kind::Hold, {}, {}};
    });
    NTCommandHelper helper;
    Replies held;
    helper.sendCommand(3, {}, held.handler());
    ASSERT_TRUE(waitUntil([&] { return m_server.heldCount() == 1; }));
    helper.setup();
    Replies fresh;
    helper.sendCommand(7, {}, fresh.handler());
    ASSERT_TRUE(waitUntil([&] { return fresh.size() == 1; }));
    EXPECT_EQ(m_server.connectionCount(), 2);
    m_server.releaseHeld(false, [](const wire::Request &) {
        return wire::Dictionary{{u"result"_s, u"late"_s}};
    });
    ASSERT_TRUE(waitUntil([&] { return held.size() == 1; }));
    EXPECT_EQ(held.dictionaries[0].value(u"result"_s), u"late"_s);
}

TEST_F(CommandChannel, OversizeRequestFailsAloneAndTheConnectionStays) {
    NTCommandHelper helper;
    std::atomic<int> errors = 0;
    helper.sendCommand(
        0, helpercommand::openParameter(QString(wire::kMaxMessageSize, u'p')),
        [](const wire::Dictionary &) {}, [&](const QString &) { ++errors; });
    Replies replies;
    helper.sendCommand(7, {}, replies.handler());
    ASSERT_TRUE(waitUntil([&] { return replies.size() == 1 && errors == 1; }));
    EXPECT_EQ(m_server.requests().size(), 1);
    EXPECT_EQ(m_server.connectionCount(), 1);
}

TEST_F(CommandChannel, CommandsFromManyThreadsAllGetTheirReplies) {
    m_server.setHandler([](const wire::Request &request) {
        return Response{
            Response::Kind::Reply, {{u"result"_s, request.parameter.value(u"bsdName"_s)}}, {}};
    });
    NTCommandHelper helper;
    constexpr int kThreads = 4;
    constexpr int kPerThread = 50;
    std::atomic<int> matched = 0;
    std::atomic<int> done = 0;
    QList<QThread *> senders;
    for (int t = 0; t < kThreads; ++t) {
        senders.append(QThread::create([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                const QString tag = u"t%1-%2"_s.arg(t).arg(i);
                helper.sendCommand(3, helpercommand::repairParameter(tag),
                                   [&, tag](const wire::Dictionary &reply) {
                                       if (reply.value(u"result"_s) == tag)
                                           ++matched;
                                       ++done;
                                   });
            }
        }));
        senders.last()->start();
    }
    for (QThread *sender : senders) {
        sender->wait();
        delete sender;
    }
    ASSERT_TRUE(waitUntil([&] { return done == kThreads * kPerThread; }));
    EXPECT_EQ(matched, kThreads * kPerThread);
}

TEST(CommandChannelShared, SharedIsOneInstance) {
    NTCommandHelper *first = NTCommandHelper::shared();
    NTCommandHelper *second = nullptr;
    QThread *other = QThread::create([&] { second = NTCommandHelper::shared(); });
    other->start();
    other->wait();
    delete other;
    EXPECT_EQ(first, second);
    EXPECT_NE(first->channelThread(), QThread::currentThread());
}

} // namespace
