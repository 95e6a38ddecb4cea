#include "helper/DeviceFacts.h"

#include "tests/helper/FakeSystem.h"
#include "tests/support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class DeviceFactsTest : public ::testing::Test {
protected:
    helpertest::FakeSystem system;
    const helper::DeviceFacts facts{system.roots()};
};

TEST_F(DeviceFactsTest, PartitionsResolveToTheirDisk) {
    const QList<std::pair<QString, QString>> cases{
        {u"sda1"_s, u"sda"_s},       {u"sda"_s, u"sda"_s},           {u"loop0p2"_s, u"loop0"_s},
        {u"loop1"_s, u"loop1"_s},    {u"mmcblk0p1"_s, u"mmcblk0"_s}, {u"dm-0"_s, u"dm-0"_s},
        {u"../sda1"_s, u"../sda1"_s}};
    for (const auto &[device, disk] : cases)
        EXPECT_EQ(facts.parentDisk(device), disk) << device.toStdString();
    EXPECT_TRUE(facts.isPartition(u"sdb1"_s));
    EXPECT_FALSE(facts.isPartition(u"sdb"_s));
}

TEST_F(DeviceFactsTest, BlockDevicesMustExistInSysfsAndDev) {
    for (const QString &name : {u"sda"_s, u"sdb1"_s, u"loop0p1"_s, u"dm-0"_s})
        EXPECT_TRUE(facts.isBlockDevice(name)) << name.toStdString();
    for (const QString &name : {u"sdz"_s, u"block"_s, u"..%2fsda"_s, u"sda1/.."_s, u""_s})
        EXPECT_FALSE(facts.isBlockDevice(name)) << name.toStdString();
    // Real sysfs and /dev: nothing made up passes either.
    const helper::DeviceFacts real;
    EXPECT_FALSE(real.isBlockDevice(u"vantrelo-none0"_s));
    EXPECT_FALSE(real.isBlockDevice(u"null"_s));
}

TEST_F(DeviceFactsTest, ExternalMeansRemovableUsbMmcOrLoop) {
    EXPECT_TRUE(facts.isUsb(u"sdb"_s));
    EXPECT_FALSE(facts.isUsb(u"sdd"_s));
    EXPECT_FALSE(facts.isExternal(u"sdd"_s));
    system.writeFile(u"sys/class/block/sdd/removable"_s, "1\n");
    EXPECT_TRUE(facts.isExternal(u"sdd"_s));
}

TEST_F(DeviceFactsTest, SystemDisksFollowMountsSwapAndDeviceMapper) {
    // / on sda2, /home on dm-0 over sda3, swap on sdc1.
    EXPECT_EQ(facts.systemDisks(), QSet<QString>({u"sda"_s, u"dm-0"_s, u"sdc"_s}));
    system.writeFile(u"proc/swaps"_s, "Filename Type Size Used Priority\n");
    system.setMounts({});
    system.addMount(u"/dev/sda2"_s, u"/boot"_s, u"ext4"_s, u"rw"_s);
    system.addMount(u"/dev/sdd1"_s, u"/usr"_s, u"ext4"_s, u"rw"_s);
    EXPECT_TRUE(facts.isSystemDisk(u"sdd"_s));
    EXPECT_TRUE(facts.isSystemDisk(u"sda"_s));
    EXPECT_FALSE(facts.isSystemDisk(u"sdc"_s));
    system.setMounts({});
    system.addMount(u"/dev/sdd1"_s, u"/usr/local"_s, u"ext4"_s, u"rw"_s);
    EXPECT_FALSE(facts.isSystemDisk(u"sdd"_s));
}

TEST_F(DeviceFactsTest, MountInfoParsingUnescapesAndResolvesDevices) {
    system.addMount(u"/dev/loop0p1"_s, u"/media/u/My Disk\\x"_s, u"fuseblk"_s, u"ro,nosuid"_s,
                    u"ro,user_id=1000,group_id=1000,allow_other"_s);
    system.addMount(u"/dev/sdb1"_s, u"/media/u/usb"_s, u"vfat"_s, u"rw"_s);
    const QList<helper::MountEntry> loopMounts = facts.mountsOfDevice(u"loop0p1"_s);
    ASSERT_EQ(loopMounts.size(), 1);
    EXPECT_EQ(loopMounts[0].target, u"/media/u/My Disk\\x"_s);
    EXPECT_TRUE(loopMounts[0].readOnly());
    EXPECT_EQ(loopMounts[0].superOption(u"user_id"_s), u"1000"_s);
    EXPECT_EQ(loopMounts[0].superOption(u"uid"_s), u""_s);
    EXPECT_EQ(facts.mountsOfDisk(u"loop0"_s).size(), 1);
    EXPECT_EQ(facts.mountsOfDisk(u"sdb"_s).value(0).device, u"sdb1"_s);
    EXPECT_TRUE(facts.isMountTarget(u"/media/u/usb"_s));
    EXPECT_FALSE(facts.isMountTarget(u"/media/u"_s));

    // Garbage lines are skipped, not misread.
    const auto parsed = helper::DeviceFacts::parseMountInfo(
        "garbage\n1 2 3\n\n36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root "
        "rw,errors=continue\n- - -\n");
    ASSERT_EQ(parsed.size(), 1);
    EXPECT_EQ(parsed[0].major, 98);
    EXPECT_EQ(parsed[0].target, u"/mnt2"_s);
    EXPECT_EQ(parsed[0].fsType, u"ext3"_s);
    EXPECT_EQ(helper::DeviceFacts::unescapeMountField("a\\040b\\011c\\134\\0"), u"a b\tc\\\\0"_s);
}

// The power-off itself is checked through eject.
TEST_F(DeviceFactsTest, RemovalIsOnlyForWholeDisksThatSupportIt) {
    QString why;
    EXPECT_FALSE(facts.requestRemoval(u"sdb1"_s, &why));
    EXPECT_FALSE(facts.requestRemoval(u"loop0"_s, &why));
    EXPECT_FALSE(why.isEmpty());
}

} // namespace
