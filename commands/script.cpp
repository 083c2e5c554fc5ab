#include "commands/script.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

namespace velda::commands {

namespace {

bool is_command(const std::string &line) {
    const auto first = line.find_first_not_of(" \t\r");
    return first != std::string::npos && line[first] != '#';
}

// Stacks the lines behind line `at` that begin with "<", without it. The last of them.
std::size_t stack_replies(DP *dp, const std::vector<std::string> &lines, std::size_t at) {
    while (at + 1 < lines.size() && !lines[at + 1].empty() && lines[at + 1][0] == '<') {
        const VAR reply(std::string_view(lines[++at]).substr(1));
        VLibCDATA_VIB(dp, 1, &reply);
    }
    return at;
}

int run_lines(DP *dp, const std::vector<std::string> &lines, const std::string &source) {
    for (std::size_t at = 0; at < lines.size(); ++at) {
        if (!is_command(lines[at])) continue;
        const std::size_t command = at;
        at = stack_replies(dp, lines, at);
        if (const int code = run_sentence(dp, lines[command])) {
            std::fprintf(stderr, "velda: %s:%zu: '%s' ended with %d\n", source.c_str(), command + 1,
                         lines[command].c_str(), code);
            return code;
        }
    }
    return 0;
}

std::vector<std::string> lines_of(std::istream &input) {
    std::vector<std::string> lines;
    for (std::string line; std::getline(input, line);) lines.push_back(line);
    return lines;
}

}  // namespace

int run_script_text(DP *dp, const std::string &text) {
    std::istringstream input(text);
    return run_lines(dp, lines_of(input), "script");
}

int run_script_file(DP *dp, const std::string &path) {
    if (path == "-") return run_lines(dp, lines_of(std::cin), "standard input");
    std::ifstream input(path);
    const std::vector<std::string> lines = lines_of(input);
    if (!input.eof()) {
        std::fprintf(stderr, "velda: cannot read script '%s': %s\n", path.c_str(), std::strerror(errno));
        return 2;
    }
    return run_lines(dp, lines, path);
}

}  // namespace velda::commands
