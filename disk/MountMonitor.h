#pragma once

#include <QObject>

#include <memory>

struct libmnt_monitor;
class QSocketNotifier;

// Tells when the kernel mount table changes. The kernel wakes the descriptor at once, so
// nothing polls and an idle program sleeps.
class MountMonitor final : public QObject {
    Q_OBJECT
public:
    explicit MountMonitor(QObject *parent = nullptr);
    ~MountMonitor() override;

    // False when the kernel table cannot be watched; the program then only lists on request.
    bool start();

Q_SIGNALS:
    void changed();

private:
    void drain();

    struct MonitorDeleter {
        void operator()(libmnt_monitor *monitor) const;
    };
    std::unique_ptr<libmnt_monitor, MonitorDeleter> m_monitor;
    QSocketNotifier *m_notifier = nullptr;
};
