#include "helperclient/NTDiskHelper.h"

#include "helperclient/HelperClientLogging.h"
#include "helperclient/UDisksClient.h"

#include <QDesktopServices>
#include <QThreadPool>
#include <QUrl>

namespace {

template <typename Work> void inBackground(const char *what, Work work) {
    QThreadPool::globalInstance()->start([what, work = std::move(work)] {
        UDisksClient udisks;
        if (!work(udisks))
            qCDebug(lcHelperClient, "%s failed: %s", what, qUtf8Printable(udisks.lastError()));
    });
}

} // namespace

void NTDiskHelper::openDisk(const QString &path) {
    QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

void NTDiskHelper::ejectDiskWithDrive(const NTDiskDrivePtr &drive) {
    if (!drive)
        return;
    inBackground("eject", [drive](UDisksClient &udisks) {
        return udisks.unmountAndEject(drive->mountPath());
    });
}

void NTDiskHelper::unmountDiskWithBSDName(const QString &bsdName) {
    inBackground("unmount",
                 [bsdName](UDisksClient &udisks) { return udisks.unmountWhole(bsdName); });
}

void NTDiskHelper::mountDiskWithBSDName(const QString &bsdName) {
    inBackground("mount", [bsdName](UDisksClient &udisks) { return udisks.mountWhole(bsdName); });
}

void NTDiskHelper::rename(const QString &bsdName, const QString &newName) {
    inBackground("rename", [bsdName, newName](UDisksClient &udisks) {
        return udisks.rename(bsdName, newName);
    });
}
