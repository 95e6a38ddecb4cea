#include "helper/MountPoint.h"

#include <QFile>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

using namespace Qt::StringLiterals;

namespace helper {

namespace {

int openat2(int directory, const QString &path, quint64 flags, quint64 resolve) {
    open_how how{};
    how.flags = flags | O_PATH | O_CLOEXEC;
    how.resolve = resolve;
    const QByteArray bytes = QFile::encodeName(path);
    int fd;
    do {
        fd = int(::syscall(SYS_openat2, directory, bytes.constData(), &how, sizeof how));
    } while (fd < 0 && errno == EAGAIN);
    return fd;
}

QString errnoText() {
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

QString MountPoint::handedPath() {
    return u"/proc/self/fd/3"_s;
}

QString MountPoint::holdParent(const MountEntry &mount) {
    m_target = mount.target;
    const qsizetype slash = m_target.lastIndexOf(u'/');
    m_name = m_target.mid(slash + 1);
    if (!m_target.startsWith(u'/') || m_name.isEmpty() || m_name == u".."_s || m_name == u"."_s)
        return u"%1 is not a folder the helper can hold"_s.arg(m_target);
    const QString parent = slash == 0 ? u"/"_s : m_target.left(slash);
    m_parent = UniqueFd(
        openat2(AT_FDCWD, parent, O_DIRECTORY, RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS));
    if (!m_parent.valid())
        return u"%1 cannot be reached without following a link (%2)"_s.arg(parent, errnoText());
    const QByteArray name = QFile::encodeName(m_name);
    if (::fstatat(m_parent.get(), name.constData(), &m_mountedRoot,
                  AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
        return u"%1 cannot be examined (%2)"_s.arg(m_target, errnoText());
    if (!S_ISDIR(m_mountedRoot.st_mode))
        return u"%1 is not a folder"_s.arg(m_target);
    return {};
}

QString MountPoint::holdFolder(const QList<uid_t> &owners) {
    // No link, and no other file system mounted over the folder meanwhile.
    UniqueFd folder(
        openat2(m_parent.get(), m_name, O_DIRECTORY | O_NOFOLLOW,
                RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_NO_XDEV));
    if (!folder.valid())
        return u"%1 is no longer a plain folder (%2)"_s.arg(m_target, errnoText());
    struct stat info {};
    if (::fstat(folder.get(), &info) != 0 || !S_ISDIR(info.st_mode))
        return u"%1 is no longer a folder"_s.arg(m_target);
    if (info.st_uid != 0 && !owners.contains(info.st_uid))
        return u"%1 now belongs to another user (uid %2)"_s.arg(m_target).arg(info.st_uid);
    m_folder = std::move(folder);
    return {};
}

} // namespace helper
