#include "disk/NTDiskDrive.h"

NTDiskDrivePtr NTDiskDrive::initWithName(const QString &name, quint64 groupType, bool isGroup) {
    auto drive = std::make_shared<NTDiskDrive>();
    drive->setName(name);
    drive->setGroupType(groupType);
    drive->setIsGroup(isGroup);
    return drive;
}

NTDiskDriveList &NTDiskDrive::childArray() {
    if (!m_childArray)
        m_childArray = std::make_unique<NTDiskDriveList>();
    return *m_childArray;
}

void NTDiskDrive::setChildArray(const NTDiskDriveList &children) {
    m_childArray = std::make_unique<NTDiskDriveList>(children);
}
