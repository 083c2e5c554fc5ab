// What the process uses of the machine, and how much it may.
#include <sys/resource.h>

#include <algorithm>

#include "runtime/process/process.h"

namespace {

double seconds_of(const timeval &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

void velda_process_times(DP *, double *user_seconds, double *system_seconds) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    *user_seconds = seconds_of(usage.ru_utime);
    *system_seconds = seconds_of(usage.ru_stime);
}

int64_t velda_allow_open_files(DP *, int64_t wanted) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    const auto enough = std::min<rlim_t>(static_cast<rlim_t>(wanted), limit.rlim_max);
    if (limit.rlim_cur < enough) {
        limit.rlim_cur = enough;
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0) getrlimit(RLIMIT_NOFILE, &limit);
    }
    return static_cast<int64_t>(limit.rlim_cur);
}
