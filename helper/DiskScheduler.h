#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <QThreadPool>

#include <sys/types.h>

#include <deque>
#include <functional>
#include <mutex>

namespace helper {

// Runs jobs on a small pool: one job per disk at a time, in the order they came, while jobs for
// other disks run in parallel. Jobs without a disk run as soon as a thread is free. Each user has
// a share of jobs (running and waiting, all disks together), so one cannot fill every queue.
class DiskScheduler {
public:
    explicit DiskScheduler(int threads = 8, int maxWaitingPerDisk = 16, int maxJobsPerUser = 8);
    // Waits for every submitted job.
    ~DiskScheduler();
    DiskScheduler(const DiskScheduler &) = delete;
    DiskScheduler &operator=(const DiskScheduler &) = delete;

    // "" when the job is taken; otherwise why not (the disk's queue or the owner's share is
    // full), and the job is not run.
    QString submit(const QString &disk, uid_t owner, std::function<void()> job);
    void waitForDone();

private:
    struct Job {
        uid_t owner = 0;
        std::function<void()> run;
    };
    void startLocked(const QString &disk, Job job);
    void finished(const QString &disk, uid_t owner);

    QThreadPool m_pool;
    int m_maxWaiting;
    int m_maxPerUser;
    std::mutex m_mutex;
    QSet<QString> m_running;
    QHash<QString, std::deque<Job>> m_waiting;
    QHash<uid_t, int> m_jobsPerUser;
};

} // namespace helper
