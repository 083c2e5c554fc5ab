// injection.h - lets a test fail, or kill the process at, any step of the writer. Private to the folder.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <csignal>

namespace velda::journal {

// What the writer is about to do; a failure is possible at those that ask the system.
enum class Step {
    Open,
    Map,
    Allocate,
    Clear,
    Ready,
    StoreHeader,
    StoreBody,
    StoreData,
    StoreTrailer,
    Publish,
    Show,
    Sync,
    Save
};

struct Injection {
    int steps_to_go = 0;  // 0: steps are not counted; n: it happens at the n-th step from now
    int failure = 0;      // 0: the process is killed; else the error number of the failure
    int happened = -1;    // the step at which it did
    pid_t thread = 0;     // whose steps are counted; 0: those of all
};
inline Injection injection;

// 0, or the error number with which this step fails.
inline int injected_failure(Step step) {
    if (injection.thread != 0 && injection.thread != gettid()) return 0;
    if (injection.steps_to_go == 0 || --injection.steps_to_go != 0) return 0;
    injection.happened = static_cast<int>(step);
    if (injection.failure == 0) raise(SIGKILL);
    return injection.failure;
}

// A step that cannot fail.
inline void injected_death(Step step) {
    if (injection.steps_to_go == 0 || injection.failure != 0) return;
    (void)injected_failure(step);
}

}  // namespace velda::journal
