// Updates of a transaction, held by the process that made them until its end is read.
#include <algorithm>
#include <limits>

#include "journal/duplicator/dup_apply.h"

namespace velda::journal {

namespace {

constexpr std::size_t TableStep = 10;
constexpr std::size_t LengthBytes = 4;

DupTransaction *transaction_of(DupContext &context, std::uint32_t pid) {
    if (pid == 0) return nullptr;
    const auto found = std::ranges::find(context.transactions, pid, &DupTransaction::pid);
    return found == context.transactions.end() ? nullptr : &*found;
}

DupTransaction &free_entry(DupContext &context) {
    const auto found = std::ranges::find(context.transactions, 0U, &DupTransaction::pid);
    if (found != context.transactions.end()) return *found;
    const std::size_t count = context.transactions.size();
    context.transactions.resize(count + TableStep);
    return context.transactions[count];
}

void free_transaction(DupContext &context, DupTransaction &transaction) {
    const auto used = static_cast<std::int64_t>(transaction.buffer.size());
    context.output->recordsRead -= transaction.count;
    context.output->byteCount -= used - static_cast<std::int64_t>(LengthBytes) * transaction.count;
    transaction = {};
    --context.transactionCount;
}

// While held updates are applied they are no longer held again.
class TransactionsIgnored {
  public:
    explicit TransactionsIgnored(LogSelect &output) : output_(output), flags_(output.flags) {
        output_.flags |= SelectNoTrans;
    }
    ~TransactionsIgnored() { output_.flags = flags_; }
    TransactionsIgnored(const TransactionsIgnored &) = delete;
    TransactionsIgnored &operator=(const TransactionsIgnored &) = delete;

  private:
    LogSelect &output_;
    std::uint32_t flags_;
};

void apply_held(DP *dp, const DupTransaction &transaction) {
    for (std::size_t at = 0; at < transaction.buffer.size();) {
        const unsigned char *const entry = transaction.buffer.data() + at;
        DupApply(dp, entry + LengthBytes);
        at += static_cast<std::uint32_t>(vgetint32(entry));
    }
    apply_pending(dp);
}

Outcome report_transaction(const Replay &replay, const char *message) {
    DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error, "%s", message);
    return Outcome::Quiet;
}

}  // namespace

Outcome start_transaction(Replay &replay) {
    if (replay.ignores_transactions()) return Outcome::Quiet;
    if (transaction_of(replay.context, replay.record.pid))
        return report_transaction(replay, "TRANSTART seen when process is already in a transaction");
    if (replay.record.pid == 0) return Outcome::Milestone;  // no process has that number
    DupTransaction &transaction = free_entry(replay.context);
    transaction.pid = replay.record.pid;
    transaction.startTime = replay.record.time;
    ++replay.context.transactionCount;
    return Outcome::Milestone;
}

void hold_update(Replay &replay) {
    DupTransaction *const transaction = transaction_of(replay.context, replay.record.pid);
    if (!transaction) {
        report_transaction(replay, "TRANSACTION violation: Originally in a transaction, but not now during vlogdup");
        return;
    }
    unsigned char length[LengthBytes];
    vputint32(length, static_cast<std::int32_t>(replay.record.size + LengthBytes));
    auto &buffer = transaction->buffer;
    buffer.insert(buffer.end(), length, length + LengthBytes);
    buffer.insert(buffer.end(), replay.record.bytes, replay.record.bytes + replay.record.size);
    ++transaction->count;
}

Outcome end_transaction(Replay &replay) {
    if (replay.ignores_transactions()) return Outcome::Quiet;
    DupTransaction *const transaction = transaction_of(replay.context, replay.record.pid);
    if (!transaction) return report_transaction(replay, "TRANSEND seen when process is NOT in a transaction");
    {
        const TransactionsIgnored ignored(*replay.context.output);
        apply_held(replay.dp, *transaction);
    }
    free_transaction(replay.context, *transaction);
    return Outcome::Milestone;
}

Outcome abort_transaction(Replay &replay) {
    if (replay.ignores_transactions()) return Outcome::Quiet;
    if (DupTransaction *const transaction = transaction_of(replay.context, replay.record.pid))
        free_transaction(replay.context, *transaction);
    else
        report_transaction(replay, "TRANSABORT seen when process is NOT in a transaction");
    return Outcome::Milestone;
}

std::int64_t oldest_transaction_time(const DupContext &context) {
    std::int64_t oldest = std::numeric_limits<std::int64_t>::max();
    if (context.transactionCount == 0) return oldest;
    for (const DupTransaction &transaction : context.transactions)
        if (transaction.pid != 0) oldest = std::min(oldest, transaction.startTime);
    return oldest;
}

}  // namespace velda::journal
