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

class UserDefaultsTest : public ::testing::Test {
protected:
    QString file() const { return m_dir.filePath(u"defaults.json"_s); }
    QStringList setAside() const {
        return QDir(m_dir.path()).entryList({u"defaults.json.corrupt-*"_s}, QDir::Files);
    }
    QTemporaryDir m_dir;
};

// Any spelling is a key; each value comes back with its type, and only after synchronize.
TEST_F(UserDefaultsTest, TypedValuesSurviveTheFile) {
    // clang-format off
    const std::pair<QString, QVariant> items[] = {
        {u"/"_s, true}, {u"/media/a b/"_s, false}, {u"/media/a b"_s, -0.125},
        {u""_s, std::numeric_limits<qint64>::min()}, {u"k"_s, std::numeric_limits<qint64>::max()},
        {u"ключ \"quoted\"\nline"_s, u"日本語 ✓ \\ \"x\""_s}, {u"empty"_s, QString()},
        {u"AppleLanguages"_s, QStringList{u"zh-Hans-CN"_s, u"en"_s}},
        {u"/Volumes/Data"_s, QByteArray("\0\x01\xff\x80zz", 6)}};
    // clang-format on
    UserDefaults writer(file());
    for (const auto &[key, value] : items) {
        writer.setObject(value, key);
        // Values the file cannot hold change nothing.
        writer.setObject(QVariant(QPoint(1, 2)), key);
        writer.setObject(QVariantList{u"a"_s, 3}, key);
        writer.setObject(QVariant(std::numeric_limits<qulonglong>::max()), key);
    }
    EXPECT_TRUE(UserDefaults(file()).allKeys().isEmpty());
    ASSERT_TRUE(writer.synchronize());
    UserDefaults reader(file());
    for (const auto &[key, value] : items) {
        EXPECT_EQ(reader.objectForKey(key).typeId(), value.typeId()) << key.toStdString();
        EXPECT_EQ(reader.objectForKey(key), value) << key.toStdString();
    }
    // A removal sticks even when another writer that still holds the key saves later.
    writer.removeObjectForKey(u"/"_s);
    ASSERT_TRUE(writer.synchronize());
    reader.setInteger(3, u"other"_s);
    ASSERT_TRUE(reader.synchronize());
    UserDefaults check(file());
    EXPECT_FALSE(check.objectForKey(u"/"_s).isValid());
    EXPECT_EQ(check.integerForKey(u"other"_s), 3);
    EXPECT_EQ(check.objectForKey(u"k"_s), QVariant(std::numeric_limits<qint64>::max()));
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
    for (int n = 0; n < 2 * kCount; ++n)
        EXPECT_EQ(check.integerForKey(u"w%1/%2"_s.arg(n % 2).arg(n / 2)), n / 2);
}

TEST_F(UserDefaultsTest, DamagedFileIsKeptAsideAndDefaultsUsed) {
    // Truncated, not JSON at all, and well-formed with a value of the wrong type.
    for (const QByteArray &contents :
         {QByteArray(R"({"format": 1, "values": {"k": {"type": "string", "val)"),
          QByteArray("\x89PNG\r\n\x1a\n"),
          QByteArray(R"({"format": 1, "values": {"k": {"type": "integer", "value": "x"}}})")}) {
        SCOPED_TRACE(contents.constData());
        for (const QString &aside : setAside())
            QFile::remove(m_dir.filePath(aside));
        QFile damaged(file());
        ASSERT_TRUE(damaged.open(QIODevice::WriteOnly) && damaged.write(contents) > 0);
        damaged.close();

        static int warnings;
        warnings = 0;
        const QtMessageHandler previous =
            qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &) {
                warnings += type == QtWarningMsg;
            });
        UserDefaults defaults(file());
        qInstallMessageHandler(previous);
        EXPECT_EQ(warnings, 1);
        EXPECT_TRUE(defaults.allKeys().isEmpty());
        EXPECT_FALSE(QFile::exists(file()));
        const QStringList aside = setAside();
        ASSERT_EQ(aside.size(), 1);
        QFile kept(m_dir.filePath(aside.first()));
        EXPECT_TRUE(kept.open(QIODevice::ReadOnly) && kept.readAll() == contents);
    }
}

} // namespace
