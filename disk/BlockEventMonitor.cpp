#include "disk/BlockEventMonitor.h"

#include "disk/DiskLogging.h"

#include <QSocketNotifier>

#include <libudev.h>

void BlockEventMonitor::UdevDeleter::operator()(udev *context) const {
    udev_unref(context);
}

void BlockEventMonitor::MonitorDeleter::operator()(udev_monitor *monitor) const {
    udev_monitor_unref(monitor);
}

BlockEventMonitor::BlockEventMonitor(QObject *parent)
    : QObject(parent) {}

BlockEventMonitor::~BlockEventMonitor() = default;

bool BlockEventMonitor::start() {
    if (m_notifier)
        return true;
    m_udev.reset(udev_new());
    if (m_udev)
        m_monitor.reset(udev_monitor_new_from_netlink(m_udev.get(), "kernel"));
    if (!m_monitor ||
        udev_monitor_filter_add_match_subsystem_devtype(m_monitor.get(), "block", nullptr) < 0 ||
        udev_monitor_enable_receiving(m_monitor.get()) < 0) {
        qCWarning(lcDisk) << "cannot listen to block device events";
        m_monitor.reset();
        return false;
    }
    m_notifier =
        new QSocketNotifier(udev_monitor_get_fd(m_monitor.get()), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &BlockEventMonitor::receive);
    return true;
}

void BlockEventMonitor::receive() {
    while (udev_device *device = udev_monitor_receive_device(m_monitor.get())) {
        const char *action = udev_device_get_action(device);
        const char *name = udev_device_get_sysname(device);
        const QString actionText = QString::fromUtf8(action ? action : "");
        const QString kernelName = QString::fromUtf8(name ? name : "");
        udev_device_unref(device);
        Q_EMIT deviceEvent(actionText, kernelName);
    }
}
