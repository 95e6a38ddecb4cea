#pragma once

#include <QLockFile>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

// A private udisks2 stack for integration tests: dbus-daemon with a system-bus configuration on a
// private address (exported as DBUS_SYSTEM_BUS_ADDRESS), udevd when none is running, and udisksd.
// Everything it starts it stops again, by process id.
class UDisksEnvironment {
public:
    // Null with a reason when the stack cannot run here (not root, a program missing, ...).
    // Must come before the process first touches the system bus.
    static std::unique_ptr<UDisksEnvironment> start(QString *why);
    ~UDisksEnvironment();

    // Makes udev look at a device again, then waits until udev has seen every change: a file
    // system written before udev had finished adding the device raises no event of its own.
    void announce(const QString &devicePath = {}) const;

private:
    UDisksEnvironment() = default;

    // ctest runs each case as its own process, in parallel: one stack at a time, so no case
    // stops the udevd another one still relies on.
    QLockFile m_lock{QStringLiteral("/tmp/vantrelo-udisks-environment.lock")};
    QTemporaryDir m_dir;
    QProcess m_dbus;
    QProcess m_udevd;
    QProcess m_udisksd;
};
