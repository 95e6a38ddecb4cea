#include "helper/Caller.h"

#include <QFile>
#include <QList>

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;

namespace helper {

namespace {

std::vector<char> lookupBuffer() {
    const long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    return std::vector<char>(size > 0 ? size_t(size) * 4 : 16384);
}

bool groupId(const char *name, gid_t *gid) {
    std::vector<char> buffer(65536);
    group entry{};
    group *found = nullptr;
    if (::getgrnam_r(name, &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return false;
    *gid = found->gr_gid;
    return true;
}

// Field 22 of /proc/PID/stat; the command name before it may hold spaces and parentheses.
quint64 processStartTime(pid_t pid) {
    QFile file(u"/proc/%1/stat"_s.arg(pid));
    if (pid <= 0 || !file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray stat = file.read(4096);
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    constexpr int kStartTimeAfterName = 19;
    return fields.size() > kStartTimeAfterName ? fields[kStartTimeAfterName].toULongLong() : 0;
}

} // namespace

bool Caller::credentialsOf(int fd, Caller *caller) {
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
        length != sizeof credentials)
        return false;
    *caller = Caller{};
    caller->pid = credentials.pid;
    caller->startTime = processStartTime(credentials.pid);
    caller->uid = credentials.uid;
    caller->gid = credentials.gid;
    return true;
}

void Caller::lookUp() {
    groups = {gid};
    std::vector<char> buffer = lookupBuffer();
    passwd entry{};
    passwd *found = nullptr;
    if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found) {
        int count = 64;
        std::vector<gid_t> all(static_cast<size_t>(count));
        if (::getgrouplist(found->pw_name, gid, all.data(), &count) < 0) {
            all.resize(size_t(count));
            ::getgrouplist(found->pw_name, gid, all.data(), &count);
        }
        all.resize(size_t(std::max(count, 0)));
        if (!all.empty())
            groups = all;
    }
    administrator = uid == 0;
    for (const char *adminGroup : {"sudo", "wheel"}) {
        gid_t adminGid = 0;
        if (groupId(adminGroup, &adminGid) &&
            std::find(groups.begin(), groups.end(), adminGid) != groups.end())
            administrator = true;
    }
}

Caller Caller::forIds(pid_t pid, uid_t uid, gid_t gid) {
    Caller caller;
    caller.pid = pid;
    caller.startTime = processStartTime(pid);
    caller.uid = uid;
    caller.gid = gid;
    caller.lookUp();
    return caller;
}

} // namespace helper
