#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <QThreadPool>

#include <deque>
#include <functional>
#include <mutex>

namespace helper {

// Runs jobs on a small pool: one job per disk at a time, in the order they came, while jobs for
// other disks run in parallel. Jobs without a disk run as soon as a thread is free.
class DiskScheduler {
public:
    explicit DiskScheduler(int threads = 8, int maxWaitingPerDisk = 16);
    // Waits for every submitted job.
    ~DiskScheduler();
    DiskScheduler(const DiskScheduler &) = delete;
    DiskScheduler &operator=(const DiskScheduler &) = delete;

    // False when too many jobs already wait for that disk; the job is then not taken.
    bool submit(const QString &disk, std::function<void()> job);
    void waitForDone();

private:
    void startLocked(const QString &disk, std::function<void()> job);
    void finished(const QString &disk);

    QThreadPool m_pool;
    int m_maxWaiting;
    std::mutex m_mutex;
    QSet<QString> m_running;
    QHash<QString, std::deque<std::function<void()>>> m_waiting;
};

} // namespace helper
