// text_file.h - reading the small text files of the release directory. Private to the runtime.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "runtime/base/result.h"

namespace velda {

// The whole file, or an error that names it.
Result<std::string> read_text_file(const std::string &path);

// Calls `visit` for each line, without its line end (LF or CR LF). A last line without line end counts.
template <class Visit>
void for_each_line(std::string_view text, Visit visit) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        visit(line);
    }
}

}  // namespace velda
