#include "helperclient/UDisksClient.h"

#include "helperclient/HelperClientLogging.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusReply>

using namespace Qt::StringLiterals;

namespace {

const QString kService = u"org.freedesktop.UDisks2"_s;
const QString kRoot = u"/org/freedesktop/UDisks2"_s;
const QString kBlock = u"org.freedesktop.UDisks2.Block"_s;
const QString kFilesystem = u"org.freedesktop.UDisks2.Filesystem"_s;
const QString kPartition = u"org.freedesktop.UDisks2.Partition"_s;
const QString kDrive = u"org.freedesktop.UDisks2.Drive"_s;
const QString kLoop = u"org.freedesktop.UDisks2.Loop"_s;
constexpr int kCallTimeoutMs = 120000; // unmounting a slow disk flushes its caches first

using InterfaceMap = QMap<QString, QVariantMap>;
using ManagedObjects = QMap<QDBusObjectPath, InterfaceMap>;

void registerTypes() {
    static const bool once = [] {
        qDBusRegisterMetaType<InterfaceMap>();
        qDBusRegisterMetaType<ManagedObjects>();
        return true;
    }();
    Q_UNUSED(once);
}

QString objectPathValue(const QVariant &value) {
    if (value.canConvert<QDBusObjectPath>())
        return value.value<QDBusObjectPath>().path();
    return qdbus_cast<QDBusObjectPath>(value).path();
}

// MountPoints is aay of NUL-terminated paths.
QStringList mountPointsValue(const QVariant &value) {
    QStringList paths;
    const QByteArrayList raw = value.canConvert<QDBusArgument>() ? qdbus_cast<QByteArrayList>(value)
                                                                 : value.value<QByteArrayList>();
    for (QByteArray path : raw) {
        while (path.endsWith('\0'))
            path.chop(1);
        paths.append(QString::fromLocal8Bit(path));
    }
    return paths;
}

} // namespace

struct UDisksClient::BlockObject {
    QString path;
    bool hasFilesystem = false;
    bool isLoop = false;
    QStringList mountPoints;
    QString table; // the whole disk's object when this is a partition
    QString drive;
};

UDisksClient::UDisksClient(const QDBusConnection &bus)
    : m_bus(bus) {
    registerTypes();
}

QString UDisksClient::blockObjectPath(const QString &bsdName) {
    // udisks2 escapes every byte outside [A-Za-z0-9_] as _xx.
    QString escaped;
    for (const char c : bsdName.toUtf8()) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
            escaped.append(QLatin1Char(c));
        else
            escaped.append(u"_%1"_s.arg(uint(uchar(c)), 2, 16, QChar(u'0')));
    }
    return kRoot + u"/block_devices/"_s + escaped;
}

QList<UDisksClient::BlockObject> UDisksClient::blockObjects() {
    QDBusMessage message = QDBusMessage::createMethodCall(
        kService, kRoot, u"org.freedesktop.DBus.ObjectManager"_s, u"GetManagedObjects"_s);
    const QDBusReply<ManagedObjects> reply = m_bus.call(message, QDBus::Block, kCallTimeoutMs);
    if (!reply.isValid()) {
        m_lastError = reply.error().message();
        return {};
    }
    QList<BlockObject> blocks;
    const ManagedObjects objects = reply.value();
    for (auto it = objects.cbegin(); it != objects.cend(); ++it) {
        const InterfaceMap &interfaces = it.value();
        if (!interfaces.contains(kBlock))
            continue;
        BlockObject block;
        block.path = it.key().path();
        block.drive = objectPathValue(interfaces[kBlock].value(u"Drive"_s));
        block.isLoop = interfaces.contains(kLoop);
        if (interfaces.contains(kFilesystem)) {
            block.hasFilesystem = true;
            block.mountPoints = mountPointsValue(interfaces[kFilesystem].value(u"MountPoints"_s));
        }
        if (interfaces.contains(kPartition))
            block.table = objectPathValue(interfaces[kPartition].value(u"Table"_s));
        blocks.append(block);
    }
    return blocks;
}

QList<UDisksClient::BlockObject> UDisksClient::sameDisk(const QList<BlockObject> &all,
                                                        const QString &objectPath) const {
    QString whole = objectPath;
    for (const BlockObject &block : all)
        if (block.path == objectPath && !block.table.isEmpty())
            whole = block.table;
    QList<BlockObject> disk;
    for (const BlockObject &block : all)
        if (block.path == whole)
            disk.prepend(block);
        else if (block.table == whole)
            disk.append(block);
    return disk;
}

bool UDisksClient::call(const QString &objectPath, const QString &interface, const QString &method,
                        const QVariantList &arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(kService, objectPath, interface, method);
    message.setArguments(arguments);
    const QDBusMessage reply = m_bus.call(message, QDBus::Block, kCallTimeoutMs);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        m_lastError = reply.errorMessage();
        qCDebug(lcHelperClient, "%s.%s on %s: %s", qUtf8Printable(interface),
                qUtf8Printable(method), qUtf8Printable(objectPath), qUtf8Printable(m_lastError));
        return false;
    }
    return true;
}

bool UDisksClient::mountWhole(const QString &bsdName) {
    return callOnFilesystems(bsdName, false, u"Mount"_s);
}

bool UDisksClient::unmountWhole(const QString &bsdName) {
    return callOnFilesystems(bsdName, true, u"Unmount"_s);
}

bool UDisksClient::callOnFilesystems(const QString &bsdName, bool mounted, const QString &method) {
    const QList<BlockObject> disk = sameDisk(blockObjects(), blockObjectPath(bsdName));
    if (disk.isEmpty()) {
        m_lastError = u"no such device: %1"_s.arg(bsdName);
        return false;
    }
    bool ok = true;
    for (const BlockObject &block : disk)
        if (block.hasFilesystem && block.mountPoints.isEmpty() != mounted)
            ok = call(block.path, kFilesystem, method, {QVariantMap()}) && ok;
    return ok;
}

bool UDisksClient::rename(const QString &bsdName, const QString &newName) {
    return call(blockObjectPath(bsdName), kFilesystem, u"SetLabel"_s, {newName, QVariantMap()});
}

bool UDisksClient::unmountAndEject(const QString &mountPath) {
    if (mountPath.isEmpty()) {
        m_lastError = u"no mount path"_s;
        return false;
    }
    const QList<BlockObject> all = blockObjects();
    QString mounted;
    for (const BlockObject &block : all)
        if (block.mountPoints.contains(mountPath))
            mounted = block.path;
    if (mounted.isEmpty()) {
        m_lastError = u"nothing mounted at %1"_s.arg(mountPath);
        return false;
    }
    const QList<BlockObject> disk = sameDisk(all, mounted);
    for (const BlockObject &block : disk) {
        if (block.hasFilesystem && !block.mountPoints.isEmpty() &&
            !call(block.path, kFilesystem, u"Unmount"_s, {QVariantMap()}))
            return false; // still in use: leave the device attached
    }
    const BlockObject &whole = disk.first();
    if (whole.isLoop)
        return call(whole.path, kLoop, u"Delete"_s, {QVariantMap()});
    if (whole.drive.isEmpty() || whole.drive == u"/"_s) {
        m_lastError = u"%1 has no drive to eject"_s.arg(whole.path);
        return false;
    }
    // Not every drive takes both: card readers eject but do not power off, and USB disks the
    // other way round. Either one suffices.
    const bool ejected = call(whole.drive, kDrive, u"Eject"_s, {QVariantMap()});
    const bool poweredOff = call(whole.drive, kDrive, u"PowerOff"_s, {QVariantMap()});
    return ejected || poweredOff;
}
