#include "util/InstallPaths.h"
#include "util/TLUtility.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

// Every check reads the redirected paths afresh, so each step sees the files as they are now.
TEST(PresenceChecks, HelperFuseAndVersionFollowTheFilesAsTheyChange) {
    QTemporaryDir dir;
    const auto write = [&](const QString &name, const QByteArray &contents) {
        QFile file(dir.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(contents);
    };
    using C = InstallPaths::Component;
    InstallPaths::setOverride(C::HelperExecutable, dir.filePath(u"helper"_s));
    InstallPaths::setOverride(C::HelperVersionFile, dir.filePath(u"version"_s));
    InstallPaths::setOverride(C::Ntfs3gDriver, dir.filePath(u"ntfs-3g"_s));
    InstallPaths::setOverride(C::FuseDevice, dir.filePath(u"fuse"_s));

    EXPECT_FALSE(TLUtility::checkHelperAppInstalled());
    write(u"version"_s, " 2.3.4 \nbuilt by ci\n");
    EXPECT_EQ(TLUtility::getHelperAppVersion(), QString()) << "no helper, no version";
    write(u"helper"_s, "binary");
    EXPECT_TRUE(TLUtility::checkHelperAppInstalled());
    EXPECT_EQ(TLUtility::getHelperAppVersion(), u"2.3.4"_s);
    ASSERT_TRUE(QFile::remove(dir.filePath(u"version"_s)));
    EXPECT_EQ(TLUtility::getHelperAppVersion(), QString());
    ASSERT_TRUE(QFile::remove(dir.filePath(u"helper"_s)));
    EXPECT_FALSE(TLUtility::checkHelperAppInstalled());

    // FUSE needs both the driver and the device, wherever they are.
    write(u"ntfs-3g"_s, "driver");
    EXPECT_FALSE(TLUtility::checkFuseInstalled());
    write(u"fuse"_s, "");
    EXPECT_TRUE(TLUtility::checkFuseInstalled());
    ASSERT_TRUE(QFile::remove(dir.filePath(u"ntfs-3g"_s)));
    EXPECT_FALSE(TLUtility::checkFuseInstalled());
    InstallPaths::clearOverrides();
}

} // namespace
