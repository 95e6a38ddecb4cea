#include "helper/PolkitAuthorizer.h"

#include "helper/HelperLogging.h"

#include <QDBusArgument>
#include <QDBusError>
#include <QDBusMessage>
#include <QMap>
#include <QMutexLocker>

using namespace Qt::StringLiterals;

namespace helper {

namespace {

constexpr quint32 kAllowUserInteraction = 1;

QDBusMessage checkAuthorizationCall(const Caller &caller, const QString &action) {
    QDBusArgument subject;
    subject.beginStructure();
    subject << u"unix-process"_s
            << QVariantMap{{u"pid"_s, QVariant::fromValue(quint32(caller.pid))},
                           {u"start-time"_s, QVariant::fromValue(quint64(caller.startTime))},
                           {u"uid"_s, QVariant::fromValue(qint32(caller.uid))}};
    subject.endStructure();
    QDBusArgument details;
    details << QMap<QString, QString>();
    QDBusMessage call = QDBusMessage::createMethodCall(
        u"org.freedesktop.PolicyKit1"_s, u"/org/freedesktop/PolicyKit1/Authority"_s,
        u"org.freedesktop.PolicyKit1.Authority"_s, u"CheckAuthorization"_s);
    call << QVariant::fromValue(subject) << action << QVariant::fromValue(details)
         << kAllowUserInteraction << QString();
    return call;
}

Authorization refuse(const QString &what, const QString &why) {
    return {false, u"Not authorized: %1. %2"_s.arg(what, why)};
}

QString notRunning() {
    return u"polkit is not running, so only root may do this."_s;
}

QString whyCallFailed(const QDBusMessage &error) {
    if (error.errorName() == u"org.freedesktop.DBus.Error.NoReply"_s)
        return u"No answer came from polkit in time, so only root may do this."_s;
    if (error.errorName().startsWith(u"org.freedesktop.PolicyKit1."_s))
        return u"polkit could not check it (%1), so only root may do this."_s.arg(
            error.errorMessage());
    return notRunning();
}

// The answer (bba{ss}): authorized, challenge, details.
Authorization decide(const QDBusMessage &reply, const QString &what) {
    if (reply.signature() != u"(bba{ss})"_s)
        return refuse(what, u"polkit gave an answer the helper does not understand, so only root "
                            u"may do this."_s);
    bool authorized = false;
    bool challenge = false;
    QMap<QString, QString> details;
    const auto answer = reply.arguments().constFirst().value<QDBusArgument>();
    answer.beginStructure();
    answer >> authorized >> challenge >> details;
    answer.endStructure();
    if (authorized)
        return {true, {}};
    if (details.value(u"polkit.dismissed"_s) == u"true"_s)
        return refuse(what, u"The password dialog was dismissed."_s);
    if (challenge)
        return refuse(what, u"An administrator's password is needed, and no authentication "
                            u"agent answered to ask for it. Run the command from a desktop "
                            u"session, or ask an administrator."_s);
    return refuse(what, u"The system's policy does not allow this for your account."_s);
}

} // namespace

PolkitAuthorizer::PolkitAuthorizer(std::chrono::milliseconds callTimeout)
    : m_timeoutMs(int(callTimeout.count())) {}

PolkitAuthorizer::~PolkitAuthorizer() {
    if (!m_connectionName.isEmpty())
        QDBusConnection::disconnectFromBus(m_connectionName);
}

std::optional<QDBusConnection> PolkitAuthorizer::bus() const {
    const QMutexLocker lock(&m_mutex);
    if (!m_connectionName.isEmpty()) {
        QDBusConnection current(m_connectionName);
        if (current.isConnected())
            return current;
        QDBusConnection::disconnectFromBus(m_connectionName);
    }
    m_connectionName = u"vantrelo-polkit-%1"_s.arg(++m_connections);
    QDBusConnection fresh =
        QDBusConnection::connectToBus(QDBusConnection::SystemBus, m_connectionName);
    if (fresh.isConnected())
        return fresh;
    qCWarning(lcHelper) << "no system bus for polkit:" << fresh.lastError().message();
    QDBusConnection::disconnectFromBus(m_connectionName);
    m_connectionName.clear();
    return std::nullopt;
}

Authorization PolkitAuthorizer::check(const Caller &caller, const QString &action,
                                      const QString &what) const {
    Authorization decision;
    const auto connection = bus();
    if (!connection) {
        decision = refuse(what, notRunning());
    } else {
        const QDBusMessage reply =
            connection->call(checkAuthorizationCall(caller, action), QDBus::Block, m_timeoutMs);
        if (reply.type() == QDBusMessage::ReplyMessage) {
            decision = decide(reply, what);
        } else {
            qCWarning(lcHelper) << "polkit check failed:" << reply.errorName()
                                << reply.errorMessage();
            decision = refuse(what, whyCallFailed(reply));
        }
    }
    // The command's own log line carries the outcome; refusals there are rate-limited.
    qCDebug(lcHelper).noquote() << "polkit" << action << "for uid" << caller.uid << "pid"
                                << caller.pid << (decision.allowed ? u"allowed"_s : u"refused"_s);
    return decision;
}

} // namespace helper
