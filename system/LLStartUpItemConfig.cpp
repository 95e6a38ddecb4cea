#include "system/LLStartUpItemConfig.h"

#include "system/TLStartAtLoginController.h"
#include "system/XdgAutostart.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

QString LLStartUpItemConfig::identifier() {
    return u"com.corvin.VantreloLaunch"_s;
}

bool LLStartUpItemConfig::setStartAtLogin(bool flag) {
    TLStartAtLoginController controller(identifier());
    controller.setStartAtLogin(flag);
    return controller.enabled();
}

bool LLStartUpItemConfig::isStartAtLogin() {
    TLStartAtLoginController controller(identifier());
    return controller.startAtLogin();
}

void LLStartUpItemConfig::setStartUpState(bool flag) {
    if (flag)
        installStartUp();
    else
        deleteStartUp();
}

void LLStartUpItemConfig::installStartUp() {
    XdgAutostart autostart;
    autostart.addSessionItem(autostart.executable());
}

void LLStartUpItemConfig::deleteStartUp() {
    XdgAutostart autostart;
    const QString name = QFileInfo(autostart.executable()).fileName();
    if (!name.isEmpty())
        autostart.removeSessionItemsNamed(name);
}
