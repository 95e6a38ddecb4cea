#pragma once

#include <QMenu>

class QAction;

// The tray icon's menu, built once in the language chosen at start. The commands are the
// application delegate's; this only holds the entries.
class StatusMenu : public QMenu {
    Q_OBJECT
public:
    explicit StatusMenu(QWidget *parent = nullptr);

    QAction *showMainPage() const { return m_showMainPage; }
    QAction *ejectAll() const { return m_ejectAll; }
    QAction *launchOn() const { return m_launchOn; }
    QAction *launchOff() const { return m_launchOff; }
    QAction *faq() const { return m_faq; }
    QAction *feedback() const { return m_feedback; }
    QAction *quit() const { return m_quit; }
    // Made with the others but never shown in the menu.
    QAction *checkUpdate() const { return m_checkUpdate; }

    // Checks one launch entry and clears the other.
    void setLaunchAtLogin(bool on);

private:
    QAction *m_showMainPage;
    QAction *m_ejectAll;
    QAction *m_launchOn;
    QAction *m_launchOff;
    QAction *m_faq;
    QAction *m_feedback;
    QAction *m_quit;
    QAction *m_checkUpdate;
};
