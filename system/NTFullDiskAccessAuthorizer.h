#pragma once

#include <QByteArray>
#include <QRecursiveMutex>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <memory>

enum NTFullDiskAuthorizationStatus : int {
    NTFullDiskAuthorizationStatusNotDetermined = 0,
    NTFullDiskAuthorizationStatusDenied = 1,
    NTFullDiskAuthorizationStatusAuthorized = 2,
};

// Tells whether this process may read files the system keeps from ordinary programs, by trying
// to open a few of them, and opens the page that explains how to grant that access.
// Usable from any thread; the only state is the cached home folder.
class NTFullDiskAccessAuthorizer {
public:
    // Where the probe's open() goes; returns 0 on success, else the errno of the failure.
    class FileManager {
    public:
        virtual ~FileManager() = default;
        virtual int openReadOnly(const QByteArray &path) = 0;
    };
    class Workspace {
    public:
        virtual ~Workspace() = default;
        virtual bool openURL(const QUrl &url) = 0;
    };
    // The real ones: POSIX open(O_RDONLY), closed at once; QDesktopServices::openUrl.
    static std::shared_ptr<FileManager> defaultFileManager();
    static std::shared_ptr<Workspace> sharedWorkspace();

    NTFullDiskAccessAuthorizer();
    NTFullDiskAccessAuthorizer(std::shared_ptr<FileManager> fileManager,
                               std::shared_ptr<Workspace> workspace);

    NTFullDiskAuthorizationStatus authorizationStatus();
    // Only opens the explanation; the completion is never called, so callers must not wait for
    // it.
    void requestAuthorizationWithCompletion(
        const std::function<void(NTFullDiskAuthorizationStatus)> &completion);

    // Authorized when the file opens, Denied on EPERM or EACCES, NotDetermined otherwise.
    NTFullDiskAuthorizationStatus _checkFDAUsingFile(const QString &path);
    // Probes probePaths() in order: the first readable file decides Authorized; otherwise Denied
    // when any was refused, else NotDetermined.
    NTFullDiskAuthorizationStatus _fullDiskAuthorizationStatus();
    QStringList probePaths();

    // The user's real home folder, worked out once and cached: inside a sandbox that moves HOME
    // into a container, it comes from the password database.
    QString userHomeFolderPath();
    void setUserHomeFolderPath(const QString &path);

    void _openPreferences();
    // The page explaining how to let the helper mount disks (a deployment value).
    static QUrl preferencesUrl();

    std::shared_ptr<FileManager> fileManager() const { return m_fileManager; }
    std::shared_ptr<Workspace> workspace() const { return m_workspace; }

private:
    std::shared_ptr<FileManager> m_fileManager;
    std::shared_ptr<Workspace> m_workspace;
    QRecursiveMutex m_lock;
    QString m_userHomeFolderPath;
};
