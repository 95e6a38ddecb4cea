#include "helper/DiskScheduler.h"

using namespace Qt::StringLiterals;

namespace helper {

DiskScheduler::DiskScheduler(int threads, int maxWaitingPerDisk, int maxJobsPerUser)
    : m_maxWaiting(maxWaitingPerDisk)
    , m_maxPerUser(maxJobsPerUser) {
    m_pool.setMaxThreadCount(threads);
}

DiskScheduler::~DiskScheduler() {
    waitForDone();
}

void DiskScheduler::waitForDone() {
    // A finishing job may start the next one of its disk, so wait until nothing is left.
    for (;;) {
        m_pool.waitForDone();
        std::lock_guard lock(m_mutex);
        if (m_running.isEmpty())
            return;
    }
}

QString DiskScheduler::submit(const QString &disk, uid_t owner, std::function<void()> job) {
    std::lock_guard lock(m_mutex);
    const int jobs = m_jobsPerUser.value(owner);
    if (jobs >= m_maxPerUser)
        return u"You already have %1 commands running or waiting. Try again when they have "
               u"finished."_s.arg(jobs);
    if (!disk.isEmpty() && m_running.contains(disk)) {
        auto &queue = m_waiting[disk];
        if (qsizetype(queue.size()) >= m_maxWaiting)
            return u"Too many commands are waiting for this disk. Try again when they have "
                   u"finished."_s;
        queue.push_back({owner, std::move(job)});
    } else {
        if (!disk.isEmpty())
            m_running.insert(disk);
        startLocked(disk, {owner, std::move(job)});
    }
    m_jobsPerUser[owner] = jobs + 1;
    return {};
}

void DiskScheduler::startLocked(const QString &disk, Job job) {
    m_pool.start([this, disk, job = std::move(job)] {
        job.run();
        finished(disk, job.owner);
    });
}

void DiskScheduler::finished(const QString &disk, uid_t owner) {
    std::lock_guard lock(m_mutex);
    if (--m_jobsPerUser[owner] == 0)
        m_jobsPerUser.remove(owner);
    if (disk.isEmpty())
        return;
    auto it = m_waiting.find(disk);
    if (it == m_waiting.end() || it->empty()) {
        if (it != m_waiting.end())
            m_waiting.erase(it);
        m_running.remove(disk);
        return;
    }
    Job next = std::move(it->front());
    it->pop_front();
    startLocked(disk, std::move(next));
}

} // namespace helper
