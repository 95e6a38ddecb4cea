#include "ui/mainwindow/HelperSocketUnit.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

bool HelperSocketUnit::isEnabled(const QString &root) {
    const QDir base(root);
    if (!QFileInfo(base.filePath(u"run/systemd/system"_s)).isDir())
        return false;
    // A masked unit is linked to /dev/null and never starts, whatever wants it.
    for (const QString &folder : {u"etc/systemd/system"_s, u"run/systemd/system"_s}) {
        if (QFileInfo(base.filePath(folder % u'/' % kUnitName)).symLinkTarget() == u"/dev/null"_s)
            return false;
    }
    // "systemctl enable" links the unit into the wants folder of the target its [Install] names.
    for (const QString &folder :
         {u"etc/systemd/system"_s, u"run/systemd/system"_s, u"usr/local/lib/systemd/system"_s,
          u"usr/lib/systemd/system"_s, u"lib/systemd/system"_s}) {
        const QFileInfo wanted(base.filePath(folder % u"/sockets.target.wants/"_s % kUnitName));
        if (wanted.exists() || wanted.isSymLink())
            return true;
    }
    return false;
}
