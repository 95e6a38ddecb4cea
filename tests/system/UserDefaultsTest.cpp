#include "system/UserDefaults.h"

#include "tests/support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QPoint>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <limits>

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
    void SetUp() override { ASSERT_TRUE(QDir().mkpath(m_dir.filePath(u"sub"_s))); }
    QString file() const { return m_dir.filePath(u"sub/defaults.json"_s); }
    QStringList setAside() const {
        return QDir(m_dir.filePath(u"sub"_s))
            .entryList({u"defaults.json.corrupt-*"_s}, QDir::Files);
    }
    QTemporaryDir m_dir;
};

// Any spelling is a key; each value comes back with its type, and only after synchronize.
TEST_F(UserDefaultsTest, TypedValuesSurviveTheFile) {
    const std::pair<QString, QVariant> items[] = {
        {u"/"_s, QVariant(true)},
        {u"/media/a b/"_s, QVariant(false)},
        {u"/media/a b"_s, QVariant(std::numeric_limits<qint64>::min())},
        {u"enableBootKey"_s, QVariant(std::numeric_limits<qint64>::max())},
        {u"fraction"_s, QVariant(-0.125)},
        {u""_s, QVariant(QString())},
        {u"ключ \"quoted\"\nline"_s, QVariant(u"日本語 ✓ \\ \"x\""_s)},
        {u"AppleLanguages"_s, QVariant(QStringList{u"zh-Hans-CN"_s, u"en"_s})},
        {u"/Volumes/Data"_s, QVariant(QByteArray("\0\x01\xff\x80zz", 6))},
    };
    UserDefaults writer(file());
    for (const auto &[key, value] : items)
        writer.setObject(value, key);
    EXPECT_TRUE(UserDefaults(file()).allKeys().isEmpty());
    ASSERT_TRUE(writer.synchronize());
    UserDefaults reader(file());
    for (const auto &[key, value] : items) {
        EXPECT_EQ(reader.objectForKey(key).typeId(), value.typeId()) << key.toStdString();
        EXPECT_EQ(reader.objectForKey(key), value) << key.toStdString();
    }
    writer.removeObjectForKey(u"/"_s);
    ASSERT_TRUE(writer.synchronize());
    EXPECT_FALSE(UserDefaults(file()).objectForKey(u"/"_s).isValid());
}

TEST_F(UserDefaultsTest, UnsupportedValuesChangeNothing) {
    UserDefaults defaults(file());
    defaults.setString(u"before"_s, u"k"_s);
    defaults.setObject(QVariant(QPoint(1, 2)), u"k"_s);
    defaults.setObject(QVariantList{u"a"_s, 3}, u"k"_s);
    defaults.setObject(QVariant(std::numeric_limits<qulonglong>::max()), u"k"_s);
    EXPECT_EQ(defaults.stringForKey(u"k"_s), u"before"_s);
}

TEST_F(UserDefaultsTest, TwoWritersKeepEachOthersKeysAndRemovals) {
    UserDefaults a(file());
    UserDefaults b(file());
    a.setInteger(1, u"/media/a b/"_s);
    b.setInteger(2, u"/media/a b"_s);
    ASSERT_TRUE(a.synchronize());
    ASSERT_TRUE(b.synchronize());
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
}

TEST_F(UserDefaultsTest, TwoProcessesWritingAtOnceLoseNoKey) {
    constexpr int kCount = 150;
    pid_t children[2];
    for (int i = 0; i < 2; ++i) {
        children[i] = ::fork();
        ASSERT_GE(children[i], 0);
        if (children[i] == 0) {
            UserDefaults defaults(file());
            for (int n = 0; n < kCount; ++n) {
                defaults.setInteger(n, u"w%1/%2"_s.arg(i).arg(n));
                if (!defaults.synchronize())
                    ::_exit(1);
            }
            ::_exit(0);
        }
    }
    for (pid_t child : children) {
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
    UserDefaults check(file());
    EXPECT_EQ(check.allKeys().size(), 2 * kCount);
    for (int n = 0; n < kCount; ++n) {
        EXPECT_EQ(check.integerForKey(u"w0/"_s + QString::number(n)), n);
        EXPECT_EQ(check.integerForKey(u"w1/"_s + QString::number(n)), n);
    }
}

TEST_F(UserDefaultsTest, DamagedFileIsKeptAsideAndDefaultsUsed) {
    {
        UserDefaults good(file());
        good.setString(u"a long enough value to cut in half"_s, u"key"_s);
        ASSERT_TRUE(good.synchronize());
    }
    const QByteArray good = readAll(file());
    for (const QByteArray &contents :
         {good.left(good.size() / 2), QByteArray("\x89PNG\r\n\x1a\n"),
          QByteArray(R"({"format": 1, "values": {"k": {"type": "integer", "value": "x"}}})")}) {
        SCOPED_TRACE(contents.constData());
        for (const QString &aside : setAside())
            QFile::remove(m_dir.filePath(u"sub/"_s + aside));
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
}

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
    const QString blocked = m_dir.filePath(u"blocked/defaults.json"_s);
    writeAll(m_dir.filePath(u"blocked"_s), "not a folder");
    UserDefaults defaults(blocked);
    defaults.setBool(true, u"k"_s);
    EXPECT_FALSE(defaults.synchronize());
    EXPECT_TRUE(defaults.boolForKey(u"k"_s));

    QFile::remove(m_dir.filePath(u"blocked"_s));
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_TRUE(UserDefaults(blocked).boolForKey(u"k"_s));
}

TEST(UserDefaultsPaths, FollowXdgConfigHome) {
    const QByteArray saved = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", "/tmp/xdg-test-config");
    EXPECT_EQ(UserDefaults::standardFilePath(), u"/tmp/xdg-test-config/vantrelo/defaults.json"_s);
    EXPECT_EQ(UserDefaults::globalDomainFilePath(),
              u"/tmp/xdg-test-config/vantrelo/globaldefaults.json"_s);
    qputenv("XDG_CONFIG_HOME", saved);
}

} // namespace
