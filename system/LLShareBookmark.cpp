#include "system/LLShareBookmark.h"

#include "system/UserDefaults.h"

#include <QCborMap>
#include <QCborValue>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int kBookmarkVersion = 1;

std::optional<struct stat> statPath(const QString &path) {
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return std::nullopt;
    return info;
}

} // namespace

LLShareBookmark &LLShareBookmark::defaultShareBookmark() {
    static LLShareBookmark instance(UserDefaults::standard());
    return instance;
}

LLShareBookmark::LLShareBookmark(UserDefaults &defaults)
    : m_defaults(defaults) {}

QByteArray LLShareBookmark::bookmarkDataForPath(const QString &path) {
    if (path.isEmpty() || path.contains(QChar(u'\0')))
        return {};
    // As a file URL would: relative paths are taken from the current folder, links are kept.
    const QString absolute = QFileInfo(path).absoluteFilePath();
    const auto info = statPath(absolute);
    if (!info)
        return {};
    QCborMap map;
    map.insert(u"version"_s, kBookmarkVersion);
    map.insert(u"path"_s, absolute);
    map.insert(u"device"_s, static_cast<qint64>(info->st_dev));
    map.insert(u"inode"_s, static_cast<qint64>(info->st_ino));
    map.insert(u"directory"_s, S_ISDIR(info->st_mode));
    return map.toCborValue().toCbor();
}

std::optional<LLShareBookmark::Resolved>
LLShareBookmark::resolveBookmarkData(const QByteArray &data) {
    QCborParserError error;
    const QCborValue value = QCborValue::fromCbor(data, &error);
    if (error.error != QCborError::NoError || !value.isMap())
        return std::nullopt;
    const QCborMap map = value.toMap();
    const QCborValue path = map.value(u"path"_s);
    if (map.value(u"version"_s).toInteger(-1) != kBookmarkVersion || !path.isString() ||
        !map.value(u"device"_s).isInteger() || !map.value(u"inode"_s).isInteger() ||
        path.toString().isEmpty())
        return std::nullopt;
    const auto info = statPath(path.toString());
    if (!info)
        return std::nullopt;
    Resolved resolved;
    resolved.path = path.toString();
    resolved.isDirectory = S_ISDIR(info->st_mode);
    // A volume mounted again gets a new device number, so a mount point's bookmark goes stale
    // with every mount; it still names the place the user chose.
    resolved.stale = static_cast<qint64>(info->st_dev) != map.value(u"device"_s).toInteger() ||
                     static_cast<qint64>(info->st_ino) != map.value(u"inode"_s).toInteger() ||
                     resolved.isDirectory != map.value(u"directory"_s).toBool();
    return resolved;
}

bool LLShareBookmark::saveOpenFileToBookmarkWithFilePath(const QString &path) {
    const QByteArray data = bookmarkDataForPath(path);
    if (data.isEmpty())
        return false;
    m_defaults.setData(data, path);
    m_defaults.synchronize();
    return true;
}

bool LLShareBookmark::BookmarkStartAccessingSecurityScopedResourceWithFilePath(
    const QString &path) {
    const QByteArray data = m_defaults.dataForKey(path);
    if (data.isEmpty())
        return false;
    const auto resolved = resolveBookmarkData(data);
    if (!resolved)
        return false;
    const int mode = resolved->isDirectory ? (R_OK | X_OK) : R_OK;
    return ::access(QFile::encodeName(resolved->path).constData(), mode) == 0;
}

bool LLShareBookmark::BookmarkStopAccessingSecurityScopedResourceWithFilePath(const QString &path) {
    const QByteArray data = m_defaults.dataForKey(path);
    return !data.isEmpty() && resolveBookmarkData(data).has_value();
}

bool LLShareBookmark::removeFileBookmarkInfoWithFilePath(const QString &path) {
    if (!m_defaults.objectForKey(path).isValid())
        return false;
    m_defaults.removeObjectForKey(path);
    return true;
}
