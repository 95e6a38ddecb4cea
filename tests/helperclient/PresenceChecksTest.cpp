#include "util/InstallPaths.h"
#include "util/TLUtility.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

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

TEST_F(PresenceChecks, HelperIsSeenAsSoonAsItAppearsAndGoneWhenRemoved) {
    EXPECT_FALSE(TLUtility::checkHelperAppInstalled());
    write(u"vantrelo-helper"_s, "#!/bin/sh\n");
    EXPECT_TRUE(TLUtility::checkHelperAppInstalled());
    ASSERT_TRUE(QFile::remove(path(u"vantrelo-helper"_s)));
    EXPECT_FALSE(TLUtility::checkHelperAppInstalled());
}

TEST_F(PresenceChecks, FuseNeedsBothTheDriverAndTheDevice) {
    EXPECT_FALSE(TLUtility::checkFuseInstalled());
    write(u"ntfs-3g"_s, "driver");
    EXPECT_FALSE(TLUtility::checkFuseInstalled());
    write(u"fuse"_s, "");
    EXPECT_TRUE(TLUtility::checkFuseInstalled());
    ASSERT_TRUE(QFile::remove(path(u"ntfs-3g"_s)));
    EXPECT_FALSE(TLUtility::checkFuseInstalled());
}

TEST_F(PresenceChecks, FuseDeviceMayBeAnyKindOfFileOrFolder) {
    write(u"ntfs-3g"_s, "driver");
    ASSERT_TRUE(QDir(m_dir.path()).mkdir(u"fuse"_s));
    EXPECT_TRUE(TLUtility::checkFuseInstalled());
}

struct VersionCase {
    const char *name;
    bool helperPresent;
    std::optional<QByteArray> versionFile;
    QString expected;
};

class HelperVersion : public PresenceChecks, public testing::WithParamInterface<VersionCase> {};

TEST_P(HelperVersion, ReadsTheFileBesideTheHelper) {
    const VersionCase &c = GetParam();
    if (c.helperPresent)
        write(u"vantrelo-helper"_s, "binary");
    if (c.versionFile)
        write(u"vantrelo-helper.version"_s, *c.versionFile);
    EXPECT_EQ(TLUtility::getHelperAppVersion(), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Files, HelperVersion,
    testing::Values(VersionCase{"Plain", true, QByteArray("1.0.1"), u"1.0.1"_s},
                    VersionCase{"TrailingNewline", true, QByteArray("1.10\n"), u"1.10"_s},
                    VersionCase{"OnlyFirstLine", true, QByteArray(" 2.3.4 \nbuilt by ci\n"),
                                u"2.3.4"_s},
                    VersionCase{"EmptyFile", true, QByteArray(), QString()},
                    VersionCase{"NoVersionFile", true, std::nullopt, QString()},
                    VersionCase{"NoHelper", false, QByteArray("1.0.1"), QString()}),
    [](const testing::TestParamInfo<VersionCase> &param) { return std::string(param.param.name); });

TEST_F(PresenceChecks, UnreadableVersionIsEmpty) {
    write(u"vantrelo-helper"_s, "binary");
    // A folder in place of the file cannot be read as text.
    ASSERT_TRUE(QDir(m_dir.path()).mkdir(u"vantrelo-helper.version"_s));
    EXPECT_EQ(TLUtility::getHelperAppVersion(), QString());
}

TEST_F(PresenceChecks, VersionIsReadAfreshEachCall) {
    write(u"vantrelo-helper"_s, "binary");
    write(u"vantrelo-helper.version"_s, "1.0.0");
    EXPECT_EQ(TLUtility::getHelperAppVersion(), u"1.0.0"_s);
    write(u"vantrelo-helper.version"_s, "1.0.2");
    EXPECT_EQ(TLUtility::getHelperAppVersion(), u"1.0.2"_s);
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

TEST(InstallPathsTest, InstalledHelperPathsSitTogether) {
    const QString helper = InstallPaths::defaultPath(InstallPaths::Component::HelperExecutable);
    EXPECT_TRUE(helper.endsWith(u"/vantrelo-helper"_s));
    EXPECT_EQ(InstallPaths::defaultPath(InstallPaths::Component::HelperVersionFile),
              helper + u".version"_s);
    EXPECT_EQ(InstallPaths::defaultPath(InstallPaths::Component::FuseDevice), u"/dev/fuse"_s);
}

} // namespace
