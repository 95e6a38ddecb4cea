#include "helper/DeviceFacts.h"

#include "helper/MountRecord.h"
#include "helper/VolumeProbe.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using helper::MountEntry;

namespace {

// A sysfs and procfs tree in a scratch folder: sda (sda1 holds /), sdb (dm-0 on the disk, md0 on
// sdb1), sdc (sdc1 is not yet swap) and loop0 as 7:0.
class FactsTree : public ::testing::Test {
protected:
    FactsTree() {
        addDevice(u"sda"_s, u"8:0"_s);
        addDevice(u"sda/sda1"_s, u"8:1"_s);
        addDevice(u"sdb"_s, u"8:16"_s);
        addDevice(u"sdb/sdb1"_s, u"8:17"_s);
        addDevice(u"sdc"_s, u"8:32"_s);
        addDevice(u"sdc/sdc1"_s, u"8:33"_s);
        addDevice(u"loop0"_s, u"7:0"_s);
        write(u"sys/devices/sdb/holders/dm-0"_s, {});
        write(u"sys/devices/sdb/sdb1/holders/md0"_s, {});
        write(u"proc/swaps"_s, "Filename Type Size Used Priority\n");
        writeMounts({u"21 1 8:1 / / rw - ext4 /dev/sda1 rw"_s});
    }
    void write(const QString &relative, const QByteArray &content) const {
        QDir().mkpath(QFileInfo(m_dir.filePath(relative)).path());
        QFile out(m_dir.filePath(relative));
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(content);
    }
    void writeMounts(const QStringList &lines) const {
        write(u"proc/self/mountinfo"_s, lines.join(u'\n').toUtf8() + '\n');
    }
    void addDevice(const QString &path, const QString &number) const {
        const QString dir = m_dir.filePath(u"sys/devices/"_s + path);
        const QString name = path.section(u'/', -1);
        write(u"sys/devices/"_s + path + u"/dev"_s, number.toUtf8());
        if (path.contains(u'/'))
            write(u"sys/devices/"_s + path + u"/partition"_s, "1\n");
        write(u"dev/"_s + name, {});
        for (const QString &link :
             QStringList{u"sys/class/block/"_s + name, u"sys/dev/block/"_s + number}) {
            QDir().mkpath(QFileInfo(m_dir.filePath(link)).path());
            QFile::link(dir, m_dir.filePath(link));
        }
    }

    QTemporaryDir m_dir;
    helper::DeviceFacts facts{
        {m_dir.filePath(u"sys"_s), m_dir.filePath(u"proc"_s), m_dir.filePath(u"dev"_s), false}};
};

QStringList targets(const QList<MountEntry> &mounts) {
    QStringList found;
    for (const MountEntry &mount : mounts)
        found << mount.target;
    return found;
}

// Only the device number says whose a mount is; the source text is whatever the mounter wrote.
TEST_F(FactsTree, AMountIsADevicesOnlyByItsDeviceNumber) {
    writeMounts({u"30 1 0:55 / /home/u/fake rw - fuse.sshfs /dev/loop0 rw,user_id=1000"_s,
                 u"31 1 7:0 / /media/real rw - fuseblk /dev/loop0 rw,user_id=0"_s,
                 u"32 1 8:17 / /media/x rw - vfat /dev/sda1 rw,uid=1000"_s});
    const QList<MountEntry> all = facts.mounts();
    ASSERT_EQ(all.size(), 3);
    EXPECT_EQ(all[0].mountId, 30);
    EXPECT_EQ(all[0].device, u""_s);
    EXPECT_EQ(targets(facts.mountsOfDevice(u"loop0"_s)), QStringList{u"/media/real"_s});
    EXPECT_EQ(targets(facts.mountsOfDisk(u"sdb"_s)), QStringList{u"/media/x"_s});
    EXPECT_TRUE(facts.mountsOfDisk(u"sda"_s).isEmpty());
}

TEST_F(FactsTree, HoldersOfADeviceAndOfAWholeDisk) {
    EXPECT_EQ(facts.holders(u"sdb"_s), QStringList{u"dm-0"_s});
    EXPECT_EQ(facts.holders(u"sdb1"_s), QStringList{u"md0"_s});
    QStringList all = facts.diskHolders(u"sdb"_s);
    all.sort();
    EXPECT_EQ(all, QStringList({u"dm-0"_s, u"md0"_s}));
    for (const QString &name : {u"sdc"_s, u"sdz"_s, u"../sdb"_s, u""_s})
        EXPECT_TRUE(facts.diskHolders(name).isEmpty()) << name.toStdString();
}

// The view is kept until the mount table is said to have changed; a new swap area shows at once,
// as swapon does not touch the mount table.
TEST_F(FactsTree, SystemDiskViewFollowsMountTableNoticesAndSwap) {
    EXPECT_TRUE(facts.isSystemDisk(u"sda"_s));
    EXPECT_FALSE(facts.isSystemDisk(u"sdb"_s));
    writeMounts(
        {u"21 1 8:1 / / rw - ext4 /dev/sda1 rw"_s, u"22 1 8:17 / /home rw - ext4 /dev/sdb1 rw"_s});
    EXPECT_FALSE(facts.isSystemDisk(u"sdb"_s));
    facts.mountTableChanged();
    EXPECT_TRUE(facts.isSystemDisk(u"sdb"_s));
    EXPECT_FALSE(facts.isSystemDisk(u"sdc"_s));
    write(u"proc/swaps"_s, "Filename Type Size Used Priority\n/dev/sdc1 partition 8 0 -2\n");
    EXPECT_TRUE(facts.isSystemDisk(u"sdc"_s));
}

MountEntry mountAt(int id, const QString &device, const QString &target,
                   const QString &superOptions = u"rw"_s) {
    MountEntry mount;
    mount.mountId = id;
    mount.device = device;
    mount.target = target;
    mount.root = u"/"_s;
    mount.superOptions = superOptions;
    return mount;
}

TEST(DeviceFacts, OwnerComesFromTheRecordOptionsOrMountedRoot) {
    const helper::DeviceFacts facts;
    helper::MountRecord record;
    const MountEntry recorded = mountAt(200, u"sdb1"_s, u"/media/a"_s, u"rw,uid=1000"_s);
    record.remember(recorded, 2000);
    const QList<MountEntry> real = facts.mounts();
    const auto slash = std::find_if(real.cbegin(), real.cend(),
                                    [](const MountEntry &m) { return m.target == u"/"_s; });
    ASSERT_NE(slash, real.cend());
    MountEntry overmounted = *slash;
    overmounted.mountId += 100000;

    const struct {
        const char *what;
        MountEntry mount;
        std::optional<uid_t> owner;
    } cases[] = {
        {"the record beats the options", recorded, 2000},
        {"uid= option", mountAt(201, u"sdb1"_s, u"/media/a"_s, u"rw,uid=1000,gid=5"_s), 1000},
        {"reused id, other target", mountAt(200, u"sdb1"_s, u"/media/b"_s), std::nullopt},
        {"reused id, other device", mountAt(200, u"sdc1"_s, u"/media/a"_s, u"uid=7"_s), 7},
        {"root-owned root is root's", *slash, 0},
        {"a folder that is not that mount's root", overmounted, std::nullopt},
        {"unreadable", mountAt(202, u"sdb1"_s, u"/nonexistent/vantrelo"_s), std::nullopt},
        {"uid= must be a number", mountAt(203, u"sdb1"_s, u"/x"_s, u"uid=-1"_s), std::nullopt},
    };
    for (const auto &c : cases)
        EXPECT_EQ(facts.ownerOf(c.mount, record), c.owner) << c.what;
    record.forget(recorded);
    EXPECT_EQ(facts.ownerOf(recorded, record), 1000u);
    record.remember(recorded, 2000);
    record.keepOnly(real);
    EXPECT_EQ(record.mountedFor(recorded), std::nullopt);
}

// A loop device is external for root and for whoever owns the very file it reads.
TEST(DeviceFacts, LoopDeviceIsExternalOnlyForTheOwnerOfItsFile) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "needs root to attach loop devices";
    QString why;
    const auto image = testsupport::LoopImage::create(4, &why);
    ASSERT_TRUE(image) << why.toStdString();
    const helper::DeviceFacts facts;
    const QString disk = testsupport::LoopImage::kernelName(image->device());
    const QString file = image->scratchDir() + u"/disk.img"_s;
    ASSERT_EQ(::chown(QFile::encodeName(file).constData(), 65534, 65534), 0);
    EXPECT_TRUE(facts.isExternalFor(disk, 0));
    EXPECT_TRUE(facts.isExternalFor(disk, 65534));
    EXPECT_FALSE(facts.isExternalFor(disk, 1000));

    // The file replaced after attaching: the kernel now names it "disk.img (deleted)", and a
    // file of that name proves nothing.
    for (const QString &impostor :
         QStringList{image->scratchDir() + u"/other.img"_s, file + u" (deleted)"_s}) {
        QFile(impostor).open(QIODevice::WriteOnly);
        ASSERT_EQ(::chown(QFile::encodeName(impostor).constData(), 65534, 65534), 0);
    }
    ASSERT_EQ(::rename(QFile::encodeName(image->scratchDir() + u"/other.img"_s).constData(),
                       QFile::encodeName(file).constData()),
              0);
    EXPECT_TRUE(facts.isExternalFor(disk, 0));
    EXPECT_FALSE(facts.isExternalFor(disk, 65534));
}

// A real ntfs-3g mount carries the loop device's own number and shows its uid= as the owner.
TEST(DeviceFacts, NtfsMountIsTheLoopDevicesAndBelongsToItsUid) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "needs root to attach loop devices";
    QString why;
    const auto image = testsupport::LoopImage::create(8, &why);
    ASSERT_TRUE(image) << why.toStdString();
    const QString disk = testsupport::LoopImage::kernelName(image->device());
    ASSERT_TRUE(image->format(image->device(), u"ntfs"_s, u"Data"_s, &why)) << why.toStdString();
    const QString folder = image->scratchDir() + u"/volume"_s;
    ASSERT_TRUE(QDir().mkpath(folder));
    const auto mounted = testsupport::runCommand(
        u"ntfs-3g"_s, {u"-o"_s, u"uid=65534,gid=65534"_s, image->device(), folder});
    ASSERT_TRUE(mounted.ok()) << mounted.output.toStdString();
    const helper::DeviceFacts facts;
    const QList<MountEntry> mounts = facts.mountsOfDevice(disk);
    ASSERT_EQ(targets(mounts), QStringList{folder});
    EXPECT_EQ(facts.ownerOf(mounts[0], helper::MountRecord()), 65534u);
    EXPECT_EQ(facts.groupOf(mounts[0]), 65534u);
    EXPECT_TRUE(image->unmount(folder));
}

TEST(BlkidVolumeProbe, ReadsInAChildAndSaysWhyWhenItCannot) {
    QTemporaryDir dir;
    const QString fifo = dir.filePath(u"never-written"_s);
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const QString zeros = dir.filePath(u"zeros.img"_s);
    QFile file(zeros);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(4 << 20));
    file.close();
    const QString ntfs = dir.filePath(u"ntfs.img"_s);
    ASSERT_TRUE(QFile::copy(zeros, ntfs));
    const auto formatted =
        testsupport::runCommand(u"mkntfs"_s, {u"-F"_s, u"-Q"_s, u"-q"_s, u"-L"_s, u"Data"_s, ntfs});
    ASSERT_TRUE(formatted.ok()) << formatted.output.toStdString();

    const helper::BlkidVolumeProbe probe(std::chrono::milliseconds(300));
    const struct {
        QString path, type, label, failure;
    } cases[] = {
        {dir.filePath(u"missing"_s), {}, {}, u"missing could not be opened: "_s},
        {fifo, {}, {}, u"Reading never-written did not finish within 1 s"_s},
        {zeros, {}, {}, {}},
        {ntfs, u"ntfs"_s, u"Data"_s, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path.toStdString());
        for (int attempt = 0; attempt < 2; ++attempt) {
            const helper::VolumeProbe::Volume volume = probe.probe(c.path);
            EXPECT_EQ(volume.type, c.type);
            EXPECT_EQ(volume.label, c.label);
            EXPECT_EQ(volume.failure.left(c.failure.size()), c.failure);
            EXPECT_EQ(volume.failure.isEmpty(), c.failure.isEmpty());
        }
    }
}

} // namespace
