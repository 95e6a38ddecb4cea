#include "helper/DiskScheduler.h"

namespace helper {

DiskScheduler::DiskScheduler(int threads, int maxWaitingPerDisk)
    : m_maxWaiting(maxWaitingPerDisk) {
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

bool DiskScheduler::submit(const QString &disk, std::function<void()> job) {
    std::lock_guard lock(m_mutex);
    if (disk.isEmpty()) {
        m_pool.start(std::move(job));
        return true;
    }
    if (m_running.contains(disk)) {
        auto &queue = m_waiting[disk];
        if (qsizetype(queue.size()) >= m_maxWaiting)
            return false;
        queue.push_back(std::move(job));
        return true;
    }
    m_running.insert(disk);
    startLocked(disk, std::move(job));
    return true;
}

void DiskScheduler::startLocked(const QString &disk, std::function<void()> job) {
    m_pool.start([this, disk, job = std::move(job)] {
        job();
        finished(disk);
    });
}

void DiskScheduler::finished(const QString &disk) {
    std::lock_guard lock(m_mutex);
    auto it = m_waiting.find(disk);
    if (it == m_waiting.end() || it->empty()) {
        if (it != m_waiting.end())
            m_waiting.erase(it);
        m_running.remove(disk);
        return;
    }
    std::function<void()> next = std::move(it->front());
    it->pop_front();
    startLocked(disk, std::move(next));
}

} // namespace helper
