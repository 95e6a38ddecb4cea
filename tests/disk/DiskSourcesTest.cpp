#include "disk/LibmountMountTable.h"
#include "disk/NTDiskManager.h"
#include "disk/VolumeFormat.h"
#include "tests/support/QtPrinters.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(MountTableFile, UndoesKernelEscapesAndKeepsEveryField) {
    const auto entries =
        LibmountMountTable(QStringLiteral(VANTRELO_TEST_DATA "/mountinfo-desktop.txt")).read();
    ASSERT_EQ(entries.size(), 14);
    const MountEntry &passport = entries.at(4);
    EXPECT_EQ(passport.id, 30);
    EXPECT_EQ(passport.parentId, 21);
    EXPECT_EQ(passport.target, u"/media/anna/My Passport"_s);
    EXPECT_EQ(passport.source, u"/dev/sdb1"_s);
    EXPECT_EQ(passport.fsType, u"fuseblk"_s);
    EXPECT_EQ(passport.root, u"/"_s);
    EXPECT_EQ(entries.at(10).target, u"/media/anna/Line\nBreak"_s);
    EXPECT_EQ(entries.at(8).root, u"/home/anna/shared"_s);
}

TEST(MountTableFile, MissingOrGarbledTablesNeverThrow) {
    EXPECT_TRUE(LibmountMountTable(u"/nonexistent/mountinfo"_s).read().isEmpty());
    QTemporaryDir dir;
    const QString path = dir.filePath(u"mountinfo"_s);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("garbage without fields\n\xff\xfe\x00\x01\n"
               "21 1 254:2 / / rw - ext4 /dev/vda rw\n");
    file.close();
    const auto entries = LibmountMountTable(path).read();
    for (const auto &entry : entries)
        EXPECT_FALSE(entry.target.isEmpty());
}

TEST(VolumeFormatNames, MapKernelTypesToNamesPeopleKnow) {
    const std::pair<const char *, const char *> cases[] = {
        {"ext4", "ext4"}, {"vfat", "FAT32"}, {"exfat", "ExFAT"},  {"btrfs", "Btrfs"},
        {"XFS", "XFS"},   {"ntfs3", "NTFS"}, {"fuseblk", "FUSE"}, {"unknownfs", "unknownfs"},
        {"", ""}};
    for (const auto &[type, name] : cases)
        EXPECT_EQ(readableFormatName(QString::fromUtf8(type)), QString::fromUtf8(name)) << type;
}

TEST(VolumeFormatNames, NtfsIsFoundInAnyCaseAnywhere) {
    EXPECT_TRUE(mentionsNtfs(u"ntfs"_s));
    EXPECT_TRUE(mentionsNtfs(u"Windows NTFS"_s));
    EXPECT_TRUE(mentionsNtfs(u"ntfs-3g"_s));
    EXPECT_FALSE(mentionsNtfs(u"ext4"_s));
    EXPECT_FALSE(mentionsNtfs(u"nt fs"_s));
    EXPECT_FALSE(mentionsNtfs(QString()));
}

TEST(CheckWrite, UnreadableFlagCountsAsWritable) {
    EXPECT_TRUE(NTDiskManager::checkWrite(u"/nonexistent/path/for/sure"_s));
    EXPECT_TRUE(NTDiskManager::checkWrite(QString()));
}
