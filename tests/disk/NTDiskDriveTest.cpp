#include "disk/NTDiskDrive.h"

#include <QMetaProperty>

#include <gtest/gtest.h>

TEST(NTDiskDrive, StartsNullZeroOrNoAndAGroupRowKeepsOneChildArray) {
    NTDiskDrive drive;
    for (int i = 0; i < NTDiskDrive::staticMetaObject.propertyCount(); ++i) {
        const QMetaProperty property = NTDiskDrive::staticMetaObject.property(i);
        const QVariant value = property.readOnGadget(&drive);
        EXPECT_TRUE(value.typeId() == QMetaType::QString ? value.toString().isNull()
                                                         : value.toLongLong() == 0)
            << property.name();
    }
    const NTDiskDrivePtr group = NTDiskDrive::initWithName(QStringLiteral("External"), 1, true);
    EXPECT_EQ(group->name(), QStringLiteral("External"));
    EXPECT_EQ(group->groupType(), 1u);
    EXPECT_TRUE(group->isGroup());
    NTDiskDriveList &children = group->childArray();
    EXPECT_TRUE(children.isEmpty());
    children.append(std::make_shared<NTDiskDrive>());
    EXPECT_EQ(&group->childArray(), &children);
    EXPECT_EQ(group->childArray().size(), 1);
}
