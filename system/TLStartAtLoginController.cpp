#include "system/TLStartAtLoginController.h"

#include "system/XdgAutostart.h"

using namespace Qt::StringLiterals;

TLStartAtLoginController::TLStartAtLoginController(std::shared_ptr<LoginItemService> service,
                                                   QObject *parent)
    : QObject(parent)
    , m_service(service ? std::move(service) : std::make_shared<XdgAutostart>()) {}

TLStartAtLoginController::TLStartAtLoginController(const QString &identifier,
                                                   std::shared_ptr<LoginItemService> service,
                                                   QObject *parent)
    : TLStartAtLoginController(std::move(service), parent) {
    setIdentifier(identifier);
}

void TLStartAtLoginController::setIdentifier(const QString &identifier) {
    m_identifier = identifier;
    startAtLogin();
}

bool TLStartAtLoginController::startAtLogin() {
    if (m_identifier.isEmpty())
        return false;
    bool answer = false;
    const QList<QVariantMap> jobs = m_service->copyAllJobDictionaries();
    for (const QVariantMap &job : jobs) {
        if (job.value(u"Label"_s).toString() == m_identifier) {
            answer = job.value(u"OnDemand"_s).toBool();
            break;
        }
    }
    if (answer != m_enabled) {
        m_enabled = answer;
        Q_EMIT enabledChanged(m_enabled);
    }
    return answer;
}

void TLStartAtLoginController::setStartAtLogin(bool flag) {
    if (m_identifier.isEmpty())
        return;
    m_enabled = m_service->setLoginItemEnabled(m_identifier, flag);
    Q_EMIT enabledChanged(m_enabled);
    Q_EMIT startAtLoginChanged();
}
