#include "ctl/VolumeListing.h"

#include "tests/support/QtPrinters.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

NTDiskDrivePtr volume(qint64 total, qint64 free, const QString &name) {
    auto drive = std::make_shared<NTDiskDrive>();
    drive->setBsdName(u"sdb1"_s);
    drive->setMountPath(u"/media/u/"_s + name);
    drive->setFormatDescription(u"ntfs"_s);
    drive->setName(name);
    drive->setTotalSize(total);
    drive->setFreeSize(free);
    return drive;
}

// The second line of a listing: the only volume's.
QString onlyLine(const QString &listing) {
    const QStringList lines = listing.split(u'\n');
    return lines.size() == 3 && lines.last().isEmpty() ? lines.at(1) : listing;
}

TEST(VolumeListing, TextSizesAreReadableOrExactBytes) {
    struct Case {
        qint64 total, free;
        const char *readable, *bytes;
    };
    // clang-format off
    const Case cases[] = {
        {268435456, 999, "268.4 MB\t999B", "268435456\t999"},
        {1000000001, 0, "1.0 GB\t0B", "1000000001\t0"},
        {0, -1, "0B\t-1B", "0\t-1"},
        {std::numeric_limits<qint64>::max(), 1000, "9223372036.9 GB\t1.0 KB",
         "9223372036854775807\t1000"}};
    // clang-format on
    for (const Case &c : cases) {
        const NTDiskDriveList drives{volume(c.total, c.free, u"Data"_s)};
        const QString head = u"sdb1\t/media/u/Data\tntfs\t"_s;
        const QString tail = u"\tread-only\texternal\tData"_s;
        EXPECT_EQ(onlyLine(volumesAsText(drives)), head + QLatin1String(c.readable) + tail);
        EXPECT_EQ(onlyLine(volumesAsText(drives, SizeStyle::Bytes)),
                  head + QLatin1String(c.bytes) + tail);
        // JSON keeps the exact figures whatever the text shows.
        const QJsonObject json =
            QJsonDocument::fromJson(volumesAsJson(drives)).array()[0].toObject();
        EXPECT_EQ(json[u"totalSize"_s].toInteger(), c.total);
        EXPECT_EQ(json[u"freeSize"_s].toInteger(), c.free);
    }
}

TEST(VolumeListing, ControlCharactersNeverSplitALine) {
    const NTDiskDriveList drives{volume(1, 1, u"a\nb\t\\c\x7f"_s)};
    EXPECT_EQ(onlyLine(volumesAsText(drives)),
              u"sdb1\t/media/u/a\\x0ab\\x09\\\\c\\x7f\tntfs\t1B\t1B\tread-only\texternal\t"
              u"a\\x0ab\\x09\\\\c\\x7f"_s);
}

} // namespace
