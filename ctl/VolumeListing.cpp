#include "ctl/VolumeListing.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaProperty>

using namespace Qt::StringLiterals;

namespace {

QJsonValue jsonValue(const QVariant &value) {
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return value.toLongLong();
    default:
        return value.toString();
    }
}

QString escaped(const QString &text) {
    QString result;
    result.reserve(text.size());
    for (const QChar c : text) {
        if (c == u'\\')
            result += "\\\\"_L1;
        else if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            result += u"\\x%1"_s.arg(int(c.unicode()), 2, 16, QChar(u'0'));
        else
            result += c;
    }
    return result;
}

} // namespace

QByteArray volumesAsJson(const NTDiskDriveList &drives) {
    const QMetaObject &meta = NTDiskDrive::staticMetaObject;
    QJsonArray array;
    for (const NTDiskDrivePtr &drive : drives) {
        QJsonObject object;
        for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
            const QMetaProperty property = meta.property(i);
            if (qstrcmp(property.name(), "icon") == 0)
                continue;
            object.insert(QString::fromLatin1(property.name()),
                          jsonValue(property.readOnGadget(drive.get())));
        }
        array.append(object);
    }
    return QJsonDocument(array).toJson(QJsonDocument::Indented);
}

QString volumesAsText(const NTDiskDriveList &drives) {
    QString text = u"DEVICE\tMOUNT\tFORMAT\tSIZE\tFREE\tACCESS\tGROUP\tNAME\n"_s;
    for (const NTDiskDrivePtr &drive : drives)
        text += u"%1\t%2\t%3\t%4\t%5\t%6\t%7\t%8\n"_s.arg(
            escaped(drive->bsdName()), escaped(drive->mountPath()),
            escaped(drive->formatDescription()), QString::number(drive->totalSize()),
            QString::number(drive->freeSize()),
            drive->isWritable() ? u"read/write"_s : u"read-only"_s,
            drive->isInternal() ? u"internal"_s : u"external"_s, escaped(drive->name()));
    return text;
}
