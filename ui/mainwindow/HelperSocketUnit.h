#pragma once

#include <QString>

// Whether the helper is started by systemd through its socket unit, worked out from files
// alone (no privileges, no process started).
class HelperSocketUnit {
public:
    HelperSocketUnit() = delete;

    static inline const QString kUnitName = QStringLiteral("vantrelo-helper.socket");

    // systemd runs (root/run/systemd/system exists) and the unit is enabled: sockets.target
    // wants it in the administrator's, the runtime or a vendor unit folder, and
    // it is not masked. root is "/" except
    // in tests.
    static bool isEnabled(const QString &root = QStringLiteral("/"));
};
