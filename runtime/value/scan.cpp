#include "runtime/value/scan.h"

#include <algorithm>

namespace velda {

std::size_t count_byte(std::string_view text, char byte) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), byte));
}

const char *skip_bytes(const char *begin, const char *end, char byte, std::size_t &wanted) {
    for (const char *at = begin; (at = find_byte(at, end, byte)) != end; ++at)
        if (--wanted == 0) return at;
    return end;
}

std::size_t find_text(std::string_view text, std::string_view wanted, std::size_t from) {
    if (wanted.empty() || from >= text.size()) return std::string_view::npos;
    const void *const found = memmem(text.data() + from, text.size() - from, wanted.data(), wanted.size());
    return found ? static_cast<std::size_t>(static_cast<const char *>(found) - text.data()) : std::string_view::npos;
}

}  // namespace velda
