#include "ui/controls/AppearancePortal.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>

namespace {

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString kNamespace = QStringLiteral("org.freedesktop.appearance");
const QString kKey = QStringLiteral("color-scheme");
// The answer is read on the interface thread at start-up: a portal that does not answer
// quickly is treated as absent.
constexpr int kReadTimeoutMs = 300;

QVariant unwrapped(QVariant value) {
    while (value.canConvert<QDBusVariant>())
        value = qvariant_cast<QDBusVariant>(value).variant();
    return value;
}

std::optional<uint> schemeFrom(const QVariant &value) {
    bool ok = false;
    const uint scheme = unwrapped(value).toUInt(&ok);
    return ok ? std::optional<uint>(scheme) : std::nullopt;
}

class SessionPortal final : public AppearancePortal {
    Q_OBJECT
public:
    SessionPortal()
        : m_bus(QDBusConnection::sessionBus()) {
        // QtDBus connects bus signals by signature only.
        if (m_bus.isConnected())
            m_bus.connect(kService, kPath, kInterface, QStringLiteral("SettingChanged"), this,
                          SLOT(settingChanged(QString, QString, QDBusVariant)));
    }

    std::optional<uint> readColorScheme() override {
        if (!m_bus.isConnected())
            return std::nullopt;
        QDBusMessage read =
            QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Read"));
        read << kNamespace << kKey;
        const QDBusMessage reply = m_bus.call(read, QDBus::Block, kReadTimeoutMs);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return std::nullopt;
        return schemeFrom(reply.arguments().constFirst());
    }

private Q_SLOTS:
    void settingChanged(const QString &settingNamespace, const QString &key,
                        const QDBusVariant &value) {
        if (settingNamespace != kNamespace || key != kKey)
            return;
        if (const std::optional<uint> scheme = schemeFrom(QVariant::fromValue(value)))
            Q_EMIT colorSchemeChanged(*scheme);
    }

private:
    QDBusConnection m_bus;
};

} // namespace

std::unique_ptr<AppearancePortal> AppearancePortal::createSessionPortal() {
    return std::make_unique<SessionPortal>();
}

#include "AppearancePortal.moc"
