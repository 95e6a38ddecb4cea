#include "helper/DiskScheduler.h"

#include <QSemaphore>

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// A guard against a hang, never a measure of speed.
constexpr int kHangGuardMs = 60000;

TEST(DiskScheduler, OneJobPerDiskOthersInParallel) {
    helper::DiskScheduler scheduler(4);
    QSemaphore releaseFirst, firstStarted, otherDiskDone, allDone;
    std::mutex mutex;
    std::vector<QString> order;
    std::atomic<bool> secondStarted{false};
    const auto record = [&](const QString &what) {
        std::lock_guard lock(mutex);
        order.push_back(what);
    };

    ASSERT_TRUE(scheduler.submit(u"sdb"_s, [&] {
        record(u"sdb first"_s);
        firstStarted.release();
        releaseFirst.acquire();
        allDone.release();
    }));
    ASSERT_TRUE(firstStarted.tryAcquire(1, kHangGuardMs));
    ASSERT_TRUE(scheduler.submit(u"sdb"_s, [&] {
        secondStarted = true;
        record(u"sdb second"_s);
        allDone.release();
    }));
    ASSERT_TRUE(scheduler.submit(u"sdc"_s, [&] {
        record(u"sdc"_s);
        otherDiskDone.release();
        allDone.release();
    }));
    ASSERT_TRUE(scheduler.submit({}, [&] { allDone.release(); }));

    // The other disk finishes while the first job of sdb still holds it.
    ASSERT_TRUE(otherDiskDone.tryAcquire(1, kHangGuardMs));
    EXPECT_FALSE(secondStarted);
    releaseFirst.release();
    ASSERT_TRUE(allDone.tryAcquire(4, kHangGuardMs));
    scheduler.waitForDone();
    EXPECT_EQ(order, (std::vector<QString>{u"sdb first"_s, u"sdc"_s, u"sdb second"_s}));
}

TEST(DiskScheduler, RefusesWhenTooManyJobsWaitForOneDisk) {
    helper::DiskScheduler scheduler(2, 2);
    QSemaphore release, started;
    std::atomic<int> ran{0};
    ASSERT_TRUE(scheduler.submit(u"loop0"_s, [&] {
        started.release();
        release.acquire();
        ++ran;
    }));
    ASSERT_TRUE(started.tryAcquire(1, kHangGuardMs));
    EXPECT_TRUE(scheduler.submit(u"loop0"_s, [&] { ++ran; }));
    EXPECT_TRUE(scheduler.submit(u"loop0"_s, [&] { ++ran; }));
    EXPECT_FALSE(scheduler.submit(u"loop0"_s, [&] { ++ran; }));
    EXPECT_TRUE(scheduler.submit(u"loop1"_s, [&] { ++ran; }));
    release.release();
    scheduler.waitForDone();
    EXPECT_EQ(ran, 4);
}

} // namespace
