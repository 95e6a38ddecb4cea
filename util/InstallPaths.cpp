#include "util/InstallPaths.h"

#include <QHash>
#include <QMutex>
#include <QMutexLocker>

using namespace Qt::StringLiterals;

#ifndef VANTRELO_HELPER_EXECUTABLE
#define VANTRELO_HELPER_EXECUTABLE "/usr/local/libexec/vantrelo-helper"
#endif
#ifndef VANTRELO_HELPER_VERSION_FILE
#define VANTRELO_HELPER_VERSION_FILE "/usr/local/libexec/vantrelo-helper.version"
#endif

namespace {

struct Overrides {
    QMutex mutex;
    QHash<int, QString> paths;
};

Overrides &overrides() {
    static Overrides instance;
    return instance;
}

} // namespace

QString InstallPaths::defaultPath(Component component) {
    switch (component) {
    case Component::HelperExecutable:
        return QStringLiteral(VANTRELO_HELPER_EXECUTABLE);
    case Component::HelperVersionFile:
        return QStringLiteral(VANTRELO_HELPER_VERSION_FILE);
    case Component::Ntfs3gDriver:
        return u"/usr/bin/ntfs-3g"_s;
    case Component::FuseDevice:
        return u"/dev/fuse"_s;
    case Component::HelperSocket: {
        const QString fromEnvironment = qEnvironmentVariable("VANTRELO_HELPER_SOCKET");
        if (!fromEnvironment.isEmpty())
            return fromEnvironment;
        return u"/run/Q7W4E2R9T1.com.corvin.pellodisk.vantrelo-helper.sock"_s;
    }
    }
    return {};
}

QString InstallPaths::path(Component component) {
    {
        Overrides &state = overrides();
        QMutexLocker lock(&state.mutex);
        const auto it = state.paths.constFind(int(component));
        if (it != state.paths.cend())
            return *it;
    }
    return defaultPath(component);
}

void InstallPaths::setOverride(Component component, const QString &path) {
    Overrides &state = overrides();
    QMutexLocker lock(&state.mutex);
    if (path.isEmpty())
        state.paths.remove(int(component));
    else
        state.paths.insert(int(component), path);
}

void InstallPaths::clearOverrides() {
    Overrides &state = overrides();
    QMutexLocker lock(&state.mutex);
    state.paths.clear();
}
