// Writes and deletes of records: held, kept for a batch, or applied at once.
#include <cerrno>

#include "journal/duplicator/dup_apply.h"
#include "journal/duplicator/dup_batch.h"

namespace velda::journal {

namespace {

// Flags of an update as it is applied: bit 5 is the origin's business, bit 0 is set.
constexpr std::uint32_t ClearedFlag = 1U << 5, SetFlag = 1;

std::uint32_t applied_flags(std::uint32_t flags) { return (flags & ~ClearedFlag) | SetFlag; }

FileUpdate update_of(const Replay &replay) {
    FileUpdate update;
    update.file = replay.file;
    update.file_name = replay.file_name;
    update.record = replay.record.bytes;
    update.key = replay.record.key;
    return update;
}

// Deciphers the data of a record that was enciphered in the log set. 0 or the error.
int decipher(DP *dp, std::string_view &data, VAR &plain) {
    const VAR key(std::string_view(velda_builtin_key(dp, VELDA_KEY_JOURNAL_RECORD)));
    const VAR enciphered(data);
    VLibEDECRYPT_BBBBI(dp, &plain, &enciphered, &key, VELDA_SCHEME_RC2);
    data = plain.view();
    return static_cast<int>(system_number(0).to_integer());
}

Outcome make_update(const Replay &replay, const FileUpdate &update) {
    DupContext &context = replay.context;
    if (!context.exclusive) {
        apply_update(replay.dp, update);
        return Outcome::Milestone;
    }
    if (!context.batch) context.batch = std::make_unique<UpdateBatch>();
    if (!context.batch->add(update)) {
        apply_pending(replay.dp);
        if (!context.batch->add(update)) {  // larger than a batch may be
            apply_update(replay.dp, update);
            return Outcome::Milestone;
        }
    }
    if (context.batch->is_due()) apply_pending(replay.dp);
    return Outcome::Quiet;
}

bool is_held(const Replay &replay) { return replay.record.in_transaction && !replay.ignores_transactions(); }

Outcome report_no_file(const Replay &replay, const char *type_name) {
    apply_pending(replay.dp);
    DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error, "Error File Path empty for %s Record",
              type_name);
    return Outcome::Milestone;
}

}  // namespace

void report_failed_update(DP *dp, const FileUpdate &update, int error) {
    DupReport(
        dp, dup_context(dp).output, update.record, Severity::Error,
        update.is_delete ? "Error number %d deleting record from file '%s'" : "Error number %d writing to file '%s'",
        error, std::string(update.file_name).c_str());
}

void apply_update(DP *dp, const FileUpdate &update) {
    count_output(dp, record_size(update.record));
    const auto key_size = static_cast<std::uint32_t>(update.key.size());
    int error;
    if (update.is_delete) {
        error = VediDeleteRecord(dp, update.file, update.flags, update.key.data(), key_size);
        if (error == ENOENT) return;  // it is gone, as it should be
    } else {
        error = VediWriteRecord(dp, update.file, update.flags, update.key.data(), key_size, update.data.data(),
                                static_cast<std::uint32_t>(update.data.size()), update.value);
    }
    if (error != 0) report_failed_update(dp, update, error);
}

Outcome apply_write(Replay &replay) {
    if (is_held(replay)) return hold_update(replay), Outcome::Quiet;
    if (!replay.file) return report_no_file(replay, "WRITE");
    PayloadReader payload(replay.record.payload);
    FileUpdate update = update_of(replay);
    update.flags = applied_flags(payload.number());
    update.value = payload.number();
    update.data = payload.counted_text();
    if (!payload.whole()) return report_damage(replay);
    VAR plain;
    if (replay.record.encrypted)
        if (const int error = decipher(replay.dp, update.data, plain)) {
            apply_pending(replay.dp);
            count_output(replay.dp, replay.record.size);
            report_failed_update(replay.dp, update, error);
            return Outcome::Milestone;
        }
    return make_update(replay, update);
}

Outcome apply_delete(Replay &replay) {
    if (is_held(replay)) return hold_update(replay), Outcome::Quiet;
    if (!replay.file) return report_no_file(replay, "DELETE");
    PayloadReader payload(replay.record.payload);
    FileUpdate update = update_of(replay);
    update.is_delete = true;
    update.flags = applied_flags(payload.number());
    if (!payload.whole()) return report_damage(replay);
    return make_update(replay, update);
}

void apply_pending(DP *dp) {
    DupContext &context = dup_context(dp);
    if (!context.batch || context.batch->empty()) return;
    {
        const ApplyBracket bracket(dp);
        context.batch->apply(dp);
    }
    tell_progress(dp, context, context.batch->last_time());
}

}  // namespace velda::journal
