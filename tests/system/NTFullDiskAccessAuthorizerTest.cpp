#include "system/NTFullDiskAccessAuthorizer.h"

#include "ScratchHome.h"

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
    void SetUp() override { m_authorizer.setUserHomeFolderPath(u"/home/ada"_s); }
    QString probe(int index) { return m_authorizer.probePaths().at(index); }

    std::shared_ptr<FakeFiles> m_files = std::make_shared<FakeFiles>();
    std::shared_ptr<FakeWorkspace> m_workspace = std::make_shared<FakeWorkspace>();
    NTFullDiskAccessAuthorizer m_authorizer{m_files, m_workspace};
};

TEST_F(AuthorizerTest, ProbesFourPathsUnderTheRealHomeThenTheSystem) {
    const QStringList paths = m_authorizer.probePaths();
    ASSERT_EQ(paths.size(), 4);
    EXPECT_TRUE(paths[0].startsWith(u"/home/ada/."_s));
    EXPECT_TRUE(paths[1].startsWith(u"/home/ada/."_s));
    EXPECT_TRUE(paths[2].startsWith(u"/etc/"_s));
    EXPECT_TRUE(paths[3].startsWith(u"/etc/"_s));
    // One separator between the home folder and the rest, whichever way the home is written.
    m_authorizer.setUserHomeFolderPath(u"/home/ada/"_s);
    EXPECT_EQ(m_authorizer.probePaths(), paths);
}

TEST_F(AuthorizerTest, SingleProbeClassifiesTheError) {
    struct Case {
        int error;
        NTFullDiskAuthorizationStatus status;
    };
    for (const Case &item : {Case{0, NTFullDiskAuthorizationStatusAuthorized},
                             Case{EPERM, NTFullDiskAuthorizationStatusDenied},
                             Case{EACCES, NTFullDiskAuthorizationStatusDenied},
                             Case{ENOENT, NTFullDiskAuthorizationStatusNotDetermined},
                             Case{ENOTDIR, NTFullDiskAuthorizationStatusNotDetermined},
                             Case{EIO, NTFullDiskAuthorizationStatusNotDetermined}}) {
        m_files->errors[u"/x"_s] = item.error;
        EXPECT_EQ(m_authorizer._checkFDAUsingFile(u"/x"_s), item.status) << item.error;
    }
}

// The first readable file decides and stops the probe; refusals alone deny.
TEST_F(AuthorizerTest, StatusOverTheFourFiles) {
    constexpr int kAbsent = ENOENT;
    const struct {
        std::array<int, 4> errors;
        NTFullDiskAuthorizationStatus status;
        qsizetype opened;
    } cases[] = {
        {{kAbsent, kAbsent, kAbsent, kAbsent}, NTFullDiskAuthorizationStatusNotDetermined, 4},
        {{EPERM, 0, EACCES, kAbsent}, NTFullDiskAuthorizationStatusAuthorized, 2},
        {{EACCES, EPERM, EACCES, 0}, NTFullDiskAuthorizationStatusAuthorized, 4},
        {{EPERM, kAbsent, EACCES, kAbsent}, NTFullDiskAuthorizationStatusDenied, 4},
    };
    for (const auto &c : cases) {
        m_files->opened.clear();
        for (int i = 0; i < 4; ++i)
            m_files->errors[probe(i)] = c.errors[size_t(i)];
        EXPECT_EQ(m_authorizer.authorizationStatus(), c.status);
        EXPECT_EQ(m_files->opened, m_authorizer.probePaths().mid(0, c.opened));
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

class HomeFolder : public ::testing::Test {
protected:
    void SetUp() override {
        qunsetenv("APP_SANDBOX_CONTAINER_ID");
        qunsetenv("SNAP");
    }
    void TearDown() override {
        for (const auto &[name, value] : m_saved)
            value.isNull() ? qunsetenv(name) : qputenv(name, value);
    }
    static QString passwordHome() { return QFile::decodeName(::getpwuid(::getuid())->pw_dir); }

    // qgetenv gives a null array for an unset variable.
    const std::pair<const char *, QByteArray> m_saved[3] = {
        {"HOME", qgetenv("HOME")},
        {"APP_SANDBOX_CONTAINER_ID", qgetenv("APP_SANDBOX_CONTAINER_ID")},
        {"SNAP", qgetenv("SNAP")}};
};

TEST_F(HomeFolder, UnconfinedUsesTheOrdinaryHomeAndCachesIt) {
    qputenv("HOME", "/tmp/ordinary-home");
    NTFullDiskAccessAuthorizer authorizer;
    EXPECT_EQ(authorizer.userHomeFolderPath(), u"/tmp/ordinary-home"_s);
    qputenv("APP_SANDBOX_CONTAINER_ID", "x");
    qputenv("HOME", "/tmp/changed");
    EXPECT_EQ(authorizer.userHomeFolderPath(), u"/tmp/ordinary-home"_s);
}

TEST_F(HomeFolder, ConfinedUsesThePasswordDatabase) {
    for (const char *marker : {"APP_SANDBOX_CONTAINER_ID", "SNAP"}) {
        qputenv(marker, "container");
        qputenv("HOME", "/tmp/container-home");
        NTFullDiskAccessAuthorizer authorizer;
        EXPECT_EQ(authorizer.userHomeFolderPath(), passwordHome()) << marker;
        qunsetenv(marker);
    }
}

TEST(HomeFolderDeathTest, ConfinedUserWithoutPasswordEntryStops) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to become a user id without a password entry";
    constexpr uid_t kUnknown = 54321;
    if (::getpwuid(kUnknown))
        GTEST_SKIP() << "uid 54321 has a password entry on this machine";
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

// The real probe against real files.
class RealProbe : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_dir.isValid());
        QFile file(m_dir.filePath(u"readable"_s));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("x");
    }
    QTemporaryDir m_dir;
    NTFullDiskAccessAuthorizer m_authorizer;
};

TEST_F(RealProbe, OpensExistingFilesAndIgnoresMissingOnes) {
    EXPECT_EQ(m_authorizer._checkFDAUsingFile(m_dir.filePath(u"readable"_s)),
              NTFullDiskAuthorizationStatusAuthorized);
    EXPECT_EQ(m_authorizer._checkFDAUsingFile(m_dir.filePath(u"missing"_s)),
              NTFullDiskAuthorizationStatusNotDetermined);
    // A plain file used as a folder: ENOTDIR.
    EXPECT_EQ(m_authorizer._checkFDAUsingFile(m_dir.filePath(u"readable/inside"_s)),
              NTFullDiskAuthorizationStatusNotDetermined);
    EXPECT_EQ(m_authorizer._checkFDAUsingFile(QString()),
              NTFullDiskAuthorizationStatusNotDetermined);
}

TEST_F(RealProbe, UnreadableFileIsDenied) {
    // As root: a file under a mode-000 folder, probed by a child that has dropped to nobody
    // (root itself passes every permission check). Otherwise: a mode-000 file, probed directly.
    const QString locked = m_dir.filePath(u"locked"_s);
    ASSERT_TRUE(QDir().mkpath(locked));
    QFile file(locked + u"/secret"_s);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    ASSERT_EQ(::chmod(QFile::encodeName(m_dir.path()).constData(), 0755), 0);

    if (::geteuid() == 0) {
        ASSERT_EQ(::chmod(QFile::encodeName(locked).constData(), 0), 0);
        const int code = scratchhome::runAsNobody(
            [this, &file] { return int(m_authorizer._checkFDAUsingFile(file.fileName())); });
        EXPECT_EQ(code, NTFullDiskAuthorizationStatusDenied);
        // The same path, for root.
        EXPECT_EQ(m_authorizer._checkFDAUsingFile(file.fileName()),
                  NTFullDiskAuthorizationStatusAuthorized);
        ::chmod(QFile::encodeName(locked).constData(), 0700);
    } else {
        ASSERT_EQ(::chmod(QFile::encodeName(file.fileName()).constData(), 0), 0);
        EXPECT_EQ(m_authorizer._checkFDAUsingFile(file.fileName()),
                  NTFullDiskAuthorizationStatusDenied);
    }
}

TEST_F(RealProbe, SystemFilesDecideForAnEmptyHome) {
    // A home holding none of the user files leaves the answer to the administrator-only files.
    m_authorizer.setUserHomeFolderPath(m_dir.path());
    if (!QFile::exists(u"/etc/shadow"_s))
        GTEST_SKIP() << "/etc/shadow is absent";
    if (::geteuid() == 0) {
        EXPECT_EQ(m_authorizer.authorizationStatus(), NTFullDiskAuthorizationStatusAuthorized);
        const int code =
            scratchhome::runAsNobody([this] { return int(m_authorizer.authorizationStatus()); });
        EXPECT_EQ(code, NTFullDiskAuthorizationStatusDenied);
    } else {
        EXPECT_EQ(m_authorizer.authorizationStatus(), NTFullDiskAuthorizationStatusDenied);
    }
}

} // namespace
