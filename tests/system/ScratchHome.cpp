#include "ScratchHome.h"

#include <QFile>
#include <QTemporaryDir>

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

namespace scratchhome {
namespace {

struct Scratch {
    Scratch() {
        dir.setAutoRemove(true);
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(dir.path() + QStringLiteral("/config")));
        qputenv("XDG_DATA_HOME", QFile::encodeName(dir.path() + QStringLiteral("/data")));
    }
    QTemporaryDir dir;
};

Scratch &scratch() {
    static Scratch instance;
    return instance;
}

// Before main(): the defaults read XDG_CONFIG_HOME once, at their first use.
const bool kInstalled = (scratch(), true);

} // namespace

QString root() {
    return scratch().dir.path();
}

void setConfigHome(const QString &folder) {
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(folder));
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
