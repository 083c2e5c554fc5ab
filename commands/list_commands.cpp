// SELECT, SSELECT, SAVE-LIST, GET-LIST, DELETE-LIST.
#include "commands/actions.h"
#include "commands/operands.h"
#include "commands/record_list.h"

namespace velda::commands {

namespace {

// Makes the default select list of the keys that the command line names.
void select_keys(DP *dp, bool sorted) {
    RecordList records(dp);
    VAR keys;
    for (VAR key; records.next(key);) keys.append(key);
    if (sorted) keys = sort(keys);
    VLibFSELECT_IBBB(dp, &keys, nullptr, nullptr);
    crt_line(std::to_string(records.found()) + " records selected");
    records.report_missing();
}

// The one word that names a list; "" is the session's own list.
VAR list_name(std::string_view command, const Words &words) {
    if (words.size() > 1) usage_error(command, "'" + words[1] + "' is one word too many");
    return words.empty() ? VAR("") : VAR(words[0]);
}

std::string called(const VAR &name) { return name.empty() ? "The session's list" : "List '" + name.str() + "'"; }

}  // namespace

void select(DP *dp, const Words &) { select_keys(dp, false); }
void sorted_select(DP *dp, const Words &) { select_keys(dp, true); }

void save_list(DP *dp, const Words &words) {
    const VAR name = list_name("SAVE-LIST", words);
    const int keys = VRunCountDefaultSel(dp);
    VAR message;
    if (!velda_save_list(dp, &name, nullptr, &message)) stop(message);
    crt_line(called(name) + " saved, " + std::to_string(keys) + " keys");
}

void get_list(DP *dp, const Words &words) {
    const VAR name = list_name("GET-LIST", words);
    VAR keys;
    if (!VLibFREADLIST_IBBB(dp, &keys, &name, nullptr)) stop("LIST_MISSING", name);
    VLibFSELECT_IBBB(dp, &keys, nullptr, nullptr);
    crt_line(std::to_string(VRunCountDefaultSel(dp)) + " records selected");
}

void delete_list(DP *dp, const Words &words) {
    const VAR name = list_name("DELETE-LIST", words);
    if (name.empty()) usage_error("DELETE-LIST", "the name of a list is missing");
    VAR message;
    if (!velda_delete_list(dp, &name, &message)) stop(message);
}

}  // namespace velda::commands
