#include "util/TLUtility.h"

#include "util/InstallPaths.h"

#include <QFile>
#include <QFileInfo>

bool TLUtility::checkHelperAppInstalled() {
    return QFileInfo::exists(InstallPaths::helperExecutable());
}

bool TLUtility::checkFuseInstalled() {
    return QFileInfo::exists(InstallPaths::ntfs3gDriver()) &&
           QFileInfo::exists(InstallPaths::fuseDevice());
}

QString TLUtility::getHelperAppVersion() {
    if (!checkHelperAppInstalled())
        return {};
    QFile file(InstallPaths::helperVersionFile());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // Only the first line counts; the cap keeps a wrong file (a binary, a device) from being
    // slurped.
    const QString text = QString::fromUtf8(file.read(256));
    return text.section(u'\n', 0, 0).trimmed();
}
