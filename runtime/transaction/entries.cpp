// The entries of the transaction family.
#include <algorithm>

#include "runtime/process/command_level.h"
#include "runtime/transaction/session_transaction.h"
#include "runtime/transaction/transaction.h"

namespace velda::transaction {
namespace {

int report(DP *dp, const Result<void> &result) {
    if (result) return 1;
    dp->last_error = result.error().number;
    dp->state<SessionTransaction>().error_text = result.error().message;
    return 0;
}

}  // namespace
}  // namespace velda::transaction

using namespace velda::transaction;

int velda_transaction_begin(DP *dp, const VAR *text) {
    return report(dp, dp->state<SessionTransaction>().begin(velda::command_depth(dp), text));
}

int velda_transaction_begin_for_caller(DP *dp, const VAR *text) {
    return report(dp, dp->state<SessionTransaction>().begin(std::max(0, velda::command_depth(dp) - 1), text));
}

int velda_transaction_commit(DP *dp, const VAR *text) {
    return report(dp, dp->state<SessionTransaction>().commit(text));
}

int velda_transaction_abort(DP *dp, const VAR *) { return report(dp, dp->state<SessionTransaction>().abort()); }

int velda_transaction_active(DP *dp) { return open_transaction(dp) ? 1 : 0; }

const char *velda_transaction_error(DP *dp) { return dp->state<SessionTransaction>().error_text.c_str(); }
