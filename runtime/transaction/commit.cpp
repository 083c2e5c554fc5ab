// The commit of a session: its updates as batches, the redo record around them, and the way back when one fails.
#include "runtime/transaction/commit.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "runtime/journal/configuration.h"
#include "runtime/lock/session_owner.h"
#include "runtime/port/port.h"
#include "runtime/process/context.h"
#include "runtime/transaction/redo_record.h"
#include "runtime/transaction/steps.h"

namespace velda::transaction {
namespace {

// How long a commit waits while too many others are under way, in milliseconds.
constexpr int PlaceTries = 10'000;

using Kind = std::pair<store::TransferMode, bool>;  // mode, journalled

// The updates of a file by what one call of the driver can make, each in the order in which they were made.
void add_batches_of(const HeldFile &held, std::vector<Batch> &batches) {
    std::map<Kind, std::vector<const UpdatesByKey::value_type *>> kinds;
    for (const auto &update : held.updates) kinds[{update.second.mode, update.second.journalled}].push_back(&update);
    for (auto &[kind, updates] : kinds) {
        std::ranges::sort(updates, {}, [](const auto *update) { return update->second.order; });
        Batch &batch = batches.emplace_back(Batch{held.file.get(), kind.first, kind.second, false, {}});
        for (const auto *update : updates) batch.updates.push_back({update->first, update->second.record});
    }
}

std::vector<Batch> batches_of(const HeldUpdates &held) {
    std::vector<Batch> batches;
    for (const auto &file : held.files()) add_batches_of(*file, batches);
    return batches;
}

// A file that was removed, or replaced by another one, since it was opened.
Result<void> check_files(const HeldUpdates &held) {
    for (const auto &update : held.files()) {
        const auto there = store::open_file(update->file->path());
        if (!there) return there.error();
        if ((*there)->identity() != update->file->identity())
            return system_error(ENOENT, "the file is another one by now", update->file->path());
    }
    return {};
}

// Asks the files for what the record of the commit says of them. True when one of them is durable.
Result<bool> complete(DP *dp, std::span<Batch> batches) {
    const bool has_journal = journal::journal_of_updates(dp) != nullptr;
    bool any_is_durable = false;
    for (Batch &batch : batches) {
        const auto settings = batch.file->settings();
        if (!settings) return settings.error();
        batch.is_journalled = batch.is_journalled && settings->journalled && has_journal;
        batch.is_lazy = settings->durability == store::Durability::Lazy;
        any_is_durable = any_is_durable || !batch.is_lazy;
    }
    return any_is_durable;
}

// A single batch of a driver that has commits is whole by itself, unless the journal is to tell of it too.
bool needs_redo(std::span<const Batch> batches) {
    return batches.size() > 1 || !batches[0].file->applies_whole() || are_journalled(batches);
}

Result<void> take_place(lock::SessionOwner &session) {
    for (int tries = 0; tries < PlaceTries; ++tries) {
        if (session.table().note_commit(session.owner())) return {};
        const timespec millisecond = {0, 1'000'000};
        nanosleep(&millisecond, nullptr);
    }
    return Error{EAGAIN, "too many transactions are being committed"};
}

// A commit with a redo record.
class RedoCommit {
  public:
    RedoCommit(DP *dp, std::span<const Batch> batches, bool is_durable, const Remarks &remarks)
        : dp_(dp), session_(dp->state<lock::SessionOwner>()), batches_(batches), remarks_(remarks) {
        redo_.is_durable = is_durable;
    }

    Result<void> run(Left &left) {
        if (auto prepared = prepare(); !prepared) return prepared;
        Result<void> made;
        try {
            made = make_batches(dp_, batches_, &redo_, remarks_);
        } catch (...) {
            redo_.progress.taken_back = static_cast<std::uint32_t>(batches_.size());
            left = take_back();
            throw;
        }
        left = made ? finish() : take_back();
        return made;
    }

  private:
    Result<void> prepare() {
        const auto directory = redo_directory(session_.table());
        if (!directory) return directory.error();
        redo_.path = redo_path(session_.table(), *directory, session_.owner().id);
        if (are_journalled(batches_)) redo_.progress = {JournalBegun, getpid(), VELDAGetPortNumber(dp_), 0};
        if (auto place = take_place(session_); !place) return place;
        death_point();
        auto written = write_redo(redo_, batches_);
        if (!written) forget();
        return written;
    }

    // A record that cannot be removed may stay where it is, if it says that nothing is left to be done.
    Left finish() {
        if (!remove_redo(redo_)) {
            redo_.progress.state |= AllMade;
            const auto stored = store_progress(redo_);
            if (!stored && stored.error().number != ENOENT) return Left::Redo;
        }
        forget();
        return Left::Nothing;
    }

    Left take_back() {
        redo_.progress.state |= RollsBack;
        if (!store_progress(redo_) || !finish_redo(redo_.path)) return Left::Redo;
        forget();
        return Left::Nothing;
    }

    void forget() {
        death_point();
        session_.table().forget_commit(session_.owner().id);
    }

    DP *const dp_;
    lock::SessionOwner &session_;
    const std::span<const Batch> batches_;
    const Remarks &remarks_;
    RedoFile redo_;
};

}  // namespace

Result<void> make_updates(DP *dp, const HeldUpdates &held, const Remarks &remarks, Left &left) {
    left = Left::Nothing;
    std::vector<Batch> batches = batches_of(held);
    if (batches.empty()) return {};
    if (auto there = check_files(held); !there) return there;
    const auto is_durable = complete(dp, batches);
    if (!is_durable) return is_durable.error();
    const Finishing finishing;
    if (!needs_redo(batches)) return make_batches(dp, batches, nullptr, remarks);
    return RedoCommit(dp, batches, *is_durable, remarks).run(left);
}

Result<void> finish_own_commit(DP *dp) {
    auto &session = dp->state<lock::SessionOwner>();
    const Finishing finishing;
    const auto directory = redo_directory(session.table());
    if (!directory) return directory.error();
    if (auto finished = finish_redo(redo_path(session.table(), *directory, session.owner().id)); !finished)
        return finished;
    session.table().forget_commit(session.owner().id);
    return {};
}

}  // namespace velda::transaction
