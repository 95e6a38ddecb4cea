#include "disk/BlkidCacheFsProbe.h"

#include <blkid.h>

#include <cstring>
#include <memory>

namespace {

struct CacheDeleter {
    void operator()(blkid_struct_cache *cache) const { blkid_put_cache(cache); }
};
struct TagIteratorDeleter {
    void operator()(blkid_struct_tag_iterate *iterator) const { blkid_tag_iterate_end(iterator); }
};

} // namespace

BlkidCacheFsProbe::BlkidCacheFsProbe(QString cacheFile)
    : m_cacheFile(std::move(cacheFile)) {}

FsIdentity BlkidCacheFsProbe::probe(const QString &devicePath) const {
    blkid_cache raw = nullptr;
    const QByteArray file = m_cacheFile.toLocal8Bit();
    if (blkid_get_cache(&raw, m_cacheFile.isEmpty() ? nullptr : file.constData()) != 0)
        return {};
    const std::unique_ptr<blkid_struct_cache, CacheDeleter> cache(raw);
    // No BLKID_DEV_VERIFY: verifying would open the device and could rewrite the cache.
    blkid_dev device = blkid_get_dev(cache.get(), devicePath.toLocal8Bit().constData(), 0);
    if (!device)
        return {};
    const std::unique_ptr<blkid_struct_tag_iterate, TagIteratorDeleter> tags(
        blkid_tag_iterate_begin(device));
    FsIdentity identity;
    const char *type = nullptr;
    const char *value = nullptr;
    while (tags && blkid_tag_next(tags.get(), &type, &value) == 0) {
        const QString text = QString::fromUtf8(value);
        if (std::strcmp(type, "TYPE") == 0)
            identity.type = text;
        else if (std::strcmp(type, "UUID") == 0)
            identity.uuid = text;
        else if (std::strcmp(type, "LABEL") == 0)
            identity.label = text;
    }
    return identity;
}
