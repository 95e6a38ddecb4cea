#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

// One running program per user. The first start listens on a socket of its own user; a later
// start finds it there, hands over a re-open and leaves. Needs no session bus, and a socket left
// by a program that crashed is cleared away.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    // socketPath: where the running program listens (defaultSocketPath() when empty).
    explicit SingleInstance(const QString &socketPath = {}, QObject *parent = nullptr);

    // $XDG_RUNTIME_DIR/vantrelo.sock; without a runtime folder, in a folder of this user only,
    // /tmp/vantrelo-UID/.
    static QString defaultSocketPath();

    // True when this program is now the running one; false when a running one took the
    // re-open, so this one should exit. Also true when listening fails, so the program still
    // starts (without single-instance).
    bool claimOrHandOver();

    QString socketPath() const { return m_socketPath; }
    bool isListening() const { return m_server.isListening(); }

Q_SIGNALS:
    // Another start of the program asked for the window.
    void reopenRequested();

private:
    bool handOver() const;
    void acceptConnections();

    const QString m_socketPath;
    QLocalServer m_server;
};
