#include "system/NTFullDiskAccessAuthorizer.h"

#include "system/SystemLogging.h"

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QMutexLocker>

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

using namespace Qt::StringLiterals;

#ifndef VANTRELO_FULL_DISK_ACCESS_GUIDE_URL
#define VANTRELO_FULL_DISK_ACCESS_GUIDE_URL "https://vantrelo.app/guide/full-disk-access"
#endif

namespace {

class PosixFileManager : public NTFullDiskAccessAuthorizer::FileManager {
public:
    int openReadOnly(const QByteArray &path) override {
        const int fd = ::open(path.constData(), O_RDONLY);
        if (fd < 0)
            return errno;
        ::close(fd);
        return 0;
    }
};

class DesktopWorkspace : public NTFullDiskAccessAuthorizer::Workspace {
public:
    bool openURL(const QUrl &url) override { return QDesktopServices::openUrl(url); }
};

// Confinement that gives the program a private folder as HOME: a sandbox that sets
// APP_SANDBOX_CONTAINER_ID, or snap.
bool homeIsRedirected() {
    return qEnvironmentVariableIsSet("APP_SANDBOX_CONTAINER_ID") ||
           qEnvironmentVariableIsSet("SNAP");
}

} // namespace

std::shared_ptr<NTFullDiskAccessAuthorizer::FileManager>
NTFullDiskAccessAuthorizer::defaultFileManager() {
    static const auto instance = std::make_shared<PosixFileManager>();
    return instance;
}

std::shared_ptr<NTFullDiskAccessAuthorizer::Workspace>
NTFullDiskAccessAuthorizer::sharedWorkspace() {
    static const auto instance = std::make_shared<DesktopWorkspace>();
    return instance;
}

NTFullDiskAccessAuthorizer::NTFullDiskAccessAuthorizer()
    : NTFullDiskAccessAuthorizer(defaultFileManager(), sharedWorkspace()) {}

NTFullDiskAccessAuthorizer::NTFullDiskAccessAuthorizer(std::shared_ptr<FileManager> fileManager,
                                                       std::shared_ptr<Workspace> workspace)
    : m_fileManager(fileManager ? std::move(fileManager) : defaultFileManager())
    , m_workspace(workspace ? std::move(workspace) : sharedWorkspace()) {}

NTFullDiskAuthorizationStatus NTFullDiskAccessAuthorizer::authorizationStatus() {
    return _fullDiskAuthorizationStatus();
}

void NTFullDiskAccessAuthorizer::requestAuthorizationWithCompletion(
    const std::function<void(NTFullDiskAuthorizationStatus)> &completion) {
    Q_UNUSED(completion); // deliberately never called: access is granted outside the program
    _openPreferences();
}

NTFullDiskAuthorizationStatus NTFullDiskAccessAuthorizer::_checkFDAUsingFile(const QString &path) {
    const int error = m_fileManager->openReadOnly(path.toUtf8());
    if (error == 0)
        return NTFullDiskAuthorizationStatusAuthorized;
    if (error == EPERM || error == EACCES)
        return NTFullDiskAuthorizationStatusDenied;
    return NTFullDiskAuthorizationStatusNotDetermined;
}

QStringList NTFullDiskAccessAuthorizer::probePaths() {
    const QString home = userHomeFolderPath();
    const auto inHome = [&home](const QString &relative) -> QString {
        if (home.endsWith(u'/'))
            return home + relative;
        return home + u'/' + relative;
    };
    // Two files of the user's private browsing data, which confinement (snap, AppArmor
    // profiles) keeps from a program, then two system files only an administrator may read.
    // Either kind opening means nothing stands between this process and the user's disks.
    return {
        inHome(u".mozilla/firefox/profiles.ini"_s),
        inHome(u".local/share/recently-used.xbel"_s),
        u"/etc/shadow"_s,
        u"/etc/sudoers"_s,
    };
}

NTFullDiskAuthorizationStatus NTFullDiskAccessAuthorizer::_fullDiskAuthorizationStatus() {
    NTFullDiskAuthorizationStatus result = NTFullDiskAuthorizationStatusNotDetermined;
    for (const QString &path : probePaths()) {
        switch (_checkFDAUsingFile(path)) {
        case NTFullDiskAuthorizationStatusAuthorized:
            return NTFullDiskAuthorizationStatusAuthorized;
        case NTFullDiskAuthorizationStatusDenied:
            result = NTFullDiskAuthorizationStatusDenied;
            break;
        case NTFullDiskAuthorizationStatusNotDetermined:
            break;
        }
    }
    return result;
}

QString NTFullDiskAccessAuthorizer::userHomeFolderPath() {
    QMutexLocker locker(&m_lock);
    if (m_userHomeFolderPath.isEmpty()) {
        if (homeIsRedirected()) {
            long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
            std::vector<char> buffer(static_cast<size_t>(size > 0 ? size : 16384));
            struct passwd entry {};
            struct passwd *pw = nullptr;
            while (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &pw) == ERANGE)
                buffer.resize(buffer.size() * 2);
            if (!pw)
                qFatal(
                    "Assertion failure: \"pw\" in NTFullDiskAccessAuthorizer::userHomeFolderPath");
            m_userHomeFolderPath = QFile::decodeName(pw->pw_dir);
        } else {
            m_userHomeFolderPath = QDir::homePath();
        }
    }
    return m_userHomeFolderPath;
}

void NTFullDiskAccessAuthorizer::setUserHomeFolderPath(const QString &path) {
    QMutexLocker locker(&m_lock);
    m_userHomeFolderPath = path;
}

QUrl NTFullDiskAccessAuthorizer::preferencesUrl() {
    return QUrl(QStringLiteral(VANTRELO_FULL_DISK_ACCESS_GUIDE_URL));
}

void NTFullDiskAccessAuthorizer::_openPreferences() {
    m_workspace->openURL(preferencesUrl());
}
