#pragma once

#include <QString>

// Checks on what a client sends, before anything touches a device. Every client is treated as
// hostile: these accept only the narrow shapes the commands need.
namespace helper {

inline constexpr int kMaxLabelLength = 32;
inline constexpr int kMaxPathLength = 4096;

// A kernel block device name as it appears under /sys/class/block: no paths, no dots, no leading
// hyphen, ASCII letters, digits, '-' and '_' only.
bool isKernelDeviceName(const QString &name);

// Empty when `label` is a usable NTFS volume name, otherwise the reason in words.
QString ntfsLabelProblem(const QString &label);

// Empty when `path` has the shape of a mount point (absolute, no NUL, not too long).
QString mountPathProblem(const QString &path);

} // namespace helper
