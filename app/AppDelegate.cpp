#include "app/AppDelegate.h"

#include "analytics/GoogleAnalytics.h"
#include "app/AppLogging.h"
#include "app/StatusMenu.h"
#include "disk/NTDiskManager.h"
#include "helperclient/NTCommandHelper.h"
#include "helperclient/NTDiskHelper.h"
#include "system/LLSettingConfig.h"
#include "system/LLStartUpItemConfig.h"
#include "system/MuLanguage.h"
#include "system/UserDefaults.h"
#include "ui/controls/Interaction.h"
#include "ui/controls/LLImage.h"
#include "ui/controls/ThemePalette.h"
#include "ui/mainwindow/NTMainWindowController.h"
#include "util/TLUtility.h"
#include "util/VendorSite.h"

#include <QAction>
#include <QApplication>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QThreadPool>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

constexpr quint64 kEjectCommand = 2;
const QString kNotFirstLaunchKey = u"notfirst_launch"_s;

void openUrl(const QUrl &url) {
    if (url.isValid())
        Interaction::shared().openUrl(url);
}

} // namespace

AppDelegate::AppDelegate(NTDiskManager *diskManager, CommandDelegate *commandHelper,
                         QObject *parent)
    : QObject(parent)
    , m_diskManager(diskManager ? diskManager : NTDiskManager::shared())
    , m_commandHelper(commandHelper ? commandHelper : NTCommandHelper::shared()) {
    connect(qApp, &QCoreApplication::aboutToQuit, this, &AppDelegate::applicationWillTerminate);
}

AppDelegate::~AppDelegate() = default;

QAction *AppDelegate::launchOn() const {
    return m_mainMenu ? m_mainMenu->launchOn() : nullptr;
}

QAction *AppDelegate::launchOff() const {
    return m_mainMenu ? m_mainMenu->launchOff() : nullptr;
}

void AppDelegate::applicationDidFinishLaunching() {
    MuLanguage::applyPreferredLanguage();
    GoogleAnalytics::configure();
    recordLaunch();
    m_mainMenu = std::make_unique<StatusMenu>();
    connectMenu();
    makeStatusItem();
    applyLaunchAtLogin();
    ThemePalette::follow();
    m_mainWindowVC = std::make_unique<NTMainWindowController>(m_diskManager);
    connect(m_mainWindowVC.get(), &NTMainWindowController::initialListDidLoad, this,
            &AppDelegate::watchFirstListPaint);
    showMainPageWithSender(this);
}

void AppDelegate::watchFirstListPaint() {
    m_mainWindowVC->outlineView()->viewport()->installEventFilter(this);
}

bool AppDelegate::eventFilter(QObject *watched, QEvent *event) {
    if (event->type() == QEvent::Paint && m_mainWindowVC &&
        watched == m_mainWindowVC->outlineView()->viewport()) {
        watched->removeEventFilter(this);
        // Queued, so the line comes once the painted window has gone out to the display.
        QTimer::singleShot(0, this, &AppDelegate::reportListOnScreen);
    }
    return QObject::eventFilter(watched, event);
}

void AppDelegate::reportListOnScreen() {
    // Tells a person reading the log, and the start-up benchmark, that the window is ready.
    const qsizetype volumes = m_mainWindowVC->internalDrive()->childArray().size() +
                              m_mainWindowVC->externalDrive()->childArray().size();
    qCInfo(lcApp).noquote() << u"Volume list on screen: %1 volumes"_s.arg(volumes);
}

bool AppDelegate::applicationShouldHandleReopen() {
    showMainPageWithSender(this);
    return true;
}

void AppDelegate::applicationWillTerminate() {
    GoogleAnalytics::shutdown();
}

void AppDelegate::recordLaunch() {
    UserDefaults &defaults = UserDefaults::standard();
    if (!defaults.objectForKey(kNotFirstLaunchKey).isValid()) {
        GoogleAnalytics::trackEventName(u"LifeCycle"_s, u"soft_launch_first"_s);
        defaults.setBool(true, kNotFirstLaunchKey);
        defaults.synchronize();
    } else {
        GoogleAnalytics::trackEventName(u"LifeCycle"_s, u"soft_launch"_s);
    }
}

void AppDelegate::connectMenu() {
    const StatusMenu &menu = *m_mainMenu;
    const auto route = [this](QAction *entry, void (AppDelegate::*command)(QObject *)) {
        connect(entry, &QAction::triggered, this,
                [this, entry, command] { (this->*command)(entry); });
    };
    route(menu.showMainPage(), &AppDelegate::showMainPageWithSender);
    route(menu.ejectAll(), &AppDelegate::ejectAllDiskWithSender);
    route(menu.launchOn(), &AppDelegate::launchWithSender);
    route(menu.launchOff(), &AppDelegate::launchWithSender);
    route(menu.faq(), &AppDelegate::showHelperWithSender);
    route(menu.feedback(), &AppDelegate::feedBackWithSender);
    route(menu.quit(), &AppDelegate::quitWithSender);
    route(menu.checkUpdate(), &AppDelegate::checkUpdateWithSender);
}

void AppDelegate::makeStatusItem() {
    m_statusItem = std::make_unique<QSystemTrayIcon>(LLImage::imageNamed(u"status_icon"_s));
    m_statusItem->setToolTip(QCoreApplication::applicationName());
    m_statusItem->setContextMenu(m_mainMenu.get());
    connect(m_statusItem.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    showMainPageWithSender(m_statusItem.get());
            });
    const bool trayAvailable = QSystemTrayIcon::isSystemTrayAvailable();
    // Without a tray a hidden window would leave a process nobody can reach.
    QApplication::setQuitOnLastWindowClosed(!trayAvailable);
    if (trayAvailable)
        m_statusItem->show();
    else
        qCInfo(lcApp) << "The desktop has no system tray: closing the main window quits";
}

void AppDelegate::applyLaunchAtLogin() {
    const bool enableBoot = LLSettingConfig::sharedConfig().enableBoot();
    LLStartUpItemConfig::setStartAtLogin(enableBoot);
    m_mainMenu->setLaunchAtLogin(enableBoot);
}

void AppDelegate::showMainPageWithSender(QObject *) {
    GoogleAnalytics::trackEventName(u"Menu"_s, u"show mainpage"_s);
    if (!m_mainWindowVC)
        return;
    centreMainWindow();
    m_mainWindowVC->showWindow();
}

void AppDelegate::centreMainWindow() {
    QWidget &window = *m_mainWindowVC;
    const QScreen *screen = window.screen() ? window.screen() : QGuiApplication::primaryScreen();
    if (!screen)
        return;
    QRect frame = window.frameGeometry();
    frame.moveCenter(screen->availableGeometry().center());
    window.move(frame.topLeft());
}

void AppDelegate::showHelperWithSender(QObject *) {
    GoogleAnalytics::trackEventName(u"Menu"_s, u"help document"_s);
    openUrl(VendorSite::helperGuideUrl(VendorSite::guideLanguage(
        MuLanguage::languageForPreferredLanguages(MuLanguage::preferredLanguages()))));
}

void AppDelegate::launchWithSender(QObject *sender) {
    const bool on = m_mainMenu && sender == m_mainMenu->launchOn();
    GoogleAnalytics::trackEventName(u"Menu"_s, u"launch at login"_s, on ? u"on"_s : u"off"_s);
    LLStartUpItemConfig::setStartAtLogin(on);
    LLSettingConfig &config = LLSettingConfig::sharedConfig();
    config.setEnableBoot(on);
    config.save();
    if (m_mainMenu)
        m_mainMenu->setLaunchAtLogin(on);
}

void AppDelegate::checkUpdateWithSender(QObject *) {
    GoogleAnalytics::trackEventName(u"Menu"_s, u"checkUpdate"_s);
    openUrl(VendorSite::reviewUrl());
}

void AppDelegate::feedBackWithSender(QObject *) {
    GoogleAnalytics::trackEventName(u"Menu"_s, u"feedback"_s);
    openUrl(VendorSite::feedbackUrl());
}

void AppDelegate::ejectAllDiskWithSender(QObject *) {
    GoogleAnalytics::trackEventName(u"Menu"_s, u"eject all"_s);
    QThreadPool::globalInstance()->start([manager = m_diskManager, helper = m_commandHelper] {
        for (const NTDiskDrivePtr &drive : manager->getAllDiskDrive()) {
            if (!drive->isEjectable())
                continue;
            // Asked again for every volume: the helper may be installed or removed meanwhile.
            if (TLUtility::checkHelperAppInstalled())
                helper->sendCommand(kEjectCommand,
                                    {{u"name"_s, drive->name()}, {u"bsdName"_s, drive->bsdName()}},
                                    [](const wire::ReplyDictionary &) {});
            else
                NTDiskHelper::ejectDiskWithDrive(drive);
        }
    });
}

void AppDelegate::quitWithSender(QObject *) {
    QCoreApplication::quit();
}
