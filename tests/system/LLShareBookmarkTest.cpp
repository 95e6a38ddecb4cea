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

    QTemporaryDir m_dir;
    UserDefaults m_defaults{m_dir.filePath(u"defaults.json"_s)};
    LLShareBookmark m_bookmarks{m_defaults};
};

TEST_F(BookmarkTest, NeverSavedPathGivesNo) {
    EXPECT_FALSE(m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));
    EXPECT_FALSE(m_bookmarks.BookmarkStopAccessingSecurityScopedResourceWithFilePath(folder()));
}

TEST_F(BookmarkTest, SavedFolderIsStoredUnderItsPathAndWritten) {
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    EXPECT_FALSE(UserDefaults(file()).dataForKey(folder()).isEmpty());
    EXPECT_TRUE(m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));
    EXPECT_TRUE(m_bookmarks.BookmarkStopAccessingSecurityScopedResourceWithFilePath(folder()));

    // Another program start finds it.
    UserDefaults again(file());
    LLShareBookmark later(again);
    EXPECT_TRUE(later.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));
}

TEST_F(BookmarkTest, SavingTwiceKeepsOneEntry) {
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    EXPECT_EQ(UserDefaults(file()).allKeys(), QStringList{folder()});
}

TEST_F(BookmarkTest, TrailingSlashMakesADifferentKey) {
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder() + u'/'));
    EXPECT_FALSE(m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));
    EXPECT_TRUE(
        m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder() + u'/'));
}

TEST_F(BookmarkTest, RootFolderCanBeBookmarked) {
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(u"/"_s));
    EXPECT_TRUE(m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(u"/"_s));
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
    EXPECT_TRUE(
        m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(u"chosen folder"_s));
}

TEST_F(BookmarkTest, RemovingWithoutBookmarkChangesNothing) {
    m_defaults.setString(u"keep"_s, u"other"_s);
    EXPECT_FALSE(m_bookmarks.removeFileBookmarkInfoWithFilePath(folder()));
    EXPECT_EQ(m_defaults.allKeys(), QStringList{u"other"_s});
}

TEST_F(BookmarkTest, RemovingDropsTheEntryWithoutWriting) {
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    EXPECT_TRUE(m_bookmarks.removeFileBookmarkInfoWithFilePath(folder()));
    EXPECT_FALSE(m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));
    EXPECT_FALSE(UserDefaults(file()).dataForKey(folder()).isEmpty());
    ASSERT_TRUE(m_defaults.synchronize());
    EXPECT_TRUE(UserDefaults(file()).dataForKey(folder()).isEmpty());
}

TEST_F(BookmarkTest, DeletedFolderNoLongerResolves) {
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    ASSERT_TRUE(QDir(folder()).removeRecursively());
    EXPECT_FALSE(m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));
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
    EXPECT_TRUE(m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));

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
        EXPECT_FALSE(
            m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));
        EXPECT_FALSE(m_bookmarks.BookmarkStopAccessingSecurityScopedResourceWithFilePath(folder()));
    }
}

TEST_F(BookmarkTest, UnreachableFolderCannotBeAccessed) {
    const QString locked = m_dir.filePath(u"locked"_s);
    const QString inner = locked + u"/inner"_s;
    ASSERT_TRUE(QDir().mkpath(inner));
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(inner));
    ASSERT_EQ(::chmod(QFile::encodeName(locked).constData(), 0), 0);

    if (::geteuid() == 0) {
        // Root passes every permission check, so the unreachable case is probed by a child that
        // has dropped to nobody; the parent, as root, still reaches the folder.
        EXPECT_TRUE(m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(inner));
        const int code = scratchhome::runAsNobody([this, &inner] {
            // stat() of a path under a mode-000 folder fails too, so resolving fails first.
            return m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(inner) ? 1
                                                                                               : 0;
        });
        EXPECT_EQ(code, 0);
    } else {
        EXPECT_FALSE(m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(inner));
    }
    ::chmod(QFile::encodeName(locked).constData(), 0700);
}

TEST_F(BookmarkTest, ReadableButNotSearchableFolderCannotBeAccessed) {
    ASSERT_TRUE(m_bookmarks.saveOpenFileToBookmarkWithFilePath(folder()));
    ASSERT_EQ(::chmod(QFile::encodeName(folder()).constData(), 0444), 0);
    // The temporary folder is private to root; let nobody through to it for this probe.
    ASSERT_EQ(::chmod(QFile::encodeName(m_dir.path()).constData(), 0755), 0);
    if (::geteuid() == 0) {
        const int code = scratchhome::runAsNobody([this] {
            return m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder())
                       ? 1
                       : 0;
        });
        EXPECT_EQ(code, 0);
    } else {
        EXPECT_FALSE(
            m_bookmarks.BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));
    }
    ::chmod(QFile::encodeName(folder()).constData(), 0700);
}

TEST(BookmarkShared, IsOneInstance) {
    EXPECT_EQ(&LLShareBookmark::defaultShareBookmark(), &LLShareBookmark::defaultShareBookmark());
}

} // namespace
