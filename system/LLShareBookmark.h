#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

class UserDefaults;

// Remembered access to folders the user chose. A bookmark records a path with its device and
// inode, stored in the defaults under the path exactly as given (no normalisation, so "/a/" and
// "/a" are different keys). Starting access resolves the bookmark again and checks that the
// folder can still be reached. Failures only show as false. Safe to use from any thread.
class LLShareBookmark {
public:
    // The process-wide instance on the standard defaults, created on first use.
    static LLShareBookmark &defaultShareBookmark();

    explicit LLShareBookmark(UserDefaults &defaults);

    // False when the path does not exist (no bookmark can be made); replaces an earlier one.
    bool saveOpenFileToBookmarkWithFilePath(const QString &path);
    // True when a bookmark is stored, still resolves, and the place is readable (and, for a
    // folder, searchable) by this process.
    bool BookmarkStartAccessingSecurityScopedResourceWithFilePath(const QString &path);
    // True when a bookmark is stored and still resolves.
    bool BookmarkStopAccessingSecurityScopedResourceWithFilePath(const QString &path);
    // Removes the stored bookmark without writing the defaults; false when there was none.
    bool removeFileBookmarkInfoWithFilePath(const QString &path);

    struct Resolved {
        QString path;
        bool isDirectory = false;
        // The path now names a different file than when the bookmark was made. Reported, not
        // acted on: the bookmark is not refreshed.
        bool stale = false;
    };
    // Empty when the path does not exist.
    static QByteArray bookmarkDataForPath(const QString &path);
    // Nothing when the data is not a bookmark or its path no longer exists.
    static std::optional<Resolved> resolveBookmarkData(const QByteArray &data);

private:
    UserDefaults &m_defaults;
};
