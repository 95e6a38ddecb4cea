#include "disk/VolumeFormat.h"

#include <QHash>

using namespace Qt::StringLiterals;

QString readableFormatName(const QString &fsType) {
    static const QHash<QString, QString> names{
        {u"ext2"_s, u"ext2"_s},
        {u"ext3"_s, u"ext3"_s},
        {u"ext4"_s, u"ext4"_s},
        {u"xfs"_s, u"XFS"_s},
        {u"btrfs"_s, u"Btrfs"_s},
        {u"vfat"_s, u"FAT32"_s},
        {u"msdos"_s, u"FAT"_s},
        {u"exfat"_s, u"ExFAT"_s},
        {u"ntfs"_s, u"NTFS"_s},
        {u"ntfs3"_s, u"NTFS"_s},
        {u"iso9660"_s, u"ISO 9660"_s},
        {u"udf"_s, u"UDF"_s},
        {u"squashfs"_s, u"SquashFS"_s},
        {u"erofs"_s, u"EROFS"_s},
        {u"f2fs"_s, u"F2FS"_s},
        {u"hfsplus"_s, u"Mac OS Extended"_s},
        {u"hfs"_s, u"Mac OS Standard"_s},
        {u"apfs"_s, u"APFS"_s},
        {u"zfs"_s, u"ZFS"_s},
        {u"jfs"_s, u"JFS"_s},
        {u"reiserfs"_s, u"ReiserFS"_s},
        {u"nilfs2"_s, u"NILFS2"_s},
        {u"bcachefs"_s, u"bcachefs"_s},
        {u"fuseblk"_s, u"FUSE"_s},
    };
    return names.value(fsType.toLower(), fsType);
}

bool mentionsNtfs(const QString &text) {
    return text.contains("ntfs"_L1, Qt::CaseInsensitive);
}
