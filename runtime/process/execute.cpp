// EXECUTE and CHAIN: finding a command and running it.
//
// The order: a leading byte 255 and "k" go to the shell; then the commands registered in this process, the cataloged
// programs in VBCDEV_BIN, the programs in PATH. SYSTEM(0) is set by the caller of these, from the outcome.
#include <algorithm>
#include <cerrno>

#include "runtime/process/command_level.h"
#include "runtime/process/command_table.h"
#include "runtime/process/context.h"
#include "runtime/process/external_command.h"
#include "runtime/process/interrupt.h"
#include "runtime/process/output.h"
#include "runtime/process/process.h"
#include "runtime/process/stop.h"

namespace velda {
namespace {

constexpr std::string_view ShellMarker = "\xFFk";
constexpr int UnknownCommandCode = 127;

std::string first_word(std::string_view words) { return std::string(words.substr(0, words.find(AM))); }

// What RETURNING gets: the messages, one attribute each, or the exit code when there were none.
std::string returned_messages(const CommandOutcome &outcome) {
    if (outcome.messages.empty()) return std::to_string(outcome.exit_code);
    std::string returned;
    for (const std::string &message : outcome.messages) {
        if (!returned.empty()) returned += AM;
        returned += message;
    }
    return returned;
}

// Output as the lines of a dynamic array: AM between lines, none behind the last.
std::string captured_lines(std::string output) {
    if (!output.empty() && output.back() == '\n') output.pop_back();
    std::replace(output.begin(), output.end(), '\n', AM);
    return output;
}

CommandOutcome execute(DP *dp, std::string_view command_line, VAR *capturing) {
    if (!capturing) return follow_chain(dp, run_command_line(dp, command_line));
    std::string output;
    CommandOutcome outcome;
    {
        const CaptureOutput capture(dp, output);
        outcome = follow_chain(dp, run_command_line(dp, command_line));
    }
    *capturing = VAR(captured_lines(std::move(output)));
    return outcome;
}

}  // namespace

CommandOutcome refuse_command(DP *dp, std::string_view name, std::string_view message, int exit_code) {
    return run_command_level(dp, name, [&] {
        print_message(dp, message);
        throw CommandExit(exit_code);
    });
}

CommandOutcome run_command_line(DP *dp, std::string_view command_line) {
    if (command_line.starts_with(ShellMarker)) {
        const std::string shell_line(command_line.substr(ShellMarker.size()));
        CommandOutcome outcome = run_program(dp, "/bin/sh", {"sh", "-c", shell_line});
        outcome.messages.clear();  // a shell line returns its exit code alone, whatever it runs
        return outcome;
    }
    const std::string name = first_word(command_words(command_line));
    if (name.empty()) return {};
    if (const Command *command = find_command(name))
        return run_command_level(dp, command_line, [&] { command->run(dp); });
    const std::vector<std::string> words = program_words(command_line);
    if (const auto program = find_program(words.front())) return run_program(dp, *program, words);
    return refuse_command(dp, name, std::string("COMMAND_UNKNOWN") + VM + name, UnknownCommandCode);
}

}  // namespace velda

int VLibCPERFORM_IIBBBBBBB(DP *dp, int, const VAR *command, VAR *returning, VAR *capturing, VAR *, VAR *, VAR *,
                           VAR *) {
    const std::string command_line = command->str();  // `returning` or `capturing` may be the same cell
    const velda::CommandOutcome outcome = velda::execute(dp, command_line, capturing);
    if (returning) *returning = VAR(velda::returned_messages(outcome));
    dp->last_error = outcome.return_code.value_or(outcome.exit_code);
    // The session was told to end while the command ran: so does the command that executed it.
    const int signal_number = velda::session_end_signal();
    if (signal_number != 0 && velda::command_depth(dp) > 0) throw velda::CommandExit(128 + signal_number);
    return outcome.exit_code;
}

int velda_run(DP *dp, const char *sentence, void (*body)(DP *, void *), void *argument) {
    velda::install_signal_handlers();
    const velda::CommandOutcome outcome =
        velda::follow_chain(dp, velda::run_command_level(dp, sentence ? sentence : "", [&] { body(dp, argument); }));
    dp->last_error = outcome.return_code.value_or(outcome.exit_code);
    if (velda::command_depth(dp) > 0) return outcome.exit_code;
    velda::return_messages(outcome.messages);
    const bool all_written = velda::finish_output(dp);
    return outcome.exit_code == 0 && !all_written ? 1 : outcome.exit_code;
}
