// Keys of records.
#include <cinttypes>
#include <cstdio>

#include "journal/log_reading.h"
#include "journal/log_record.h"

namespace velda::journal {

namespace {

// The digits in front, taken from the text together with the byte that ends them. A number too large wraps.
uint64_t take_number(std::string_view &text) {
    uint64_t number = 0;
    size_t used = 0;
    for (; used < text.size() && text[used] >= '0' && text[used] <= '9'; ++used)
        number = number * 10 + static_cast<uint64_t>(text[used] - '0');
    text.remove_prefix(used < text.size() ? used + 1 : used);
    return number;
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDALoggerMakeKey(DP *, const unsigned char *record, char *key) {
    const LogHeader header(record);
    return std::snprintf(key, VELDA_LOGGER_KEY_BYTES, "%d*%d*%" PRId64 "*%" PRId64, header.file, header.set,
                         header.offset, header.time);
}

void VELDALoggerSplitKey(DP *, int32_t *file, int32_t *set, int64_t *offset, int64_t *time, const char *key,
                         int key_length) {
    std::string_view text(key, static_cast<size_t>(key_length > 0 ? key_length : 0));
    *file = static_cast<int32_t>(take_number(text));
    *set = static_cast<int32_t>(take_number(text));
    *offset = static_cast<int64_t>(take_number(text));
    *time = static_cast<int64_t>(take_number(text));
}
