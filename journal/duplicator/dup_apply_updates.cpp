// Writes and deletes of records: held, kept for a batch, or applied at once.
#include <cerrno>

#include "journal/duplicator/dup_apply.h"
#include "journal/duplicator/dup_batch.h"

namespace velda::journal {

namespace {

// Flags of an update as it is applied: bit 5 is the origin's business, bit 0 is set.
constexpr std::uint32_t ClearedFlag = 1U << 5, SetFlag = 1;

std::uint32_t applied_flags(std::uint32_t flags) { return (flags & ~ClearedFlag) | SetFlag; }

// Deciphers the data of a record that was enciphered in the log set. 0 or the error.
int decipher(DP *dp, std::string_view &data, VAR &plain) {
    const VAR key(std::string_view(velda_builtin_key(dp, VELDA_KEY_JOURNAL_RECORD)));
    const VAR enciphered(data);
    VLibEDECRYPT_BBBBI(dp, &plain, &enciphered, &key, VELDA_SCHEME_RC2);
    data = plain.view();
    return static_cast<int>(system_number(0).to_integer());
}

void apply_now(DP *dp, const FileUpdate &update) {
    apply_pending(dp);
    apply_update(dp, update);
}

Outcome keep_for_batch(const Replay &replay, FileUpdate update) {
    DupContext &context = replay.context;
    if (!context.batch) context.batch = std::make_unique<UpdateBatch>();
    UpdateBatch &batch = *context.batch;
    if (velda_applies_whole(update.file)) update.flags = SetFlag;  // how it is written is all the same to such a file
    if (!batch.add(update)) {
        apply_pending(replay.dp);
        if (!batch.add(update)) {  // larger than a batch may be
            apply_now(replay.dp, update);
            return Outcome::Milestone;
        }
    }
    if (!context.keepsBatchWhole && batch.is_due()) apply_pending(replay.dp);
    return Outcome::Quiet;
}

bool is_held(const Replay &replay) { return replay.record.in_transaction && !replay.ignores_transactions(); }

const char *type_name(const Replay &replay) {
    return RecordTypeNames[static_cast<std::size_t>(replay.record.type)].data();
}

Outcome report_no_file(const Replay &replay) {
    apply_pending(replay.dp);
    DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error, "Error File Path empty for %s Record",
              type_name(replay));
    return Outcome::Milestone;
}

void report_failed_update(DP *dp, const FileUpdate &update, int error) {
    DupReport(
        dp, dup_context(dp).output, update.record, Severity::Error,
        update.is_delete ? "Error number %d deleting record from file '%s'" : "Error number %d writing to file '%s'",
        error, std::string(update.file_name).c_str());
}

}  // namespace

void decode_update(const Replay &replay, DecodedUpdate &decoded) {
    FileUpdate &update = decoded.update;
    update.file = replay.file;
    update.file_name = replay.file_name;
    update.record = replay.record.bytes;
    update.key = replay.record.key;
    update.is_delete = replay.record.type == RecordType::Delete;
    PayloadReader payload(replay.record.payload);
    update.flags = applied_flags(payload.number());
    if (!update.is_delete) {
        update.value = payload.number();
        update.data = payload.counted_text();
    }
    decoded.is_whole = payload.whole();
    if (decoded.is_whole && !update.is_delete && replay.record.encrypted)
        decoded.error = decipher(replay.dp, update.data, decoded.plain);
}

int try_update(DP *dp, const FileUpdate &update) {
    const auto key_size = static_cast<std::uint32_t>(update.key.size());
    if (!update.is_delete)
        return VediWriteRecord(dp, update.file, update.flags, update.key.data(), key_size, update.data.data(),
                               static_cast<std::uint32_t>(update.data.size()), update.value);
    const int error = VediDeleteRecord(dp, update.file, update.flags, update.key.data(), key_size);
    return error == ENOENT ? 0 : error;  // a record that is gone is as it should be
}

void apply_update(DP *dp, const FileUpdate &update) {
    count_output(dp, record_size(update.record));
    if (const int error = try_update(dp, update)) report_failed_update(dp, update, error);
}

Outcome apply_update_record(Replay &replay) {
    if (is_held(replay)) return hold_update(replay), Outcome::Quiet;
    if (!replay.file) return report_no_file(replay);
    DecodedUpdate decoded;
    decode_update(replay, decoded);
    if (!decoded.is_whole) return report_damage(replay);
    if (decoded.error != 0) {
        apply_pending(replay.dp);
        count_output(replay.dp, replay.record.size);
        report_failed_update(replay.dp, decoded.update, decoded.error);
        return Outcome::Milestone;
    }
    if (replay.context.exclusive) return keep_for_batch(replay, decoded.update);
    apply_update(replay.dp, decoded.update);
    return Outcome::Milestone;
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
