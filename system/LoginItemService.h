#pragma once

#include <QList>
#include <QString>
#include <QVariantMap>

// The per-user login-item service: its list of jobs and the registration of one item. Stands in
// for the system's service-management calls so the controller's logic can be driven by a fake.
class LoginItemService {
public:
    virtual ~LoginItemService() = default;
    // One map per job: "Label" (QString, the identifier) and "OnDemand" (bool, starts at login).
    virtual QList<QVariantMap> copyAllJobDictionaries() = 0;
    // Whether the request was carried out.
    virtual bool setLoginItemEnabled(const QString &identifier, bool enabled) = 0;
};
