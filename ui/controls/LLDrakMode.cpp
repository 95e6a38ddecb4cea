#include "ui/controls/LLDrakMode.h"

#include "system/UserDefaults.h"
#include "ui/controls/AppearancePortal.h"

#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QPalette>

namespace {

constexpr uint kPortalNoPreference = 0;
constexpr uint kPortalDark = 1;

} // namespace

LLDrakMode::LLDrakMode() {
    m_coalesce.setSingleShot(true);
    m_coalesce.setInterval(0);
    connect(&m_coalesce, &QTimer::timeout, this, &LLDrakMode::themeChanged);
    if (QCoreApplication *app = QCoreApplication::instance())
        app->installEventFilter(this);
    follow(AppearancePortal::createSessionPortal());
}

LLDrakMode::~LLDrakMode() = default;

LLDrakMode *LLDrakMode::shared() {
    // Lives as long as the process; windows connect to it until their very end.
    static LLDrakMode *const instance = new LLDrakMode;
    return instance;
}

void LLDrakMode::setPortal(std::unique_ptr<AppearancePortal> portal) {
    shared()->follow(std::move(portal));
}

void LLDrakMode::follow(std::unique_ptr<AppearancePortal> portal) {
    m_portal = std::move(portal);
    m_portalScheme = m_portal ? m_portal->readColorScheme() : std::nullopt;
    if (m_portal)
        connect(m_portal.get(), &AppearancePortal::colorSchemeChanged, this,
                &LLDrakMode::portalSchemeChanged);
}

void LLDrakMode::portalSchemeChanged(uint scheme) {
    m_portalScheme = scheme;
    m_coalesce.start();
}

bool LLDrakMode::eventFilter(QObject *watched, QEvent *event) {
    if (event->type() == QEvent::ApplicationPaletteChange || event->type() == QEvent::ThemeChange)
        m_coalesce.start();
    return QObject::eventFilter(watched, event);
}

std::optional<bool> LLDrakMode::preferredDarkMode() {
    const QVariant style =
        UserDefaults::globalDomain().objectForKey(QStringLiteral("AppleInterfaceStyle"));
    if (style.isValid())
        return style.typeId() == QMetaType::QString &&
               style.toString().compare(QStringLiteral("dark"), Qt::CaseInsensitive) == 0;
    // "No preference" leaves the choice to the palette, as no portal does.
    const std::optional<uint> scheme = shared()->m_portalScheme;
    if (scheme && *scheme != kPortalNoPreference)
        return *scheme == kPortalDark;
    return std::nullopt;
}

bool LLDrakMode::isDarkMode() {
    return preferredDarkMode().value_or(
        QGuiApplication::palette().color(QPalette::Window).lightness() < 128);
}
