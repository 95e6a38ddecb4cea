#pragma once

#include "helper/DeviceFacts.h"

#include <QList>

#include <sys/types.h>

#include <mutex>
#include <optional>

namespace helper {

// Whom the helper mounted each volume for. A mount is known by its id, device and target
// together, so a later mount that reuses the id is nobody's until remembered again.
class MountRecord {
public:
    void remember(const MountEntry &mount, uid_t uid);
    std::optional<uid_t> mountedFor(const MountEntry &mount) const;
    void forget(const MountEntry &mount);
    // Drops the mounts that are no longer in `current`, so an id the kernel hands out again
    // cannot match an old entry.
    void keepOnly(const QList<MountEntry> &current);

private:
    struct Entry {
        int mountId;
        QString device;
        QString target;
        uid_t uid;
    };
    static bool matches(const Entry &entry, const MountEntry &mount);

    mutable std::mutex m_mutex;
    QList<Entry> m_entries;
};

} // namespace helper
