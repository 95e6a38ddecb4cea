#include "disk/BlkidFsProbe.h"

#include <blkid.h>

#include <memory>

namespace {

struct ProbeDeleter {
    void operator()(blkid_struct_probe *probe) const { blkid_free_probe(probe); }
};

QString lookup(blkid_probe probe, const char *name) {
    const char *value = nullptr;
    if (blkid_probe_lookup_value(probe, name, &value, nullptr) != 0 || !value)
        return {};
    return QString::fromUtf8(value);
}

} // namespace

FsIdentity BlkidFsProbe::probe(const QString &devicePath) const {
    std::unique_ptr<blkid_struct_probe, ProbeDeleter> probe(
        blkid_new_probe_from_filename(devicePath.toLocal8Bit().constData()));
    if (!probe)
        return {};
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(),
                                      BLKID_SUBLKS_TYPE | BLKID_SUBLKS_UUID | BLKID_SUBLKS_LABEL);
    blkid_probe_enable_partitions(probe.get(), 0);
    if (blkid_do_safeprobe(probe.get()) != 0)
        return {};
    return {lookup(probe.get(), "TYPE"), lookup(probe.get(), "UUID"), lookup(probe.get(), "LABEL")};
}
