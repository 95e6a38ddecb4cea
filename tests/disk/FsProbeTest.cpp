#include "disk/BlkidCacheFsProbe.h"
#include "disk/FsProbeChain.h"
#include "disk/UdevFsProbe.h"
#include "tests/support/QtPrinters.h"

#include <QFile>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(UdevFsProbe, EncodedValuesReadAsWritten) {
    const std::pair<QByteArray, QString> cases[] = {
        {"My\\x20Passport", u"My Passport"_s},
        {"Donn\xc3\xa9"
         "es",
         u"Données"_s},
        {"a\\x5cb\\x2F", u"a\\b/"_s},
        // Not an escape: kept as it is.
        {"50%1off\\x2", u"50%1off\\x2"_s},
        {"\\xzz\\", u"\\xzz\\"_s},
        {"", {}},
    };
    for (const auto &[encoded, decoded] : cases)
        EXPECT_EQ(decodeUdevString(encoded), decoded) << encoded.toStdString();
}

TEST(BlkidCacheFsProbe, ReadsTheCacheWithoutChangingIt) {
    const QString file = QStringLiteral(VANTRELO_TEST_DATA "/blkid.tab");
    QFile cache(file);
    ASSERT_TRUE(cache.open(QIODevice::ReadOnly));
    const QByteArray before = cache.readAll();
    const BlkidCacheFsProbe probe(file);
    // libblkid drops entries whose node does not exist, so the fixture names nodes that do.
    const FsIdentity passport = probe.probe(u"/dev/null"_s);
    EXPECT_EQ(passport.type, u"ntfs"_s);
    EXPECT_EQ(passport.uuid, u"0A1B2C3D4E5F6A7B"_s);
    EXPECT_EQ(passport.label, u"My Passport 50%1"_s);
    EXPECT_EQ(probe.probe(u"/dev/zero"_s).type, u"ext4"_s);
    EXPECT_TRUE(probe.probe(u"/dev/full"_s).type.isEmpty());
    cache.seek(0);
    EXPECT_EQ(cache.readAll(), before);
}

namespace {
struct FixedProbe final : FsProbe {
    explicit FixedProbe(FsIdentity identity)
        : answer(std::move(identity)) {}
    FsIdentity probe(const QString &) const override { return answer; }
    FsIdentity answer;
};
} // namespace

TEST(FsProbeChain, TheFirstProbeThatNamesAFileSystemAnswers) {
    const auto silent = std::make_shared<FixedProbe>(FsIdentity{{}, u"stale"_s, u"stale"_s});
    const auto udev = std::make_shared<FixedProbe>(FsIdentity{u"ntfs"_s, u"U1"_s, u"Disk"_s});
    const auto blkid = std::make_shared<FixedProbe>(FsIdentity{u"vfat"_s, u"U2"_s, u"Other"_s});
    EXPECT_EQ(FsProbeChain({silent, udev, blkid}).probe(u"/dev/sdb1"_s).label, u"Disk"_s);
    EXPECT_TRUE(FsProbeChain({silent}).probe(u"/dev/sdb1"_s).uuid.isEmpty());
}
