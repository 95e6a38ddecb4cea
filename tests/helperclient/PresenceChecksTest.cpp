#include "util/InstallPaths.h"
#include "util/TLUtility.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Each check reads the redirected paths afresh, so every step below sees the files as they are.
class PresenceChecks : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_dir.isValid());
        using C = InstallPaths::Component;
        InstallPaths::setOverride(C::HelperExecutable, path(u"vantrelo-helper"_s));
        InstallPaths::setOverride(C::HelperVersionFile, path(u"vantrelo-helper.version"_s));
        InstallPaths::setOverride(C::Ntfs3gDriver, path(u"ntfs-3g"_s));
        InstallPaths::setOverride(C::FuseDevice, path(u"fuse"_s));
    }
    void TearDown() override { InstallPaths::clearOverrides(); }

    QString path(const QString &name) const { return m_dir.filePath(name); }
    void write(const QString &name, const QByteArray &contents) {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(contents);
    }

    QTemporaryDir m_dir;
};

TEST_F(PresenceChecks, HelperAndFuseAreSeenAsSoonAsTheyAppearAndGoneWhenRemoved) {
    EXPECT_FALSE(TLUtility::checkHelperAppInstalled());
    write(u"vantrelo-helper"_s, "#!/bin/sh\n");
    EXPECT_TRUE(TLUtility::checkHelperAppInstalled());
    ASSERT_TRUE(QFile::remove(path(u"vantrelo-helper"_s)));
    EXPECT_FALSE(TLUtility::checkHelperAppInstalled());

    // FUSE needs both the driver and the device, which may be any kind of file or folder.
    EXPECT_FALSE(TLUtility::checkFuseInstalled());
    write(u"ntfs-3g"_s, "driver");
    EXPECT_FALSE(TLUtility::checkFuseInstalled());
    write(u"fuse"_s, "");
    EXPECT_TRUE(TLUtility::checkFuseInstalled());
    ASSERT_TRUE(QFile::remove(path(u"fuse"_s)) && QDir(m_dir.path()).mkdir(u"fuse"_s));
    EXPECT_TRUE(TLUtility::checkFuseInstalled());
    ASSERT_TRUE(QFile::remove(path(u"ntfs-3g"_s)));
    EXPECT_FALSE(TLUtility::checkFuseInstalled());
}

TEST_F(PresenceChecks, VersionIsTheFirstLineOfTheFileBesideTheHelper) {
    EXPECT_EQ(TLUtility::getHelperAppVersion(), QString());
    write(u"vantrelo-helper.version"_s, "1.0.1");
    EXPECT_EQ(TLUtility::getHelperAppVersion(), QString()) << "no helper, no version";
    write(u"vantrelo-helper"_s, "binary");
    const std::pair<QByteArray, QString> files[] = {
        {"1.0.1", u"1.0.1"_s},
        {"1.10\n", u"1.10"_s},
        {" 2.3.4 \nbuilt by ci\n", u"2.3.4"_s},
        {"", QString()},
    };
    for (const auto &[contents, expected] : files) {
        write(u"vantrelo-helper.version"_s, contents);
        EXPECT_EQ(TLUtility::getHelperAppVersion(), expected) << contents.constData();
    }
    ASSERT_TRUE(QFile::remove(path(u"vantrelo-helper.version"_s)));
    EXPECT_EQ(TLUtility::getHelperAppVersion(), QString());
    // A folder in place of the file cannot be read as text.
    ASSERT_TRUE(QDir(m_dir.path()).mkdir(u"vantrelo-helper.version"_s));
    EXPECT_EQ(TLUtility::getHelperAppVersion(), QString());
}

TEST(InstallPathsTest, SocketFollowsTheEnvironmentAndDefaultsOtherwise) {
    const QByteArray saved = qgetenv("VANTRELO_HELPER_SOCKET");
    qunsetenv("VANTRELO_HELPER_SOCKET");
    EXPECT_EQ(InstallPaths::helperSocket(),
              u"/run/Q7W4E2R9T1.com.corvin.pellodisk.vantrelo-helper.sock"_s);
    qputenv("VANTRELO_HELPER_SOCKET", "/tmp/x.sock");
    EXPECT_EQ(InstallPaths::helperSocket(), u"/tmp/x.sock"_s);
    InstallPaths::setOverride(InstallPaths::Component::HelperSocket, u"/tmp/y.sock"_s);
    EXPECT_EQ(InstallPaths::helperSocket(), u"/tmp/y.sock"_s);
    InstallPaths::clearOverrides();
    if (saved.isNull())
        qunsetenv("VANTRELO_HELPER_SOCKET");
    else
        qputenv("VANTRELO_HELPER_SOCKET", saved);
}

} // namespace
