#include "disk/SysfsBlockDevices.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/sysmacros.h>

using namespace Qt::StringLiterals;

namespace {

QString readAttribute(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.read(4096)).trimmed();
}

// Buses whose disks can be unplugged; a device below one of them counts as external.
bool onHotplugBus(const QString &devicePath) {
    static const QStringList prefixes{u"usb"_s,      u"mmc"_s,         u"firewire"_s,
                                      u"ieee1394"_s, u"thunderbolt"_s, u"memstick"_s};
    const auto components = devicePath.split(u'/', Qt::SkipEmptyParts);
    for (const auto &component : components)
        for (const auto &prefix : prefixes)
            if (component.startsWith(prefix))
                return true;
    return false;
}

} // namespace

SysfsBlockDevices::SysfsBlockDevices(QString sysRoot, std::shared_ptr<const FsProbe> probe)
    : m_sysRoot(std::move(sysRoot))
    , m_probe(std::move(probe)) {}

QString SysfsBlockDevices::kernelNameForSource(const QString &source) const {
    if (!source.startsWith("/dev/"_L1))
        return {};
    const QFileInfo node(source);
    const QString resolved = node.exists() ? node.canonicalFilePath() : source;
    const QString name = QFileInfo(resolved).fileName();
    if (name.isEmpty() || !QFileInfo::exists(m_sysRoot + "/class/block/"_L1 + name))
        return {};
    return name;
}

QString SysfsBlockDevices::kernelNameForDevno(quint64 devno) const {
    if (major(devno) == 0)
        return {};
    const QString link = m_sysRoot + u"/dev/block/%1:%2"_s.arg(major(devno)).arg(minor(devno));
    const QFileInfo info(link);
    return info.exists() ? QFileInfo(info.canonicalFilePath()).fileName() : QString();
}

std::optional<BlockDeviceFacts> SysfsBlockDevices::deviceForMount(const MountEntry &entry) const {
    QString name = kernelNameForSource(entry.source);
    if (name.isEmpty())
        name = kernelNameForDevno(entry.devno);
    if (name.isEmpty())
        return std::nullopt;
    return deviceNamed(name);
}

bool SysfsBlockDevices::isExternal(const QString &kernelName, const QString &devicePath,
                                   const QString &diskPath) const {
    return kernelName.startsWith("loop"_L1) ||
           readAttribute(diskPath + "/removable"_L1) == "1"_L1 || onHotplugBus(devicePath);
}

std::optional<BlockDeviceFacts> SysfsBlockDevices::deviceNamed(const QString &kernelName) const {
    if (kernelName.isEmpty() || kernelName.contains(u'/') || kernelName.startsWith(u'.'))
        return std::nullopt;
    const QFileInfo classEntry(m_sysRoot + "/class/block/"_L1 + kernelName);
    if (!classEntry.exists())
        return std::nullopt;
    const QString devicePath = classEntry.canonicalFilePath();
    // A partition's removable flag and bus are those of the disk it is on.
    const QString diskPath = QFileInfo::exists(devicePath + "/partition"_L1)
                                 ? QFileInfo(devicePath).absolutePath()
                                 : devicePath;
    BlockDeviceFacts facts;
    facts.kernelName = kernelName;
    facts.external = isExternal(kernelName, devicePath, diskPath);
    facts.mediaWritable = readAttribute(devicePath + "/ro"_L1) == "0"_L1;
    facts.encrypted = readAttribute(devicePath + "/dm/uuid"_L1).startsWith("CRYPT-"_L1);
    if (m_probe) {
        const FsIdentity identity = m_probe->probe("/dev/"_L1 + kernelName);
        facts.fsType = identity.type;
        facts.uuid = identity.uuid;
        facts.label = identity.label;
    }
    return facts;
}
