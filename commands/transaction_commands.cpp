// TRANSTART, TRANSEND, TRANSABORT: updates of the commands of one session made together or not at all.
#include "commands/actions.h"

namespace velda::commands {

namespace {

VAR text_of(const Words &words) {
    std::string text;
    for (const std::string &word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

void report(DP *dp, int done) {
    if (!done) fail(velda_transaction_error(dp));
}

}  // namespace

// The transaction is the caller's: this command ends at once.
void begin_transaction(DP *dp, const Words &words) {
    const VAR text = text_of(words);
    report(dp, velda_transaction_begin_for_caller(dp, &text));
}

void end_transaction(DP *dp, const Words &words) {
    const VAR text = text_of(words);
    report(dp, velda_transaction_commit(dp, &text));
}

void abort_transaction(DP *dp, const Words &words) {
    const VAR text = text_of(words);
    report(dp, velda_transaction_abort(dp, &text));
}

}  // namespace velda::commands
