// vlogdup: runs the duplicator. Its own options are letters; the long ones here are taken off the words first.
#include <unistd.h>

#include "commands/actions.h"
#include "commands/operands.h"
#include "journal/duplicator/dup_log.h"

namespace velda::commands {

namespace {

constexpr std::string_view Name = "vlogdup";

constexpr std::string_view OwnHelp =
    "Long options, in front of the others:\n"
    "  --json-progress FILE   a JSON object a line, each second and at the end: records, bytes, rate,\n"
    "                         errors, state, and how far behind the journal the run is\n"
    "  --dry-run              counts what the run would do, by type and by file, and writes nothing\n"
    "  --no-progress          no line on the terminal that shows how far the run is\n"
    "  --help                 this text\n";

struct OwnOptions {
    std::string json_progress;
    bool dry_run = false;
    bool no_progress = false;
    bool help = false;
};

// Takes the long options off the front of the words.
OwnOptions take_own_options(Words &words) {
    OwnOptions options;
    while (!words.empty() && words[0].starts_with("--") && words[0].size() > 2) {
        const std::string word = words[0];
        words.erase(words.begin());
        if (word == "--help")
            options.help = true;
        else if (word == "--dry-run")
            options.dry_run = true;
        else if (word == "--no-progress")
            options.no_progress = true;
        else if (word != "--json-progress")
            usage_error(Name, "unknown option '" + word + "'");
        else if (words.empty())
            usage_error(Name, "--json-progress needs a file");
        else {
            options.json_progress = words[0];
            words.erase(words.begin());
        }
    }
    return options;
}

}  // namespace

void duplicate(DP *dp, const Words &words) {
    Words rest = words;
    const OwnOptions own = take_own_options(rest);
    VELDADupOptions options = {};
    options.skipped_words = static_cast<int>(words.size() - rest.size());
    options.json_progress = own.json_progress.empty() ? nullptr : own.json_progress.c_str();
    options.terminal_progress = !own.no_progress && isatty(STDERR_FILENO) != 0;
    options.dry_run = own.dry_run;
    options.help = own.help;
    const int code = velda_dup_log(dp, &options);
    if (own.help) crt("\n" + std::string(OwnHelp));
    if (code != 0) exit_command(code);
}

}  // namespace velda::commands
