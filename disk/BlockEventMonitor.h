#pragma once

#include <QObject>
#include <QString>

#include <memory>

struct udev;
struct udev_monitor;
class QSocketNotifier;

// Block-device events straight from the kernel, so it works where udevd does not run.
class BlockEventMonitor final : public QObject {
    Q_OBJECT
public:
    explicit BlockEventMonitor(QObject *parent = nullptr);
    ~BlockEventMonitor() override;

    bool start();

Q_SIGNALS:
    // action: "add", "change", "remove", ...; kernelName: "sdb1".
    void deviceEvent(const QString &action, const QString &kernelName);

private:
    void receive();

    struct UdevDeleter {
        void operator()(udev *context) const;
    };
    struct MonitorDeleter {
        void operator()(udev_monitor *monitor) const;
    };
    std::unique_ptr<udev, UdevDeleter> m_udev;
    std::unique_ptr<udev_monitor, MonitorDeleter> m_monitor;
    QSocketNotifier *m_notifier = nullptr;
};
