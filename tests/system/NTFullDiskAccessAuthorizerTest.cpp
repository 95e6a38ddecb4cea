#include "system/NTFullDiskAccessAuthorizer.h"

#include "ScratchHome.h"
#include "tests/support/QtPrinters.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

class FakeFiles : public NTFullDiskAccessAuthorizer::FileManager {
public:
    int openReadOnly(const QByteArray &path) override {
        opened.append(QString::fromUtf8(path));
        return errors.value(QString::fromUtf8(path), ENOENT);
    }
    QHash<QString, int> errors;
    QStringList opened;
};

class FakeWorkspace : public NTFullDiskAccessAuthorizer::Workspace {
public:
    bool openURL(const QUrl &url) override {
        urls.append(url);
        return true;
    }
    QList<QUrl> urls;
};

class AuthorizerTest : public ::testing::Test {
protected:
    std::shared_ptr<FakeFiles> m_files = std::make_shared<FakeFiles>();
    std::shared_ptr<FakeWorkspace> m_workspace = std::make_shared<FakeWorkspace>();
    NTFullDiskAccessAuthorizer m_authorizer{m_files, m_workspace};
};

TEST_F(AuthorizerTest, SingleProbeClassifiesTheError) {
    for (const auto &[error, status] : {std::pair{0, NTFullDiskAuthorizationStatusAuthorized},
                                        {EPERM, NTFullDiskAuthorizationStatusDenied},
                                        {EACCES, NTFullDiskAuthorizationStatusDenied},
                                        {ENOENT, NTFullDiskAuthorizationStatusNotDetermined},
                                        {EIO, NTFullDiskAuthorizationStatusNotDetermined}}) {
        m_files->errors[u"/x"_s] = error;
        EXPECT_EQ(m_authorizer._checkFDAUsingFile(u"/x"_s), status) << error;
    }
}

// Two files under the real home, two system files; the first readable one decides and stops the
// probe, refusals alone deny.
TEST_F(AuthorizerTest, StatusOverTheFourFiles) {
    m_authorizer.setUserHomeFolderPath(u"/home/ada/"_s);
    const QStringList paths = m_authorizer.probePaths();
    ASSERT_EQ(paths.size(), 4);
    EXPECT_TRUE(paths[0].startsWith(u"/home/ada/.") && paths[1].startsWith(u"/home/ada/."));
    EXPECT_TRUE(paths[2].startsWith(u"/etc/") && paths[3].startsWith(u"/etc/"));
    const struct {
        std::array<int, 4> errors;
        NTFullDiskAuthorizationStatus status;
        qsizetype opened;
    } cases[] = {
        {{ENOENT, ENOENT, ENOENT, ENOENT}, NTFullDiskAuthorizationStatusNotDetermined, 4},
        {{EPERM, 0, EACCES, ENOENT}, NTFullDiskAuthorizationStatusAuthorized, 2},
        {{EACCES, EPERM, EACCES, 0}, NTFullDiskAuthorizationStatusAuthorized, 4},
        {{EPERM, ENOENT, EACCES, ENOENT}, NTFullDiskAuthorizationStatusDenied, 4},
    };
    for (const auto &c : cases) {
        m_files->opened.clear();
        for (int i = 0; i < 4; ++i)
            m_files->errors[paths[i]] = c.errors[size_t(i)];
        EXPECT_EQ(m_authorizer.authorizationStatus(), c.status);
        EXPECT_EQ(m_files->opened, paths.mid(0, c.opened));
    }
}

TEST_F(AuthorizerTest, RequestOpensTheGuideAndNeverCallsTheCompletion) {
    bool called = false;
    m_authorizer.requestAuthorizationWithCompletion(
        [&called](NTFullDiskAuthorizationStatus) { called = true; });
    QCoreApplication::processEvents();
    EXPECT_FALSE(called);
    EXPECT_EQ(m_workspace->urls, QList<QUrl>{NTFullDiskAccessAuthorizer::preferencesUrl()});
    EXPECT_TRUE(NTFullDiskAccessAuthorizer::preferencesUrl().isValid());
}

// Confined (a sandbox or snap marker set): the password database, not $HOME. Either way the first
// answer is kept.
TEST(HomeFolder, ConfinedUsesThePasswordDatabaseAndTheAnswerIsCached) {
    const QByteArray savedHome = qgetenv("HOME");
    const QString passwordHome = QFile::decodeName(::getpwuid(::getuid())->pw_dir);
    for (const char *marker : {"APP_SANDBOX_CONTAINER_ID", "SNAP", ""}) {
        qunsetenv("APP_SANDBOX_CONTAINER_ID");
        qunsetenv("SNAP");
        qputenv("HOME", "/tmp/container-home");
        if (*marker)
            qputenv(marker, "container");
        NTFullDiskAccessAuthorizer authorizer;
        const QString first = authorizer.userHomeFolderPath();
        EXPECT_EQ(first, *marker ? passwordHome : u"/tmp/container-home"_s) << marker;
        qputenv("APP_SANDBOX_CONTAINER_ID", "flipped");
        qputenv("HOME", "/tmp/changed");
        EXPECT_EQ(authorizer.userHomeFolderPath(), first);
    }
    qunsetenv("APP_SANDBOX_CONTAINER_ID");
    qputenv("HOME", savedHome);
}

TEST(HomeFolderDeathTest, ConfinedUserWithoutPasswordEntryStops) {
    constexpr uid_t kUnknown = 54321;
    if (::geteuid() != 0 || ::getpwuid(kUnknown))
        GTEST_SKIP() << "needs root, and uid 54321 without a password entry";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            if (::setuid(kUnknown) != 0)
                ::_exit(0);
            qputenv("APP_SANDBOX_CONTAINER_ID", "x");
            NTFullDiskAccessAuthorizer().userHomeFolderPath();
        },
        "\"pw\"");
}

// The real open(). Root passes every permission check, so as root the file lies under a mode-000
// folder and a child that has dropped to nobody probes it.
TEST(RealProbe, UnreadableFileIsDeniedReadableAuthorizedMissingUndetermined) {
    QTemporaryDir dir;
    const QString secret = dir.filePath(u"locked/secret"_s);
    ASSERT_TRUE(QDir().mkpath(dir.filePath(u"locked"_s)));
    QFile file(secret);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    NTFullDiskAccessAuthorizer authorizer;
    EXPECT_EQ(authorizer._checkFDAUsingFile(secret), NTFullDiskAuthorizationStatusAuthorized);
    EXPECT_EQ(authorizer._checkFDAUsingFile(secret + u"/inside"_s),
              NTFullDiskAuthorizationStatusNotDetermined);

    ASSERT_EQ(::chmod(QFile::encodeName(dir.path()).constData(), 0755), 0);
    ASSERT_EQ(::chmod(QFile::encodeName(dir.filePath(u"locked"_s)).constData(), 0), 0);
    const auto probe = [&] { return int(authorizer._checkFDAUsingFile(secret)); };
    EXPECT_EQ(::geteuid() == 0 ? scratchhome::runAsNobody(probe) : probe(),
              NTFullDiskAuthorizationStatusDenied);
    ::chmod(QFile::encodeName(dir.filePath(u"locked"_s)).constData(), 0700);
}

} // namespace
