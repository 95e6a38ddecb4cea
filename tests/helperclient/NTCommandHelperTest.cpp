#include "helperclient/NTCommandHelper.h"

#include "HelperTestSupport.h"
#include "StandInHelper.h"
#include "helperclient/wire/HelperCommand.h"
#include "util/InstallPaths.h"

#include <QCborMap>
#include <QMutex>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>

using namespace Qt::StringLiterals;
using helpertest::waitUntil;
using Response = StandInHelper::Response;

namespace {

// Collects what a command's handlers see, from whichever thread they run on.
struct Probe {
    QMutex mutex;
    QList<wire::Dictionary> replies;
    QList<QThread *> threads;
    std::atomic<int> errors = 0;

    CommandDelegate::ReplyHandler handler() {
        return [this](const wire::Dictionary &reply) {
            QMutexLocker lock(&mutex);
            replies.append(reply);
            threads.append(QThread::currentThread());
        };
    }
    void send(NTCommandHelper &helper, quint64 code, const wire::Dictionary &parameter = {}) {
        helper.sendCommand(code, parameter, handler(), [this](const QString &) { ++errors; });
    }
    qsizetype count() {
        QMutexLocker lock(&mutex);
        return replies.size();
    }
};

// A code 7 round trip: the channel still answers.
bool roundTrip(NTCommandHelper &helper) {
    auto answered = std::make_shared<std::atomic<bool>>(false);
    helper.sendCommand(7, {}, [answered](const wire::Dictionary &) { *answered = true; });
    return waitUntil([&] { return answered->load(); });
}

class CommandChannel : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_server.listen());
        InstallPaths::setOverride(InstallPaths::Component::HelperSocket, m_server.socketPath());
    }
    void TearDown() override { InstallPaths::clearOverrides(); }

    // Answers code 7 as usual and `other` for everything else.
    void answerOthersWith(const Response &other) {
        m_server.setHandler([other](const wire::Request &request) {
            return request.code == 7 ? StandInHelper::defaultResponse(request) : other;
        });
    }

    StandInHelper m_server;
    helpertest::LogCapture m_errorsLogged{"vantrelo.helperclient", u"sendCommand error:"_s};
};

TEST_F(CommandChannel, EachCodeSendsItsParameterAndRepliesRunOnTheChannelThread) {
    using namespace helpercommand;
    const QString sdb1 = u"sdb1"_s;
    const QList<std::tuple<quint64, wire::Dictionary, wire::Dictionary>> commands = {
        {0, openParameter(u"/media/u/D"_s), {{u"mountPath"_s, u"/media/u/D"_s}}},
        {1, mountParameter(u"D"_s, sdb1), {{u"bsdName"_s, sdb1}, {u"name"_s, u"D"_s}}},
        {2, ejectParameter(u"D"_s, sdb1), {{u"bsdName"_s, sdb1}, {u"name"_s, u"D"_s}}},
        {3, repairParameter(sdb1), {{u"bsdName"_s, sdb1}}},
        {4, eraseParameter(sdb1), {{u"bsdName"_s, sdb1}}},
        {7, helperVersionParameter(), {}},
        {8,
         renameParameter(u"New Name"_s, sdb1),
         {{u"bsdName"_s, sdb1}, {u"newName"_s, u"New Name"_s}}},
    };
    NTCommandHelper helper;
    CommandDelegate &delegate = helper;
    Probe probe;
    for (const auto &[code, parameter, expected] : commands)
        delegate.sendCommand(code, parameter, probe.handler());
    ASSERT_TRUE(waitUntil([&] { return probe.count() == commands.size(); }));

    const QList<wire::Request> received = m_server.record().requests;
    ASSERT_EQ(received.size(), commands.size());
    for (qsizetype i = 0; i < received.size(); ++i) {
        EXPECT_EQ(received[i].code, std::get<0>(commands[i]));
        EXPECT_EQ(received[i].parameter, std::get<2>(commands[i])) << "code " << received[i].code;
        EXPECT_EQ(probe.threads[i], helper.channelThread());
    }
    EXPECT_NE(helper.channelThread(), QThread::currentThread());
    EXPECT_EQ(probe.replies[5].value(u"result"_s), u"1.0.1"_s);
    // Byte for byte: code 7 carries an empty map, not none, and repair a one-entry map.
    const QList<QByteArray> bodies = m_server.record().bodies;
    EXPECT_EQ(bodies[5].toHex(), "a36269640664636f64650769706172616d65746572a0");
    EXPECT_EQ(bodies[3].toHex(),
              "a36269640464636f64650369706172616d65746572a1676273644e616d656473646231");
    EXPECT_EQ(m_server.record().connections, 1);
}

TEST_F(CommandChannel, ClosedConnectionDropsEveryPendingCommandAndTheNextOneReconnects) {
    // Two commands wait; the third makes the helper go away.
    m_server.setHandler([](const wire::Request &request) {
        return request.code == 3 ? Response::close() : Response::hold();
    });
    NTCommandHelper helper;
    Probe dropped;
    for (quint64 code : {0, 1, 3})
        dropped.send(helper, code);
    ASSERT_TRUE(waitUntil([&] { return dropped.errors == 3; }));
    EXPECT_EQ(m_errorsLogged.count(), 3);

    m_server.setHandler({});
    ASSERT_TRUE(roundTrip(helper));
    EXPECT_EQ(m_server.record().connections, 2);
    // The held replies are gone with their connection: nothing may call the dropped handlers.
    m_server.releaseHeld(false, [](const wire::Request &) { return wire::Dictionary(); });
    ASSERT_TRUE(roundTrip(helper));
    EXPECT_EQ(dropped.count(), 0);
    EXPECT_EQ(m_errorsLogged.count(), 3);
}

class CommandChannelBadReply : public CommandChannel,
                               public testing::WithParamInterface<QByteArray> {};

TEST_P(CommandChannelBadReply, IsATransportError) {
    answerOthersWith(Response::raw(GetParam()));
    NTCommandHelper helper;
    Probe probe;
    probe.send(helper, 1);
    ASSERT_TRUE(waitUntil([&] { return probe.errors == 1; }));
    EXPECT_EQ(m_errorsLogged.count(), 1);
    ASSERT_TRUE(roundTrip(helper));
    EXPECT_EQ(probe.count(), 0);
    EXPECT_EQ(m_server.record().connections, 2);
}

QByteArray framed(const QByteArray &body) {
    return QByteArray::fromHex(QByteArray::number(body.size(), 16).rightJustified(8, '0')) + body;
}

INSTANTIATE_TEST_SUITE_P(
    Replies, CommandChannelBadReply,
    testing::Values(
        // Well formed, one entry too big to fit the limit.
        framed(QCborMap{{u"id"_s, 1},
                        {u"reply"_s, QCborMap{{u"result"_s, QString(wire::kMaxMessageSize, u'x')}}}}
                   .toCborValue()
                   .toCbor()),
        // An oversize length alone, an array, a request's shape, a number result, not CBOR.
        QByteArray::fromHex("00010001"), framed(QByteArray::fromHex("8101")),
        framed(QByteArray::fromHex("a36269640164636f64650169706172616d65746572a0")),
        framed(QByteArray::fromHex("a262696401657265706c79a166726573756c7401")),
        framed("not cbor at all")));

TEST_F(CommandChannel, SetupKeepsTheOldConnectionsRepliesAndAnUnansweredCommandBlocksNothing) {
    answerOthersWith(Response::hold());
    NTCommandHelper helper;
    Probe held;
    held.send(helper, 3);
    ASSERT_TRUE(roundTrip(helper));
    EXPECT_EQ(m_server.record().held, 1);
    EXPECT_EQ(m_errorsLogged.count(), 0);

    helper.setup();
    ASSERT_TRUE(roundTrip(helper));
    EXPECT_EQ(m_server.record().connections, 2);
    m_server.releaseHeld(false, [](const wire::Request &) {
        return wire::Dictionary{{u"result"_s, u"late"_s}};
    });
    ASSERT_TRUE(waitUntil([&] { return held.count() == 1; }));
    EXPECT_EQ(held.replies[0].value(u"result"_s), u"late"_s);
    EXPECT_EQ(held.errors, 0);
}

TEST_F(CommandChannel, MissingHelperIsAnErrorAndAStartedHelperIsFoundLater) {
    QTemporaryDir dir;
    const QString path = dir.filePath(u"later.sock"_s);
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket, path);
    NTCommandHelper helper;
    Probe probe;
    probe.send(helper, 7);
    ASSERT_TRUE(waitUntil([&] { return probe.errors == 1; }));
    EXPECT_EQ(m_errorsLogged.count(), 1);

    StandInHelper late;
    ASSERT_TRUE(late.listen(path));
    ASSERT_TRUE(roundTrip(helper));
    EXPECT_EQ(probe.count(), 0);
    EXPECT_EQ(late.record().connections, 1);
}

TEST_F(CommandChannel, OversizeRequestFailsAloneAndTheConnectionStays) {
    NTCommandHelper helper;
    Probe probe;
    probe.send(helper, 0, helpercommand::openParameter(QString(wire::kMaxMessageSize, u'p')));
    ASSERT_TRUE(roundTrip(helper));
    ASSERT_TRUE(waitUntil([&] { return probe.errors == 1; }));
    EXPECT_EQ(m_server.record().requests.size(), 1);
    EXPECT_EQ(m_server.record().connections, 1);
}

// Commands sent from several threads at once, answered newest first: every handler gets the
// reply to its own command.
TEST_F(CommandChannel, OutOfOrderRepliesFromManyThreadsReachTheirOwnCommand) {
    m_server.setHandler([](const wire::Request &) { return Response::hold(); });
    NTCommandHelper helper;
    constexpr int kThreads = 4, kPerThread = 50;
    std::atomic<int> matched = 0, done = 0;
    std::vector<std::unique_ptr<QThread>> senders;
    for (int t = 0; t < kThreads; ++t) {
        senders.emplace_back(QThread::create([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                const QString tag = u"t%1-%2"_s.arg(t).arg(i);
                helper.sendCommand(3, helpercommand::repairParameter(tag),
                                   [&, tag](const wire::Dictionary &reply) {
                                       matched += reply.value(u"result"_s) == tag;
                                       ++done;
                                   });
            }
        }));
        senders.back()->start();
    }
    for (auto &sender : senders)
        sender->wait();
    ASSERT_TRUE(waitUntil([&] { return m_server.record().held == kThreads * kPerThread; }));
    m_server.releaseHeld(true, [](const wire::Request &request) {
        return wire::Dictionary{{u"result"_s, request.parameter.value(u"bsdName"_s)}};
    });
    ASSERT_TRUE(waitUntil([&] { return done == kThreads * kPerThread; }));
    EXPECT_EQ(matched, kThreads * kPerThread);
}

TEST(CommandChannelShared, SharedIsOneInstance) {
    NTCommandHelper *first = NTCommandHelper::shared();
    NTCommandHelper *second = nullptr;
    std::unique_ptr<QThread> other(QThread::create([&] { second = NTCommandHelper::shared(); }));
    other->start();
    other->wait();
    EXPECT_EQ(first, second);
    EXPECT_NE(first->channelThread(), QThread::currentThread());
}

} // namespace
