#pragma once

#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <sys/types.h>

namespace testsupport {

// A system bus of its own on a temporary socket with a real polkitd on it, for integration tests
// as root. polkitd reads actions and rules only from the system's folders, so the policy is put
// there for as long as a test needs it (unless it is installed already) and rules get file names
// of their own; stop() and the destructor take everything away again.
class PrivatePolkit {
public:
    PrivatePolkit() = default;
    ~PrivatePolkit() { stop(); }
    PrivatePolkit(const PrivatePolkit &) = delete;
    PrivatePolkit &operator=(const PrivatePolkit &) = delete;

    // Returns once polkitd answers; false with *why when the machine cannot (not root, no
    // polkitd). Again after stop(), at the same address().
    bool start(const QString &policyFile, QString *why);
    void stop();
    // For DBUS_SYSTEM_BUS_ADDRESS.
    QString address() const;
    // A rule that grants, or refuses, every com.corvin.vantrelo.* action to `uid`; returns once
    // polkitd answers by it. Rules added earlier win.
    bool grantTo(uid_t uid, QString *why) { return addRule(uid, true, why); }
    bool refuseTo(uid_t uid, QString *why) { return addRule(uid, false, why); }

private:
    bool startProcesses(QString *why);
    bool installPolicy(const QString &policyFile);
    void removePolicy();
    bool addRule(uid_t uid, bool grant, QString *why);
    // pkcheck's exit code for `uid` asking for an internal disk's erase: 0 allowed, 1 refused,
    // 2 a password needed, above 3 no answer.
    int pkcheck(uid_t uid) const;

    QTemporaryDir m_dir;
    QProcess m_bus;
    QProcess m_polkitd;
    QStringList m_rules;
    // Held shared while the policy is in use, so the last user removes what a test installed.
    QFile m_policyLock;
};

} // namespace testsupport
