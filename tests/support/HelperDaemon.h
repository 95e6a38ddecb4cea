#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

namespace testsupport {

// A built vantrelo-helper listening on a socket in a folder of its own, which other users may
// reach. Stopped by its pid when the object goes away.
class HelperDaemon {
public:
    HelperDaemon();
    HelperDaemon(const HelperDaemon &) = delete;
    HelperDaemon &operator=(const HelperDaemon &) = delete;
    ~HelperDaemon();

    // Starts `program` and waits until the socket answers; empty, or why not. Its output goes
    // to ours when `showOutput`, else nowhere.
    QString start(const QString &program,
                  const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment(),
                  bool showOutput = true);
    // Terminates it and waits; true when it ended by itself and took its socket with it (or had
    // not been started).
    bool stop();
    QString socketPath() const { return m_socketPath; }

private:
    QTemporaryDir m_dir;
    QString m_socketPath;
    QProcess m_process;
};

} // namespace testsupport
