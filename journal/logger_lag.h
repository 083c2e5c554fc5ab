// logger_lag.h - how far a duplicator is behind the journal that it reads. Private to the subsystem.
#pragma once

#include <cstdint>
#include <string>

#include "runtime/journal/config_record.h"

namespace velda::journal {

struct DuplicatorLag {
    bool is_known = false;  // only where the journal's own sets are read
    std::int64_t records = 0;
    std::int64_t bytes = 0;
    std::int64_t seconds = 0;  // between the stamp of the last record read and the newest one
};

// May be asked from any thread: the numbers are read as they stand in the shared record.
// The slot is one of the configuration's.
DuplicatorLag lag_of(const VELDALoggerConfig &config, const DupStatusSlot &slot);

// The last error of the duplicator in the slot, on one line; "" when it had none.
std::string last_error_of(const VELDALoggerConfig &config, const DupStatusSlot &slot);

}  // namespace velda::journal
