// Names of the origin turned into names here.
#include "journal/duplicator/dup_path.h"

namespace velda::journal {

namespace {

bool is_separator(char byte) { return byte == '/' || byte == '\\'; }

bool applies(const RenamePair &rename, std::string_view path) {
    const std::string &from = rename.from;
    if (from.size() > path.size()) return false;
    if (VediBaseUmemcmp(path.data(), from.data(), static_cast<std::uint32_t>(from.size())) != 0) return false;
    return from.size() == path.size() || is_separator(path[from.size()]);
}

std::string_view without_selector(std::string_view name) {
    for (const std::string_view selector : {"DICT ", "DATA "})
        if (name.size() >= selector.size() &&
            VediBaseUmemcmp(name.data(), selector.data(), static_cast<std::uint32_t>(selector.size())) == 0)
            return name.substr(selector.size());
    return name;
}

}  // namespace

std::string renamed_path(const LogSelect &output, std::string_view path) {
    for (const RenamePair &rename : output.renames)
        if (applies(rename, path)) return rename.to + std::string(path.substr(rename.from.size()));
    return std::string(path);
}

bool climbs(std::string_view name) {
    std::string_view rest = without_selector(name);
    for (;;) {
        std::size_t length = 0;
        while (length < rest.size() && !is_separator(rest[length])) ++length;
        if (rest.substr(0, length) == "..") return true;
        if (length == rest.size()) return false;
        rest.remove_prefix(length + 1);
    }
}

bool is_refused(std::string_view path) { return path.find('\0') != path.npos || climbs(path); }

void report_refusal(DP *dp, const std::string &path, const unsigned char *record) {
    const char *format = "The name '%s' has a zero byte behind it and is refused";
    if (path.empty()) format = "The name '%s' is empty and is refused";
    if (climbs(path)) format = "The name '%s' leads upwards by '..' and is refused";
    DupReport(dp, dup_context(dp).output, record, Severity::Error, format, path.c_str());
}

}  // namespace velda::journal
