#pragma once

#include "system/LoginItemService.h"

#include <QObject>
#include <QString>

#include <memory>

// One login item, named by its identifier. `startAtLogin` is read from the job list on every
// access; `enabled` caches the last answer, except that after a write it says whether the
// registration request succeeded (a successful request to switch off leaves it true) until the
// next read brings it back to the job's real state.
class TLStartAtLoginController : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString identifier READ identifier WRITE setIdentifier)
    Q_PROPERTY(bool startAtLogin READ startAtLogin WRITE setStartAtLogin NOTIFY startAtLoginChanged)
    Q_PROPERTY(bool enabled READ enabled WRITE setEnabled NOTIFY enabledChanged)

public:
    // No identifier: answers false and ignores writes. A null service means the user's XDG
    // autostart entries.
    explicit TLStartAtLoginController(std::shared_ptr<LoginItemService> service = {},
                                      QObject *parent = nullptr);
    explicit TLStartAtLoginController(const QString &identifier,
                                      std::shared_ptr<LoginItemService> service = {},
                                      QObject *parent = nullptr);

    QString identifier() const { return m_identifier; }
    // Also reads the job list once so that `enabled` reflects it.
    void setIdentifier(const QString &identifier);

    bool startAtLogin();
    void setStartAtLogin(bool flag);
    bool enabled() const { return m_enabled; }
    void setEnabled(bool flag) { setStartAtLogin(flag); }

Q_SIGNALS:
    // Emitted by hand: enabledChanged when a read finds a different state and after every write;
    // startAtLoginChanged after every write, following enabledChanged.
    // The job state may have changed; read startAtLogin for it.
    void startAtLoginChanged();
    void enabledChanged(bool enabled);

private:
    std::shared_ptr<LoginItemService> m_service;
    QString m_identifier;
    bool m_enabled = false;
};
