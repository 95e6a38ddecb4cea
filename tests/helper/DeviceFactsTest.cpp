#include "helper/DeviceFacts.h"

#include "helper/MountRecord.h"
#include "helper/UniqueFd.h"
#include "helper/VolumeProbe.h"
#include "tests/support/LoopImage.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/SystemCommand.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using helper::MountEntry;

namespace {

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

// A record holds for the very mount it was made for, not for a reused mount id.
TEST(DeviceFacts, OwnerComesFromTheRecordOrANumericUidOption) {
    const helper::DeviceFacts facts;
    helper::MountRecord record;
    const MountEntry recorded = mountAt(200, u"sdb1"_s, u"/media/a"_s, u"rw,uid=1000"_s);
    record.remember(recorded, 2000);
    EXPECT_EQ(facts.ownerOf(recorded, record), 2000u); // over its own uid= option
    EXPECT_EQ(facts.ownerOf(mountAt(200, u"sdb1"_s, u"/media/b"_s), record), std::nullopt);
    EXPECT_EQ(facts.ownerOf(mountAt(200, u"sdc1"_s, u"/media/a"_s, u"uid=7"_s), record), 7u);
    EXPECT_EQ(facts.ownerOf(mountAt(203, u"sdb1"_s, u"/x"_s, u"uid=-1"_s), record), std::nullopt);
    record.forget(recorded);
    EXPECT_EQ(facts.ownerOf(recorded, record), 1000u);
    record.remember(recorded, 2000);
    record.keepOnly(facts.mounts());
    EXPECT_EQ(record.mountedFor(recorded), std::nullopt);
}

// A FUSE mount whose source names a loop device, as fusermount makes for any user who asks for
// that fsname, has an anonymous number and is not the device's. The loop device is external for
// root and for whoever owns the very file it reads.
TEST(DeviceFacts, LoopDevicesAreKnownByTheKernelsNumbersAndFiles) {
    if (!testsupport::isRoot())
        GTEST_SKIP() << "needs root to attach loop devices";
    QString why;
    const auto image = testsupport::LoopImage::create(8, &why);
    ASSERT_TRUE(image) << why.toStdString();
    const QString disk = testsupport::LoopImage::kernelName(image->device());
    const QString spoofed = image->scratchDir() + u"/spoofed"_s;
    ASSERT_TRUE(QDir().mkpath(spoofed));
    {
        const helper::UniqueFd fuse(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
        const QByteArray data =
            "fd=" + QByteArray::number(fuse.get()) + ",rootmode=40000,user_id=65534,group_id=65534";
        ASSERT_EQ(::mount(QFile::encodeName(image->device()).constData(),
                          QFile::encodeName(spoofed).constData(), "fuse",
                          MS_NOSUID | MS_NODEV | MS_RDONLY, data.constData()),
                  0); // no daemon serves it: only the mount table matters
    }
    const helper::DeviceFacts facts;
    const bool taken = !facts.mountsOfDevice(disk).isEmpty() || !facts.mountsOfDisk(disk).isEmpty();
    EXPECT_EQ(::umount2(QFile::encodeName(spoofed).constData(), MNT_DETACH), 0);
    EXPECT_FALSE(taken);

    const QString file = image->scratchDir() + u"/disk.img"_s;
    ASSERT_EQ(::chown(QFile::encodeName(file).constData(), 65534, 65534), 0);
    EXPECT_TRUE(facts.isExternalFor(disk, 0));
    EXPECT_TRUE(facts.isExternalFor(disk, 65534));
    EXPECT_FALSE(facts.isExternalFor(disk, 1000));
    // The file replaced after attaching: the kernel now names it "disk.img (deleted)", and a
    // file of that name proves nothing.
    const QString other = image->scratchDir() + u"/other.img"_s;
    for (const QString &impostor : QStringList{other, file + u" (deleted)"_s}) {
        QFile(impostor).open(QIODevice::WriteOnly);
        ASSERT_EQ(::chown(QFile::encodeName(impostor).constData(), 65534, 65534), 0);
    }
    ASSERT_EQ(::rename(QFile::encodeName(other).constData(), QFile::encodeName(file).constData()),
              0);
    EXPECT_TRUE(facts.isExternalFor(disk, 0));
    EXPECT_FALSE(facts.isExternalFor(disk, 65534));
}

// The probe reads in a child, under a time limit, a device whose reads never return.
TEST(BlkidVolumeProbe, GivesUpOnADeviceThatNeverAnswers) {
    QTemporaryDir dir;
    const QString fifo = dir.filePath(u"never-written"_s);
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const auto volume = helper::BlkidVolumeProbe(std::chrono::milliseconds(300)).probe(fifo);
    EXPECT_TRUE(volume.type.isEmpty());
    EXPECT_TRUE(volume.failure.startsWith(u"Reading never-written did not finish within 1 s"_s));
}

} // namespace
