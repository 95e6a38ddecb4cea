#include "system/LLShareBookmark.h"

#include "ScratchHome.h"
#include "system/UserDefaults.h"
#include "tests/support/QtPrinters.h"

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

TEST_F(BookmarkTest, SavedPathIsTheKeyExactlyAsGiven) {
    EXPECT_FALSE(start(folder()));
    EXPECT_FALSE(stop(folder()));
    EXPECT_FALSE(save(folder() + u"/gone"_s));
    EXPECT_FALSE(save(QString()));
    ASSERT_TRUE(save(folder()));
    ASSERT_TRUE(save(folder()));
    EXPECT_EQ(UserDefaults(file()).allKeys(), QStringList{folder()}); // written, once
    EXPECT_TRUE(start(folder()));
    EXPECT_TRUE(stop(folder()));
    UserDefaults again(file()); // the next program start
    EXPECT_TRUE(
        LLShareBookmark(again).BookmarkStartAccessingSecurityScopedResourceWithFilePath(folder()));

    ASSERT_TRUE(save(m_dir.filePath(u"chosen folder/"_s)));
    EXPECT_EQ(m_defaults.allKeys().size(), 2);
    ASSERT_TRUE(save(u"/"_s));
    EXPECT_TRUE(start(u"/"_s));
}

TEST_F(BookmarkTest, RemovingDropsTheEntryWithoutWriting) {
    m_defaults.setString(u"keep"_s, u"other"_s);
    EXPECT_FALSE(m_bookmarks.removeFileBookmarkInfoWithFilePath(folder()));
    EXPECT_EQ(m_defaults.allKeys(), QStringList{u"other"_s});

    ASSERT_TRUE(save(folder()));
    EXPECT_TRUE(m_bookmarks.removeFileBookmarkInfoWithFilePath(folder()));
    EXPECT_FALSE(start(folder()));
    EXPECT_FALSE(UserDefaults(file()).dataForKey(folder()).isEmpty());
    ASSERT_TRUE(m_defaults.synchronize());
    EXPECT_TRUE(UserDefaults(file()).dataForKey(folder()).isEmpty());
}

// A folder replaced by another of the same name is still usable; a deleted one is not.
TEST_F(BookmarkTest, ReplacedFolderResolvesDeletedFolderDoesNot) {
    ASSERT_TRUE(save(folder()));
    // Keep the old inode alive so the new folder cannot reuse its number.
    ASSERT_TRUE(QDir().rename(folder(), m_dir.filePath(u"old"_s)));
    ASSERT_TRUE(QDir().mkpath(folder()));
    EXPECT_TRUE(start(folder()));
    ASSERT_TRUE(QDir(folder()).removeRecursively());
    EXPECT_FALSE(start(folder()));
    EXPECT_FALSE(stop(folder()));
}

TEST_F(BookmarkTest, ForeignValuesUnderThePathGiveNo) {
    for (const QVariant &value :
         {QVariant(QByteArray("not a bookmark")), QVariant(QByteArray("\xa1\x61\x78\x01", 4)),
          QVariant(u"a string"_s), QVariant(true)}) {
        m_defaults.setObject(value, folder());
        EXPECT_FALSE(start(folder()));
        EXPECT_FALSE(stop(folder()));
    }
}

TEST_F(BookmarkTest, RefusedAccessGivesNo) {
    // Root passes every permission check, so as root a child that has dropped to nobody tries.
    const QString inner = m_dir.filePath(u"locked/inner"_s);
    ASSERT_TRUE(QDir().mkpath(inner));
    ASSERT_TRUE(save(inner));
    ASSERT_EQ(::chmod(QFile::encodeName(m_dir.path()).constData(), 0755), 0);
    ASSERT_EQ(::chmod(QFile::encodeName(m_dir.filePath(u"locked"_s)).constData(), 0), 0);
    const auto tryStart = [&] { return int(start(inner)); };
    EXPECT_EQ(::geteuid() == 0 ? scratchhome::runAsNobody(tryStart) : tryStart(), 0);
    ::chmod(QFile::encodeName(m_dir.filePath(u"locked"_s)).constData(), 0700);
}

} // namespace
