#include "disk/FsProbeChain.h"

FsProbeChain::FsProbeChain(std::vector<std::shared_ptr<const FsProbe>> probes)
    : m_probes(std::move(probes)) {}

FsIdentity FsProbeChain::probe(const QString &devicePath) const {
    for (const auto &probe : m_probes)
        if (FsIdentity identity = probe->probe(devicePath); !identity.type.isEmpty())
            return identity;
    return {};
}
