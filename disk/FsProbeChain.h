#pragma once

#include "disk/FsProbe.h"

#include <memory>
#include <vector>

// Asks each probe in turn; the first that names a file system answers.
class FsProbeChain final : public FsProbe {
public:
    explicit FsProbeChain(std::vector<std::shared_ptr<const FsProbe>> probes);

    FsIdentity probe(const QString &devicePath) const override;

private:
    std::vector<std::shared_ptr<const FsProbe>> m_probes;
};
