// text_mode.h - a record as a text file and back: each attribute a line.
//
// The file has a line feed where the record has an attribute mark, and one more at its end unless the record is empty.
// A line feed inside an attribute is written as the byte of the attribute mark, which no text file holds otherwise. So
// every record reads back as it was written, whatever its bytes; a file that another program made reads the same with
// or without a line feed at its end.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda::store {

// Exchanges attribute marks and line feeds in place.
inline void exchange_line_ends(char *bytes, std::size_t size) {
    for (char *at = bytes; at != bytes + size; ++at) *at = *at == AM ? '\n' : *at == '\n' ? AM : *at;
}

inline std::string text_of_record(std::string_view record) {
    std::string text;
    if (record.empty()) return text;
    text.reserve(record.size() + 1);
    text = record;
    exchange_line_ends(text.data(), text.size());
    text.push_back('\n');
    return text;
}

inline std::string record_of_text(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    std::string record(text);
    exchange_line_ends(record.data(), record.size());
    return record;
}

}  // namespace velda::store
