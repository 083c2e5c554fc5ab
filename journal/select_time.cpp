// Times of a specification: written as time and date, or taken from a file.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>

#include "journal/select_parser.h"

namespace velda::journal {

namespace {

constexpr std::int32_t DayOf1970 = 732;
constexpr std::int32_t SecondsOfDay = 86400;

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

// One or two digits, a colon and a digit.
bool is_time_of_day(std::string_view part) {
    const std::size_t colon = part.find(':');
    if (colon != 1 && colon != 2) return false;
    return is_digit(part[0]) && is_digit(part[colon - 1]) && part.size() > colon + 1 && is_digit(part[colon + 1]);
}

// Stores the part where it belongs. False when it is neither a time nor a date.
bool parse_part(std::string_view part, TimeOperand &result) {
    if (is_time_of_day(part)) {
        const VAR time = iconv_value(part, "MTS");
        if (!time.is_numeric()) return false;
        result.time = static_cast<std::int32_t>(time.to_integer());
        return true;
    }
    const std::int64_t date = iconv_value(part, "D").to_integer();
    if (date < 1) return false;
    result.date = static_cast<std::int32_t>(date);
    return true;
}

// Two parts at most; what follows them is not looked at.
bool parse_written(std::string_view text, TimeOperand &result) {
    const std::string_view first = take_part(text, PartSeparators);
    const std::string_view second = take_part(text, PartSeparators);
    TimeOperand written = result;
    if (first.empty() || !parse_part(first, written)) return false;
    if (!second.empty() && !parse_part(second, written)) return false;
    result = written;
    return true;
}

std::int64_t modification_time(DP *dp, const std::string &name) {
    VRunFile *const file = VRunFileIOOpen(dp, name.c_str(), VELDA_OPEN_READ, 0);
    if (!file) return 0;
    VRunFileStatus status = {};
    const int error = VRunFileIOGetStatus(dp, file, &status);
    VRunFileIOClose(dp, file);
    return error == 0 ? status.modified_seconds : 0;
}

std::int64_t time_of_file(DP *dp, const std::string &name) {
    if (const std::int64_t backup = LoggerFileStamp(dp, name, "Started UTC", ":")) return backup;
    if (const std::int64_t milestone = LoggerFileStamp(dp, name, "Receiver Milestone", "(UTC")) return milestone;
    return modification_time(dp, name);
}

// The number behind the tag, if there is one.
std::optional<std::int64_t> number_behind(std::string_view line, std::string_view tag) {
    const std::size_t at = line.find(tag);
    if (at == std::string_view::npos) return std::nullopt;
    line.remove_prefix(at + tag.size());
    line.remove_prefix(std::min(line.find_first_not_of(Blanks), line.size()));
    std::int64_t number = 0;
    if (line.empty() || !is_digit(line[0])) return std::nullopt;
    if (std::from_chars(line.data(), line.data() + line.size(), number).ec != std::errc()) return std::nullopt;
    return number;
}

}  // namespace

bool LoggerParseTime(DP *dp, const std::string &operand, TimeOperand &result) {
    if (operand.empty()) {
        LoggerSpecError(dp, "No time or date follows the token");
        return false;
    }
    if (parse_written(operand, result)) return true;
    if (const std::int64_t stamp = time_of_file(dp, operand)) {
        result.stamp = stamp;
        return true;
    }
    LoggerSpecError(dp, "'%s' does not appear to be a time, date or file name", operand.c_str());
    return false;
}

std::int64_t LoggerFileStamp(DP *dp, const std::string &name, std::string_view label, std::string_view tag) {
    SpecLines lines(dp, name);
    std::string line;
    while (lines.is_open() && lines.next(line)) {
        if (!line.starts_with(label)) continue;
        if (const auto number = number_behind(line, tag)) return *number;
    }
    if (lines.error() != 0 && lines.error() != ENOENT) {
        errno = lines.error();
        VELDAperror(dp, "Warning");
    }
    return 0;
}

std::int32_t LoggerMakeTime(DP *dp, std::int32_t time, std::int32_t date) {
    if (time == 0 && date == 0) return 0;
    if (date == 0) date = VLibGInternalLocalDate(dp);
    // Deliberate: the zone's offset is the one of the first second of 1970, without summer time, and the result has 32
    // bits.
    const int first_second = VLibGInternalLocalTimeFromUTCt(dp, 1);
    return static_cast<std::int32_t>((std::int64_t{date} - DayOf1970) * SecondsOfDay + time - first_second + 1);
}

}  // namespace velda::journal
