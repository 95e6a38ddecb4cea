#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include <memory>

class NTDiskDrive;
// Records are shared, never copied: the window compares them by identity.
using NTDiskDrivePtr = std::shared_ptr<NTDiskDrive>;
using NTDiskDriveList = QList<NTDiskDrivePtr>;

// One mounted volume, or one of the two group headings of the disk list.
class NTDiskDrive {
    Q_GADGET
    Q_PROPERTY(QString mountPath READ mountPath WRITE setMountPath)
    Q_PROPERTY(QString name READ name WRITE setName)
    Q_PROPERTY(QString uuid READ uuid WRITE setUuid)
    Q_PROPERTY(QString formatDescription READ formatDescription WRITE setFormatDescription)
    Q_PROPERTY(QString bsdName READ bsdName WRITE setBsdName)
    Q_PROPERTY(QString icon READ icon WRITE setIcon)
    Q_PROPERTY(qint64 totalSize READ totalSize WRITE setTotalSize)
    Q_PROPERTY(qint64 freeSize READ freeSize WRITE setFreeSize)
    Q_PROPERTY(bool isEjectable READ isEjectable WRITE setIsEjectable)
    Q_PROPERTY(bool isEncrypted READ isEncrypted WRITE setIsEncrypted)
    Q_PROPERTY(bool isWritable READ isWritable WRITE setIsWritable)
    Q_PROPERTY(quint64 groupType READ groupType WRITE setGroupType)
    Q_PROPERTY(bool isGroup READ isGroup WRITE setIsGroup)
    Q_PROPERTY(bool isInternal READ isInternal WRITE setIsInternal)

public:
    NTDiskDrive() = default;
    NTDiskDrive(const NTDiskDrive &) = delete;
    NTDiskDrive &operator=(const NTDiskDrive &) = delete;

    static NTDiskDrivePtr initWithName(const QString &name, quint64 groupType, bool isGroup);

    QString mountPath() const { return m_mountPath; }
    void setMountPath(const QString &mountPath) { m_mountPath = mountPath; }
    QString name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }
    QString uuid() const { return m_uuid; }
    void setUuid(const QString &uuid) { m_uuid = uuid; }
    QString formatDescription() const { return m_formatDescription; }
    void setFormatDescription(const QString &text) { m_formatDescription = text; }
    QString bsdName() const { return m_bsdName; }
    void setBsdName(const QString &bsdName) { m_bsdName = bsdName; }
    // The freedesktop icon name of the volume; the interface turns it into a picture, which
    // keeps this layer free of the GUI libraries (command-line tools start twice as fast).
    QString icon() const { return m_icon; }
    void setIcon(const QString &iconName) { m_icon = iconName; }
    qint64 totalSize() const { return m_totalSize; }
    void setTotalSize(qint64 bytes) { m_totalSize = bytes; }
    qint64 freeSize() const { return m_freeSize; }
    void setFreeSize(qint64 bytes) { m_freeSize = bytes; }
    bool isEjectable() const { return m_isEjectable; }
    void setIsEjectable(bool value) { m_isEjectable = value; }
    bool isEncrypted() const { return m_isEncrypted; }
    void setIsEncrypted(bool value) { m_isEncrypted = value; }
    bool isWritable() const { return m_isWritable; }
    void setIsWritable(bool value) { m_isWritable = value; }
    quint64 groupType() const { return m_groupType; }
    void setGroupType(quint64 value) { m_groupType = value; }
    bool isGroup() const { return m_isGroup; }
    void setIsGroup(bool value) { m_isGroup = value; }
    bool isInternal() const { return m_isInternal; }
    void setIsInternal(bool value) { m_isInternal = value; }

    // Created on first use so a group row can always take children.
    NTDiskDriveList &childArray();
    void setChildArray(const NTDiskDriveList &children);

private:
    QString m_mountPath;
    QString m_name;
    QString m_uuid;
    QString m_formatDescription;
    QString m_bsdName;
    QString m_icon;
    qint64 m_totalSize = 0;
    qint64 m_freeSize = 0;
    bool m_isEjectable = false;
    bool m_isEncrypted = false;
    bool m_isWritable = false;
    quint64 m_groupType = 0;
    bool m_isGroup = false;
    bool m_isInternal = false;
    std::unique_ptr<NTDiskDriveList> m_childArray;
};

Q_DECLARE_METATYPE(NTDiskDrivePtr)
