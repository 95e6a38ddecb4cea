#include "tests/support/LoopImage.h"

#include "tests/support/SystemCommand.h"
#include "tests/support/Wait.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace testsupport {

static bool fail(QString *why, const QString &text) {
    if (why)
        *why = text;
    return false;
}

static bool run(QString *why, const QString &program, const QStringList &arguments,
                QString *output = nullptr) {
    const CommandResult result = runCommand(program, arguments);
    if (!result.ok())
        return fail(why, program + u" failed: "_s + result.output);
    if (output)
        *output = result.output.trimmed();
    return true;
}

// Lazily, when plain fails: a test may have left a file open on the volume.
static bool unmountAnyway(const QStringList &arguments) {
    return runCommand(u"umount"_s, arguments).ok() ||
           runCommand(u"umount"_s, QStringList{u"-l"_s} + arguments).ok();
}

std::unique_ptr<LoopImage> LoopImage::createPartitioned(qint64 sizeMiB, int partitions,
                                                        QString *why) {
    if (!isRoot()) {
        fail(why, u"needs root to attach loop devices"_s);
        return nullptr;
    }
    std::unique_ptr<LoopImage> image(new LoopImage);
    // Mount folders an ordinary account can reach, as it reaches /media/<user>.
    QFile::setPermissions(image->m_dir.path(), QFile::permissions(image->m_dir.path()) |
                                                   QFile::ReadOther | QFile::ExeOther |
                                                   QFile::ReadGroup | QFile::ExeGroup);
    const QString file = image->m_dir.filePath(u"disk.img"_s);
    const QString table =
        u"label: dos\n"_s +
        u",%1M,7\n"_s.arg((sizeMiB - 1) / std::max(partitions, 1)).repeated(partitions);
    if (!run(why, u"truncate"_s, {u"-s"_s, u"%1M"_s.arg(sizeMiB), file}) ||
        (partitions > 0 &&
         !run(why, u"sh"_s, {u"-c"_s, u"printf %s \"$1\" | sfdisk -q \"$0\""_s, file, table})) ||
        !run(why, u"losetup"_s, {u"-f"_s, u"--show"_s, u"-P"_s, file}, &image->m_device))
        return nullptr;
    if (partitions == 0)
        return image;
    // The scan at attach time can miss a table written just before; ask the kernel again.
    runCommand(u"blockdev"_s, {u"--rereadpt"_s, image->m_device});
    runCommand(u"partx"_s, {u"-a"_s, image->m_device});
    if (waitUntil([&] { return QFile::exists(image->partition(partitions)); }))
        return image;
    fail(why, u"the partitions of %1 did not appear"_s.arg(image->m_device));
    return nullptr;
}

LoopImage::~LoopImage() {
    if (m_device.isEmpty())
        return;
    // Every mount of the device and its partitions, including those a test made by hand.
    const QString name = kernelName(m_device);
    const QStringList nodes = QDir(u"/dev"_s).entryList({name, name + u"p*"_s}, QDir::System);
    for (const QString &node : nodes)
        unmountAnyway({u"-A"_s, u"/dev/"_s + node});
    runCommand(u"losetup"_s, {u"-d"_s, m_device});
}

QString LoopImage::partition(int number) const {
    return number == 0 ? m_device : m_device + u'p' + QString::number(number);
}

QString LoopImage::kernelName(const QString &devicePath) {
    return devicePath.section(u'/', -1);
}

bool LoopImage::format(const QString &devicePath, const QString &fsType, const QString &label,
                       QString *why) {
    static const QHash<QString, QStringList> mkfs{{u"ntfs"_s, {u"mkntfs"_s, u"-F"_s, u"-Q"_s}},
                                                  {u"ext4"_s, {u"mkfs.ext4"_s, u"-F"_s, u"-q"_s}},
                                                  {u"btrfs"_s, {u"mkfs.btrfs"_s, u"-f"_s, u"-q"_s}},
                                                  {u"xfs"_s, {u"mkfs.xfs"_s, u"-f"_s, u"-q"_s}}};
    const QStringList command = mkfs.value(fsType);
    if (command.isEmpty())
        return fail(why, u"unknown file system "_s + fsType);
    return run(why, command.first(), command.mid(1) << u"-L"_s << label << devicePath);
}

QString LoopImage::mount(const QString &devicePath, const QString &fsType, bool readOnly,
                         QString *why, const QString &folderName) {
    const QString target = m_dir.filePath(u"m%1/"_s.arg(m_mountCount++) + folderName);
    const QString options = readOnly ? u"ro"_s : u"rw"_s;
    const bool mounted =
        !QDir().mkpath(target) ? fail(why, u"cannot create the mount folder"_s)
        : fsType == "ntfs"_L1
            ? run(why, u"ntfs-3g"_s, {u"-o"_s, options, devicePath, target})
            : run(why, u"mount"_s, {u"-t"_s, fsType, u"-o"_s, options, devicePath, target});
    return mounted ? target : QString();
}

bool LoopImage::unmount(const QString &mountPoint) {
    return unmountAnyway({mountPoint});
}

} // namespace testsupport
