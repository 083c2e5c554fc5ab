// clock.h - the time of day, in one place so that tests can set it. Private to the runtime.
#pragma once

#include <cstdint>
#include <ctime>

namespace velda {

// Now, in UTC.
std::timespec utc_now();

// One moment in the local time zone.
struct LocalMoment {
    std::int64_t day = 0;             // internal day number
    int seconds = 0;                  // since local midnight
    std::int64_t offset_seconds = 0;  // local time less UTC
};
LocalMoment local_moment(std::int64_t utc_seconds);
inline LocalMoment local_now() { return local_moment(utc_now().tv_sec); }

// While it lives, utc_now() stands still at this moment, in all threads. For tests.
class FixedClock {
  public:
    explicit FixedClock(std::int64_t utc_seconds, long nanoseconds = 0);
    ~FixedClock();
    FixedClock(const FixedClock &) = delete;
    FixedClock &operator=(const FixedClock &) = delete;

  private:
    std::timespec now_;
};

}  // namespace velda
