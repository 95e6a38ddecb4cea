#include "disk/DiskSystem.h"

#include "disk/BlkidFsProbe.h"
#include "disk/LibmountMountTable.h"
#include "disk/SysfsBlockDevices.h"

#include <QSysInfo>

DiskSystem DiskSystem::local() {
    return {std::make_shared<LibmountMountTable>(),
            std::make_shared<SysfsBlockDevices>(QStringLiteral("/sys"),
                                                std::make_shared<BlkidFsProbe>()),
            std::make_shared<StatvfsSpaceReader>(), [] { return QSysInfo::machineHostName(); }};
}
