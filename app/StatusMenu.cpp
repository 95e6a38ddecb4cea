#include "app/StatusMenu.h"

#include "ui/controls/LLImage.h"

#include <QAction>
#include <QActionGroup>

using namespace Qt::StringLiterals;

namespace {

constexpr int kMinimumWidth = 120;

} // namespace

StatusMenu::StatusMenu(QWidget *parent)
    : QMenu(parent)
    , m_showMainPage(addAction(LLImage::imageNamed(u"app_menu_icon"_s), qtTrId("menu_home"))) {
    setMinimumWidth(kMinimumWidth);
    addSeparator();
    m_ejectAll = addAction(qtTrId("disk_action_ejectAll"));
    QMenu *launch = addMenu(qtTrId("menu_launch"));
    auto *launchGroup = new QActionGroup(launch);
    m_launchOn = launch->addAction(qtTrId("menu_launch_on"));
    m_launchOff = launch->addAction(qtTrId("menu_launch_off"));
    for (QAction *entry : {m_launchOn, m_launchOff}) {
        entry->setCheckable(true);
        launchGroup->addAction(entry);
    }
    m_faq = addAction(qtTrId("menu_faq"));
    m_feedback = addAction(qtTrId("menu_feedback"));
    addSeparator();
    m_quit = addAction(qtTrId("menu_quit"));
    m_quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    m_checkUpdate = new QAction(qtTrId("menu_checkupdate"), this);
    setLaunchAtLogin(false);
}

void StatusMenu::setLaunchAtLogin(bool on) {
    m_launchOn->setChecked(on);
    m_launchOff->setChecked(!on);
}
