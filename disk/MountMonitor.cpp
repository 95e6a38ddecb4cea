#include "disk/MountMonitor.h"

#include "disk/DiskLogging.h"

#include <QSocketNotifier>

#include <libmount.h>

void MountMonitor::MonitorDeleter::operator()(libmnt_monitor *monitor) const {
    mnt_unref_monitor(monitor);
}

MountMonitor::MountMonitor(QObject *parent)
    : QObject(parent) {}

MountMonitor::~MountMonitor() = default;

bool MountMonitor::start() {
    if (m_notifier)
        return true;
    m_monitor.reset(mnt_new_monitor());
    if (!m_monitor || mnt_monitor_enable_kernel(m_monitor.get(), 1) != 0) {
        qCWarning(lcDisk) << "cannot watch the kernel mount table";
        m_monitor.reset();
        return false;
    }
    const int fd = mnt_monitor_get_fd(m_monitor.get());
    if (fd < 0) {
        qCWarning(lcDisk) << "cannot watch the kernel mount table";
        m_monitor.reset();
        return false;
    }
    m_notifier = new QSocketNotifier(fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &MountMonitor::drain);
    return true;
}

void MountMonitor::drain() {
    // Several changes may be pending; one re-read of the table covers them all.
    while (mnt_monitor_next_change(m_monitor.get(), nullptr, nullptr) == 0) {
    }
    Q_EMIT changed();
}
