#include "runtime/convert/clock.h"

#include <atomic>
#include <cassert>
#include <cstdlib>
#include <optional>
#include <string>

#include "runtime/convert/calendar.h"

namespace velda {
namespace {
std::atomic<const std::timespec *> fixed_now{nullptr};

// localtime_r alone need not notice that this process changed TZ, and tzset asks the file system each time.
void follow_tz() {
    thread_local std::optional<std::string> followed;
    const char *const now = std::getenv("TZ");
    const std::string zone = now ? std::string("=") + now : "";  // an empty TZ is UTC, none is the system's zone
    if (followed == zone) return;
    tzset();
    followed = zone;
}

}  // namespace

std::timespec utc_now() {
    if (const std::timespec *fixed = fixed_now.load()) return *fixed;
    std::timespec now{};
    std::timespec_get(&now, TIME_UTC);
    return now;
}

LocalMoment local_moment(std::int64_t utc_seconds) {
    follow_tz();
    std::tm local{};
    std::time_t moment = utc_seconds;
    const bool known = localtime_r(&moment, &local) != nullptr;
    // A year that struct tm cannot hold has no local time; such a moment is shown in UTC.
    const std::int64_t offset_seconds = known ? local.tm_gmtoff : 0;
    const std::int64_t local_seconds = utc_seconds + offset_seconds;
    std::int64_t days = local_seconds / SecondsPerDay;
    if (local_seconds % SecondsPerDay < 0) --days;
    return {days + UnixEpochDay, static_cast<int>(local_seconds - days * SecondsPerDay), offset_seconds};
}

FixedClock::FixedClock(std::int64_t utc_seconds, long nanoseconds) : now_{utc_seconds, nanoseconds} {
    [[maybe_unused]] const std::timespec *before = fixed_now.exchange(&now_);
    assert(!before);
}

FixedClock::~FixedClock() { fixed_now = nullptr; }

}  // namespace velda
