#pragma once

#include <QObject>
#include <QPointer>

#include <memory>

class CommandDelegate;
class NTDiskManager;
class NTMainWindowController;
class QAction;
class QSystemTrayIcon;
class StatusMenu;

// The application: sets the language, starts analytics, records the launch, puts the menu in
// the tray, keeps launch at login in line with the setting and shows the main window. The menu's
// commands are its operations.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    // Volumes come from diskManager and helper commands go to commandHelper (the shared ones
    // when null).
    explicit AppDelegate(NTDiskManager *diskManager = nullptr,
                         CommandDelegate *commandHelper = nullptr, QObject *parent = nullptr);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    // Another start of the program while this one runs.
    bool applicationShouldHandleReopen();
    void applicationWillTerminate();

    void showMainPageWithSender(QObject *sender);
    void showHelperWithSender(QObject *sender);
    void launchWithSender(QObject *sender);
    void checkUpdateWithSender(QObject *sender);
    void feedBackWithSender(QObject *sender);
    void ejectAllDiskWithSender(QObject *sender);
    void quitWithSender(QObject *sender);

    StatusMenu *mainMenu() const { return m_mainMenu.get(); }
    QSystemTrayIcon *statusItem() const { return m_statusItem.get(); }
    NTMainWindowController *mainWindowVC() const { return m_mainWindowVC.get(); }
    QAction *launchOn() const;
    QAction *launchOff() const;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void recordLaunch();
    void makeStatusItem();
    void connectMenu();
    void applyLaunchAtLogin();
    void setLaunchAtLogin(bool on);
    void centreMainWindow();
    void watchFirstListPaint();
    void reportListOnScreen();

    NTDiskManager *const m_diskManager;
    CommandDelegate *const m_commandHelper;
    std::unique_ptr<StatusMenu> m_mainMenu;
    std::unique_ptr<QSystemTrayIcon> m_statusItem;
    std::unique_ptr<NTMainWindowController> m_mainWindowVC;
};
