#pragma once

#include "helper/DeviceFacts.h"
#include "helper/UniqueFd.h"

#include <QList>
#include <QString>

#include <sys/stat.h>

namespace helper {

// A mount point held open from before its unmount until the volume is mounted there again, so
// its path is looked up once: a folder swapped for a link meanwhile is refused, never followed.
class MountPoint {
public:
    // Holds the folder that contains `mount`'s target, reached without following any symbolic
    // link, and notes the mounted root's owner and mode. "" or why not.
    QString holdParent(const MountEntry &mount);
    // Right after the unmount: the folder itself, opened through the held parent. It must be a
    // folder, not a link, on the parent's file system, owned by root or one of `owners`. "" or
    // why not.
    QString holdFolder(const QList<uid_t> &owners);

    // The held folder; -1 until holdFolder succeeded.
    int folder() const { return m_folder.get(); }
    const QString &target() const { return m_target; }
    // The mounted root's owner and mode as holdParent saw them.
    const struct stat &mountedRoot() const { return m_mountedRoot; }
    // How a program that gets the folder as its descriptor 3 names it.
    static QString handedPath();

private:
    QString m_target;
    QString m_name;
    UniqueFd m_parent;
    UniqueFd m_folder;
    struct stat m_mountedRoot {};
};

} // namespace helper
