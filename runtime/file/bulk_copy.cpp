// bulk_copy.cpp - records from one file to another in batches: one commit for a thousand updates.
//
// What a caller sees is what single statements would give: a record that waits in the batch exists for it, and when an
// update fails those before it were made and the message names its key. A process that is killed leaves whole records,
// and no record that was to move is gone from its source before it stands in its target.
#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/file/pending_updates.h"
#include "runtime/file/select_list.h"
#include "runtime/file/statement.h"
#include "runtime/lock/record_lock.h"
#include "runtime/process/interrupt.h"
#include "runtime/process/stop.h"
#include "runtime/transaction/session_file.h"
#include "runtime/value/value.h"

namespace velda::file {
namespace {

constexpr std::size_t BatchBytes = std::size_t{4} << 20;

// A file of the copy, and the updates that wait for it.
struct Side {
    Side(DP *dp, const VAR &file_cell) : cell(file_cell), content(content_of_cell(dp, &cell)) {}

    std::string_view path() const { return content ? content->file->path() : std::string_view(); }

    const VAR cell;  // keeps the file open
    store::ControlBlockContent *const content;
    PendingUpdates pending;
};

Action action_of(const store::Update &update) { return update.record ? Action::Write : Action::Delete; }

}  // namespace
}  // namespace velda::file

using namespace velda;
using namespace velda::file;

struct VELDABulkCopy {
  public:
    VELDABulkCopy(DP *dp, const VAR &source, const VAR &target, bool moving)
        : dp_(dp),
          moving_(moving),
          source_(dp, source),
          target_(dp, target),
          bytes_(std::make_unique_for_overwrite<char[]>(BatchBytes)) {
        if (!source_.content) stop_with(source_, Action::Read, "", not_open_error());
        if (!target_.content) stop_with(target_, Action::Write, "", not_open_error());
        one_file_ = source_.content->file->identity() == target_.content->file->identity();
    }

    int read(VAR &record, const VAR &key) {
        if (removing_side().pending.will_exist(key.view())) flush();
        if (moving_) lock_for_move(key.view());
        return VLibFNEWREAD_IIBBBIB(dp_, 0, &source_.cell, &record, &key, 0, nullptr);
    }

    int next(VAR &list, VAR &key, VAR &record) {
        if (!one_file_ && !moving_ && list.form == VELDA_FORM_LIST &&
            SelectList::of(list).reads_items(*source_.content->file, source_.content->read_mode))
            return next_item(SelectList::of(list), key, record);
        if (VLibFREADNEXT_IBBBBB(dp_, &key, nullptr, nullptr, &list, nullptr) != 1) return VELDA_BULK_COPY_END;
        return read(record, key) == 1 ? VELDA_BULK_COPY_RECORD : VELDA_BULK_COPY_NO_RECORD;
    }

    bool target_has(std::string_view key) {
        if (const auto waits = target_.pending.will_exist(key)) return *waits;
        if (!check_key(key)) return false;
        const auto found = transaction::record_exists(dp_, *target_.content, key);
        if (!found) stop_with(target_, Action::Read, key, found.error());
        return *found;
    }

    void write(std::string_view key, std::string_view record) { add(target_, {key, record}); }
    void remove(std::string_view key) {
        if (locked_key_ == key) locked_key_.reset();
        add(removing_side(), {key, std::nullopt});
    }

    void flush() {
        make_updates();
        poll_interrupt(dp_);
    }

    // At the end of a copy that was broken off: what the caller reported as copied is copied.
    void finish() {
        release_what_stays();
        try {
            make_updates();
        } catch (const CommandStop &) {
            // The message is printed, and the command is ending already.
        }
    }

  private:
    // From its read to its removal, so that no session that locks can change it in between. The locks of a batch are
    // given up before this waits for another one: two moves through one file cannot wait for each other.
    void lock_for_move(std::string_view key) {
        release_what_stays();
        LockOutcome outcome = lock_record(dp_, source_.content->file->identity(), key, Wait::No);
        if (outcome.result == LockResult::Busy) flush();
        while (outcome.result == LockResult::Busy || outcome.result == LockResult::Interrupted) {
            poll_interrupt(dp_);
            store::release_snapshots();
            outcome = lock_record(dp_, source_.content->file->identity(), key, Wait::Yes);
        }
        if (!outcome.granted()) stop_with(source_, Action::Lock, key, outcome.error);
        if (!outcome.was_held) locked_key_ = key;
    }

    // The record read last is not removed after all.
    void release_what_stays() {
        if (locked_key_) release_lock(source_, *locked_key_);
        locked_key_.reset();
    }

    // Deletes of source records wait behind the writes when both are one file, in the order of the statements.
    Side &removing_side() { return one_file_ ? target_ : source_; }

    // Key and record in one step of the list's cursor.
    int next_item(SelectList &list, VAR &key, VAR &record) {
        const auto item = list.next_item();
        if (!item) stop_with(source_, Action::ReadNext, "", item.error());
        key = *item ? (*item)->key : std::string_view();
        record = *item ? (*item)->record : std::string_view();
        return *item ? VELDA_BULK_COPY_RECORD : VELDA_BULK_COPY_END;
    }

    void stop_with(const Side &side, Action action, std::string_view key, const Error &error) const {
        fail({dp_, 0, nullptr}, action, side.path(), key, error);
    }

    void add(Side &side, const store::Update &update) {
        auto possible = check_key(update.key);
        if (possible && update.record) possible = check_record(*update.record);
        if (!possible) {
            make_updates();
            stop_with(side, action_of(update), update.key, possible.error());
        }
        const std::size_t size = update.key.size() + update.record.value_or("").size();
        if (used_ + size > BatchBytes) make_updates();
        if (size > BatchBytes)
            make_or_stop(side, update);
        else
            keep(side, update);
        if (side.pending.full()) flush();
    }

    std::string_view keep_bytes(std::string_view bytes) {
        char *const kept = bytes_.get() + used_;
        std::memcpy(kept, bytes.data(), bytes.size());
        used_ += bytes.size();
        return {kept, bytes.size()};
    }

    void keep(Side &side, store::Update update) {
        update.key = keep_bytes(update.key);
        if (update.record) update.record = keep_bytes(*update.record);
        side.pending.add(update);
        if (&side == &source_) writes_before_removal_.push_back(target_.pending.size());
    }

    using Updates = std::vector<store::Update>;

    // How far a batch came: all of it, or the updates before the one at fault.
    struct Made {
        std::size_t count = 0;
        std::optional<Error> error;
    };

    // Target first: a record that moves is at no instant in neither file.
    void make_updates() {
        const Updates writes = target_.pending.take();
        Updates removals = source_.pending.take();
        const auto writes_before_removal = std::exchange(writes_before_removal_, {});
        used_ = 0;
        const Made written = make_all(target_, writes);
        // After a failure only the removals whose write came before the one at fault.
        if (written.error)
            removals.resize(std::ranges::count_if(writes_before_removal,
                                                  [&](std::size_t before) { return before <= written.count; }));
        const Made removed = make_all(source_, removals);
        stop_if_failed(source_, removals, removed);
        stop_if_failed(target_, writes, written);
    }

    void stop_if_failed(const Side &side, const Updates &updates, const Made &made) const {
        if (!made.error) return;
        const store::Update &at_fault = updates[made.count];
        stop_with(side, action_of(at_fault), at_fault.key, *made.error);
    }

    // Makes the updates in order, in one commit if that succeeds.
    Made make_all(const Side &side, const Updates &updates) const {
        if (updates.empty()) return {};
        if (transaction::apply_updates(dp_, *side.content, updates, side.content->write_mode)) {
            if (may_hold_records(dp_))
                for (const store::Update &update : updates) release_lock(side, update.key);
            return {updates.size(), {}};
        }
        Made made;
        for (; made.count < updates.size(); ++made.count) {
            made.error = make_one(side, updates[made.count]);
            if (made.error) break;
        }
        return made;
    }

    // Makes one update; the error when that fails.
    std::optional<Error> make_one(const Side &side, const store::Update &update) const {
        store::ControlBlockContent &file = *side.content;
        if (update.record) {
            const auto written = transaction::write_record(dp_, file, update.key, *update.record, file.write_mode);
            if (!written) return written.error();
        } else if (const auto removed = transaction::remove_record(dp_, file, update.key); !removed) {
            return removed.error();
        }
        release_lock(side, update.key);
        return std::nullopt;
    }

    void make_or_stop(const Side &side, const store::Update &update) const {
        if (const auto failure = make_one(side, update)) stop_with(side, action_of(update), update.key, *failure);
    }

    // As a write or delete statement does.
    void release_lock(const Side &side, std::string_view key) const {
        unlock_record(dp_, side.content->file->identity(), key);
    }

    DP *const dp_;
    const bool moving_;
    std::optional<std::string> locked_key_;  // of the record read last, while it is not known whether it moves
    Side source_;
    Side target_;
    bool one_file_ = false;
    std::unique_ptr<char[]> bytes_;  // of the keys and records that wait
    std::size_t used_ = 0;
    std::vector<std::size_t> writes_before_removal_;  // for each removal from the source, when it is another file
};

VELDABulkCopy *velda_bulk_copy_begin(DP *dp, const VAR *source, const VAR *target, int moving) {
    return new VELDABulkCopy(dp, *source, *target, moving != 0);
}

int velda_bulk_copy_read(VELDABulkCopy *copy, VAR *record, const VAR *key) { return copy->read(*record, *key); }

int velda_bulk_copy_next(VELDABulkCopy *copy, VAR *list, VAR *key, VAR *record) {
    return copy->next(*list, *key, *record);
}

int velda_bulk_copy_target_has(VELDABulkCopy *copy, const VAR *key) { return copy->target_has(key->view()); }

void velda_bulk_copy_write(VELDABulkCopy *copy, const VAR *key, const VAR *record) {
    copy->write(key->view(), record->view());
}

void velda_bulk_copy_remove(VELDABulkCopy *copy, const VAR *key) { copy->remove(key->view()); }

void velda_bulk_copy_flush(VELDABulkCopy *copy) { copy->flush(); }

void velda_bulk_copy_end(VELDABulkCopy *copy) {
    if (!copy) return;
    copy->finish();
    delete copy;
}
