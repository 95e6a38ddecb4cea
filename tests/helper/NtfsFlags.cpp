#include "tests/helper/NtfsFlags.h"

#include <QFile>
#include <QtEndian>

#include <optional>

namespace helpertest {

namespace {

constexpr quint32 kVolumeInformation = 0x70;
constexpr quint32 kEndMarker = 0xffffffff;
constexpr int kVolumeRecord = 3;

struct Layout {
    qint64 mftOffset = 0;
    qint64 mirrorOffset = 0;
    qint64 recordSize = 0;
};

std::optional<Layout> readLayout(QFile &device) {
    device.seek(0);
    const QByteArray boot = device.read(512);
    if (boot.size() != 512 || boot.mid(3, 4) != "NTFS")
        return std::nullopt;
    const auto *b = reinterpret_cast<const uchar *>(boot.constData());
    const qint64 cluster = qint64(qFromLittleEndian<quint16>(b + 0x0b)) * b[0x0d];
    const auto perRecord = qint8(b[0x40]);
    Layout layout;
    layout.recordSize = perRecord < 0 ? (qint64(1) << -perRecord) : perRecord * cluster;
    layout.mftOffset =
        qint64(qFromLittleEndian<quint64>(b + 0x30)) * cluster + kVolumeRecord * layout.recordSize;
    layout.mirrorOffset =
        qint64(qFromLittleEndian<quint64>(b + 0x38)) * cluster + kVolumeRecord * layout.recordSize;
    return layout;
}

// Offset of the flags word inside the record, or -1.
qsizetype flagsOffset(const QByteArray &record) {
    const auto *r = reinterpret_cast<const uchar *>(record.constData());
    qsizetype at = qFromLittleEndian<quint16>(r + 0x14);
    while (at + 0x18 <= record.size()) {
        const quint32 type = qFromLittleEndian<quint32>(r + at);
        const quint32 length = qFromLittleEndian<quint32>(r + at + 4);
        if (type == kEndMarker || length == 0)
            return -1;
        if (type == kVolumeInformation) {
            const qsizetype content = at + qFromLittleEndian<quint16>(r + at + 0x14);
            return content + 10 + 2 <= record.size() ? content + 10 : -1;
        }
        at += length;
    }
    return -1;
}

} // namespace

bool markNtfsDirty(const QString &devicePath) {
    QFile device(devicePath);
    if (!device.open(QIODevice::ReadWrite))
        return false;
    const auto layout = readLayout(device);
    if (!layout)
        return false;
    for (const qint64 offset : {layout->mftOffset, layout->mirrorOffset}) {
        device.seek(offset);
        QByteArray record = device.read(layout->recordSize);
        const qsizetype at = flagsOffset(record);
        if (at < 0)
            return false;
        const quint16 flags = qFromLittleEndian<quint16>(record.constData() + at) | 0x0001;
        qToLittleEndian(flags, record.data() + at);
        if (!device.seek(offset) || device.write(record) != record.size())
            return false;
    }
    return device.flush();
}

} // namespace helpertest
