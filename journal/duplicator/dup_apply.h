// dup_apply.h - what the files share that apply records to the database. Private to the duplicator.
#pragma once

#include <string>

#include "journal/duplicator/dup_batch.h"
#include "journal/duplicator/dup_path.h"
#include "journal/duplicator/dup_record.h"

namespace velda::journal {

// A record that is being applied.
struct Replay {
    DP *dp;
    DupContext &context;
    DupRecord record;
    std::string renamed;               // what file_name shows, unless it is remembered elsewhere
    std::string_view file_name;        // as it is called here
    VediControlBlock *file = nullptr;  // null: the record names none

    std::string name() const { return std::string(file_name); }

    const LogSelect *output() const { return context.output; }
    bool ignores_transactions() const { return context.output->flags & SelectNoTrans; }
};

// Encloses what is applied to the database: others wait with a change of the journal until it is done.
class ApplyBracket {
  public:
    explicit ApplyBracket(DP *dp) : dp_(dp) { VediLoggerMisc(dp_, LoggerApplyBegins); }
    ~ApplyBracket() { VediLoggerMisc(dp_, LoggerApplyEnds); }
    ApplyBracket(const ApplyBracket &) = delete;
    ApplyBracket &operator=(const ApplyBracket &) = delete;

  private:
    DP *dp_;
};

// Whether the sender may be told that the database has got as far as the record.
enum class Outcome { Milestone, Quiet };

// Reports a record whose payload is shorter than its lengths say.
Outcome report_damage(const Replay &replay);

// Tells a sender that wants it how far the database has got: never beyond an update that waits or is held.
void tell_progress(DP *dp, DupContext &context, std::int64_t time);

// --- the record types ---

Outcome apply_update_record(Replay &replay);
Outcome apply_clear_file(Replay &replay);
Outcome apply_delete_file(Replay &replay);
Outcome apply_create_file(Replay &replay);
Outcome apply_move_file(Replay &replay);
Outcome apply_remove_file(Replay &replay);
Outcome apply_mode(Replay &replay);
Outcome apply_make_directory(Replay &replay);
Outcome apply_flat_file(Replay &replay);
Outcome start_transaction(Replay &replay);
Outcome end_transaction(Replay &replay);
Outcome abort_transaction(Replay &replay);

// --- updates ---

// What an update record asks for, taken from the record and, where it was enciphered, from `plain`.
struct DecodedUpdate {
    FileUpdate update;
    VAR plain;
    bool is_whole = true;  // false: a length in the record points beyond its end
    int error = 0;         // why the data cannot be deciphered
};
void decode_update(const Replay &replay, DecodedUpdate &decoded);
// Names the file of the record as it is called here and opens it, unless the record makes it. False when that fails,
// with a report where that is asked for.
bool find_file(Replay &replay, bool with_report);
// Applies one update without a report. 0 or the error; a record to be deleted may be absent.
int try_update(DP *dp, const FileUpdate &update);

// --- transactions ---

// Keeps an update until its transaction ends, or reports that its process is in none.
void hold_update(Replay &replay);
// The stamp of the oldest TRANSTART whose end was not seen; the greatest number when all were.
std::int64_t oldest_transaction_time(const DupContext &context);

}  // namespace velda::journal
