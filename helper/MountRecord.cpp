#include "helper/MountRecord.h"

#include <algorithm>

namespace helper {

bool MountRecord::matches(const Entry &entry, const MountEntry &mount) {
    return entry.mountId == mount.mountId && entry.device == mount.device &&
           entry.target == mount.target;
}

void MountRecord::remember(const MountEntry &mount, uid_t uid) {
    const std::lock_guard lock(m_mutex);
    m_entries.removeIf([&](const Entry &entry) { return entry.mountId == mount.mountId; });
    m_entries.append({mount.mountId, mount.device, mount.target, uid});
}

std::optional<uid_t> MountRecord::mountedFor(const MountEntry &mount) const {
    const std::lock_guard lock(m_mutex);
    const auto found = std::find_if(m_entries.cbegin(), m_entries.cend(),
                                    [&](const Entry &entry) { return matches(entry, mount); });
    if (found == m_entries.cend())
        return std::nullopt;
    return found->uid;
}

void MountRecord::forget(const MountEntry &mount) {
    const std::lock_guard lock(m_mutex);
    m_entries.removeIf([&](const Entry &entry) { return matches(entry, mount); });
}

void MountRecord::keepOnly(const QList<MountEntry> &current) {
    const std::lock_guard lock(m_mutex);
    m_entries.removeIf([&](const Entry &entry) {
        return std::none_of(current.cbegin(), current.cend(),
                            [&](const MountEntry &mount) { return matches(entry, mount); });
    });
}

} // namespace helper
