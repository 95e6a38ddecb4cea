#include "tests/support/LoopImage.h"

#include "tests/support/SystemCommand.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

namespace testsupport {

namespace {

bool fail(QString *why, const QString &text) {
    if (why)
        *why = text;
    return false;
}

} // namespace

std::unique_ptr<LoopImage> LoopImage::create(qint64 sizeMiB, QString *why) {
    std::unique_ptr<LoopImage> image(new LoopImage);
    if (!image->createFile(sizeMiB, why) || !image->attachFile(false, why))
        return nullptr;
    return image;
}

std::unique_ptr<LoopImage> LoopImage::createPartitioned(qint64 sizeMiB, int partitions,
                                                        QString *why) {
    std::unique_ptr<LoopImage> image(new LoopImage);
    if (!image->createFile(sizeMiB, why))
        return nullptr;
    QString layout = QStringLiteral("label: dos\n");
    const qint64 sectorsEach = (sizeMiB - 1) * 2048 / partitions;
    for (int i = 0; i < partitions; ++i)
        layout += QStringLiteral("start=%1, size=%2, type=7\n")
                      .arg(2048 + i * sectorsEach)
                      .arg(sectorsEach);
    const QString layoutFile = image->m_dir.filePath(QStringLiteral("layout.sfdisk"));
    QFile file(layoutFile);
    if (!file.open(QIODevice::WriteOnly) || file.write(layout.toUtf8()) < 0) {
        fail(why, QStringLiteral("cannot write the partition layout"));
        return nullptr;
    }
    file.close();
    const auto sfdisk = runCommand(
        QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("sfdisk -q \"$0\" < \"$1\""),
                               image->m_image, layoutFile});
    if (!sfdisk.ok()) {
        fail(why, QStringLiteral("sfdisk failed: ") + sfdisk.output);
        return nullptr;
    }
    if (!image->attachFile(true, why))
        return nullptr;
    // The scan at attach time can miss a table written just before; ask the kernel again.
    runCommand(QStringLiteral("blockdev"), {QStringLiteral("--rereadpt"), image->m_device});
    runCommand(QStringLiteral("partx"), {QStringLiteral("-a"), image->m_device});
    for (int attempt = 0; attempt < 100 && !QFileInfo::exists(image->partition(partitions));
         ++attempt)
        QThread::msleep(20);
    if (!QFileInfo::exists(image->partition(partitions))) {
        fail(why, QStringLiteral("the partitions of %1 did not appear").arg(image->m_device));
        return nullptr;
    }
    return image;
}

bool LoopImage::createFile(qint64 sizeMiB, QString *why) {
    if (!isRoot())
        return fail(why, QStringLiteral("needs root to attach loop devices"));
    if (!m_dir.isValid())
        return fail(why, QStringLiteral("no temporary folder"));
    m_image = m_dir.filePath(QStringLiteral("disk.img"));
    QFile file(m_image);
    if (!file.open(QIODevice::WriteOnly) || !file.resize(sizeMiB * 1024 * 1024))
        return fail(why, QStringLiteral("cannot create the image file"));
    return true;
}

bool LoopImage::attachFile(bool partitionScan, QString *why) {
    QStringList arguments{QStringLiteral("-f"), QStringLiteral("--show")};
    if (partitionScan)
        arguments << QStringLiteral("-P");
    arguments << m_image;
    const auto losetup = runCommand(QStringLiteral("losetup"), arguments);
    if (!losetup.ok())
        return fail(why, QStringLiteral("losetup failed: ") + losetup.output);
    m_device = losetup.output.trimmed();
    return true;
}

// Mount points of the device and its partitions, including mounts a test made by hand.
QStringList LoopImage::mountsOfDevice() const {
    QFile table(QStringLiteral("/proc/self/mountinfo"));
    if (m_device.isEmpty() || !table.open(QIODevice::ReadOnly))
        return {};
    QStringList targets;
    const auto lines = table.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const auto fields = line.split(' ');
        const qsizetype separator = fields.indexOf("-");
        if (separator < 5 || separator + 2 >= fields.size())
            continue;
        const QString source = QString::fromUtf8(fields.at(separator + 2));
        if (source == m_device || source.startsWith(m_device + QStringLiteral("p")))
            targets.prepend(unescapeMountPath(fields.at(4)));
    }
    return targets;
}

QString LoopImage::unescapeMountPath(const QByteArray &escaped) {
    QByteArray path;
    for (qsizetype i = 0; i < escaped.size(); ++i) {
        if (escaped.at(i) == '\\' && i + 3 < escaped.size()) {
            path += char(escaped.mid(i + 1, 3).toInt(nullptr, 8));
            i += 3;
        } else {
            path += escaped.at(i);
        }
    }
    return QString::fromUtf8(path);
}

LoopImage::~LoopImage() {
    for (const QString &target : mountsOfDevice())
        unmount(target);
    if (!m_device.isEmpty())
        runCommand(QStringLiteral("losetup"), {QStringLiteral("-d"), m_device});
}

QString LoopImage::partition(int number) const {
    return number == 0 ? m_device : m_device + QStringLiteral("p") + QString::number(number);
}

QString LoopImage::kernelName(const QString &devicePath) {
    return QFileInfo(devicePath).fileName();
}

bool LoopImage::format(const QString &devicePath, const QString &fsType, const QString &label,
                       QString *why) {
    CommandResult result;
    if (fsType == QStringLiteral("ntfs"))
        result = runCommand(QStringLiteral("mkntfs"), {QStringLiteral("-F"), QStringLiteral("-Q"),
                                                       QStringLiteral("-L"), label, devicePath});
    else if (fsType == QStringLiteral("ext4"))
        result =
            runCommand(QStringLiteral("mkfs.ext4"), {QStringLiteral("-F"), QStringLiteral("-q"),
                                                     QStringLiteral("-L"), label, devicePath});
    else if (fsType == QStringLiteral("btrfs"))
        result =
            runCommand(QStringLiteral("mkfs.btrfs"), {QStringLiteral("-f"), QStringLiteral("-q"),
                                                      QStringLiteral("-L"), label, devicePath});
    else if (fsType == QStringLiteral("xfs"))
        result = runCommand(QStringLiteral("mkfs.xfs"), {QStringLiteral("-f"), QStringLiteral("-q"),
                                                         QStringLiteral("-L"), label, devicePath});
    else
        return fail(why, QStringLiteral("unknown file system ") + fsType);
    if (!result.ok())
        return fail(why, QStringLiteral("mkfs failed: ") + result.output);
    return true;
}

QString LoopImage::mount(const QString &devicePath, const QString &fsType, bool readOnly,
                         QString *why, const QString &folderName) {
    const QString target = m_dir.filePath(QStringLiteral("m%1/").arg(m_mountCount++) + folderName);
    if (!QDir().mkpath(target)) {
        fail(why, QStringLiteral("cannot create the mount folder"));
        return {};
    }
    const QString options = readOnly ? QStringLiteral("ro") : QStringLiteral("rw");
    const auto result = fsType == QStringLiteral("ntfs")
                            ? runCommand(QStringLiteral("ntfs-3g"),
                                         {QStringLiteral("-o"), options, devicePath, target})
                            : runCommand(QStringLiteral("mount"),
                                         {QStringLiteral("-t"), fsType, QStringLiteral("-o"),
                                          options, devicePath, target});
    if (!result.ok()) {
        fail(why, QStringLiteral("mount failed: ") + result.output);
        return {};
    }
    return target;
}

bool LoopImage::unmount(const QString &mountPoint) {
    auto result = runCommand(QStringLiteral("umount"), {mountPoint});
    if (!result.ok())
        result = runCommand(QStringLiteral("umount"), {QStringLiteral("-l"), mountPoint});
    return result.ok();
}

} // namespace testsupport
