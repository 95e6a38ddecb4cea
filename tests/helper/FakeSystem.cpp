#include "tests/helper/FakeSystem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace helpertest {

FakeSystem::FakeSystem() {
    const QString pci = u"devices/pci0000:00/0000:00:1f.2/ata%1/host0/target0:0:0/0:0:0:0/block"_s;
    addDisk(pci.arg(1), u"sda"_s, 8, 0, {u"sda1"_s, u"sda2"_s, u"sda3"_s});
    addDisk(u"devices/pci0000:00/0000:00:14.0/usb1/1-1/1-1:1.0/host6/target6:0:0/6:0:0:0/block"_s,
            u"sdb"_s, 8, 16, {u"sdb1"_s});
    addDisk(pci.arg(2), u"sdc"_s, 8, 32, {u"sdc1"_s});
    addDisk(pci.arg(3), u"sdd"_s, 8, 48, {u"sdd1"_s});
    addDisk(u"devices/platform/soc/mmc_host/mmc0/mmc0:0001/block"_s, u"mmcblk0"_s, 179, 0,
            {u"mmcblk0p1"_s});
    addDisk(u"devices/virtual/block"_s, u"loop0"_s, 7, 0, {u"loop0p1"_s, u"loop0p2"_s});
    addDisk(u"devices/virtual/block"_s, u"loop1"_s, 7, 1, {});
    addDisk(u"devices/virtual/block"_s, u"dm-0"_s, 254, 0, {});
    // dm-0 is built on sda3.
    QDir().mkpath(path(u"sys/devices/virtual/block/dm-0/slaves"_s));
    QFile::link(u"../../../../"_s + pci.arg(1) + u"/sda/sda3"_s,
                path(u"sys/devices/virtual/block/dm-0/slaves/sda3"_s));
    QDir().mkpath(path(u"sys/block/sdb/device"_s));
    writeFile(u"sys/block/sdb/device/delete"_s, {});
    writeFile(u"dev/fuse"_s, {});
    QDir().mkpath(path(u"dev/mapper"_s));
    QFile::link(u"../dm-0"_s, path(u"dev/mapper/home"_s));
    writeFile(u"proc/swaps"_s, "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n"
                               "/dev/sdc1                               partition\t8388604\t\t0"
                               "\t\t-2\n");
    setMounts({});
}

helper::SystemRoots FakeSystem::roots() const {
    helper::SystemRoots roots;
    roots.sys = path(u"sys"_s);
    roots.proc = path(u"proc"_s);
    roots.dev = path(u"dev"_s);
    roots.requireBlockNodes = false;
    return roots;
}

QString FakeSystem::path(const QString &relative) const {
    return m_dir.filePath(relative);
}

void FakeSystem::writeFile(const QString &relative, const QByteArray &content) const {
    const QString file = path(relative);
    QDir().mkpath(QFileInfo(file).path());
    QFile out(file);
    if (out.open(QIODevice::WriteOnly | QIODevice::Truncate))
        out.write(content);
}

void FakeSystem::removeFuse() const {
    QFile::remove(path(u"dev/fuse"_s));
}

void FakeSystem::addDisk(const QString &devicePath, const QString &disk, int major, int minor,
                         const QStringList &partitions) {
    const QString diskDir = u"sys/"_s + devicePath + u'/' + disk;
    writeFile(diskDir + u"/dev"_s, u"%1:%2\n"_s.arg(major).arg(minor).toUtf8());
    writeFile(diskDir + u"/removable"_s, "0\n");
    writeFile(u"dev/"_s + disk, {});
    QDir().mkpath(path(u"sys/class/block"_s));
    QDir().mkpath(path(u"sys/dev/block"_s));
    const QString target = u"../../"_s + devicePath + u'/' + disk;
    QFile::link(target, path(u"sys/class/block/"_s + disk));
    QFile::link(target, path(u"sys/dev/block/%1:%2"_s.arg(major).arg(minor)));
    int number = 0;
    for (const QString &partition : partitions) {
        ++number;
        writeFile(diskDir + u'/' + partition + u"/dev"_s,
                  u"%1:%2\n"_s.arg(major).arg(minor + number).toUtf8());
        writeFile(diskDir + u'/' + partition + u"/partition"_s, QByteArray::number(number));
        writeFile(u"dev/"_s + partition, {});
        QFile::link(target + u'/' + partition, path(u"sys/class/block/"_s + partition));
        QFile::link(target + u'/' + partition,
                    path(u"sys/dev/block/%1:%2"_s.arg(major).arg(minor + number)));
    }
}

void FakeSystem::setMounts(const QStringList &lines) {
    m_mountLines.clear();
    m_nextMountId = 100;
    // The system's own mounts are always there.
    addMount(u"/dev/sda2"_s, u"/"_s, u"ext4"_s, u"rw,relatime"_s);
    addMount(u"/dev/mapper/home"_s, u"/home"_s, u"ext4"_s, u"rw,relatime"_s);
    addMount(u"proc"_s, u"/proc"_s, u"proc"_s, u"rw"_s);
    m_mountLines << lines;
    writeMountInfo();
}

void FakeSystem::writeMountInfo() const {
    writeFile(u"proc/self/mountinfo"_s, m_mountLines.join(u'\n').toUtf8() + '\n');
}

static QString escapedMountField(QString field) {
    return field.replace(u'\\', u"\\134"_s).replace(u' ', u"\\040"_s);
}

void FakeSystem::addMount(const QString &device, const QString &target, const QString &fsType,
                          const QString &options, const QString &superOptions) {
    // Block file systems carry their device number; FUSE and virtual ones an anonymous 0:N.
    QString numbers = u"0:%1"_s.arg(m_nextMountId);
    if (fsType != u"fuseblk"_s && device.startsWith(u"/dev/"_s)) {
        const QString resolved = QFileInfo(path(u"dev"_s + device.mid(4))).canonicalFilePath();
        const QString name = QFileInfo(resolved).fileName();
        QFile devFile(path(u"sys/class/block/"_s + name + u"/dev"_s));
        if (devFile.open(QIODevice::ReadOnly))
            numbers = QString::fromUtf8(devFile.readAll()).trimmed();
    }
    m_mountLines << u"%1 1 %2 / %3 %4 shared:1 - %5 %6 %7"_s.arg(m_nextMountId++)
                        .arg(numbers, escapedMountField(target), options, fsType, device,
                             superOptions);
    writeMountInfo();
}

void FakeSystem::removeMount(const QString &target) {
    const QString escaped = escapedMountField(target);
    m_mountLines.removeIf(
        [&escaped](const QString &line) { return line.split(u' ').value(4) == escaped; });
    writeMountInfo();
}

helper::ToolResult FakeToolRunner::run(const QString &program, const QStringList &arguments,
                                       std::chrono::milliseconds) {
    const ToolCall call{program, arguments};
    calls.append(call);
    return m_script ? m_script(call) : success();
}

helper::ToolResult FakeToolRunner::unmount(const QString &target) {
    return run(u"umount"_s, {u"--"_s, target}, {});
}

bool FakeToolRunner::spawnAs(const QString &program, const QStringList &arguments,
                             const helper::Identity &identity, QString *) {
    calls.append({program, arguments});
    spawnedAs.append(identity);
    return true;
}

helper::ToolResult FakeToolRunner::success(const QString &output) {
    return {true, false, 0, output, {}};
}

helper::ToolResult FakeToolRunner::failure(int exitCode, const QString &errorOutput) {
    return {true, false, exitCode, {}, errorOutput};
}

} // namespace helpertest
