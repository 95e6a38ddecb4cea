#include "ctl/VolumeListing.h"

#include "tests/support/QtPrinters.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaProperty>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(VolumeListing, AwkwardTextsSurviveJsonAndStayOnOneTextLine) {
    auto drive = std::make_shared<NTDiskDrive>();
    drive->setMountPath(u"/media/a \"quoted\"\\path\nwith\tcontrol"_s);
    drive->setName(u"Données 数据 \x01"_s);
    drive->setBsdName(u"sdb1"_s);
    drive->setTotalSize(Q_INT64_C(8000000000000));
    drive->setIsWritable(true);
    drive->setGroupType(1);

    QJsonParseError error{};
    const QJsonArray array =
        QJsonDocument::fromJson(volumesAsJson({drive, std::make_shared<NTDiskDrive>()}), &error)
            .array();
    ASSERT_EQ(error.error, QJsonParseError::NoError);
    ASSERT_EQ(array.size(), 2);
    const QJsonObject object = array.at(0).toObject();
    QStringList keys; // every property but the icon
    for (int i = 0; i < NTDiskDrive::staticMetaObject.propertyCount(); ++i)
        keys << QString::fromLatin1(NTDiskDrive::staticMetaObject.property(i).name());
    keys.removeOne(u"icon"_s);
    keys.sort();
    EXPECT_EQ(object.keys(), keys);
    EXPECT_EQ(object[u"mountPath"_s].toString(), drive->mountPath());
    EXPECT_EQ(object[u"name"_s].toString(), drive->name());
    EXPECT_TRUE(object[u"totalSize"_s].isDouble());
    EXPECT_EQ(object[u"totalSize"_s].toInteger(), Q_INT64_C(8000000000000));
    EXPECT_EQ(object[u"isWritable"_s], QJsonValue(true));
    EXPECT_EQ(object[u"groupType"_s].toInteger(), 1);
    EXPECT_TRUE(QJsonDocument::fromJson(volumesAsJson({})).isArray());

    const QStringList lines = volumesAsText({drive, drive}).split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3); // a heading and one line per volume
    const QStringList columns = lines.at(1).split(u'\t');
    ASSERT_EQ(columns.size(), 8);
    EXPECT_EQ(columns.at(1), u"/media/a \"quoted\"\\\\path\\x0awith\\x09control"_s);
    EXPECT_EQ(columns.at(3), u"8000000000000"_s);
    EXPECT_EQ(columns.at(5), u"read/write"_s);
    EXPECT_EQ(columns.at(6), u"external"_s);
}
