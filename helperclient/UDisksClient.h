#pragma once

#include <QDBusConnection>
#include <QString>
#include <QStringList>

// Local disk operations through udisks2 on the system bus. Every call blocks until udisksd has
// answered, so the application only uses it from background threads (see NTDiskHelper).
class UDisksClient {
public:
    explicit UDisksClient(const QDBusConnection &bus = QDBusConnection::systemBus());

    // udisks2's object path for a kernel block device name ("sdb1", "dm-0").
    static QString blockObjectPath(const QString &bsdName);

    // Mounts every file system of the disk (the device and, for a whole disk, its partitions) at
    // udisks2's default place.
    bool mountWhole(const QString &bsdName);
    bool unmountWhole(const QString &bsdName);
    bool rename(const QString &bsdName, const QString &newName);
    // Unmounts every file system of the device behind `mountPath`, then ejects it: removable
    // media are ejected and powered off where the drive can be, a loop device is detached.
    bool unmountAndEject(const QString &mountPath);

    QString lastError() const { return m_lastError; }

private:
    struct BlockObject;
    QList<BlockObject> blockObjects();
    // The block objects of the disk that `objectPath` belongs to, the whole disk first.
    QList<BlockObject> sameDisk(const QList<BlockObject> &all, const QString &objectPath) const;
    bool call(const QString &objectPath, const QString &interface, const QString &method,
              const QVariantList &arguments);
    // Calls `method` on every file system of the disk that is (or is not) mounted.
    bool callOnFilesystems(const QString &bsdName, bool mounted, const QString &method);

    QDBusConnection m_bus;
    QString m_lastError;
};
