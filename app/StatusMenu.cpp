#include "app/StatusMenu.h"

#include "ui/controls/LLImage.h"

#include <QAction>
#include <QActionGroup>

using namespace Qt::StringLiterals;

namespace {

constexpr int kMinimumWidth = 120;

// Shown as written: an '&' in a translation ("Help & FAQ") is text, not a keyboard mnemonic.
QString entryText(const char *id) {
    return qtTrId(id).replace(u'&', u"&&"_s);
}

} // namespace

StatusMenu::StatusMenu(QWidget *parent)
    : QMenu(parent)
    , m_showMainPage(addAction(LLImage::imageNamed(u"app_menu_icon"_s), entryText("menu_home"))) {
    setMinimumWidth(kMinimumWidth);
    addSeparator();
    m_ejectAll = addAction(entryText("disk_action_ejectAll"));
    QMenu *launch = addMenu(entryText("menu_launch"));
    auto *launchGroup = new QActionGroup(launch);
    m_launchOn = launch->addAction(entryText("menu_launch_on"));
    m_launchOff = launch->addAction(entryText("menu_launch_off"));
    for (QAction *entry : {m_launchOn, m_launchOff}) {
        entry->setCheckable(true);
        launchGroup->addAction(entry);
    }
    m_faq = addAction(entryText("menu_faq"));
    m_feedback = addAction(entryText("menu_feedback"));
    addSeparator();
    m_quit = addAction(entryText("menu_quit"));
    m_quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    m_checkUpdate = new QAction(entryText("menu_checkupdate"), this);
    setLaunchAtLogin(false);
}

void StatusMenu::setLaunchAtLogin(bool on) {
    m_launchOn->setChecked(on);
    m_launchOff->setChecked(!on);
}
