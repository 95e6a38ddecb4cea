#include "analytics/MeasurementUploader.h"

#include "LocalCollectServer.h"
#include "analytics/EventTracker.h"
#include "analytics/GoogleAnalytics.h"
#include "analytics/SystemInfo.h"
#include "tests/support/Wait.h"

#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QtCore/qtestsupport_core.h>

#include <gtest/gtest.h>

#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Answer = LocalCollectServer::Answer;
using testsupport::waitUntil;

namespace {

QStringList labels(int from, int to) {
    QStringList list;
    for (int n = from; n < to; ++n)
        list.append(u"e%1"_s.arg(n));
    return list;
}

QList<QByteArray> events(int from, int to) {
    QList<QByteArray> list;
    for (const QString &label : labels(from, to))
        list.append(EventTracker::eventJson(u"DiskOperation"_s,
                                            GoogleAnalytics::eventParameters(u"open"_s, label)));
    return list;
}

AnalyticsConfiguration configFor(const LocalCollectServer &server, const QTemporaryDir &dir) {
    AnalyticsConfiguration c;
    c.measurementId = u"G-TEST123"_s;
    c.apiSecret = u"s3cret"_s;
    c.endpoint = server.endpoint();
    c.queueFilePath = dir.filePath(u"queue"_s);
    c.requestTimeout = 400ms;
    c.initialRetryDelay = 10ms;
    c.maxRetryDelay = 80ms;
    return c;
}

// Events in the order they arrived do not matter; each one arriving exactly once does.
QStringList sorted(QStringList list) {
    list.sort();
    return list;
}

TEST(MeasurementUploader, SendsBatchesOfAtMost25ToTheMeasurementProtocol) {
    QTemporaryDir dir;
    LocalCollectServer server;
    MeasurementUploader uploader(configFor(server, dir));
    uploader.start();
    uploader.enqueue(events(0, 60));
    // GA4 takes names of 40 characters and values of 100; a null action goes out as "".
    uploader.enqueue({EventTracker::eventJson(
        QString(60, u'N'), GoogleAnalytics::eventParameters({}, QString(300, u'x')))});
    ASSERT_TRUE(waitUntil([&] { return uploader.queuedCount() == 0; }));
    ASSERT_EQ(server.requests().size(), 3);
    for (int i = 0; i < 3; ++i) {
        const auto &request = server.requests()[i];
        EXPECT_TRUE(request.head.startsWith(
            "POST /mp/collect?measurement_id=G-TEST123&api_secret=s3cret HTTP/1.1\r\n"));
        EXPECT_TRUE(request.head.toLower().contains("\r\ncontent-type: application/json"));
        EXPECT_FALSE(request.body[u"client_id"_s].toString().isEmpty());
        EXPECT_EQ(request.body[u"events"_s].toArray().size(), i < 2 ? 25 : 11);
    }
    const QJsonValue first = server.requests()[0].body[u"events"_s][0];
    EXPECT_EQ(first[u"name"_s], QJsonValue(u"DiskOperation"_s));
    EXPECT_EQ(first[u"params"_s].toObject(),
              (QJsonObject{{u"soft_name"_s, u"Vantrelo"_s},
                           {u"track_version"_s, u"1.2.0"_s},
                           {u"event_label"_s, u"e0"_s},
                           {u"event_action"_s, u"open"_s},
                           {u"system_version"_s, SystemInfo::systemVersion()},
                           {u"serial"_s, SystemInfo::serialNumber()}}));
    const QJsonValue last = server.requests()[2].body[u"events"_s][10];
    EXPECT_EQ(last[u"name"_s], QJsonValue(QString(40, u'N')));
    EXPECT_EQ(last[u"params"_s][u"event_action"_s], QJsonValue(u""_s));
    EXPECT_EQ(sorted(server.deliveredLabels()), sorted(labels(0, 60) << QString(100, u'x')));
}

// The second and fourth requests fail, each after a success: nothing is lost, nothing accepted is
// sent again, and a batch the server calls malformed is dropped so the rest can follow.
TEST(MeasurementUploader, NoEventLostNoneSentTwiceWhateverTheServerDoes) {
    const std::pair<Answer, QStringList> cases[] = {
        {Answer::Refuse, labels(0, 80)},
        {Answer::Hang, labels(0, 80)},
        {Answer::CloseMidBody, labels(0, 80)},
        {Answer::BadRequest, labels(0, 25) + labels(50, 75)}};
    for (const auto &[failure, expected] : cases) {
        SCOPED_TRACE(int(failure));
        QTemporaryDir dir;
        LocalCollectServer server;
        server.setPolicy([failure](int n) { return n == 1 || n == 3 ? failure : Answer::Accept; });
        MeasurementUploader uploader(configFor(server, dir));
        uploader.start();
        uploader.enqueue(events(0, 40));
        uploader.enqueue(events(40, 80));
        ASSERT_TRUE(waitUntil([&] { return uploader.queuedCount() == 0; }));
        EXPECT_EQ(sorted(server.deliveredLabels()), sorted(expected));
    }
}

// The queue holds the newest 50; the first batch is accepted, then the server stops answering.
// The next run sends what is left, and the same installation id.
TEST(MeasurementUploader, NextRunSendsOnlyWhatWasNotAccepted) {
    QTemporaryDir dir;
    LocalCollectServer server;
    // By request number, not by time: the server may read the second batch only after the first
    // uploader is gone.
    server.setPolicy([](int n) { return n == 1 ? Answer::Hang : Answer::Accept; });
    AnalyticsConfiguration config = configFor(server, dir);
    config.maxQueuedEvents = 50;
    QString clientId;
    {
        MeasurementUploader uploader(config);
        uploader.start();
        clientId = uploader.clientId();
        uploader.enqueue(events(0, 60));
        ASSERT_TRUE(waitUntil([&] { return uploader.queuedCount() == 25; }));
    }
    QFile queue(config.queueFilePath); // and a crash cut a last line short
    ASSERT_TRUE(queue.open(QIODevice::Append) && queue.write("99\t{\"name\":\"Cut") > 0);
    queue.close();
    MeasurementUploader next(config);
    next.start();
    EXPECT_EQ(next.clientId(), clientId);
    EXPECT_EQ(next.queuedCount(), 25);
    ASSERT_TRUE(waitUntil([&] { return next.queuedCount() == 0; }));
    EXPECT_EQ(sorted(server.deliveredLabels()), sorted(labels(10, 60)));
}

// Nothing listens at first, so everything tracked must survive the tracker going away.
TEST(EventTracker, EventsFromTwoThreadsAllArriveAfterARestart) {
    QTemporaryDir dir;
    LocalCollectServer server;
    AnalyticsConfiguration config = configFor(server, dir);
    config.endpoint.setPort(1);
    {
        EventTracker tracker(config);
        const auto track = [&tracker](int from) {
            for (const QString &label : labels(from, from + 100))
                tracker.track(u"Menu"_s, GoogleAnalytics::eventParameters(u"eject"_s, label));
        };
        std::thread first(track, 0), second(track, 100);
        first.join();
        second.join();
    }
    EventTracker next(configFor(server, dir));
    ASSERT_TRUE(waitUntil([&] { return server.deliveredLabels().size() >= 200; }));
    EXPECT_EQ(sorted(server.deliveredLabels()), sorted(labels(0, 200)));
}

TEST(GoogleAnalytics, WithoutASecretNothingLeavesTheMachineEvenIfOneComesLater) {
    QTemporaryDir dir;
    LocalCollectServer server;
    AnalyticsConfiguration config = configFor(server, dir);
    config.apiSecret.clear();
    GoogleAnalytics::configure(config);
    GoogleAnalytics::trackEventName(u"LifeCycle"_s, u"soft_launch"_s);
    // Configuration happens once: a complete one later changes nothing.
    GoogleAnalytics::configure(configFor(server, dir));
    GoogleAnalytics::trackEventName(u"Menu"_s, u"feedback"_s);
    QTest::qWait(300);
    EXPECT_TRUE(server.requests().isEmpty());
    EXPECT_FALSE(QFile::exists(config.queueFilePath));
}

} // namespace
