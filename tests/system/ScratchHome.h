#pragma once

#include <QString>

#include <functional>

// XDG_CONFIG_HOME and XDG_DATA_HOME of this test program point at a temporary folder from before
// main(), so that the process-wide defaults never touch the real user's files.
namespace scratchhome {

QString root();

// Runs fn in a forked child that has dropped to uid/gid 65534 (nobody); returns its exit code,
// or -1 when the child could not be started or did not exit normally. Root only.
int runAsNobody(const std::function<int()> &fn);

} // namespace scratchhome
