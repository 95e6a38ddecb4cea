#include "tests/support/QtPrinters.h"
#include "util/InstallPaths.h"
#include "util/TLUtility.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

// clang-format off
TEST(TLUtility, FileSizesUseDecimalUnitsWithStrictBoundaries) {
    const std::pair<qint64, const char *> cases[] = {
        {0, "0B"}, {999, "999B"}, {1000, "1.0 KB"}, {999999, "1000.0 KB"}, {1000000, "1000.0 KB"},
        {1000001, "1.0 MB"}, {1000000000, "1000.0 MB"}, {1000000001, "1.0 GB"},
        {1500000000, "1.5 GB"}, {-1, "-1B"},
        {std::numeric_limits<qint64>::max(), "9223372036.9 GB"}};
    for (const auto &[bytes, text] : cases)
        EXPECT_EQ(TLUtility::getFileSizeStrWithSize(bytes), QLatin1String(text)) << bytes;
}

// A fraction is needed, and exactly three fields before it.
TEST(TLUtility, SecondsFromText) {
    const std::pair<const char *, double> texts[] = {
        {"01:02:03.5", 3723.5}, {"01:02:03", 0.0}, {"02:03.5", 0.5}, {"1:2:3:4.5", 0.5},
        {"aa:bb:cc.5", 0.5}, {"00:00:01.5.7", 1.5}, {"", 0.0}, {"00:00:01.25e1", 3.5},
        {"00:00:00.5e", 0.5}, {"00:00:00.5e999", 0.0}};
    for (const auto &[text, seconds] : texts)
        EXPECT_DOUBLE_EQ(TLUtility::getAllSecondsWithHHMMSSMS(QLatin1String(text)), seconds)
            << text;
}
// clang-format on

TEST(TLUtility, DatesUseUnicodePatternsInLocalTime) {
    const QDateTime date(QDate(2024, 3, 5), QTime(7, 8, 9));
    EXPECT_EQ(TLUtility::stringFromFomate(date.toUTC()), u"2024-03-05 07:08:09"_s);
    EXPECT_EQ(TLUtility::stringFromFomate(date, u"dd/MM/yy 'at' HH 'o''clock'"_s),
              u"05/03/24 at 07 o'clock"_s);
    // Qt would read "d", "a" and "t" inside the literal as fields.
    EXPECT_EQ(TLUtility::stringFromFomate(date, u"'date' d h:mm a"_s), u"date 5 7:08 AM"_s);

    EXPECT_EQ(TLUtility::dateFromString(u"2024-03-05 07:08:09"_s, u"yyyy-MM-dd HH:mm:ss"_s), date);
    EXPECT_FALSE(TLUtility::dateFromString(u"2024-13-40"_s, u"yyyy-MM-dd"_s).isValid());
    EXPECT_FALSE(TLUtility::dateFromString(u"2024-03-05"_s, QString()).isValid());
}

// Two-digit years fall from 80 years before now (here 1945-06-15 12:00) to 20 years after.
TEST(TLUtility, TwoDigitYearsAndFractionDigits) {
    const QDateTime now(QDate(2025, 6, 15), QTime(12, 0));
    const std::pair<const char *, QDate> years[] = {
        {"05/03/24", QDate(2024, 3, 5)},   {"01/01/99", QDate(1999, 1, 1)},
        {"16/06/45", QDate(1945, 6, 16)},  {"15/06/45", QDate(2045, 6, 15)},
        {"31/12/44", QDate(2044, 12, 31)}, {"01/01/46", QDate(1946, 1, 1)}};
    for (const auto &[text, date] : years)
        EXPECT_EQ(TLUtility::dateFromString(QLatin1String(text), u"dd/MM/yy"_s, now).date(), date)
            << text;

    const QDateTime date(QDate(2024, 3, 5), QTime(7, 8, 9, 456));
    const std::pair<const char *, const char *> fractions[] = {
        {"ss.S", "09.4"}, {"ss.SS", "09.45"}, {"ss.SSS", "09.456"}, {"ss.SSSS", "09.4560"}};
    for (const auto &[format, text] : fractions)
        EXPECT_EQ(TLUtility::stringFromFomate(date, QLatin1String(format)), QLatin1String(text));
    EXPECT_EQ(TLUtility::dateFromString(u"09.4"_s, u"ss.S"_s).time().msec(), 400);
    EXPECT_EQ(TLUtility::dateFromString(u"09.45"_s, u"ss.SS"_s).time().msec(), 450);
}

// As the platform's type tree answers, parents included.
TEST(TLUtility, ExtensionsConformAlongTheTypeTree) {
    const std::tuple<const char *, const char *, bool> cases[] = {
        {"zip", "public.archive", true},      {"zip", "public.data", true},
        {"zip", "public.content", false},     {"mp3", "public.mp3", true},
        {"MP3", "public.audio", true},        {"mp3", "public.audiovisual-content", true},
        {"mp3", "public.movie", false},       {"gif", "com.compuserve.gif", true},
        {"gif", "Public.Image", true},        {"gif", "public.item", true},
        {"c", "public.source-code", true},    {"c", "public.text", true},
        {"c", "public.plain-text", false},    {"txt", "public.image", false},
        {"html", "public.plain-text", false}, {"pdf", "public.content", true},
        {"unknown", "public.data", true},     {"unknown", "public.content", false},
        {"png", "image/png", false}};
    for (const auto &[extension, type, conforms] : cases)
        EXPECT_EQ(TLUtility::conformsToUTI(QLatin1String(extension), QLatin1String(type)), conforms)
            << extension << " " << type;
}

TEST(TLUtility, SupportFoldersAreCreatedUnderTheDataFolder) {
    QTemporaryDir dir;
    const QByteArray saved = qgetenv("XDG_DATA_HOME");
    qputenv("XDG_DATA_HOME", QFile::encodeName(dir.path()));
    const QString support = dir.path() + u"/com.corvin.Vantrelo/Vantrelo"_s;
    // A file in the way: the path all the same, the file untouched.
    ASSERT_TRUE(QFile(dir.filePath(u"com.corvin.Vantrelo"_s)).open(QIODevice::WriteOnly));
    EXPECT_EQ(TLUtility::getTempPath(), support + u"/temporary"_s);
    EXPECT_TRUE(QFile::remove(dir.filePath(u"com.corvin.Vantrelo"_s)));

    EXPECT_EQ(TLUtility::getTempPath(), support + u"/temporary"_s);
    EXPECT_TRUE(QFileInfo(support + u"/temporary"_s).isDir());
    EXPECT_EQ(TLUtility::getSupportPath(), support);
    qputenv("XDG_DATA_HOME", saved);
}

TEST(TLUtility, PathAliasesCountUpToTheFirstFreeName) {
    QTemporaryDir dir;
    const QString path = dir.filePath(u"a.txt"_s);
    EXPECT_EQ(TLUtility::newFilePathAlias(path), path);
    for (const QString &name : {u"a.txt"_s, u"a(1).txt"_s})
        ASSERT_TRUE(QFile(dir.filePath(name)).open(QIODevice::WriteOnly));
    EXPECT_EQ(TLUtility::newFilePathAlias(path), dir.filePath(u"a(2).txt"_s));
    // Only the last extension is split off; none leaves a bare dot.
    EXPECT_EQ(TLUtility::createPathAlias(u"/tmp/archive.tar.gz"_s, 1), u"/tmp/archive.tar(1).gz"_s);
    EXPECT_EQ(TLUtility::createPathAlias(u"/tmp/dir.d/file"_s, -1), u"/tmp/dir.d/file(-1)."_s);
}

// Every check reads the redirected paths afresh, so each step sees the files as they are now.
TEST(TLUtility, PresenceChecksFollowTheFilesAsTheyChange) {
    QTemporaryDir dir;
    using C = InstallPaths::Component;
    for (const auto &[component, name] : {std::pair{C::HelperExecutable, "helper"},
                                          {C::HelperVersionFile, "version"},
                                          {C::Ntfs3gDriver, "ntfs-3g"},
                                          {C::FuseDevice, "fuse"}})
        InstallPaths::setOverride(component, dir.filePath(QLatin1String(name)));
    const auto put = [&](const char *name, const QByteArray &contents) {
        QFile file(dir.filePath(QLatin1String(name)));
        return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(contents) >= 0;
    };
    const auto drop = [&](const char *name) {
        return QFile::remove(dir.filePath(QLatin1String(name)));
    };

    EXPECT_FALSE(TLUtility::checkHelperAppInstalled());
    ASSERT_TRUE(put("version", " 2.3.4 \nbuilt by ci\n"));
    EXPECT_EQ(TLUtility::getHelperAppVersion(), QString()) << "no helper, no version";
    ASSERT_TRUE(put("helper", "binary"));
    EXPECT_TRUE(TLUtility::checkHelperAppInstalled());
    EXPECT_EQ(TLUtility::getHelperAppVersion(), u"2.3.4"_s);
    ASSERT_TRUE(drop("version"));
    EXPECT_EQ(TLUtility::getHelperAppVersion(), QString());
    ASSERT_TRUE(drop("helper"));
    EXPECT_FALSE(TLUtility::checkHelperAppInstalled());
    // FUSE needs both the driver and the device.
    ASSERT_TRUE(put("ntfs-3g", "driver"));
    EXPECT_FALSE(TLUtility::checkFuseInstalled());
    ASSERT_TRUE(put("fuse", ""));
    EXPECT_TRUE(TLUtility::checkFuseInstalled());
    ASSERT_TRUE(drop("ntfs-3g"));
    EXPECT_FALSE(TLUtility::checkFuseInstalled());
    InstallPaths::clearOverrides();
}

} // namespace
