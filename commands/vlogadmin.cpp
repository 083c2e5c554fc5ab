// vlogadmin: every operation of the journal's administrator as a subcommand. One table serves dispatch and help.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>

#include "commands/actions.h"
#include "journal/journal.h"

namespace velda::commands {

namespace {

constexpr std::string_view Name = "vlogadmin";

struct Operation {
    std::string_view word;
    std::string_view arguments;
    std::string_view summary;
    std::size_t least_words;
    std::size_t most_words;
    int (*run)(DP *dp, const Words &words);
};

int number_of(const std::string &word) {
    int number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || end != word.data() + word.size()) usage_error(Name, "'" + word + "' is not a number");
    return number;
}

// The place of a word in a list of choices.
template <std::size_t Count>
int choice_of(const std::string &word, const std::string_view (&choices)[Count]) {
    const auto *const found = std::find(std::begin(choices), std::end(choices), word);
    if (found == std::end(choices)) usage_error(Name, "'" + word + "' is no choice here");
    return static_cast<int>(found - std::begin(choices));
}

int flag_of(const std::string &word) {
    constexpr std::string_view Flags[] = {"off", "on"};
    return choice_of(word, Flags);
}

VAR text_of(const Words &words, std::size_t first) {
    std::string text;
    for (std::size_t n = first; n < words.size(); ++n) text += (n == first ? "" : " ") + words[n];
    return text;
}

int change_status(DP *dp, const Words &words) {
    constexpr std::string_view Statuses[] = {"inactive", "active", "suspended"};
    return VELDALoggerChangeStatus(dp, choice_of(words[0], Statuses));
}

int switch_set(DP *dp, const Words &words) {
    if (words[0] == "none") return VELDALoggerSwapLog(dp, 0);
    if (words[0] == "eldest") return VELDALoggerSwapLog(dp, -1);
    if (words[0] == "next") return VELDALoggerSwapLog(dp, -2);
    const int set = number_of(words[0]);
    if (set < 1) usage_error(Name, "'" + words[0] + "' is no set");
    return VELDALoggerSwapLog(dp, set);
}

int truncate_set(DP *dp, const Words &words) { return VELDALoggerTruncateLog(dp, number_of(words[0])); }

int name_file(DP *dp, const Words &words, int create_mode) {
    const VAR path(words[2]);
    return VELDALoggerSetFile(dp, number_of(words[0]), number_of(words[1]), create_mode, &path);
}

int set_file(DP *dp, const Words &words) {
    constexpr std::string_view Modes[] = {"ask", "existing", "create"};
    return name_file(dp, words, words.size() > 3 ? choice_of(words[3], Modes) - 1 : -1);
}

int remove_file(DP *dp, const Words &words) { return name_file(dp, {words[0], words[1], ""}, 0); }

int archive(DP *dp, const Words &words) {
    const VAR path(words[2]), location = text_of(words, 3);
    return VELDALoggerSetArchive(dp, number_of(words[0]), number_of(words[1]), &path, &location);
}

int import(DP *dp, const Words &words) {
    VAR list;
    for (std::size_t n = 1; n < words.size(); ++n) list(static_cast<int>(n)) = words[n];
    return VELDALoggerImportFile(dp, number_of(words[0]), static_cast<int>(words.size()) - 1, &list);
}

int set_sync(DP *dp, const Words &words) { return VELDALoggerSetSync(dp, number_of(words[0])); }

int set_checkpoint(DP *dp, const Words &words) { return VELDALoggerSetCheckp(dp, number_of(words[0])); }

int set_threshold(DP *dp, const Words &words) {
    return VELDALoggerSetThreshold(dp, number_of(words[0]), number_of(words[1]), number_of(words[2]));
}

int set_notify(DP *dp, const Words &words) {
    const VAR program = text_of(words, 0);
    return VELDALoggerSetAdminLogNotifyProgram(dp, &program);
}

int set_extended(DP *dp, const Words &words) { return VELDALoggerSetExtendedRecord(dp, flag_of(words[0])); }

int set_encrypted(DP *dp, const Words &words) { return VELDALoggerSetEncryptedRecords(dp, flag_of(words[0])); }

int set_sync_transactions(DP *dp, const Words &words) { return VELDALoggerSetSyncTrans(dp, flag_of(words[0])); }

int set_queue(DP *dp, const Words &words) {
    constexpr std::string_view Queues[] = {"manager",       "data",           "control",        "control-reply",
                                           "data-listener", "server-manager", "server-control", "server-reply"};
    constexpr int (*Setters[])(DP *, const VAR *) = {
        VELDALoggerSetMQMgr,         VELDALoggerSetMQDataQ,  VELDALoggerSetMQCtrlQ,       VELDALoggerSetMQCtrlReplyQ,
        VELDALoggerSetMQDataListenQ, VELDALoggerSetMQSvrMgr, VELDALoggerSetMQSvrControlQ, VELDALoggerSetMQSvrReplyQ};
    static_assert(std::size(Queues) == std::size(Setters));
    const VAR name = text_of(words, 1);
    return Setters[choice_of(words[0], Queues)](dp, &name);
}

// The password is read, not given as a word: words of commands are shown to others.
int set_password(DP *dp, const Words &) {
    char answer[129];
    VELDAprintf(dp, "New journal password, empty for none: ");
    VELDAfflush(dp, stdout);
    if (VRunFStringIn(dp, answer, sizeof answer, "\n\r") < 0) fail("vlogadmin: password: the input has ended");
    VELDAprintf(dp, "\n");
    VAR password(answer);
    return VELDALoggerSetPassword(dp, &password);
}

int test_password(DP *dp, const Words &) {
    if (VELDALoggerTestPassword(dp) != 0) fail("vlogadmin: the password is wrong");
    return 0;
}

int warn_full(DP *dp, const Words &words) { return VELDALoggerFileTooFull(dp, number_of(words[0])); }

int kill_duplicator(DP *dp, const Words &words) { return VELDALoggerDupKill(dp, number_of(words[0])); }

// The configuration has been made by the time an operation runs.
int create(DP *, const Words &) { return 0; }

constexpr std::size_t Any = 1000;

constexpr Operation Operations[] = {
    {"create", "", "makes the configuration when there is none", 0, 0, create},
    {"status", "active|inactive|suspended", "switches journalling on or off, or holds its writers", 1, 1,
     change_status},
    {"switch", "SET|next|eldest|none", "empties a set and writes to it from now on", 1, 1, switch_set},
    {"truncate", "SET", "empties a set", 1, 1, truncate_set},
    {"set-file", "SET FILE PATH [ask|existing|create]", "names a file of a set and empties the set", 3, 4, set_file},
    {"remove-file", "SET FILE", "takes a file out of a set and empties the set", 2, 2, remove_file},
    {"archive", "SET FILE PATH LOCATION", "marks a set as archived, also in the copy PATH of its file", 4, Any,
     archive},
    {"import", "SET PATH ...", "adopts existing log files as a set", 2, Any, import},
    {"sync", "SECONDS", "time between two syncs", 1, 1, set_sync},
    {"checkpoint", "MINUTES", "time between two checkpoints", 1, 1, set_checkpoint},
    {"threshold", "PERCENT STEP-PERCENT STEP-SECONDS", "when to warn of full files; 0 leaves a value", 3, 3,
     set_threshold},
    {"notify", "[PROGRAM]", "program to start for each line of the administration log", 0, Any, set_notify},
    {"extended", "on|off", "whether records are extended", 1, 1, set_extended},
    {"encrypted", "on|off", "whether records are enciphered", 1, 1, set_encrypted},
    {"sync-transactions", "on|off", "whether transactions end with a sync", 1, 1, set_sync_transactions},
    {"queue", "QUEUE [NAME]",
     "names a queue: manager, data, control, control-reply, data-listener,\n"
     "server-manager, server-control, server-reply",
     1, Any, set_queue},
    {"password", "", "asks for a new journal password", 0, 0, set_password},
    {"test-password", "", "asks for the journal password and checks it", 0, 0, test_password},
    {"warn-full", "PERCENT", "puts a warning of full files into the administration log", 1, 1, warn_full},
    {"kill", "PID", "asks a duplicator to stop", 1, 1, kill_duplicator},
};

std::string help() {
    std::string text = "vlogadmin OPERATION [WORDS]\n  changes the transaction journal\n\n";
    for (const Operation &operation : Operations) {
        text += "  " + std::string(operation.word) + " " + std::string(operation.arguments) + "\n        ";
        for (const char byte : operation.summary)
            text += byte == '\n' ? std::string("\n        ") : std::string(1, byte);
        text += "\n";
    }
    return text +
           "\nExit code 0 when done, 1 when the journal refused, 2 for a wrong call. vlogstatus shows the result.\n";
}

const Operation &find_operation(const std::string &word) {
    const auto *const found = std::find_if(std::begin(Operations), std::end(Operations),
                                           [&](const Operation &operation) { return operation.word == word; });
    if (found == std::end(Operations)) usage_error(Name, "unknown operation '" + word + "'");
    return *found;
}

}  // namespace

void journal_admin(DP *dp, const Words &words) {
    if (words.empty()) usage_error(Name, "an operation is missing");
    if (words[0] == "-?" || words[0] == "--help" || words[0] == "help") return crt(help());
    const Operation &operation = find_operation(words[0]);
    const Words operands(words.begin() + 1, words.end());
    if (operands.size() < operation.least_words || operands.size() > operation.most_words)
        usage_error(Name, "the call is: " + words[0] + " " + std::string(operation.arguments));
    VELDALoggerGetDefinition(dp);
    const int error = operation.run(dp, operands);
    if (error > 0) fail("vlogadmin: " + words[0] + " failed: " + std::strerror(error));
    if (error < 0) fail("vlogadmin: there is no journal: " + std::string(velda_logger_error(dp)));
}

}  // namespace velda::commands
