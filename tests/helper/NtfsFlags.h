#pragma once

#include <QString>

#include <optional>

namespace helpertest {

// The volume flags word of an NTFS volume ($Volume's information attribute), read from the
// device; nullopt when it cannot be found.
std::optional<quint16> ntfsVolumeFlags(const QString &devicePath);
// Sets the "dirty" bit in $MFT and $MFTMirr, as Windows does when it wants a check: the state a
// crash leaves behind, which ntfs-3g alone does not produce.
bool markNtfsDirty(const QString &devicePath);

} // namespace helpertest
