#include "ctl/VolumeListing.h"

#include "tests/support/QtPrinters.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaProperty>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

NTDiskDrivePtr awkwardVolume() {
    auto drive = std::make_shared<NTDiskDrive>();
    drive->setMountPath(u"/media/a \"quoted\"\\path\nwith\tcontrol"_s);
    drive->setName(u"Données 数据 \x01"_s);
    drive->setBsdName(u"sdb1"_s);
    drive->setFormatDescription(u"Windows NTFS"_s);
    drive->setTotalSize(Q_INT64_C(8000000000000));
    drive->setFreeSize(1);
    drive->setIsWritable(true);
    drive->setGroupType(1);
    return drive;
}

} // namespace

TEST(VolumeListing, JsonHasEveryRecordPropertyButTheIconWithItsType) {
    const QByteArray json = volumesAsJson({awkwardVolume(), std::make_shared<NTDiskDrive>()});
    QJsonParseError error{};
    const QJsonArray array = QJsonDocument::fromJson(json, &error).array();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << json.toStdString();
    ASSERT_EQ(array.size(), 2);

    QStringList expectedKeys;
    const QMetaObject &meta = NTDiskDrive::staticMetaObject;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i)
        if (qstrcmp(meta.property(i).name(), "icon") != 0)
            expectedKeys << QString::fromLatin1(meta.property(i).name());
    expectedKeys.sort();
    const QJsonObject object = array.at(0).toObject();
    EXPECT_EQ(object.keys(), expectedKeys);

    EXPECT_EQ(object.value("mountPath"_L1).toString(), awkwardVolume()->mountPath());
    EXPECT_EQ(object.value("name"_L1).toString(), awkwardVolume()->name());
    EXPECT_TRUE(object.value("totalSize"_L1).isDouble());
    EXPECT_EQ(object.value("totalSize"_L1).toInteger(), Q_INT64_C(8000000000000));
    EXPECT_TRUE(object.value("isWritable"_L1).isBool());
    EXPECT_TRUE(object.value("isWritable"_L1).toBool());
    EXPECT_FALSE(object.value("isGroup"_L1).toBool());
    EXPECT_EQ(object.value("groupType"_L1).toInteger(), 1);
    EXPECT_EQ(array.at(1).toObject().value("mountPath"_L1).toString(), QString());
}

TEST(VolumeListing, EmptyListIsAnEmptyArray) {
    EXPECT_TRUE(QJsonDocument::fromJson(volumesAsJson({})).isArray());
    EXPECT_TRUE(QJsonDocument::fromJson(volumesAsJson({})).array().isEmpty());
}

TEST(VolumeListing, TextKeepsOneVolumePerLine) {
    const QStringList lines =
        volumesAsText({awkwardVolume(), awkwardVolume()}).split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines.at(0).startsWith("DEVICE\t"_L1));
    const QStringList columns = lines.at(1).split(u'\t');
    ASSERT_EQ(columns.size(), 8);
    EXPECT_EQ(columns.at(0), u"sdb1"_s);
    EXPECT_EQ(columns.at(1), u"/media/a \"quoted\"\\\\path\\x0awith\\x09control"_s);
    EXPECT_EQ(columns.at(3), u"8000000000000"_s);
    EXPECT_EQ(columns.at(5), u"read/write"_s);
    EXPECT_EQ(columns.at(6), u"external"_s);
}
