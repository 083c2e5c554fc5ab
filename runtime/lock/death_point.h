// death_point.h - lets a test kill the process between any two steps of a change of the table. Private to the folder.
#pragma once

#include <csignal>

namespace velda::lock {

// 0: the process does not count its steps. n: it kills itself at the n-th step from now.
inline int steps_to_live = 0;

inline void death_point() {
    if (steps_to_live != 0 && --steps_to_live == 0) raise(SIGKILL);
}

}  // namespace velda::lock
