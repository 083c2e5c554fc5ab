// steps.h - lets a test kill the process between any two steps of a commit, or make the disk refuse any of its writes.
// Private to the folder.
#pragma once

#include <cerrno>
#include <csignal>

namespace velda::transaction {

// 0: the process does not count. n: it kills itself at the n-th step from now.
inline int steps_to_live = 0;

inline void death_point() {
    if (steps_to_live != 0 && --steps_to_live == 0) raise(SIGKILL);
}

// 0: the disk takes everything. n: the n-th write from now and the ones behind it are refused, `refused_writes` in all.
inline int writes_to_refusal = 0;
inline int refused_writes = 1;

// What the next write to the disk is to come to: 0 or an error number.
inline int refusal() {
    if (writes_to_refusal == 0 || --writes_to_refusal != 0) return 0;
    if (--refused_writes > 0) writes_to_refusal = 1;
    return ENOSPC;
}

}  // namespace velda::transaction
