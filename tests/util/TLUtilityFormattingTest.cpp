#include "util/TLUtility.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

struct SizeCase {
    qint64 bytes;
    const char *text;
};

class FileSizeText : public ::testing::TestWithParam<SizeCase> {};

TEST_P(FileSizeText, UsesDecimalUnitsWithStrictBoundaries) {
    EXPECT_EQ(TLUtility::getFileSizeStrWithSize(GetParam().bytes), QLatin1String(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, FileSizeText,
    ::testing::Values(SizeCase{0, "0B"}, SizeCase{999, "999B"}, SizeCase{1000, "1.0 KB"},
                      SizeCase{999999, "1000.0 KB"}, SizeCase{1000000, "1000.0 KB"},
                      SizeCase{1000001, "1.0 MB"}, SizeCase{999999999, "1000.0 MB"},
                      SizeCase{1000000000, "1000.0 MB"}, SizeCase{1000000001, "1.0 GB"},
                      SizeCase{1500000000, "1.5 GB"}, SizeCase{-1, "-1B"},
                      SizeCase{std::numeric_limits<qint64>::max(), "9223372036.9 GB"}));

struct TimeCase {
    double seconds;
    const char *text;
};

class TimeText : public ::testing::TestWithParam<TimeCase> {};

TEST_P(TimeText, SplitsIntoHoursMinutesSecondsHundredths) {
    EXPECT_EQ(TLUtility::getTimeString(GetParam().seconds), QLatin1String(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(Times, TimeText,
                         ::testing::Values(TimeCase{0, "00:00:00.00"},
                                           TimeCase{0.25, "00:00:00.25"},
                                           TimeCase{3723.5, "01:02:03.50"},
                                           TimeCase{59.75, "00:00:59.75"},
                                           TimeCase{360000, "100:00:00.00"},
                                           // Absurd input must not overflow the 32-bit parts.
                                           TimeCase{std::nan(""), "00:00:00.00"}));

struct ClockCase {
    qint32 seconds;
    const char *text;
};

class ClockText : public ::testing::TestWithParam<ClockCase> {};

TEST_P(ClockText, DropsHoursBelowOneAndPadsParts) {
    EXPECT_EQ(TLUtility::getDateStrBySecond(GetParam().seconds), QLatin1String(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(Seconds, ClockText,
                         ::testing::Values(ClockCase{0, "00:00"}, ClockCase{9, "00:09"},
                                           ClockCase{61, "01:01"}, ClockCase{3599, "59:59"},
                                           ClockCase{3600, "01:00:00"}, ClockCase{3723, "01:02:03"},
                                           ClockCase{86399, "23:59:59"},
                                           ClockCase{360000, "100:00:00"}));

struct ParseCase {
    const char *text;
    double seconds;
};

class SecondsFromText : public ::testing::TestWithParam<ParseCase> {};

TEST_P(SecondsFromText, NeedsAFractionAndThreeFields) {
    EXPECT_DOUBLE_EQ(TLUtility::getAllSecondsWithHHMMSSMS(QString::fromUtf8(GetParam().text)),
                     GetParam().seconds);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, SecondsFromText,
    ::testing::Values(ParseCase{"01:02:03.5", 3723.5}, ParseCase{"01:02:03", 0.0},
                      ParseCase{"02:03.5", 0.5}, ParseCase{"10:00:00.125", 36000.125},
                      ParseCase{".25", 0.25}, ParseCase{"", 0.0}, ParseCase{"aa:bb:cc.5", 0.5},
                      ParseCase{"1:2:3:4.5", 0.5}, ParseCase{"00:00:01.5.7", 1.5},
                      ParseCase{"00:01:00.x", 60.0}));

TEST(DateTexts, FormatInLocalTimeWithUnicodePatterns) {
    const QDateTime date(QDate(2024, 3, 5), QTime(7, 8, 9));
    EXPECT_EQ(TLUtility::stringFromFomate(date), u"2024-03-05 07:08:09"_s);
    EXPECT_EQ(TLUtility::stringFromFomate(date, u"dd/MM/yy 'at' HH:mm"_s), u"05/03/24 at 07:08"_s);
    EXPECT_EQ(TLUtility::stringFromFomate(date, u"yyyyMMdd'T'HHmmss"_s), u"20240305T070809"_s);
    EXPECT_EQ(TLUtility::stringFromFomate(date, u"HH 'o''clock'"_s), u"07 o'clock"_s);
    // Qt would read "d", "a" and "t" inside the literal as fields.
    EXPECT_EQ(TLUtility::stringFromFomate(date, u"'date' d"_s), u"date 5"_s);
    EXPECT_EQ(TLUtility::stringFromFomate(date, u"h:mm a"_s), u"7:08 AM"_s);
    // The same instant given in UTC is shown in local time.
    EXPECT_EQ(TLUtility::stringFromFomate(date.toUTC()), u"2024-03-05 07:08:09"_s);
    EXPECT_EQ(TLUtility::stringFromFomate(QDateTime()), QString());
}

TEST(DateTexts, ParseWithTheGivenPattern) {
    const QDateTime parsed =
        TLUtility::dateFromString(u"2024-03-05 07:08:09"_s, u"yyyy-MM-dd HH:mm:ss"_s);
    EXPECT_EQ(parsed, QDateTime(QDate(2024, 3, 5), QTime(7, 8, 9)));
    EXPECT_EQ(TLUtility::dateFromString(u"05.03.2024"_s, u"dd.MM.yyyy"_s).date(),
              QDate(2024, 3, 5));
    EXPECT_FALSE(TLUtility::dateFromString(u"yesterday"_s, u"yyyy-MM-dd"_s).isValid());
    EXPECT_FALSE(TLUtility::dateFromString(u"2024-13-40"_s, u"yyyy-MM-dd"_s).isValid());
    EXPECT_FALSE(TLUtility::dateFromString(u"2024-03-05"_s, QString()).isValid());
}

struct DaysCase {
    const char *name;
    QDateTime from;
    QDateTime to;
    qint64 days;
};

class DaysBetween : public ::testing::TestWithParam<DaysCase> {};

TEST_P(DaysBetween, CountsWholeDaysOnly) {
    EXPECT_EQ(TLUtility::numberOfDaysWithFromDate(GetParam().from, GetParam().to), GetParam().days);
}

QDateTime at(int y, int m, int d, int h = 12, int min = 0, int s = 0) {
    return QDateTime(QDate(y, m, d), QTime(h, min, s));
}

INSTANTIATE_TEST_SUITE_P(
    Dates, DaysBetween,
    ::testing::Values(DaysCase{"same", at(2024, 3, 5), at(2024, 3, 5), 0},
                      DaysCase{"one_day", at(2024, 3, 5), at(2024, 3, 6), 1},
                      DaysCase{"one_second_short", at(2024, 3, 5), at(2024, 3, 6, 11, 59, 59), 0},
                      DaysCase{"backwards", at(2024, 3, 6), at(2024, 3, 5), -1},
                      DaysCase{"backwards_short", at(2024, 3, 6), at(2024, 3, 5, 12, 0, 1), 0},
                      DaysCase{"leap_february", at(2024, 1, 31), at(2024, 3, 1), 30},
                      DaysCase{"over_midnight", at(2024, 3, 5, 23), at(2024, 3, 6, 1), 0}),
    [](const auto &param) { return std::string(param.param.name); });

struct TypeCase {
    const char *extension;
    const char *type;
    bool conforms;
};

class TypeConformance : public ::testing::TestWithParam<TypeCase> {};

TEST_P(TypeConformance, FollowsTheMimeHierarchy) {
    EXPECT_EQ(TLUtility::conformsToUTI(QLatin1String(GetParam().extension),
                                       QLatin1String(GetParam().type)),
              GetParam().conforms)
        << GetParam().extension << " / " << GetParam().type;
}

INSTANTIATE_TEST_SUITE_P(
    Types, TypeConformance,
    ::testing::Values(TypeCase{"png", "public.image", true}, TypeCase{"png", "image/png", true},
                      TypeCase{"PNG", "public.png", true}, TypeCase{"txt", "public.text", true},
                      TypeCase{"txt", "public.image", false}, TypeCase{"html", "text/plain", true},
                      TypeCase{"mp4", "public.movie", true},
                      TypeCase{"xyzunknown", "public.data", true},
                      TypeCase{"xyzunknown", "public.image", false},
                      TypeCase{"pdf", "com.adobe.pdf", true}));

class SupportPaths : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_dir.isValid());
        m_saved = qgetenv("XDG_DATA_HOME");
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_dir.path()));
    }
    void TearDown() override { qputenv("XDG_DATA_HOME", m_saved); }
    QTemporaryDir m_dir;
    QByteArray m_saved;
};

TEST_F(SupportPaths, AreCreatedUnderTheDataFolder) {
    const QString support = TLUtility::getSupportPath();
    EXPECT_EQ(support, m_dir.path() + u"/com.corvin.Vantrelo/Vantrelo"_s);
    EXPECT_TRUE(QFileInfo(support).isDir());
    const QString temp = TLUtility::getTempPath();
    EXPECT_EQ(temp, support + u"/temporary"_s);
    EXPECT_TRUE(QFileInfo(temp).isDir());
    // A second call finds them in place.
    EXPECT_EQ(TLUtility::getTempPath(), temp);
}

TEST_F(SupportPaths, AreReturnedEvenWhenTheyCannotBeCreated) {
    QFile blocker(m_dir.filePath(u"com.corvin.Vantrelo"_s));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    EXPECT_EQ(TLUtility::getTempPath(),
              m_dir.path() + u"/com.corvin.Vantrelo/Vantrelo/temporary"_s);
    EXPECT_TRUE(QFileInfo(blocker.fileName()).isFile());
}

TEST(PathAliases, CountUpToTheFirstFreeName) {
    QTemporaryDir dir;
    const QString path = dir.filePath(u"a.txt"_s);
    EXPECT_EQ(TLUtility::newFilePathAlias(path), path);
    for (const QString &name : {u"a.txt"_s, u"a(1).txt"_s}) {
        QFile file(dir.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    EXPECT_EQ(TLUtility::newFilePathAlias(path), dir.filePath(u"a(2).txt"_s));
    // A folder counts as taken as well.
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"b"_s));
    EXPECT_EQ(TLUtility::newFilePathAlias(dir.filePath(u"b"_s)), dir.filePath(u"b(1)."_s));
}

TEST(PathAliases, SplitOffTheLastExtensionOnly) {
    EXPECT_EQ(TLUtility::createPathAlias(u"/tmp/a.txt"_s, 3), u"/tmp/a(3).txt"_s);
    EXPECT_EQ(TLUtility::createPathAlias(u"/tmp/archive.tar.gz"_s, 1), u"/tmp/archive.tar(1).gz"_s);
    EXPECT_EQ(TLUtility::createPathAlias(u"/tmp/dir.d/file"_s, 1), u"/tmp/dir.d/file(1)."_s);
    EXPECT_EQ(TLUtility::createPathAlias(u"/tmp/.hidden"_s, 2), u"/tmp/.hidden(2)."_s);
    EXPECT_EQ(TLUtility::createPathAlias(u"/tmp/a.txt"_s, -1), u"/tmp/a(-1).txt"_s);
}

} // namespace
