// Access to the user's files: saved folder bookmarks and the full disk access probe.
#include "system/LLShareBookmark.h"
#include "system/NTFullDiskAccessAuthorizer.h"
#include "system/UserDefaults.h"
#include "tests/support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

// Root passes every permission check, so as root fn runs in a child that has dropped to nobody;
// the result is fn's, or -1 when the child failed.
template <typename Fn> int withoutRoot(Fn fn) {
    if (::geteuid() != 0)
        return fn();
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(120);
        ::_exit(fn());
    }
    int status = 0;
    return pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status)
                                                                             : -1;
}

// A folder of mode 000 under a temporary folder nobody may enter.
struct LockedFolder {
    LockedFolder() {
        EXPECT_TRUE(QDir().mkpath(path + u"/inner"_s));
        EXPECT_TRUE(QFile(path + u"/secret"_s).open(QIODevice::WriteOnly));
        ::chmod(QFile::encodeName(dir.path()).constData(), 0755);
    }
    ~LockedFolder() { ::chmod(QFile::encodeName(path).constData(), 0700); }
    void lock() { EXPECT_EQ(::chmod(QFile::encodeName(path).constData(), 0), 0); }
    QTemporaryDir dir;
    QString path = dir.filePath(u"locked"_s);
};

class BookmarkTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(QDir().mkpath(folder())); }
    QString folder() const { return m_dir.filePath(u"chosen folder"_s); }
    QString file() const { return m_dir.filePath(u"defaults.json"_s); }
    bool save(const QString &path) { return m_bookmarks.saveOpenFileToBookmarkWithFilePath(path); }
    bool start(const QString &path) {
        return m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(path);
    }
    bool stop(const QString &path) {
        return m_bookmarks.BookmarkStopAccessingSecurityScopedResourceWithFilePath(path);
    }

    QTemporaryDir m_dir;
    UserDefaults m_defaults{m_dir.filePath(u"defaults.json"_s)};
    LLShareBookmark m_bookmarks{m_defaults};
};

TEST_F(BookmarkTest, SavedPathIsTheKeyExactlyAsGivenUntilRemoved) {
    EXPECT_FALSE(start(folder()));
    EXPECT_FALSE(save(folder() + u"/gone"_s) || save(QString()));
    ASSERT_TRUE(save(folder()) && save(folder()));
    EXPECT_EQ(UserDefaults(file()).allKeys(), QStringList{folder()}); // written, once
    EXPECT_TRUE(start(folder()) && stop(folder()));
    UserDefaults again(file()); // the next program start
    EXPECT_TRUE(
        LLShareBookmark(again).BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));
    ASSERT_TRUE(save(folder() + u"/"_s));
    EXPECT_EQ(m_defaults.allKeys().size(), 2);
    // Removing drops the entry without writing the file.
    EXPECT_FALSE(m_bookmarks.removeFileBookmarkInfoWithFilePath(folder() + u"/gone"_s));
    EXPECT_TRUE(m_bookmarks.removeFileBookmarkInfoWithFilePath(folder()));
    EXPECT_FALSE(start(folder()));
    EXPECT_FALSE(UserDefaults(file()).dataForKey(folder()).isEmpty());
    ASSERT_TRUE(m_defaults.synchronize());
    EXPECT_TRUE(UserDefaults(file()).dataForKey(folder()).isEmpty());
}

// A folder replaced by another of the same name is still usable; a deleted one, a refused one
// or something else stored under the path is not.
TEST_F(BookmarkTest, OnlyAReachableFolderCanBeAccessed) {
    ASSERT_TRUE(save(folder()));
    // Keep the old inode alive so the new folder cannot reuse its number.
    ASSERT_TRUE(QDir().rename(folder(), m_dir.filePath(u"old"_s)));
    ASSERT_TRUE(QDir().mkpath(folder()));
    EXPECT_TRUE(start(folder()));
    ASSERT_TRUE(QDir(folder()).removeRecursively());
    EXPECT_FALSE(start(folder()));

    LockedFolder locked;
    ASSERT_TRUE(save(locked.path + u"/inner"_s));
    locked.lock();
    EXPECT_EQ(withoutRoot([&] { return int(start(locked.path + u"/inner"_s)); }), 0);

    m_defaults.setObject(QByteArray("\xa1\x61\x78\x01", 4), folder());
    EXPECT_FALSE(start(folder()));
}

// The fixture stands in for the authorizer's file manager.
class AuthorizerTest : public ::testing::Test, public NTFullDiskAccessAuthorizer::FileManager {
protected:
    int openReadOnly(const QByteArray &path) override {
        opened.append(QString::fromUtf8(path));
        return errors.value(QString::fromUtf8(path), ENOENT);
    }
    QHash<QString, int> errors;
    QStringList opened;
    // Not owning: the fixture outlives the authorizer.
    NTFullDiskAccessAuthorizer m_authorizer{{std::shared_ptr<void>(), this},
                                            NTFullDiskAccessAuthorizer::sharedWorkspace()};
};

// Two files under the real home, two system files; the first readable one decides and stops the
// probe, EPERM or EACCES alone deny, other errors count as absent.
TEST_F(AuthorizerTest, StatusOverTheFourFiles) {
    m_authorizer.setUserHomeFolderPath(u"/home/ada/"_s);
    const QStringList paths = m_authorizer.probePaths();
    ASSERT_EQ(paths.size(), 4);
    EXPECT_TRUE(paths[0].startsWith(u"/home/ada/.") && paths[1].startsWith(u"/home/ada/."));
    EXPECT_TRUE(paths[2].startsWith(u"/etc/") && paths[3].startsWith(u"/etc/"));
    const struct {
        int errors[4];
        NTFullDiskAuthorizationStatus status;
        qsizetype opened;
    } cases[] = {{{ENOENT, EIO, ENOTDIR, ENOENT}, NTFullDiskAuthorizationStatusNotDetermined, 4},
                 {{EPERM, 0, EACCES, ENOENT}, NTFullDiskAuthorizationStatusAuthorized, 2},
                 {{EACCES, EPERM, EACCES, 0}, NTFullDiskAuthorizationStatusAuthorized, 4},
                 {{EPERM, ENOENT, EACCES, ENOENT}, NTFullDiskAuthorizationStatusDenied, 4}};
    for (const auto &c : cases) {
        opened.clear();
        for (int i = 0; i < 4; ++i)
            errors[paths[i]] = c.errors[i];
        EXPECT_EQ(m_authorizer.authorizationStatus(), c.status);
        EXPECT_EQ(opened, paths.mid(0, c.opened));
    }
}

// Confined (a sandbox or snap marker set): the password database, not $HOME. Either way the
// first answer is kept.
TEST(HomeFolder, ConfinedUsesThePasswordDatabaseAndTheAnswerIsCached) {
    const QByteArray savedHome = qgetenv("HOME");
    for (const char *marker : {"APP_SANDBOX_CONTAINER_ID", "SNAP", ""}) {
        qputenv("HOME", "/tmp/container-home");
        if (*marker)
            qputenv(marker, "container");
        NTFullDiskAccessAuthorizer authorizer;
        const QString first = authorizer.userHomeFolderPath();
        EXPECT_EQ(first, *marker ? QFile::decodeName(::getpwuid(::getuid())->pw_dir)
                                 : u"/tmp/container-home"_s)
            << marker;
        qunsetenv(marker);
        qputenv("HOME", "/tmp/changed");
        EXPECT_EQ(authorizer.userHomeFolderPath(), first);
    }
    qputenv("HOME", savedHome);
}

// The real open(): a readable file, then the same file in a locked folder.
TEST(RealProbe, ReadableAuthorizedUnreadableDeniedOtherwiseUndetermined) {
    LockedFolder locked;
    const QString secret = locked.path + u"/secret"_s;
    NTFullDiskAccessAuthorizer authorizer;
    EXPECT_EQ(authorizer._checkFDAUsingFile(secret), NTFullDiskAuthorizationStatusAuthorized);
    locked.lock();
    EXPECT_EQ(withoutRoot([&] { return int(authorizer._checkFDAUsingFile(secret)); }),
              NTFullDiskAuthorizationStatusDenied);
}

} // namespace
