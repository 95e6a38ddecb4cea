#pragma once

#include <QtGlobal>

#include <sys/types.h>

#include <vector>

namespace helper {

// The process on the other end of a connection, as the kernel vouches for it.
struct Caller {
    pid_t pid = 0;
    // When the process started, in clock ticks after boot (/proc/PID/stat): with the pid it names
    // the process even after the pid is reused, as polkit's unix-process subject needs.
    quint64 startTime = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;  // supplementary groups from the user database
    bool administrator = false; // root, or a member of sudo or wheel

    // Pid, uid and gid from SO_PEERCRED of a connected Unix socket, and the start time read at
    // once so it names the process that connected; false when the kernel gives nothing. Groups
    // and administrator wait for lookUp(), which may be slow (the user database can be remote).
    static bool credentialsOf(int fd, Caller *caller);
    // Fills groups and administrator from the user database.
    void lookUp();
    // Everything at once, for a caller known by its ids.
    static Caller forIds(pid_t pid, uid_t uid, gid_t gid);
};

} // namespace helper
