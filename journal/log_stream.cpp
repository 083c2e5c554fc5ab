// Where the reading of records meets the streams of devices.
#include <cerrno>

#include "journal/log_record.h"

namespace velda::journal {

// There is no reader of streams yet.
const unsigned char *read_stream(DP *, LogSelect *, VELDALoggerCallback) {
    errno = ENOSYS;
    return nullptr;
}

}  // namespace velda::journal
