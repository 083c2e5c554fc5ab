#include "commands/shell.h"

#include <editline/readline.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>

namespace velda::commands {

namespace {

constexpr int HistoryLines = 1000;
constexpr std::string_view EndWords[] = {"OFF", "EXIT", "QUIT", "LOGOFF"};

std::string history_path() {
    const VAR home = environment("HOME");
    return home.empty() ? "" : home.str() + "/.velda_history";
}

// VELDAPROMPT, or the account's name.
std::string prompt() {
    const VAR own = environment("VELDAPROMPT");
    return own.empty() ? system_number(19).str() + ": " : own.str();
}

// Names of commands that begin with what was typed, for the tab key.
char *complete_command(const char *typed, int state) {
    static std::size_t next;
    if (state == 0) next = 0;
    const std::string wanted = upcase(VAR(typed)).str();
    while (next < command_entries().size()) {
        const std::string name(command_entries()[next++].name);
        if (upcase(VAR(name)).str().compare(0, wanted.size(), wanted) == 0) return strdup(name.c_str());
    }
    return nullptr;
}

// One line from a terminal, by the line editor; nullopt at the end of the input.
std::optional<std::string> edited_line() {
    const std::unique_ptr<char, void (*)(void *)> line(readline(prompt().c_str()), std::free);
    if (!line) return std::nullopt;
    if (line.get()[0] != '\0') add_history(line.get());
    return std::string(line.get());
}

std::optional<std::string> piped_line() {
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    return line;
}

class History {
  public:
    History() {
        rl_initialize();
        rl_completion_entry_function = complete_command;
        using_history();
        stifle_history(HistoryLines);
        if (!path_.empty()) read_history(path_.c_str());
    }
    ~History() {
        if (!path_.empty()) write_history(path_.c_str());
    }
    History(const History &) = delete;
    History &operator=(const History &) = delete;

  private:
    std::string path_ = history_path();
};

std::string trimmed(const std::string &line) { return trim(VAR(line)).str(); }

bool is_end_word(const std::string &line) {
    const std::string folded = upcase(VAR(line)).str();
    return std::find(std::begin(EndWords), std::end(EndWords), folded) != std::end(EndWords);
}

// "!COMMAND" goes to the operating system's shell.
std::string as_sentence(const std::string &line) {
    return line[0] == '!' ? std::string("\xFFk") + line.substr(1) : line;
}

int run_line(DP *dp, const std::string &line) {
    if (line != "?") return run_sentence(dp, as_sentence(line));
    std::printf("%s!COMMAND   runs a command of the operating system's shell\nOFF        ends the session\n",
                help_overview().c_str());
    std::fflush(stdout);
    return 0;
}

}  // namespace

int run_shell(DP *dp) {
    const bool on_terminal = isatty(STDIN_FILENO);
    const std::unique_ptr<History> history = on_terminal ? std::make_unique<History>() : nullptr;
    int code = 0;
    while (auto line = on_terminal ? edited_line() : piped_line()) {
        const std::string words = trimmed(*line);
        if (words.empty()) continue;
        if (is_end_word(words)) return on_terminal ? 0 : code;
        code = run_line(dp, words);
    }
    if (on_terminal) std::printf("\n");
    return on_terminal ? 0 : code;
}

}  // namespace velda::commands
