// vlogkill: orders duplicators to stop.
#include <algorithm>
#include <charconv>

#include "commands/actions.h"
#include "commands/operands.h"
#include "journal/journal.h"

namespace velda::commands {

namespace {

constexpr std::string_view Name = "vlogkill";

int whole_number(const std::string &word, const std::string &what) {
    int number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || end != word.data() + word.size() || number < 1)
        usage_error(Name, "'" + word + "' is not a " + what);
    return number;
}

// The processes of the duplicators that run now.
std::vector<int> running(DP *dp) {
    VAR slots;
    VELDALoggerStatusRead(dp, &slots);
    std::vector<int> processes;
    for (int n = 1; n <= dcount(VAR(slots(1)), VM); ++n)
        processes.push_back(static_cast<int>(VAR(slots(1, n)).to_integer()));
    return processes;
}

// Those of `wanted` that still run.
std::vector<int> left_of(DP *dp, const std::vector<int> &wanted) {
    std::vector<int> left;
    for (const int process : running(dp))
        if (std::find(wanted.begin(), wanted.end(), process) != wanted.end()) left.push_back(process);
    return left;
}

// Waits until they are gone.
void wait_for_end(DP *dp, const std::vector<int> &processes, int seconds) {
    constexpr int TriesOfSecond = 10;
    std::vector<int> left = left_of(dp, processes);
    for (int tries = seconds * TriesOfSecond; tries > 0 && !left.empty(); --tries) {
        const VAR pause = 1000 / TriesOfSecond;
        VLibEMSLEEP_VB(dp, &pause);
        left = left_of(dp, processes);
    }
    if (!left.empty()) fail("vlogkill: process " + std::to_string(left[0]) + " still runs");
}

// Takes "--wait SECONDS" off the words; 0 when it is not there.
int take_wait(Words &words) {
    const auto option = std::find(words.begin(), words.end(), "--wait");
    if (option == words.end()) return 0;
    if (option + 1 == words.end()) usage_error(Name, "--wait needs a number of seconds");
    const int seconds = whole_number(*(option + 1), "number of seconds");
    words.erase(option, option + 2);
    return seconds;
}

}  // namespace

void kill_duplicators(DP *dp, const Words &words) {
    Words operands = words;
    const int wait_seconds = take_wait(operands);
    if (operands.empty()) usage_error(Name, "a process id is missing");
    if (VediLoggerInit(dp, 1) == VELDA_LOGGER_NOT_MAPPED)
        fail("vlogkill: there is no journal: " + std::string(velda_logger_error(dp)));
    const std::vector<int> live = running(dp);
    std::vector<int> wanted;
    for (const std::string &word : operands) {
        if (word == "all")
            wanted = live;
        else
            wanted.push_back(whole_number(word, "process id"));
    }
    bool all_found = true;
    for (const int process : wanted) {
        all_found = all_found && std::find(live.begin(), live.end(), process) != live.end();
        VELDALoggerDupKill(dp, process);
    }
    if (wait_seconds > 0) wait_for_end(dp, wanted, wait_seconds);
    if (!all_found) exit_command(1);
}

}  // namespace velda::commands
