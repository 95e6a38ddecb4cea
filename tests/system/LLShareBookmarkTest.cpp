#include "system/LLShareBookmark.h"

#include "ScratchHome.h"
#include "system/UserDefaults.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class BookmarkTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_dir.isValid());
        ASSERT_TRUE(QDir().mkpath(folder()));
    }
    QString folder() const { return m_dir.filePath(u"chosen folder"_s); }
    QString file() const { return m_dir.filePath(u"defaults.json"_s); }

    bool start(const QString &path) {
        return m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(path);
    }

    QTemporaryDir m_dir;
    UserDefaults m_defaults{m_dir.filePath(u"defaults.json"_s)};
    LLShareBookmark m_bookmarks{m_defaults};
};

TEST_F(BookmarkTest, SavedPathIsTheKeyExactlyAsGiven) {
    EXPECT_FALSE(start(folder()));
    EXPECT_FALSE(m_bookmarks.BookmarkStopAccessingSecurityScopedResourceWithFilePath(folder()));
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    EXPECT_EQ(UserDefaults(file()).allKeys(), QStringList{folder()}); // written, once
    EXPECT_TRUE(start(folder()));
    EXPECT_TRUE(m_bookmarks.BookmarkStopAccessingSecurityScopedResourceWithFilePath(folder()));
    // Another program start finds it.
    UserDefaults again(file());
    EXPECT_TRUE(
        LLShareBookmark(again).BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));

    // A trailing slash makes a different key; the root folder is a key like any other.
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(u"/"_s));
    EXPECT_TRUE(start(u"/"_s));
    ASSERT_TRUE(QDir().mkpath(m_dir.filePath(u"slash"_s)));
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(m_dir.filePath(u"slash/"_s)));
    EXPECT_FALSE(start(m_dir.filePath(u"slash"_s)));
    EXPECT_TRUE(start(m_dir.filePath(u"slash/"_s)));
}

TEST_F(BookmarkTest, MissingOrEmptyPathMakesNoBookmark) {
    EXPECT_FALSE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder() + u"/gone"_s));
    EXPECT_FALSE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(QString()));
    EXPECT_TRUE(m_defaults.allKeys().isEmpty());
}

TEST_F(BookmarkTest, RelativePathIsResolvedAgainstTheCurrentFolder) {
    const QString saved = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(m_dir.path()));
    const bool ok = m_bookmarks.saveOpenFileToBookmarkWithFilePath(u"chosen folder"_s);
    QDir::setCurrent(saved);
    ASSERT_TRUE(ok);
    const auto resolved =
        LLShareBookmark::resolveBookmarkData(m_defaults.dataForKey(u"chosen folder"_s));
    ASSERT_TRUE(resolved.has_value());
    EXPECT_EQ(resolved->path, folder());
    // Resolution does not depend on the current folder.
    EXPECT_TRUE(start(u"chosen folder"_s));
}

TEST_F(BookmarkTest, RemovingDropsTheEntryWithoutWriting) {
    m_defaults.setString(u"keep"_s, u"other"_s);
    EXPECT_FALSE(m_bookmarks.removeFileBookmarkInfoWithFilePath(folder()));
    EXPECT_EQ(m_defaults.allKeys(), QStringList{u"other"_s});

    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    EXPECT_TRUE(m_bookmarks.removeFileBookmarkInfoWithFilePath(folder()));
    EXPECT_FALSE(start(folder()));
    EXPECT_FALSE(UserDefaults(file()).dataForKey(folder()).isEmpty());
    ASSERT_TRUE(m_defaults.synchronize());
    EXPECT_TRUE(UserDefaults(file()).dataForKey(folder()).isEmpty());
}

TEST_F(BookmarkTest, DeletedFolderNoLongerResolves) {
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    ASSERT_TRUE(QDir(folder()).removeRecursively());
    EXPECT_FALSE(start(folder()));
    EXPECT_FALSE(m_bookmarks.BookmarkStopAccessingSecurityScopedResourceWithFilePath(folder()));
}

TEST_F(BookmarkTest, ReplacedFolderIsStaleButStillUsable) {
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    // Keep the old inode alive so the new folder cannot reuse its number.
    ASSERT_TRUE(QDir().rename(folder(), m_dir.filePath(u"old"_s)));
    ASSERT_TRUE(QDir().mkpath(folder()));
    const auto resolved = LLShareBookmark::resolveBookmarkData(m_defaults.dataForKey(folder()));
    ASSERT_TRUE(resolved.has_value());
    EXPECT_TRUE(resolved->stale);
    EXPECT_TRUE(start(folder()));

    const auto fresh =
        LLShareBookmark::resolveBookmarkData(LLShareBookmark::bookmarkDataForPath(folder()));
    ASSERT_TRUE(fresh.has_value());
    EXPECT_FALSE(fresh->stale);
    EXPECT_TRUE(fresh->isDirectory);
}

TEST_F(BookmarkTest, ForeignValuesUnderThePathGiveNo) {
    for (const QVariant &value :
         {QVariant(QByteArray("not a bookmark")), QVariant(QByteArray("\xa1\x61\x78\x01", 4)),
          QVariant(u"a string"_s), QVariant(true)}) {
        m_defaults.setObject(value, folder());
        EXPECT_FALSE(start(folder()));
        EXPECT_FALSE(m_bookmarks.BookmarkStopAccessingSecurityScopedResourceWithFilePath(folder()));
    }
}

TEST_F(BookmarkTest, UnreachableFolderCannotBeAccessed) {
    // Root passes every permission check, so as root the probe runs in a child that has dropped
    // to nobody, and the parent, as root, still reaches the folder.
    const auto expectRefused = [this](const QString &path) {
        if (::geteuid() != 0) {
            EXPECT_FALSE(start(path)) << path.toStdString();
            return;
        }
        EXPECT_TRUE(start(path));
        EXPECT_EQ(scratchhome::runAsNobody([&] { return start(path) ? 1 : 0; }), 0)
            << path.toStdString();
    };
    // Under a mode-000 folder, stat() fails too, so resolving fails first.
    const QString locked = m_dir.filePath(u"locked"_s);
    const QString inner = locked + u"/inner"_s;
    ASSERT_TRUE(QDir().mkpath(inner));
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(inner));
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    // The temporary folder is private to root; let nobody through to it.
    ASSERT_EQ(::chmod(QFile::encodeName(m_dir.path()).constData(), 0755), 0);
    ASSERT_EQ(::chmod(QFile::encodeName(locked).constData(), 0), 0);
    ASSERT_EQ(::chmod(QFile::encodeName(folder()).constData(), 0444),
              0); // readable, not searchable
    expectRefused(inner);
    expectRefused(folder());
    ::chmod(QFile::encodeName(locked).constData(), 0700);
    ::chmod(QFile::encodeName(folder()).constData(), 0700);
}

} // namespace
