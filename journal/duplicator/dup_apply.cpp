// A record of the journal applied to the database: what each type does is a row of one table.
#include <algorithm>
#include <iterator>

#include "journal/duplicator/dup_apply.h"
#include "journal/duplicator/dup_batch.h"

namespace velda::journal {

namespace {

Outcome do_nothing(Replay &) { return Outcome::Quiet; }
Outcome mark_time(Replay &) { return Outcome::Milestone; }

// The text of the record after "^", with the file's path for its "%s".
std::string statement_text(const Replay &replay) {
    PayloadReader payload(replay.record.payload);
    const std::string_view text = payload.counted_text();
    std::string statement(text.substr(text.find('^') + 1));  // all of it where there is no "^"
    if (const std::size_t at = statement.find("%s"); at != std::string::npos)
        statement.replace(at, 2, replay.file_name);
    return statement;
}

Outcome warn(const Replay &replay, const char *word) {
    if (replay.file)
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Warning,
                  "{%s %s} is not currently supported by vlogdup.\n", word, statement_text(replay).c_str());
    else
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Warning,
                  "The %s transaction is not currently supported by vlogdup.\n", word);
    return Outcome::Milestone;
}

Outcome warn_create_index(Replay &replay) { return warn(replay, "CREATE-INDEX"); }
// Deliberate: a rebuild is told under the same word.
Outcome warn_delete_index(Replay &replay) { return warn(replay, "DELETE-INDEX"); }
Outcome warn_create_trigger(Replay &replay) { return warn(replay, "CREATE-TRIGGER"); }
Outcome warn_delete_trigger(Replay &replay) { return warn(replay, "DELETE-TRIGGER"); }

struct RecordRule {
    RecordType type;
    const char *status;  // what the slot shows meanwhile
    Outcome (*apply)(Replay &replay);
};

constexpr const char *Writing = "WRITING";

constexpr RecordRule Rules[] = {
    {RecordType::Eof, Writing, do_nothing},
    {RecordType::Flush, Writing, do_nothing},
    {RecordType::ClearFile, "CLEAR-FILE", apply_clear_file},
    {RecordType::DeleteFile, "DELETE-FILE", apply_delete_file},
    {RecordType::CreateFile, "CREATE-FILE", apply_create_file},
    {RecordType::TranStart, Writing, start_transaction},
    {RecordType::TranEnd, Writing, end_transaction},
    {RecordType::TranAbort, Writing, abort_transaction},
    {RecordType::MoveFile, "MOVEFILE", apply_move_file},
    {RecordType::RemoveFile, "REMOVEFILE", apply_remove_file},
    {RecordType::Chmod, Writing, apply_mode},
    {RecordType::MakeDirectory, Writing, apply_make_directory},
    {RecordType::FlatFile, Writing, apply_flat_file},
    {RecordType::Checkpoint, Writing, mark_time},
    {RecordType::CreateIndex, Writing, warn_create_index},
    {RecordType::DeleteIndex, Writing, warn_delete_index},
    {RecordType::RebuildIndex, Writing, warn_delete_index},
    {RecordType::CreateTrigger, Writing, warn_create_trigger},
    {RecordType::DeleteTrigger, Writing, warn_delete_trigger},
};

bool is_update(RecordType type) { return type == RecordType::Write || type == RecordType::Delete; }

Outcome apply_rule(Replay &replay) {
    show_status(replay.dp, Writing);
    count_output(replay.dp, replay.record.size);
    const auto *const rule = std::ranges::find(Rules, replay.record.type, &RecordRule::type);
    if (rule == std::end(Rules)) {
        DupReport(replay.dp, replay.output(), replay.record.bytes, Severity::Error,
                  "The record has an illegal type in the header of value %d", static_cast<int>(replay.record.type));
        return Outcome::Milestone;
    }
    if (rule->status != Writing) show_status(replay.dp, rule->status);
    return rule->apply(replay);
}

// The types that change nothing by themselves: updates before them may go on waiting.
bool leaves_files_alone(RecordType type) {
    return is_update(type) || type == RecordType::TranStart || type == RecordType::TranEnd ||
           type == RecordType::TranAbort || type == RecordType::Checkpoint || type == RecordType::Flush;
}

Outcome apply_record(Replay &replay) {
    if (!take_apart(replay.record.bytes, replay.record)) return report_damage(replay);
    if (!leaves_files_alone(replay.record.type)) apply_pending(replay.dp);
    if (!find_file(replay, true)) return Outcome::Quiet;
    return is_update(replay.record.type) ? apply_update_record(replay) : apply_rule(replay);
}

}  // namespace

Outcome report_damage(const Replay &replay) {
    DupReport(replay.dp, replay.output(), nullptr, Severity::Error,
              "The record of type %d is damaged: a length in it points beyond its end",
              static_cast<int>(record_type(replay.record.bytes)));
    return Outcome::Quiet;
}

bool find_file(Replay &replay, bool with_report) {
    const std::string_view record_name = replay.record.file_name;
    if (record_name.empty()) return true;
    DupContext &context = replay.context;
    const bool is_made = replay.record.type == RecordType::CreateFile;
    if (context.memo.file && context.memo.recordName == record_name && !is_made) {
        replay.file_name = context.memo.name;
        replay.file = context.memo.file;
        return true;
    }
    replay.renamed = renamed_path(*context.output, record_name);
    replay.file_name = replay.renamed;
    if (is_refused(replay.renamed)) {
        if (with_report) report_refusal(replay.dp, replay.renamed, replay.record.bytes);
        return false;
    }
    if (is_made) return true;
    int error = 0;
    replay.file = open_cached(replay.dp, replay.file_name, error);
    if (replay.file)
        context.memo = {std::string(record_name), replay.renamed, replay.file};
    else if (with_report)
        report_failed_open(replay.dp, replay.file_name, error, replay.record.bytes);
    return replay.file != nullptr;
}

void tell_progress(DP *dp, DupContext &context, std::int64_t time) {
    if (!context.input || !context.input->sendMilestone) return;
    if (context.batch && !context.batch->empty()) return;  // told when it has been applied
    DupSendMilestone(dp, context, std::min(time, oldest_transaction_time(context)));
}

void DupApply(DP *dp, const unsigned char *bytes) {
    DupContext &context = dup_context(dp);
    if (context.exiting) return;
    Replay replay{dp, context, {}, {}, {}, nullptr};
    replay.record.bytes = bytes;
    if (apply_record(replay) == Outcome::Milestone) tell_progress(dp, context, record_time(bytes));
}

}  // namespace velda::journal
