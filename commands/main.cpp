// velda: an interactive shell when it is called bare, one command when it is called with words or by a link of a
// command's name, and a script with -c or -f.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "commands/command.h"
#include "commands/script.h"
#include "commands/shell.h"

namespace {

using namespace velda::commands;

constexpr char Usage[] =
    "velda                 an interactive shell\n"
    "velda COMMAND WORDS   runs one command; a link to velda of a command's name does the same\n"
    "velda -c TEXT         runs a script: commands, one a line\n"
    "velda -f FILE         runs the script in a file, - for standard input\n"
    "velda --help, help    this help and the commands\n"
    "velda --names         the names of the commands, one a line\n";

// A standard stream that the caller has closed is taken by one that cannot be used: no file that is opened later may get
// its number, and with it what was meant for the stream.
void keep_standard_streams() {
    constexpr int WrongDirection[] = {O_WRONLY, O_RDONLY, O_RDONLY};
    for (int stream = 0; stream < 3; ++stream)
        if (fcntl(stream, F_GETFD) < 0) open("/dev/null", WrongDirection[stream]);
}

int print_help() {
    std::printf("%s\n%s", Usage, help_overview().c_str());
    return std::fflush(stdout) == 0 ? 0 : 1;
}

int print_names() {
    for (const CommandEntry &entry : command_entries())
        std::printf("%.*s\n", static_cast<int>(entry.name.size()), entry.name.data());
    return std::fflush(stdout) == 0 ? 0 : 1;
}

int usage_failure(const std::string &reason) {
    std::fprintf(stderr, "velda: %s\n%s", reason.c_str(), Usage);
    return 2;
}

int run_option(DP *dp, const Words &words) {
    if (words[0] == "--help" || words[0] == "-?" || words[0] == "-h") return print_help();
    if (words[0] == "--names") return print_names();
    if (words[0] != "-c" && words[0] != "-f") return usage_failure("unknown option '" + words[0] + "'");
    if (words.size() != 2) return usage_failure("'" + words[0] + "' takes one word");
    return words[0] == "-c" ? run_script_text(dp, words[1]) : run_script_file(dp, words[1]);
}

}  // namespace

int main(int argc, char **argv) {
    keep_standard_streams();
    register_command_entries();
    DP *const dp = velda_getdp();
    // A session that asked for certain ports and can have none does not start; the reason has been printed.
    if (std::getenv("VBCPORTNO") && VELDAGetPortNumber(dp) < 0) return 1;
    Words words(argv + 1, argv + argc);
    const std::string called_as = std::filesystem::path(argv[0]).filename();
    if (find_entry(called_as)) {
        words.insert(words.begin(), called_as);
        return run_sentence(dp, join_words(words));
    }
    if (words.empty()) return run_shell(dp);
    if (words[0][0] == '-') return run_option(dp, words);
    if (words[0] == "help" && words.size() == 1) return print_help();
    return run_sentence(dp, join_words(words));
}
