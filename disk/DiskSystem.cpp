#include "disk/DiskSystem.h"

#include "disk/BlkidCacheFsProbe.h"
#include "disk/BlkidFsProbe.h"
#include "disk/FsProbeChain.h"
#include "disk/LibmountMountTable.h"
#include "disk/SysfsBlockDevices.h"
#include "disk/UdevFsProbe.h"

#include <QSysInfo>

DiskSystem DiskSystem::local() {
    // An ordinary account cannot open the device node; udev's database and libblkid's cache it
    // can read.
    auto probe = std::make_shared<FsProbeChain>(std::vector<std::shared_ptr<const FsProbe>>{
        std::make_shared<UdevFsProbe>(), std::make_shared<BlkidFsProbe>(),
        std::make_shared<BlkidCacheFsProbe>()});
    return {std::make_shared<LibmountMountTable>(),
            std::make_shared<SysfsBlockDevices>(QStringLiteral("/sys"), std::move(probe)),
            std::make_shared<StatvfsSpaceReader>(), [] { return QSysInfo::machineHostName(); }};
}
