#include "runtime/process/command_level.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iterator>
#include <utility>

#include "runtime/port/session_port.h"
#include "runtime/print/unit.h"
#include "runtime/process/call_by_name.h"
#include "runtime/process/context.h"
#include "runtime/process/data_stack.h"
#include "runtime/process/interrupt.h"
#include "runtime/process/output.h"
#include "runtime/process/process.h"
#include "runtime/process/stack_room.h"
#include "runtime/process/stop.h"
#include "runtime/terminal/session.h"
#include "runtime/terminal/terminal.h"
#include "runtime/transaction/session_transaction.h"

namespace velda {
namespace {

// More commands inside one another than this execute each other without end.
constexpr int DeepestCommand = 500;

struct CommandLevels {
    std::vector<std::unique_ptr<CommandLevel>> levels;
    CommandLevels() { levels.push_back(std::make_unique<CommandLevel>()); }
};

std::vector<std::unique_ptr<CommandLevel>> &levels_of(DP *dp) { return dp->state<CommandLevels>().levels; }

// Lets other sessions see what this one runs.
void show_command(DP *dp) {
    std::string sentence = current_level(dp).command_line;
    std::replace(sentence.begin(), sentence.end(), AM, ' ');
    port_set_command(dp, sentence);
}

// A level for as long as its command runs. The data that its caller stacked become its input; what it leaves is
// dropped. Print units, prompt, echo and break key are its own from the start of a command: the caller finds his as
// they were.
class LevelScope {
  public:
    LevelScope(DP *dp, std::string_view sentence) : dp_(dp), current_(dp), callers_break_key_(break_key_enabled(dp)) {
        levels_of(dp).push_back(std::make_unique<CommandLevel>());
        current_level(dp).command_line = command_words(sentence);
        callers_input_ = dp->state<DataStack>().hand_over();
        callers_units_ = std::exchange(dp->state<PrintUnits>(), PrintUnits(*dp));
        callers_terminal_ = std::exchange(dp->state<TerminalSession>(), TerminalSession());
        show_command(dp);
    }
    ~LevelScope() {
        transaction::end_level(dp_, command_depth(dp_));
        dp_->state<DataStack>().take_back(std::move(callers_input_));
        dp_->state<PrintUnits>() = std::move(*callers_units_);
        levels_of(dp_).pop_back();
        end_terminal_use(dp_);
        if (command_depth(dp_) > 0) show_command(dp_);
        dp_->state<TerminalSession>() = std::move(callers_terminal_);
        if (break_key_enabled(dp_) != callers_break_key_) VLibFBREAKKEY_VF(dp_, callers_break_key_ ? 1.0 : 0.0);
    }
    LevelScope(const LevelScope &) = delete;
    LevelScope &operator=(const LevelScope &) = delete;

  private:
    DP *dp_;
    CurrentContext current_;
    bool callers_break_key_;
    DataStack callers_input_;
    std::optional<PrintUnits> callers_units_;
    TerminalSession callers_terminal_;
};

// The boundary of a command: every way in which `body` can end becomes an outcome.
CommandOutcome run_to_end(DP *dp, const std::function<void()> &body) {
    CommandOutcome outcome;
    try {
        body();
    } catch (const CommandStop &stop) {
        outcome.exit_code = stop.with_message || stop.mode == AbortMode ? 1 : 0;
    } catch (const CommandExit &exit) {
        outcome.exit_code = exit.code;
    } catch (const CommandChain &chain) {
        outcome.chained = chain.command;
    } catch (const std::exception &failure) {
        print_message(dp, std::string("INTERNAL_ERROR") + VM + failure.what());
        outcome.exit_code = 1;
    }
    return outcome;
}

// Each handler runs as if it were the rest of the command: a STOP in one of them ends that one only.
void run_exit_handlers(DP *dp, int exit_code) {
    std::vector<std::string> &handlers = current_level(dp).exit_handlers;
    while (!handlers.empty()) {
        const std::string name = std::move(handlers.back());
        handlers.pop_back();
        current_level(dp).handlers_run.push_back(name);
        run_to_end(dp, [&] {
            VAR code(exit_code);
            VAR *arguments[] = {&code};
            call_by_name(dp, name, arguments);
        });
    }
}

}  // namespace

CommandOutcome run_command_level(DP *dp, std::string_view sentence, const std::function<void()> &body) {
    if (command_depth(dp) >= DeepestCommand || stack_nearly_full())
        fail_command(dp, ENOMEM, std::string("COMMANDS_TOO_DEEP") + VM + std::to_string(command_depth(dp)));
    const LevelScope scope(dp, sentence);
    CommandOutcome outcome = run_to_end(dp, body);
    run_exit_handlers(dp, outcome.exit_code);
    const CommandOutcome printing = run_to_end(dp, [&] { dp->state<PrintUnits>().end_all(); });
    if (outcome.exit_code == 0) outcome.exit_code = printing.exit_code;
    if (outcome.chained) outcome.unread = std::move(dp->state<DataStack>().lines);
    CommandLevel &level = current_level(dp);
    outcome.return_code = level.return_code;
    outcome.messages = std::move(level.messages);
    return outcome;
}

CommandOutcome follow_chain(DP *dp, CommandOutcome outcome) {
    while (outcome.chained) {
        for (std::string &line : outcome.unread) dp->state<DataStack>().push(std::move(line));
        CommandOutcome next = run_command_line(dp, *outcome.chained);
        next.messages.insert(next.messages.begin(), std::make_move_iterator(outcome.messages.begin()),
                             std::make_move_iterator(outcome.messages.end()));
        outcome = std::move(next);
    }
    return outcome;
}

CommandLevel &current_level(DP *dp) { return *levels_of(dp).back(); }

int command_depth(DP *dp) { return static_cast<int>(levels_of(dp).size()) - 1; }

CommonTable &current_commons(DP *dp) {
    auto &levels = levels_of(dp);
    return (levels.size() <= 2 ? levels.front() : levels.back())->commons;
}

void note_message(DP *dp, std::string_view message) {
    if (command_depth(dp) > 0) current_level(dp).messages.emplace_back(message);
}

SignalTrap signal_trap(DP *dp) { return current_level(dp).trap; }

SignalTrap set_signal_trap(DP *dp, SignalTrap trap) { return std::exchange(current_level(dp).trap, trap); }

void end_session_level(DP *dp) {
    const CurrentContext current(dp);
    run_exit_handlers(dp, 0);
    finish_output(dp);
}

std::string command_words(std::string_view sentence) {
    if (sentence.find(AM) != std::string_view::npos) return std::string(sentence);
    std::string words;
    for (std::size_t at = 0; (at = sentence.find_first_not_of(' ', at)) != std::string_view::npos;) {
        const std::size_t end = std::min(sentence.find(' ', at), sentence.size());
        if (!words.empty()) words += AM;
        words += sentence.substr(at, end - at);
        at = end;
    }
    return words;
}

}  // namespace velda

void VELDASetSystemReturnCode(DP *dp, int code) {
    velda::current_level(dp).return_code = code;
    dp->last_error = code;
}

int VLibCCALLONEXIT_IB(DP *dp, const VAR *name) {
    const std::string handler = name->str();
    if (!velda::find_subroutine(handler)) return 0;
    velda::CommandLevel &level = velda::current_level(dp);
    const auto among = [&handler](const std::vector<std::string> &names) {
        return std::find(names.begin(), names.end(), handler) != names.end();
    };
    if (!among(level.exit_handlers) && !among(level.handlers_run)) level.exit_handlers.push_back(handler);
    return 1;
}
