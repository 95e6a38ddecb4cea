#include "disk/VolumeSpace.h"

#include <QFile>

#include <sys/statvfs.h>

std::optional<VolumeSpace> StatvfsSpaceReader::read(const QString &mountPath) const {
    struct statvfs info {};
    if (statvfs(QFile::encodeName(mountPath).constData(), &info) != 0)
        return std::nullopt;
    VolumeSpace space;
    space.totalBytes = static_cast<qint64>(info.f_blocks * info.f_frsize);
    space.availableBytes = static_cast<qint64>(info.f_bavail * info.f_frsize);
    space.readOnly = (info.f_flag & ST_RDONLY) != 0;
    return space;
}
