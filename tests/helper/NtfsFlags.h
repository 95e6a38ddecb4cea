#pragma once

#include <QString>

namespace helpertest {

// Sets the "dirty" bit in $MFT and $MFTMirr, as Windows does when it wants a check: the state a
// crash leaves behind, which ntfs-3g alone does not produce.
bool markNtfsDirty(const QString &devicePath);

} // namespace helpertest
