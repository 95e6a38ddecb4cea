#include "disk/UdevFsProbe.h"

#include <QFileInfo>

#include <libudev.h>

#include <memory>

namespace {

struct UdevDeleter {
    void operator()(udev *context) const { udev_unref(context); }
};
struct DeviceDeleter {
    void operator()(udev_device *device) const { udev_device_unref(device); }
};

QByteArray property(udev_device *device, const char *name) {
    return QByteArray(udev_device_get_property_value(device, name));
}

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = char(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

} // namespace

QString decodeUdevString(const QByteArray &encoded) {
    QByteArray bytes;
    bytes.reserve(encoded.size());
    for (qsizetype i = 0; i < encoded.size(); ++i) {
        if (encoded.at(i) == '\\' && i + 3 < encoded.size() && encoded.at(i + 1) == 'x') {
            const int high = hexValue(encoded.at(i + 2));
            const int low = hexValue(encoded.at(i + 3));
            if (high >= 0 && low >= 0) {
                bytes += char(high * 16 + low);
                i += 3;
                continue;
            }
        }
        bytes += encoded.at(i);
    }
    return QString::fromUtf8(bytes);
}

FsIdentity UdevFsProbe::probe(const QString &devicePath) const {
    const std::unique_ptr<udev, UdevDeleter> context(udev_new());
    if (!context)
        return {};
    const std::unique_ptr<udev_device, DeviceDeleter> device(udev_device_new_from_subsystem_sysname(
        context.get(), "block", QFileInfo(devicePath).fileName().toLocal8Bit().constData()));
    if (!device)
        return {};
    // ID_FS_LABEL has unsafe characters replaced; the encoded form keeps the label as written.
    const QByteArray encodedLabel = property(device.get(), "ID_FS_LABEL_ENC");
    return {QString::fromUtf8(property(device.get(), "ID_FS_TYPE")),
            QString::fromUtf8(property(device.get(), "ID_FS_UUID")),
            encodedLabel.isEmpty() ? QString::fromUtf8(property(device.get(), "ID_FS_LABEL"))
                                   : decodeUdevString(encodedLabel)};
}
