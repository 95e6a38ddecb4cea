#pragma once

#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace testsupport {

// A sparse image file attached to a loop device, with the mounts made of it. Everything is undone
// (unmounted, detached, deleted) when the object goes away, so a failed test leaves no device.
class LoopImage {
public:
    // Null with a reason in *why when the machine cannot make one (not root, no loop devices).
    static std::unique_ptr<LoopImage> create(qint64 sizeMiB, QString *why) {
        return createPartitioned(sizeMiB, 0, why);
    }
    // A DOS table of `partitions` equal partitions (none for 0), attached with partition scanning.
    static std::unique_ptr<LoopImage> createPartitioned(qint64 sizeMiB, int partitions,
                                                        QString *why);
    ~LoopImage();

    QString device() const { return m_device; }
    // /dev/loopNpK, or the whole device for K == 0.
    QString partition(int number) const;
    // The kernel name without /dev/, as the disk layer reports it.
    static QString kernelName(const QString &devicePath);

    bool format(const QString &devicePath, const QString &fsType, const QString &label,
                QString *why);
    // fsType: ntfs, ext4, btrfs or xfs. Mounts at a fresh folder named `folderName` and returns
    // it, or "" with a reason; NTFS through ntfs-3g.
    QString mount(const QString &devicePath, const QString &fsType, bool readOnly, QString *why,
                  const QString &folderName = QStringLiteral("volume"));
    bool unmount(const QString &mountPoint);
    QString scratchDir() const { return m_dir.path(); }

private:
    LoopImage() = default;

    QTemporaryDir m_dir;
    QString m_device;
    int m_mountCount = 0;
};

} // namespace testsupport
