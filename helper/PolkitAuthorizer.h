#pragma once

#include "helper/Authorizer.h"

#include <QDBusConnection>
#include <QMutex>

#include <chrono>
#include <optional>

namespace helper {

// Asks the polkit authority on the system bus (DBUS_SYSTEM_BUS_ADDRESS when set), allowing a
// desktop's authentication agent to ask the person for a password. Safe to call from several
// threads at once, with no Qt event loop running: QtDBus serves its connections on a thread of its
// own. A bus that is missing now is looked for again on the next check.
class PolkitAuthorizer : public Authorizer {
public:
    explicit PolkitAuthorizer(std::chrono::milliseconds callTimeout = std::chrono::minutes(5));
    ~PolkitAuthorizer() override;
    PolkitAuthorizer(const PolkitAuthorizer &) = delete;
    PolkitAuthorizer &operator=(const PolkitAuthorizer &) = delete;

    Authorization check(const Caller &caller, const QString &action,
                        const QString &what) const override;

private:
    // The current system bus connection, made again when the last one was lost.
    std::optional<QDBusConnection> bus() const;

    const int m_timeoutMs;
    mutable QMutex m_mutex;
    mutable QString m_connectionName;
    mutable int m_connections = 0;
};

} // namespace helper
