#include "analytics/EventQueueFile.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

QList<QByteArray> events(int from, int to) {
    QList<QByteArray> list;
    for (int n = from; n < to; ++n)
        list.append("{\"n\":" + QByteArray::number(n) + "}");
    return list;
}

QList<QByteArray> contents(const EventQueueFile &queue) {
    QList<QByteArray> list;
    for (const EventQueueFile::Entry &entry : queue.front(int(queue.size())))
        list.append(entry.event);
    return list;
}

qsizetype lineCount(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    return file.readAll().count('\n');
}

class EventQueueFileTest : public ::testing::Test {
protected:
    QString path() const { return dir.filePath(u"sub/queue"_s); }
    QTemporaryDir dir;
};

TEST_F(EventQueueFileTest, RemovedEventsStayRemovedAcrossRuns) {
    {
        EventQueueFile queue(path(), 100);
        ASSERT_TRUE(queue.open());
        EXPECT_EQ(queue.append(events(0, 10)), 0);
        const auto batch = queue.front(4);
        ASSERT_EQ(batch.size(), 4);
        queue.removeThrough(batch.last().sequence);
        queue.removeThrough(batch[1].sequence); // an older sequence again changes nothing
        EXPECT_EQ(contents(queue), events(4, 10));
    }
    EventQueueFile reopened(path(), 100);
    ASSERT_TRUE(reopened.open());
    EXPECT_EQ(contents(reopened), events(4, 10));
    // New events continue after the old ones, with higher sequence numbers.
    reopened.append(events(10, 12));
    const auto all = reopened.front(100);
    ASSERT_EQ(all.size(), 8);
    for (qsizetype i = 1; i < all.size(); ++i)
        EXPECT_LT(all[i - 1].sequence, all[i].sequence);
    EXPECT_EQ(all.last().event, events(11, 12).first());
}

TEST_F(EventQueueFileTest, BoundDropsOldestFirstAndSaysHowMany) {
    {
        EventQueueFile queue(path(), 10);
        queue.open();
        EXPECT_EQ(queue.append(events(0, 8)), 0);
        EXPECT_EQ(queue.append(events(8, 30)), 20);
        EXPECT_EQ(contents(queue), events(20, 30));
    }

    // A smaller bound on the next run trims what was left, oldest first.
    EventQueueFile smaller(path(), 4);
    smaller.open();
    EXPECT_EQ(contents(smaller), events(26, 30));
}

TEST_F(EventQueueFileTest, DamagedLinesAreSkippedGoodOnesKept) {
    QDir().mkpath(dir.filePath(u"sub"_s));
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("1\t{\"n\":1}\n"
               "garbage without a tab\n"
               "x\t{\"n\":2}\n"
               "3\t\n"
               "4\t{\"n\":4}\n"
               "2\t{\"n\":2}\n" // out of order: already behind
               "5\t{\"n\":5");  // cut short by a crash
    file.close();
    {
        EventQueueFile queue(path(), 100);
        queue.open();
        EXPECT_EQ(contents(queue), (QList<QByteArray>{"{\"n\":1}", "{\"n\":4}"}));
        // The next event does not glue onto the cut line.
        queue.append(events(9, 10));
    }
    EventQueueFile reopened(path(), 100);
    reopened.open();
    EXPECT_EQ(contents(reopened), (QList<QByteArray>{"{\"n\":1}", "{\"n\":4}", "{\"n\":9}"}));
}

TEST_F(EventQueueFileTest, UnreadableMarkKeepsEverything) {
    {
        EventQueueFile queue(path(), 100);
        queue.open();
        queue.append(events(0, 3));
    }
    QFile mark(path() + u".head"_s);
    ASSERT_TRUE(mark.open(QIODevice::WriteOnly));
    mark.write("not a number");
    mark.close();
    EventQueueFile queue(path(), 100);
    queue.open();
    EXPECT_EQ(contents(queue), events(0, 3));
}

TEST_F(EventQueueFileTest, DeadLinesAreCompactedAway) {
    {
        EventQueueFile queue(path(), 10000);
        queue.open();
        queue.append(events(0, 5000));
        while (queue.size() > 100)
            queue.removeThrough(queue.front(25).last().sequence);
        EXPECT_LT(lineCount(path()), 2500);
    }
    EventQueueFile reopened(path(), 10000);
    reopened.open();
    EXPECT_EQ(contents(reopened), events(4900, 5000));
    EXPECT_EQ(lineCount(path()), 100);
}

TEST_F(EventQueueFileTest, SecondInstanceNeitherLoadsNorWritesTheFile) {
    auto first = std::make_unique<EventQueueFile>(path(), 100);
    ASSERT_TRUE(first->open());
    first->append(events(0, 5));
    {
        EventQueueFile second(path(), 100);
        EXPECT_FALSE(second.open());
        EXPECT_TRUE(second.isEmpty());
        second.append(events(100, 103));
        second.removeThrough(second.front(3).last().sequence);
    }
    first->removeThrough(first->front(2).last().sequence);
    first->append(events(5, 6));
    first.reset();
    EventQueueFile next(path(), 100);
    ASSERT_TRUE(next.open());
    EXPECT_EQ(contents(next), events(2, 6));
}

TEST_F(EventQueueFileTest, UnwritablePlaceStillQueuesInMemory) {
    QFile blocker(dir.filePath(u"file"_s));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    // The parent "folder" is a plain file, so nothing can be created below it, even as root.
    EventQueueFile queue(dir.filePath(u"file/queue"_s), 100);
    EXPECT_FALSE(queue.open());
    queue.append(events(0, 3));
    EXPECT_EQ(contents(queue), events(0, 3));
    queue.removeThrough(queue.front(1).last().sequence);
    EXPECT_EQ(contents(queue), events(1, 3));
}

} // namespace
