#include "helper/VolumeProbe.h"

#include <QFile>

#include <blkid.h>

#include <memory>

namespace helper {

namespace {

struct ProbeDeleter {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using UniqueProbe = std::unique_ptr<std::remove_pointer_t<blkid_probe>, ProbeDeleter>;

QString value(blkid_probe probe, const char *name) {
    const char *data = nullptr;
    size_t length = 0;
    if (blkid_probe_lookup_value(probe, name, &data, &length) != 0 || !data)
        return {};
    // The length counts the terminating NUL.
    return QString::fromUtf8(data, qsizetype(length > 0 ? length - 1 : 0));
}

VolumeProbe::Volume probeWith(const QString &devicePath, bool ntfsOnly) {
    const UniqueProbe probe(
        blkid_new_probe_from_filename(QFile::encodeName(devicePath).constData()));
    if (!probe)
        return {};
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_TYPE | BLKID_SUBLKS_LABEL);
    if (ntfsOnly) {
        char ntfs[] = "ntfs";
        char *only[] = {ntfs, nullptr};
        blkid_probe_filter_superblocks_type(probe.get(), BLKID_FLTR_ONLYIN, only);
    } else {
        blkid_probe_enable_partitions(probe.get(), 1);
    }
    if (blkid_do_safeprobe(probe.get()) != 0)
        return {};
    return {value(probe.get(), "TYPE"), value(probe.get(), "LABEL")};
}

} // namespace

// The NTFS check comes first and alone: trying every known signature costs more than the rest of
// a mount. Only a volume that is not NTFS gets the full probe, to name what it is.
VolumeProbe::Volume BlkidVolumeProbe::probe(const QString &devicePath) const {
    Volume volume = probeWith(devicePath, true);
    if (volume.type.isEmpty())
        volume = probeWith(devicePath, false);
    return volume;
}

} // namespace helper
