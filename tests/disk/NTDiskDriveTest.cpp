#include "disk/NTDiskDrive.h"

#include <gtest/gtest.h>

TEST(NTDiskDrive, PlainRecordStartsEmpty) {
    NTDiskDrive drive;
    EXPECT_TRUE(drive.mountPath().isNull());
    EXPECT_TRUE(drive.name().isNull());
    EXPECT_TRUE(drive.bsdName().isNull());
    EXPECT_TRUE(drive.icon().isNull());
    EXPECT_EQ(drive.totalSize(), 0);
    EXPECT_EQ(drive.freeSize(), 0);
    EXPECT_FALSE(drive.isGroup());
    EXPECT_FALSE(drive.isWritable());
    EXPECT_FALSE(drive.isInternal());
    EXPECT_EQ(drive.groupType(), 0u);
}

TEST(NTDiskDrive, GroupRowChildArrayIsCreatedOnceAndKept) {
    const auto group = NTDiskDrive::initWithName(QStringLiteral("External"), 1, true);
    EXPECT_EQ(group->name(), QStringLiteral("External"));
    EXPECT_EQ(group->groupType(), 1u);
    EXPECT_TRUE(group->isGroup());

    NTDiskDriveList &first = group->childArray();
    EXPECT_TRUE(first.isEmpty());
    first.append(std::make_shared<NTDiskDrive>());
    EXPECT_EQ(&group->childArray(), &first);
    EXPECT_EQ(group->childArray().size(), 1);

    group->setChildArray({});
    EXPECT_TRUE(group->childArray().isEmpty());
}

TEST(NTDiskDrive, GroupRowWithNullName) {
    const auto group = NTDiskDrive::initWithName(QString(), 0, true);
    EXPECT_TRUE(group->name().isNull());
    EXPECT_TRUE(group->isGroup());
}
