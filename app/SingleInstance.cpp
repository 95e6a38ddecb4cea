#include "app/SingleInstance.h"

#include "app/AppLogging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalSocket>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int kHandOverWaitMs = 1000;
constexpr qint64 kMaxMessage = 64;
const QByteArray kReopen = "reopen\n";

// A folder only this user can enter, made when missing; "" when someone else holds the name.
QString privateFolder(const QString &path) {
    const QByteArray native = QFile::encodeName(path);
    ::mkdir(native.constData(), 0700);
    struct stat info {};
    if (::lstat(native.constData(), &info) != 0 || !S_ISDIR(info.st_mode) ||
        info.st_uid != ::getuid() || (info.st_mode & 0077) != 0) {
        qCWarning(lcApp) << "Not using" << path << "for the instance socket: not a private folder";
        return {};
    }
    return path;
}

// Held while a start looks for the running program and, finding none, listens: two starts at
// once would otherwise both find nobody, and the later one would remove the earlier one's
// socket. The kernel drops the lock with a process that crashes.
class ClaimLock {
public:
    explicit ClaimLock(const QString &path)
        : m_fd(::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        if (m_fd >= 0)
            ::flock(m_fd, LOCK_EX);
    }
    ~ClaimLock() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    ClaimLock(const ClaimLock &) = delete;
    ClaimLock &operator=(const ClaimLock &) = delete;

private:
    const int m_fd;
};

} // namespace

SingleInstance::SingleInstance(const QString &socketPath, QObject *parent)
    : QObject(parent)
    , m_socketPath(socketPath.isEmpty() ? defaultSocketPath() : socketPath) {
    connect(&m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnections);
}

QString SingleInstance::defaultSocketPath() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QFileInfo(runtime).isDir())
        return runtime + u"/vantrelo.sock"_s;
    const QString folder =
        privateFolder(QDir::tempPath() + u"/vantrelo-"_s + QString::number(::getuid()));
    return folder.isEmpty() ? QString() : folder + u"/vantrelo.sock"_s;
}

bool SingleInstance::claimOrHandOver() {
    if (m_socketPath.isEmpty())
        return true;
    const ClaimLock lock(m_socketPath + u".lock"_s);
    if (handOver())
        return false;
    // Nobody answers: what is there is left from a program that ended without cleaning up.
    QLocalServer::removeServer(m_socketPath);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server.listen(m_socketPath))
        qCWarning(lcApp) << "Starting without the single-instance socket" << m_socketPath << ":"
                         << m_server.errorString();
    return true;
}

bool SingleInstance::handOver() const {
    const QFileInfo socket(m_socketPath);
    if (!socket.exists() || socket.ownerId() != ::getuid())
        return false;
    QLocalSocket peer;
    peer.connectToServer(m_socketPath);
    if (!peer.waitForConnected(kHandOverWaitMs))
        return false;
    peer.write(kReopen);
    const bool sent = peer.waitForBytesWritten(kHandOverWaitMs);
    peer.disconnectFromServer();
    return sent;
}

void SingleInstance::acceptConnections() {
    while (QLocalSocket *peer = m_server.nextPendingConnection()) {
        connect(peer, &QLocalSocket::disconnected, peer, &QObject::deleteLater);
        const auto read = [this, peer] {
            if (peer->canReadLine()) {
                if (peer->readLine(kMaxMessage) == kReopen)
                    Q_EMIT reopenRequested();
                peer->disconnectFromServer();
            } else if (peer->bytesAvailable() > kMaxMessage) {
                peer->abort();
            }
        };
        connect(peer, &QLocalSocket::readyRead, this, read);
        read();
    }
}
