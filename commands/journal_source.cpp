#include "commands/journal_source.h"

#include <cerrno>
#include <charconv>

namespace velda::commands {

int set_number(const std::string &word) {
    int set = 0;
    const char *const end = word.data() + word.size();
    const auto [last, error] = std::from_chars(word.data(), end, set);
    return error == std::errc() && last == end && set >= 1 && set <= VELDA_LOGGER_SETS ? set : 0;
}

int current_set(DP *dp) {
    const VELDALoggerConfig *const config = VediLoggerInit(dp, 1);
    return config == VELDA_LOGGER_NOT_MAPPED ? 0 : static_cast<int>(config->currentSet);
}

Result<journal::LogSource> source_operand(DP *dp, std::string_view command, const Words &words) {
    for (const std::string &word : words)
        if (word.starts_with('-')) usage_error(command, "'" + word + "' is no option here");
    if (words.empty()) {
        const int set = current_set(dp);
        if (set == 0) return Error{ENOENT, "there is no journal with a current set"};
        return journal::source_of_set(dp, set);
    }
    if (words.size() == 1 && words[0].find_first_not_of("0123456789") == std::string::npos) {
        const int set = set_number(words[0]);
        if (set == 0) usage_error(command, "'" + words[0] + "' is not a set: they have numbers from 1 to 16");
        return journal::source_of_set(dp, set);
    }
    if (words.size() > VELDA_LOGGER_FILES) usage_error(command, "a set has at most 16 files");
    return journal::source_of_files(dp, words);
}

std::string source_name(const journal::LogSource &source) {
    if (source.set != 0) return "set " + std::to_string(source.set);
    std::string name;
    for (const std::string &path : source.paths) name += (name.empty() ? "" : " ") + path;
    return name;
}

void show_text(const std::string &text) { crt(text); }

void fail_with(const std::string &message, int code) {
    VELDAfprintf(velda_getdp(), stderr, "%s\n", message.c_str());
    exit_command(code);
}

}  // namespace velda::commands
