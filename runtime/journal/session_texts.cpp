#include "runtime/journal/session_texts.h"

#include <algorithm>
#include <cerrno>

#include "runtime/journal/log_format.h"
#include "runtime/value/value.h"

namespace velda::journal {

namespace {

constexpr unsigned char FieldEnd = 0xFE;

bool holds_field_end(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char byte) { return static_cast<unsigned char>(byte) >= FieldEnd; });
}

}  // namespace

Result<void> add_strings(std::string &target, DP *, const VELDALoggerConfig &, std::string_view file_name,
                         std::string_view key) {
    if (holds_field_end(file_name) || holds_field_end(key))
        return Error{EINVAL, "a key or file name with an attribute mark or a segment mark cannot be journalled"};
    target.append(file_name).append(1, AM).append(key);
    target.append(RecordStrings - 1, AM);
    return {};
}

}  // namespace velda::journal
