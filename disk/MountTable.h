#pragma once

#include <QList>
#include <QString>

// One line of the kernel mount table.
struct MountEntry {
    int id = 0;
    int parentId = 0;
    quint64 devno = 0; // makedev(major, minor); 0 when the table does not say
    QString source;    // "/dev/sdb1", "/dev/mapper/x", "tmpfs", ...
    QString target;    // unescaped mount path
    QString fsType;    // as the kernel names it: "ext4", "fuseblk", ...
    QString root;      // the folder of the file system that is mounted; "/" for a whole volume
    QString options;   // mount and file-system options: "ro,relatime,user_id=0"
};

// The source of mount table snapshots; the Linux one reads the kernel table, tests read saved ones.
class MountTable {
public:
    virtual ~MountTable() = default;
    // Empty when the table cannot be read.
    virtual QList<MountEntry> read() const = 0;
};
