// Renames of paths, from a token or from a file.
#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "journal/select_parser.h"

namespace velda::journal {

int LoggerAddRename(DP *dp, LogSelect &select, std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(Blanks), text.size()));
    if (text.empty() || text[0] == '#' || text[0] == '*') return 0;
    std::string_view rest = text;
    // A separator in front is no part that could be skipped: the path before it is the empty one.
    const bool starts_with_path = PartSeparators.find(text[0]) == std::string_view::npos;
    const std::string_view from = take_part(rest, PartSeparators);
    const std::string_view to = take_part(rest, PartSeparators);
    if (starts_with_path && !from.empty() && !to.empty()) {
        select.renames.push_back({std::string(from), std::string(to)});
        return 0;
    }
    const std::string shown(text);
    VELDAfprintf(dp, stderr, "Warning: The directory conversion '%s' is illegal\n", shown.c_str());
    if (logger_context(dp).errorText) LoggerSpecError(dp, "The directory conversion '%s' is illegal", shown.c_str());
    return EINVAL;
}

int LoggerReadRenameFile(DP *dp, LogSelect &select, const std::string &name) {
    SpecLines lines(dp, name);
    std::string line;
    int error = 0;
    while (lines.is_open() && error == 0 && lines.next(line)) {
        if (lines.was_cut()) {
            LoggerSpecError(dp, "A line of the file '%s' is too long", name.c_str());
            return EINVAL;
        }
        error = LoggerAddRename(dp, select, line);
    }
    if (lines.error() == 0) return error;
    LoggerSpecError(dp, "The file '%s' cannot be read: %s", name.c_str(), error_words(lines.error()).c_str());
    return lines.error();
}

}  // namespace velda::journal
