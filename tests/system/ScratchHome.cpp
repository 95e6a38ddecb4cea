#include "ScratchHome.h"

#include <QFile>
#include <QTemporaryDir>

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

namespace scratchhome {
namespace {

QTemporaryDir &scratch() {
    static QTemporaryDir dir;
    return dir;
}

// Before main(): the defaults read XDG_CONFIG_HOME once, at their first use.
const bool kInstalled =
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root() + QStringLiteral("/config"))) &&
    qputenv("XDG_DATA_HOME", QFile::encodeName(root() + QStringLiteral("/data")));

} // namespace

QString root() {
    return scratch().path();
}

int runAsNobody(const std::function<int()> &fn) {
    const pid_t pid = ::fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(120);
        ::_exit(fn());
    }
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

} // namespace scratchhome
