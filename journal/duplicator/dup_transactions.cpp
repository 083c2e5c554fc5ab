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

template <class Visit>
bool each_held(const DupTransaction &transaction, Visit &&visit) {
    for (std::size_t at = 0; at < transaction.buffer.size();) {
        const unsigned char *const entry = transaction.buffer.data() + at;
        if (!visit(entry + LengthBytes)) return false;
        at += static_cast<std::uint32_t>(vgetint32(entry));
    }
    return true;
}

void apply_each(DP *dp, const DupTransaction &transaction) {
    each_held(transaction, [dp](const unsigned char *record) { return DupApply(dp, record), true; });
}

// Whether all updates are of one file that makes a batch as a whole, and of which the journal is not told.
bool is_one_batch(const Replay &replay, const DupTransaction &transaction) {
    if (replay.context.input->deviceType != LogSetDevice && VediLoggerStatus(replay.dp) != 0) return false;
    Replay first{replay.dp, replay.context, {}, {}, {}, nullptr};
    if (!take_apart(transaction.buffer.data() + LengthBytes, first.record) || !find_file(first, false)) return false;
    if (!first.file || !velda_applies_whole(first.file)) return false;
    return each_held(transaction, [&](const unsigned char *bytes) {
        DupRecord record;
        return take_apart(bytes, record) && record.file_name == first.record.file_name;
    });
}

// Adds the updates to one batch. False when they are too many for one.
bool add_to_batch(const Replay &replay, const DupTransaction &transaction) {
    DupContext &context = replay.context;
    if (!context.batch) context.batch = std::make_unique<UpdateBatch>();
    const std::size_t bytes = 2 * transaction.buffer.size();  // enciphered data have a copy in the clear
    if (!context.batch->has_room(transaction.count, bytes)) apply_pending(replay.dp);
    if (!context.batch->has_room(transaction.count, bytes)) return false;
    context.keepsBatchWhole = true;
    apply_each(replay.dp, transaction);
    context.keepsBatchWhole = false;
    if (context.batch->is_due()) apply_pending(replay.dp);
    return true;
}

// A transaction of the runtime, aborted unless it was committed.
class RuntimeTransaction {
  public:
    explicit RuntimeTransaction(DP *dp) : dp_(dp), is_open_(velda_transaction_begin(dp, nullptr) == 1) {}
    ~RuntimeTransaction() {
        if (is_open_) velda_transaction_abort(dp_, nullptr);
    }
    RuntimeTransaction(const RuntimeTransaction &) = delete;
    RuntimeTransaction &operator=(const RuntimeTransaction &) = delete;

    bool is_open() const { return is_open_; }
    bool commit() {
        is_open_ = false;
        return velda_transaction_commit(dp_, nullptr) == 1;
    }

  private:
    DP *dp_;
    bool is_open_;
};

bool try_held(const Replay &replay, const unsigned char *bytes) {
    Replay held{replay.dp, replay.context, {}, {}, {}, nullptr};
    if (!take_apart(bytes, held.record) || !find_file(held, false) || !held.file) return false;
    DecodedUpdate decoded;
    decode_update(held, decoded);
    return decoded.is_whole && decoded.error == 0 && try_update(held.dp, decoded.update) == 0;
}

// Makes all updates or, when one of them cannot be, none.
bool apply_whole(const Replay &replay, const DupTransaction &transaction) {
    apply_pending(replay.dp);
    RuntimeTransaction whole(replay.dp);
    if (!whole.is_open()) return false;
    if (!each_held(transaction, [&](const unsigned char *bytes) { return try_held(replay, bytes); })) return false;
    if (!whole.commit()) return false;
    const auto used = static_cast<std::int64_t>(transaction.buffer.size());
    count_output(replay.dp, used - static_cast<std::int64_t>(LengthBytes) * transaction.count, transaction.count);
    return true;
}

// All or nothing, also when the process is killed. Where one update cannot be made, each is made by itself after all, so
// that what fails is told and what does not is there, as with updates outside of transactions.
void apply_held(const Replay &replay, const DupTransaction &transaction) {
    if (transaction.count == 0) return;
    if (replay.context.exclusive && is_one_batch(replay, transaction) && add_to_batch(replay, transaction)) return;
    if (apply_whole(replay, transaction)) return;
    apply_each(replay.dp, transaction);
    apply_pending(replay.dp);
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
        apply_held(replay, *transaction);
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
