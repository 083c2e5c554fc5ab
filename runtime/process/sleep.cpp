// SLEEP and MSLEEP: waits that the break key ends.
#include <time.h>

#include <algorithm>
#include <cmath>

#include "runtime/process/context.h"
#include "runtime/process/interrupt.h"
#include "runtime/process/output.h"
#include "runtime/process/process.h"

namespace {

constexpr long NanosecondsPerSecond = 1000000000;
constexpr double LongestSeconds = 1e9;
// An interrupt from another thread does not wake this one: it is looked for as often as this.
constexpr double LookSeconds = 0.1;

double now_seconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / NanosecondsPerSecond;
}

void wait_until(double time_seconds) {
    timespec until;
    until.tv_sec = static_cast<time_t>(time_seconds);
    until.tv_nsec = static_cast<long>((time_seconds - std::floor(time_seconds)) * NanosecondsPerSecond);
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

// The seconds that were left when an interrupt, whose trap returned, ended the wait; 0 when it lasted.
double sleep_seconds(DP *dp, double seconds) {
    velda::flush_output(dp);  // whoever watches sees what is being waited for
    const double end = now_seconds() + std::min(seconds, LongestSeconds);
    for (double now = now_seconds(); now < end; now = now_seconds()) {
        wait_until(std::min(end, now + LookSeconds));
        if (velda::interrupt_pending(dp)) {
            velda::poll_interrupt(dp);
            return std::max(0.0, end - now_seconds());
        }
    }
    return 0;
}

}  // namespace

void VLibESLEEP_VB(DP *dp, const VAR *seconds) { sleep_seconds(dp, seconds->to_double()); }

int VLibESLEEP_II(DP *dp, int seconds) { return static_cast<int>(std::ceil(sleep_seconds(dp, seconds))); }

void VLibEMSLEEP_VB(DP *dp, const VAR *milliseconds) { sleep_seconds(dp, milliseconds->to_double() / 1000); }
