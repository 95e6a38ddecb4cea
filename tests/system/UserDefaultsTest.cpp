#include "system/UserDefaults.h"

#include <QDir>
#include <QFile>
#include <QPoint>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <limits>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

QByteArray readAll(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeAll(const QString &path, const QByteArray &bytes) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

// Counts warnings while alive; the store promises exactly one line for a damaged file.
int g_warnings = 0;
struct WarningCounter {
    WarningCounter()
        : previous(
              qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &,
                                        const QString &) { g_warnings += type == QtWarningMsg; })) {
        g_warnings = 0;
    }
    ~WarningCounter() { qInstallMessageHandler(previous); }
    QtMessageHandler previous;
};

class UserDefaultsTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }
    QString file() const { return m_dir.filePath(u"sub/defaults.json"_s); }
    QStringList setAside() const {
        return QDir(m_dir.filePath(u"sub"_s))
            .entryList({u"defaults.json.corrupt-*"_s}, QDir::Files);
    }
    QTemporaryDir m_dir;
};

struct RoundTrip {
    const char *name;
    QString key;
    QVariant value;
};

std::vector<RoundTrip> roundTrips() {
    QByteArray binary("\0\x01\xff\x80zz", 6);
    return {
        {"bool_true", u"/"_s, QVariant(true)},
        {"bool_false", u"/media/a b/"_s, QVariant(false)},
        {"integer_zero", u"/media/a b"_s, QVariant(qint64(0))},
        {"integer_max", u"enableBootKey"_s, QVariant(std::numeric_limits<qint64>::max())},
        {"integer_min", u"min"_s, QVariant(std::numeric_limits<qint64>::min())},
        {"double_whole", u"whole"_s, QVariant(2.0)},
        {"double_fraction", u"fraction"_s, QVariant(-0.125)},
        {"string_empty", u""_s, QVariant(QString())},
        {"string_unicode", u"ключ \"quoted\"\nline"_s, QVariant(u"日本語 ✓ \\ \"x\""_s)},
        {"string_list", u"AppleLanguages"_s, QVariant(QStringList{u"zh-Hans-CN"_s, u"en"_s})},
        {"string_list_empty", u"empty list"_s, QVariant(QStringList())},
        {"bytes", u"/Volumes/Data"_s, QVariant(binary)},
        {"bytes_empty", u"no bytes"_s, QVariant(QByteArray())},
    };
}

class UserDefaultsRoundTrip : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(UserDefaultsRoundTrip, TypeAndValueSurviveTheFile) {
    QTemporaryDir dir;
    const QString path = dir.filePath(u"defaults.json"_s);
    const RoundTrip &item = GetParam();
    {
        UserDefaults writer(path);
        writer.setObject(item.value, item.key);
        writer.setString(u"neighbour"_s, item.key + u"x"_s);
        ASSERT_TRUE(writer.synchronize());
    }
    UserDefaults reader(path);
    const QVariant back = reader.objectForKey(item.key);
    EXPECT_EQ(back.typeId(), item.value.typeId());
    EXPECT_EQ(back, item.value);
    EXPECT_EQ(reader.stringForKey(item.key + u"x"_s), u"neighbour"_s);
}

INSTANTIATE_TEST_SUITE_P(Values, UserDefaultsRoundTrip, ::testing::ValuesIn(roundTrips()),
                         [](const auto &param) { return std::string(param.param.name); });

TEST_F(UserDefaultsTest, AbsentKeysGiveEmptyValues) {
    UserDefaults defaults(file());
    EXPECT_FALSE(defaults.objectForKey(u"/"_s).isValid());
    EXPECT_FALSE(defaults.boolForKey(u"/"_s));
    EXPECT_EQ(defaults.integerForKey(u"/"_s), 0);
    EXPECT_TRUE(defaults.stringForKey(u"/"_s).isNull());
    EXPECT_TRUE(defaults.stringArrayForKey(u"/"_s).isEmpty());
    EXPECT_TRUE(defaults.dataForKey(u"/"_s).isNull());
    // Reading must not create anything on disk.
    EXPECT_FALSE(QFile::exists(file()));
}

TEST_F(UserDefaultsTest, TypedGettersConvertLikeThePlatform) {
    UserDefaults defaults(file());
    defaults.setString(u"YES"_s, u"yes"_s);
    defaults.setString(u"12abc"_s, u"numeric text"_s);
    defaults.setString(u"abc"_s, u"plain text"_s);
    defaults.setInteger(2, u"two"_s);
    defaults.setDouble(2.9, u"two point nine"_s);
    defaults.setStringArray({u"a"_s}, u"list"_s);
    defaults.setData("raw", u"bytes"_s);

    EXPECT_TRUE(defaults.boolForKey(u"yes"_s));
    EXPECT_TRUE(defaults.boolForKey(u"numeric text"_s));
    EXPECT_FALSE(defaults.boolForKey(u"plain text"_s));
    EXPECT_TRUE(defaults.boolForKey(u"two"_s));
    EXPECT_FALSE(defaults.boolForKey(u"list"_s));
    EXPECT_EQ(defaults.integerForKey(u"numeric text"_s), 12);
    EXPECT_EQ(defaults.integerForKey(u"two point nine"_s), 2);
    EXPECT_EQ(defaults.integerForKey(u"bytes"_s), 0);
    EXPECT_EQ(defaults.stringForKey(u"two"_s), u"2"_s);
    EXPECT_TRUE(defaults.stringForKey(u"list"_s).isNull());
    EXPECT_TRUE(defaults.stringArrayForKey(u"plain text"_s).isEmpty());
    EXPECT_TRUE(defaults.dataForKey(u"plain text"_s).isNull());
    EXPECT_EQ(defaults.dataForKey(u"bytes"_s), QByteArray("raw"));
}

TEST_F(UserDefaultsTest, ValuesAreNormalisedRefusedOrRemoved) {
    UserDefaults defaults(file());
    defaults.setObject(QVariant(int(7)), u"int"_s);
    defaults.setObject(QVariant(7u), u"uint"_s);
    defaults.setObject(QVariantList{u"a"_s, u"b"_s}, u"list"_s);
    EXPECT_EQ(defaults.objectForKey(u"int"_s).typeId(), QMetaType::LongLong);
    EXPECT_EQ(defaults.objectForKey(u"uint"_s).typeId(), QMetaType::LongLong);
    EXPECT_EQ(defaults.stringArrayForKey(u"list"_s), (QStringList{u"a"_s, u"b"_s}));

    // Unsupported values change nothing; a null value removes the key.
    defaults.setString(u"before"_s, u"k"_s);
    defaults.setObject(QVariant(QPoint(1, 2)), u"k"_s);
    defaults.setObject(QVariantList{u"a"_s, 3}, u"k"_s);
    defaults.setObject(QVariant(std::numeric_limits<qulonglong>::max()), u"k"_s);
    EXPECT_EQ(defaults.stringForKey(u"k"_s), u"before"_s);
    defaults.setObject(QVariant(), u"k"_s);
    EXPECT_FALSE(defaults.objectForKey(u"k"_s).isValid());
}

TEST_F(UserDefaultsTest, ChangesReachTheFileOnlyAtSynchronize) {
    UserDefaults writer(file());
    writer.setBool(true, u"/"_s);
    EXPECT_FALSE(UserDefaults(file()).objectForKey(u"/"_s).isValid());
    ASSERT_TRUE(writer.synchronize());
    EXPECT_TRUE(UserDefaults(file()).boolForKey(u"/"_s));

    writer.removeObjectForKey(u"/"_s);
    EXPECT_TRUE(UserDefaults(file()).boolForKey(u"/"_s));
    ASSERT_TRUE(writer.synchronize());
    EXPECT_FALSE(UserDefaults(file()).objectForKey(u"/"_s).isValid());
}

TEST_F(UserDefaultsTest, TwoWritersKeepEachOthersKeysAndRemovals) {
    UserDefaults a(file());
    UserDefaults b(file());
    a.setInteger(1, u"/media/a b/"_s);
    b.setInteger(2, u"/media/a b"_s);
    ASSERT_TRUE(a.synchronize());
    ASSERT_TRUE(b.synchronize());
    // b took in a's key while merging.
    EXPECT_EQ(b.integerForKey(u"/media/a b/"_s), 1);

    // a removes its key; b, which still holds it in memory, must not bring it back.
    a.removeObjectForKey(u"/media/a b/"_s);
    ASSERT_TRUE(a.synchronize());
    b.setInteger(3, u"other"_s);
    ASSERT_TRUE(b.synchronize());

    UserDefaults check(file());
    EXPECT_FALSE(check.objectForKey(u"/media/a b/"_s).isValid());
    EXPECT_EQ(check.integerForKey(u"/media/a b"_s), 2);
    EXPECT_EQ(check.integerForKey(u"other"_s), 3);
    EXPECT_FALSE(b.objectForKey(u"/media/a b/"_s).isValid());
}

TEST_F(UserDefaultsTest, TwoProcessesWritingAtOnceLoseNoKey) {
    constexpr int kCount = 150;
    QDir().mkpath(m_dir.filePath(u"sub"_s));
    QProcess writers[2];
    for (int i = 0; i < 2; ++i)
        writers[i].start(QStringLiteral(VANTRELO_DEFAULTS_WRITER),
                         {file(), u"w%1/"_s.arg(i), QString::number(kCount)});
    for (QProcess &writer : writers) {
        ASSERT_TRUE(writer.waitForFinished(120000));
        ASSERT_EQ(writer.exitCode(), 0) << writer.readAllStandardError().constData();
    }

    UserDefaults check(file());
    EXPECT_EQ(check.allKeys().size(), 2 * kCount);
    for (int n = 0; n < kCount; ++n) {
        EXPECT_EQ(check.integerForKey(u"w0/"_s + QString::number(n)), n);
        EXPECT_EQ(check.integerForKey(u"w1/"_s + QString::number(n)), n);
    }
}

TEST_F(UserDefaultsTest, ThreadsSharingOneStoreLoseNoKey) {
    UserDefaults shared(file());
    std::vector<std::unique_ptr<QThread>> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back(QThread::create([&shared, t] {
            for (int n = 0; n < 50; ++n) {
                shared.setInteger(n, u"t%1/%2"_s.arg(t).arg(n));
                if (n % 10 == 0)
                    shared.synchronize();
            }
        }));
        threads.back()->start();
    }
    for (auto &thread : threads)
        thread->wait();
    ASSERT_TRUE(shared.synchronize());
    EXPECT_EQ(UserDefaults(file()).allKeys().size(), 200);
}

struct Damage {
    const char *name;
    QByteArray contents;
};

class UserDefaultsDamage : public UserDefaultsTest, public ::testing::WithParamInterface<Damage> {};

TEST_P(UserDefaultsDamage, DamagedFileIsKeptAsideAndDefaultsUsed) {
    QDir().mkpath(m_dir.filePath(u"sub"_s));
    QByteArray contents = GetParam().contents;
    if (contents.isNull()) { // a good file cut in half
        {
            UserDefaults good(file());
            good.setString(u"a long enough value to cut in half"_s, u"key"_s);
            ASSERT_TRUE(good.synchronize());
        }
        contents = readAll(file());
        contents.truncate(contents.size() / 2);
    }
    writeAll(file(), contents);

    WarningCounter warnings;
    UserDefaults defaults(file());
    EXPECT_EQ(g_warnings, 1);
    EXPECT_TRUE(defaults.allKeys().isEmpty());
    EXPECT_FALSE(QFile::exists(file()));
    const QStringList aside = setAside();
    ASSERT_EQ(aside.size(), 1);
    EXPECT_EQ(readAll(m_dir.filePath(u"sub/"_s + aside.first())), contents);

    defaults.setBool(true, u"fresh"_s);
    ASSERT_TRUE(defaults.synchronize());
    EXPECT_TRUE(UserDefaults(file()).boolForKey(u"fresh"_s));
}

INSTANTIATE_TEST_SUITE_P(
    Files, UserDefaultsDamage,
    ::testing::Values(
        Damage{"truncated", QByteArray()}, Damage{"empty", QByteArray("")},
        Damage{"garbage", QByteArray("\x89PNG\r\n\x1a\n")},
        Damage{"not_an_object", QByteArray("[1, 2]")},
        Damage{"other_format", QByteArray(R"({"format": 2, "values": {}})")},
        Damage{"bad_entry",
               QByteArray(R"({"format": 1, "values": {"k": {"type": "integer", "value": "x"}}})")},
        Damage{"bad_base64",
               QByteArray(R"({"format": 1, "values": {"k": {"type": "data", "value": "!!"}}})")}),
    [](const auto &param) { return std::string(param.param.name); });

TEST_F(UserDefaultsTest, FileDamagedBetweenWritesIsKeptAsideAndMemoryWritten) {
    UserDefaults defaults(file());
    defaults.setString(u"v"_s, u"mine"_s);
    ASSERT_TRUE(defaults.synchronize());
    writeAll(file(), "{ broken");
    defaults.setString(u"w"_s, u"more"_s);
    ASSERT_TRUE(defaults.synchronize());
    EXPECT_EQ(setAside().size(), 1);
    UserDefaults check(file());
    EXPECT_EQ(check.stringForKey(u"mine"_s), u"v"_s);
    EXPECT_EQ(check.stringForKey(u"more"_s), u"w"_s);
}

TEST_F(UserDefaultsTest, UnwritableFolderKeepsChangesPending) {
    // A plain file where the folder should be makes the write fail even for root.
    writeAll(m_dir.filePath(u"sub"_s), "not a folder");
    UserDefaults defaults(file());
    defaults.setBool(true, u"k"_s);
    EXPECT_FALSE(defaults.synchronize());
    EXPECT_TRUE(defaults.boolForKey(u"k"_s));

    QFile::remove(m_dir.filePath(u"sub"_s));
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_TRUE(UserDefaults(file()).boolForKey(u"k"_s));
}

TEST_F(UserDefaultsTest, LookupsFallBackToTheGivenDomain) {
    UserDefaults global(m_dir.filePath(u"global.json"_s));
    global.setStringArray({u"de-CH"_s}, u"AppleLanguages"_s);
    UserDefaults app(file(), &global);
    EXPECT_EQ(app.stringArrayForKey(u"AppleLanguages"_s), QStringList{u"de-CH"_s});
    app.setStringArray({u"fr"_s}, u"AppleLanguages"_s);
    EXPECT_EQ(app.stringArrayForKey(u"AppleLanguages"_s), QStringList{u"fr"_s});
    EXPECT_FALSE(app.allKeys().isEmpty());
    app.removeObjectForKey(u"AppleLanguages"_s);
    EXPECT_EQ(app.stringArrayForKey(u"AppleLanguages"_s), QStringList{u"de-CH"_s});
}

TEST(UserDefaultsPaths, FollowXdgConfigHome) {
    const QByteArray saved = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", "/tmp/xdg-test-config");
    EXPECT_EQ(UserDefaults::standardFilePath(), u"/tmp/xdg-test-config/vantrelo/defaults.json"_s);
    EXPECT_EQ(UserDefaults::globalDomainFilePath(),
              u"/tmp/xdg-test-config/vantrelo/globaldefaults.json"_s);
    // A relative value is invalid by the XDG rules and ignored.
    qputenv("XDG_CONFIG_HOME", "relative");
    EXPECT_EQ(UserDefaults::standardFilePath(),
              QDir::homePath() + u"/.config/vantrelo/defaults.json"_s);
    qputenv("XDG_CONFIG_HOME", saved);
}

} // namespace
