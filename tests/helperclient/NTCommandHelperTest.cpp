#include "helperclient/NTCommandHelper.h"

#include "StandInHelper.h"
#include "helperclient/wire/HelperCommand.h"
#include "tests/support/Wait.h"
#include "util/InstallPaths.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <future>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace helpercommand;
using Response = StandInHelper::Response;
using testsupport::waitUntil;

namespace {

const Response kHold{Response::Kind::Hold, {}};

std::atomic<int> s_errorsLogged = 0;

void countErrorLines(QtMsgType, const QMessageLogContext &context, const QString &text) {
    if (qstrcmp(context.category, "vantrelo.helperclient") == 0 &&
        text.startsWith("sendCommand error:"_L1))
        ++s_errorsLogged;
}

// Keeps a command's replies by code, and counts errors.
struct Probe {
    QMutex mutex;
    QMap<quint64, wire::ReplyDictionary> replies;
    std::atomic<int> errors = 0;
    void send(NTCommandHelper &helper, quint64 code) {
        helper.sendCommand(
            code, {},
            [this, code](const wire::ReplyDictionary &reply) {
                QMutexLocker lock(&mutex);
                replies.insert(code, reply);
            },
            [this](const QString &) { ++errors; });
    }
    qsizetype count() {
        QMutexLocker lock(&mutex);
        return replies.size();
    }
};

// Sends code 7 and waits for its reply: the version, if the reply ran on the channel thread.
QString roundTrip(NTCommandHelper &helper) {
    auto reply = std::make_shared<std::promise<QString>>();
    helper.sendCommand(7, {}, [reply, channel = helper.channelThread()](const auto &r) {
        reply->set_value(QThread::currentThread() == channel ? r.value(u"result"_s).toString()
                                                             : u"off"_s);
    });
    std::future<QString> version = reply->get_future();
    const auto ready = [&] { return version.wait_for(0s) == std::future_status::ready; };
    return waitUntil(ready) ? version.get() : u"no reply"_s;
}

class CommandChannel : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_server.listen());
        InstallPaths::setOverride(InstallPaths::Component::HelperSocket, m_server.socketPath());
        s_errorsLogged = 0;
        qInstallMessageHandler(countErrorLines);
    }
    void TearDown() override {
        qInstallMessageHandler(nullptr);
        InstallPaths::clearOverrides();
    }

    StandInHelper m_server;
};

// No helper at first is an error; one started later is found by the next command, which goes
// out as it was given.
TEST_F(CommandChannel, CommandsReachAHelperStartedLaterAndRepliesRunOnTheChannelThread) {
    QTemporaryDir dir;
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket, dir.filePath(u"h.sock"_s));
    NTCommandHelper helper;
    Probe missing;
    missing.send(helper, 7);
    ASSERT_TRUE(waitUntil([&] { return missing.errors == 1; }));
    StandInHelper late;
    ASSERT_TRUE(late.listen(dir.filePath(u"h.sock"_s)));

    static_cast<CommandDelegate &>(helper).sendCommand(8, renameParameter(u"New"_s, u"sdb1"_s), {});
    EXPECT_EQ(roundTrip(helper), u"1.0.1"_s);
    const StandInHelper::Record seen = late.record();
    ASSERT_EQ(seen.requests.size(), 2);
    EXPECT_EQ(seen.requests[0].code, 8u);
    EXPECT_EQ(seen.requests[0].parameter,
              (wire::Dictionary{{u"bsdName"_s, u"sdb1"_s}, {u"newName"_s, u"New"_s}}));
    EXPECT_EQ(seen.connections, 1);
    EXPECT_EQ(missing.count(), 0);
}

// Code 0 waits, code 1 meets the fault: both fail without their handlers being called, and the
// next command goes over a new connection.
TEST_F(CommandChannel, TransportErrorsDropPendingCommandsAndTheNextOneReconnects) {
    const std::pair<const char *, Response> faults[] = {
        {"closed", {Response::Kind::Close, {}}},
        {"oversize", {Response::Kind::Write, QByteArray::fromHex("00010001")}},
        {"number key",
         {Response::Kind::Write, QByteArray::fromHex("0000000ea262696402657265706c79a10160")}},
    };
    for (const auto &[name, fault] : faults) {
        SCOPED_TRACE(name);
        m_server.setHandler([fault](const wire::Request &request) {
            return request.code == 0   ? kHold
                   : request.code == 1 ? fault
                                       : StandInHelper::defaultResponse(request);
        });
        const int connections = m_server.record().connections;
        s_errorsLogged = 0;
        NTCommandHelper helper;
        Probe dropped;
        dropped.send(helper, 0);
        dropped.send(helper, 1);
        ASSERT_TRUE(waitUntil([&] { return dropped.errors == 2; }));
        EXPECT_EQ(roundTrip(helper), u"1.0.1"_s);
        EXPECT_EQ(m_server.record().connections, connections + 2);
        EXPECT_EQ(dropped.count(), 0);
        EXPECT_EQ(s_errorsLogged, 2);
    }
}

// An answer of unexpected types still reaches its handler over the same connection; a "result"
// that is not text is a failure to the mount, version and rename callers.
TEST_F(CommandChannel, RepliesOfAnyValueTypeReachTheirHandler) {
    m_server.setHandler([](const wire::Request &request) {
        if (request.code == kEject)
            return StandInHelper::reply(request, {{u"result"_s, u""_s}, {u"extra"_s, true}});
        return StandInHelper::reply(request, {{u"result"_s, 5}});
    });
    NTCommandHelper helper;
    Probe probe;
    for (const quint64 code : {kMountReadWrite, kHelperVersion, kRename, kEject})
        probe.send(helper, code);
    ASSERT_TRUE(waitUntil([&] { return probe.count() == 4; }));
    for (const quint64 code : {kMountReadWrite, kHelperVersion, kRename}) {
        EXPECT_EQ(probe.replies[code].value(u"result"_s), QVariant(5)) << code;
        EXPECT_EQ(resultOf(probe.replies[code]), std::nullopt) << code;
    }
    EXPECT_FALSE(isHelperVersionCurrent(probe.replies[kHelperVersion]));
    EXPECT_EQ(resultOf(probe.replies[kEject]), u""_s);
    EXPECT_EQ(probe.replies[kEject].value(u"extra"_s), QVariant(true));
    EXPECT_EQ(probe.errors, 0);
    EXPECT_EQ(m_server.record().connections, 1);
}

// Unanswered commands block nothing; answered newest first, after setup() replaced their
// connection, each still gets its own reply.
TEST_F(CommandChannel, LateRepliesOutOfOrderReachTheirOwnCommand) {
    m_server.setHandler([](const wire::Request &request) {
        return request.code == 3   ? kHold
               : request.code == 4 ? Response{Response::Kind::Release, {}}
                                   : StandInHelper::defaultResponse(request);
    });
    NTCommandHelper helper;
    constexpr int kCommands = 50;
    std::atomic<int> matched = 0, done = 0;
    for (int i = 0; i < kCommands; ++i) {
        const QString tag = QString::number(i);
        helper.sendCommand(3, repairParameter(tag), [&, tag](const wire::ReplyDictionary &reply) {
            matched += reply.value(u"result"_s) == tag;
            ++done;
        });
    }
    EXPECT_EQ(roundTrip(helper), u"1.0.1"_s);
    helper.setup();
    EXPECT_EQ(roundTrip(helper), u"1.0.1"_s);
    EXPECT_EQ(m_server.record().connections, 2);
    helper.sendCommand(4, {}, {});
    ASSERT_TRUE(waitUntil([&] { return done == kCommands; }));
    EXPECT_EQ(matched, kCommands);
}

TEST(HelperVersionRule, NewerThanOnePointZeroPointZeroComparedNumerically) {
    for (const char *newer : {"1.0.1", "1.10", "2", "1.0.0.1"})
        EXPECT_TRUE(isHelperVersionCurrent(QString::fromUtf8(newer))) << newer;
    for (const char *older : {"1.0.0", "1.0", "", "0.9.9", "01.0.0"})
        EXPECT_FALSE(isHelperVersionCurrent(QString::fromUtf8(older))) << older;
    using Reply = wire::ReplyDictionary;
    EXPECT_TRUE(isHelperVersionCurrent(Reply{{u"result"_s, u"1.10"_s}, {u"extra"_s, true}}));
    EXPECT_FALSE(isHelperVersionCurrent(Reply{{u"result"_s, QByteArray("1.10")}}));
    EXPECT_FALSE(isHelperVersionCurrent(Reply{}));
}

} // namespace
