#include "analytics/MeasurementUploader.h"

#include "LocalCollectServer.h"
#include "analytics/EventQueueFile.h"
#include "analytics/EventTracker.h"
#include "analytics/GoogleAnalytics.h"

#include <QFile>
#include <QJsonArray>
#include <QSet>
#include <QTemporaryDir>
#include <QUrlQuery>

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using Answer = LocalCollectServer::Answer;

namespace {

QByteArray labelled(int n) {
    return EventTracker::eventJson(u"DiskOperation"_s,
                                   GoogleAnalytics::eventParameters(u"open"_s, u"e%1"_s.arg(n)));
}

QList<QByteArray> labelledRange(int from, int to) {
    QList<QByteArray> events;
    for (int n = from; n < to; ++n)
        events.append(labelled(n));
    return events;
}

QStringList labelsRange(int from, int to) {
    QStringList labels;
    for (int n = from; n < to; ++n)
        labels.append(u"e%1"_s.arg(n));
    return labels;
}

class UploaderTest : public ::testing::Test {
protected:
    AnalyticsConfiguration config() const {
        AnalyticsConfiguration c;
        c.measurementId = u"G-TEST123"_s;
        c.apiSecret = u"s3cret"_s;
        c.endpoint = server.endpoint();
        c.queueFilePath = dir.filePath(u"queue"_s);
        c.requestTimeout = std::chrono::milliseconds(400);
        c.initialRetryDelay = std::chrono::milliseconds(10);
        c.maxRetryDelay = std::chrono::milliseconds(80);
        return c;
    }

    // Every event the server accepted, each exactly once, and nothing else.
    void expectDeliveredOnce(const QStringList &expected) {
        QStringList delivered = server.deliveredLabels();
        const QSet<QString> unique(delivered.begin(), delivered.end());
        EXPECT_EQ(unique.size(), delivered.size()) << "an event was accepted twice";
        QStringList sortedExpected = expected;
        sortedExpected.sort();
        delivered.sort();
        EXPECT_EQ(delivered, sortedExpected);
    }

    QTemporaryDir dir;
    LocalCollectServer server;
};

TEST_F(UploaderTest, SendsBatchesOfAtMost25ToTheMeasurementProtocol) {
    MeasurementUploader uploader(config());
    uploader.start();
    uploader.enqueue(labelledRange(0, 60));
    ASSERT_TRUE(waitUntil([&] { return uploader.queuedCount() == 0; }));

    ASSERT_EQ(server.requests().size(), 3);
    const QList<int> sizes = {25, 25, 10};
    for (int i = 0; i < 3; ++i) {
        const auto &request = server.requests()[i];
        EXPECT_EQ(request.method, "POST");
        EXPECT_EQ(request.contentType, "application/json");
        const QUrl target(QString::fromUtf8(request.target));
        EXPECT_EQ(target.path(), u"/mp/collect"_s);
        const QUrlQuery query(target);
        EXPECT_EQ(query.queryItemValue(u"measurement_id"_s), u"G-TEST123"_s);
        EXPECT_EQ(query.queryItemValue(u"api_secret"_s), u"s3cret"_s);
        EXPECT_FALSE(request.body.value(u"client_id"_s).toString().isEmpty());
        EXPECT_EQ(request.body.value(u"events"_s).toArray().size(), sizes[i]);
    }
    const QJsonObject first = server.requests()[0].body[u"events"_s][0].toObject();
    EXPECT_EQ(first[u"name"_s].toString(), u"DiskOperation"_s);
    EXPECT_EQ(first[u"params"_s][u"event_action"_s].toString(), u"open"_s);
    expectDeliveredOnce(labelsRange(0, 60));

    // Nothing is left in the file for the next run.
    EventQueueFile reopened(config().queueFilePath, 100);
    reopened.open();
    EXPECT_TRUE(reopened.isEmpty());
}

struct FailureCase {
    const char *name;
    std::function<Answer(int)> policy;
};

void PrintTo(const FailureCase &c, std::ostream *os) {
    *os << c.name;
}

class UploaderFailureTest : public UploaderTest,
                            public ::testing::WithParamInterface<FailureCase> {};

// Whatever goes wrong on the way, every event arrives, and none twice after a success.
TEST_P(UploaderFailureTest, NoEventLostNoneSentTwiceAfterSuccess) {
    server.setPolicy(GetParam().policy);
    MeasurementUploader uploader(config());
    uploader.start();
    uploader.enqueue(labelledRange(0, 40));
    uploader.enqueue(labelledRange(40, 80));
    ASSERT_TRUE(waitUntil([&] { return uploader.queuedCount() == 0; }));
    expectDeliveredOnce(labelsRange(0, 80));
    EXPECT_GT(server.requests().size() + server.connectionCount(), 4);
}

INSTANTIATE_TEST_SUITE_P(
    Server, UploaderFailureTest,
    ::testing::Values(
        FailureCase{"refusing", [](int n) { return n < 4 ? Answer::Refuse : Answer::Accept; }},
        FailureCase{"timing out", [](int n) { return n < 2 ? Answer::Hang : Answer::Accept; }},
        FailureCase{"going away mid-batch",
                    [](int n) { return n % 2 == 0 ? Answer::CloseMidBody : Answer::Accept; }},
        FailureCase{"going away before answering",
                    [](int n) { return n < 3 ? Answer::CloseAfterBody : Answer::Accept; }},
        FailureCase{"mixed", [](int n) {
                        static const Answer pattern[] = {Answer::Accept, Answer::Refuse,
                                                         Answer::Hang, Answer::CloseMidBody,
                                                         Answer::Accept};
                        return n < 12 ? pattern[n % 5] : Answer::Accept;
                    }}));

TEST_F(UploaderTest, RestartAfterPartialSuccessSendsOnlyTheRest) {
    // The first batch is accepted, then the server goes away for good: the unsent events survive
    // the restart, the accepted ones are not sent again.
    server.setPolicy([](int n) { return n == 0 ? Answer::Accept : Answer::Hang; });
    QString clientId;
    {
        MeasurementUploader uploader(config());
        uploader.start();
        clientId = uploader.clientId();
        uploader.enqueue(labelledRange(0, 60));
        ASSERT_TRUE(waitUntil([&] { return uploader.queuedCount() == 35; }));
    }
    server.setPolicy([](int) { return Answer::Accept; });
    MeasurementUploader next(config());
    next.start();
    EXPECT_FALSE(clientId.isEmpty());
    EXPECT_EQ(next.clientId(), clientId); // the same installation across runs
    EXPECT_EQ(next.queuedCount(), 35);
    ASSERT_TRUE(waitUntil([&] { return next.queuedCount() == 0; }));
    expectDeliveredOnce(labelsRange(0, 60));
}

TEST_F(UploaderTest, RejectedBatchIsDroppedSoTheRestCanFollow) {
    server.setPolicy([](int n) { return n == 0 ? Answer::BadRequest : Answer::Accept; });
    MeasurementUploader uploader(config());
    uploader.start();
    uploader.enqueue(labelledRange(0, 30));
    ASSERT_TRUE(waitUntil([&] { return uploader.queuedCount() == 0; }));
    expectDeliveredOnce(labelsRange(25, 30));
}

TEST_F(UploaderTest, QueueIsBoundedOldestDroppedFirst) {
    server.setPolicy([](int) { return Answer::Refuse; });
    AnalyticsConfiguration c = config();
    c.maxQueuedEvents = 50;
    MeasurementUploader uploader(c);
    uploader.start();
    uploader.enqueue(labelledRange(0, 70));
    uploader.enqueue(labelledRange(70, 120));
    EXPECT_EQ(uploader.queuedCount(), 50);
    ASSERT_TRUE(waitUntil([&] { return server.requests().size() >= 1; }));
    // The batch in flight when the bound was hit may already have gone out; after a success
    // only the newest 50 may remain.
    server.setPolicy([](int) { return Answer::Accept; });
    ASSERT_TRUE(waitUntil([&] { return uploader.queuedCount() == 0; }));
    expectDeliveredOnce(labelsRange(70, 120));
}

TEST_F(UploaderTest, TrackerFromManyThreadsDeliversEverything) {
    auto tracker = std::make_unique<EventTracker>(config());
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([&tracker, t] {
            for (int i = 0; i < 50; ++i)
                tracker->track(u"Menu"_s, GoogleAnalytics::eventParameters(
                                              u"eject all"_s, u"e%1"_s.arg(t * 50 + i)));
        });
    }
    for (std::thread &caller : callers)
        caller.join();
    ASSERT_TRUE(waitUntil([&] { return server.deliveredLabels().size() >= 200; }));
    expectDeliveredOnce(labelsRange(0, 200));
}

TEST_F(UploaderTest, TrackerPersistsPendingEventsWhenStopped) {
    server.setPolicy([](int) { return Answer::Hang; });
    {
        EventTracker tracker(config());
        for (int i = 0; i < 40; ++i)
            tracker.track(u"LifeCycle"_s,
                          GoogleAnalytics::eventParameters(u"soft_launch"_s, u"e%1"_s.arg(i)));
    }
    {
        EventQueueFile queue(config().queueFilePath, 100);
        ASSERT_TRUE(queue.open());
        EXPECT_EQ(queue.size(), 40);
    }
    // Later events are ignored once stopped, never half-queued.
    EventTracker stopped(config());
    stopped.stop();
    stopped.track(u"LifeCycle"_s, GoogleAnalytics::eventParameters({}, {}));
    EventQueueFile after(config().queueFilePath, 100);
    ASSERT_TRUE(after.open());
    EXPECT_EQ(after.size(), 40);
}

TEST(GoogleAnalyticsTest, UnconfiguredNothingLeavesTheMachine) {
    QTemporaryDir dir;
    LocalCollectServer server;
    AnalyticsConfiguration config;
    config.measurementId = u"G-TEST123"_s; // no secret
    config.endpoint = server.endpoint();
    config.queueFilePath = dir.filePath(u"queue"_s);
    GoogleAnalytics::configure(config);
    GoogleAnalytics::trackEventName(u"LifeCycle"_s, u"soft_launch"_s);
    GoogleAnalytics::trackEventName(u"Menu"_s);
    waitUntil([] { return false; }, 200);
    EXPECT_EQ(server.connectionCount(), 0);
    EXPECT_FALSE(QFile::exists(config.queueFilePath));
    // Configuration happens once: a complete one later changes nothing.
    config.apiSecret = u"s3cret"_s;
    GoogleAnalytics::configure(config);
    GoogleAnalytics::trackEventName(u"Menu"_s, u"feedback"_s);
    waitUntil([] { return false; }, 200);
    EXPECT_EQ(server.connectionCount(), 0);
    EXPECT_FALSE(QFile::exists(config.queueFilePath));
}

} // namespace
