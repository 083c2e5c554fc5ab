// Words, numbers and lines of specifications and of the files that they name.
#include <algorithm>
#include <cerrno>
#include <charconv>

#include "journal/select_parser.h"

namespace velda::journal {

bool same_word(std::string_view left, std::string_view right) {
    const auto lower = [](char letter) { return letter >= 'A' && letter <= 'Z' ? letter - 'A' + 'a' : letter; };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

std::optional<std::int32_t> decimal_number(std::string_view text) {
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::string_view take_part(std::string_view &text, std::string_view separators) {
    text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
    const std::string_view part = text.substr(0, text.find_first_of(separators));
    text.remove_prefix(part.size());
    return part;
}

SpecLines::SpecLines(DP *dp, const std::string &name)
    : dp_(dp), file_(VRunFileIOOpen(dp, name.c_str(), VELDA_OPEN_READ, 0)) {
    if (!file_) error_ = errno;
}

SpecLines::~SpecLines() { VRunFileIOClose(dp_, file_); }

bool SpecLines::fill() {
    chunk_.resize(ChunkBytes);
    std::size_t done = 0;
    const int error = VRunFileIORead(dp_, file_, offset_, chunk_.data(), ChunkBytes, &done);
    if (error != 0 && error != ENODATA) error_ = error;
    chunk_.resize(error_ == 0 ? done : 0);
    offset_ += static_cast<std::int64_t>(chunk_.size());
    position_ = 0;
    return !chunk_.empty();
}

bool SpecLines::next(std::string &line) {
    line.clear();
    was_cut_ = false;
    bool is_line = false;
    while (position_ < chunk_.size() || fill()) {
        is_line = true;
        const std::size_t end = std::min(chunk_.find('\n', position_), chunk_.size());
        const std::size_t room = LineBytes - line.size();
        was_cut_ |= end - position_ > room;
        line.append(chunk_, position_, std::min(end - position_, room));
        position_ = std::min(end + 1, chunk_.size());
        if (end < chunk_.size()) break;
    }
    if (line.ends_with('\r')) line.pop_back();
    return is_line && error_ == 0;
}

}  // namespace velda::journal
