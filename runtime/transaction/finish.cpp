#include "runtime/transaction/finish.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>

#include "runtime/base/global_directory.h"
#include "runtime/journal/journal.h"
#include "runtime/port/port.h"
#include "runtime/process/context.h"
#include "runtime/process/process.h"
#include "runtime/store/atomic_file.h"
#include "runtime/store/boot_id.h"
#include "runtime/store/journalling.h"
#include "runtime/store/path.h"
#include "runtime/transaction/steps.h"

namespace velda::transaction {
namespace {

constexpr char DirectoryName[] = "transactions";

Result<std::optional<std::string>> read_file(const std::string &path) {
    const store::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (file.number() < 0) {
        if (errno == ENOENT) return std::optional<std::string>();
        return system_error(errno, "cannot open redo record", path);
    }
    std::string bytes;
    constexpr std::size_t StepBytes = 1 << 20;
    for (;;) {
        const std::size_t size = bytes.size();
        bytes.resize(size + StepBytes);
        const ssize_t got = read(file.number(), bytes.data() + size, StepBytes);
        bytes.resize(size + (got > 0 ? static_cast<std::size_t>(got) : 0));
        if (got == 0) return std::optional<std::string>(std::move(bytes));
        if (got < 0 && errno != EINTR) return system_error(errno, "cannot read redo record", path);
    }
}

// What a redo record leads to: the files that still are where they were.
struct OpenedRedo {
    std::vector<std::shared_ptr<store::OpenFile>> files;  // keeps them open
    std::vector<Batch> forward;
    std::vector<Batch> back;
};

// A session of its own does the work: what the caller's session has switched off or on is not meant for this.
class FinishingSession {
  public:
    FinishingSession() : dp_(velda_new_context()), current_(std::in_place, dp_) {}
    ~FinishingSession() {
        current_.reset();
        velda_free_context(dp_);
    }
    FinishingSession(const FinishingSession &) = delete;
    FinishingSession &operator=(const FinishingSession &) = delete;
    DP *dp() const { return dp_; }

  private:
    DP *const dp_;
    std::optional<CurrentContext> current_;
};

void log(DP *dp, const std::string &text) {
    VELDAWriteLogFile(dp, VELDA_SYSTEM_LOG, 0, 0, text.data(), static_cast<int>(text.size()));
}

// Why the updates of a batch are dropped: there is no such file any more, or it is one that nothing was promised for.
bool is_out_of_reach(const Error &error, const RedoBatch &batch, bool after_restart) {
    if (error.number == ENOENT || error.number == ENOTDIR || error.number == EINVAL) return true;
    return error.number == store::NeedsCheck && batch.is_lazy && after_restart;
}

Result<std::shared_ptr<store::OpenFile>> open_batch_file(const RedoBatch &batch, bool after_restart) {
    auto opened = store::open_file(batch.path);
    if (!opened) return opened;
    const store::FileIdentity now = (*opened)->identity();
    // The number of a device may be another one after a restart of the machine.
    if (now.inode == batch.file.inode && (after_restart || now.device == batch.file.device)) return opened;
    return Error{ENOENT, "file '" + std::string(batch.path) + "' is another one by now"};
}

void add_batch(OpenedRedo &opened, std::shared_ptr<store::OpenFile> file, const RedoBatch &batch) {
    Batch forward{file.get(), batch.mode, batch.is_journalled, batch.is_lazy, {}};
    Batch back{file.get(), store::TransferMode::Binary, false, batch.is_lazy, {}};
    for (const RedoUpdate &update : batch.updates) {
        forward.updates.push_back({update.key, update.record});
        back.updates.push_back({update.key, update.before});
    }
    opened.files.push_back(std::move(file));
    opened.forward.push_back(std::move(forward));
    opened.back.push_back(std::move(back));
}

Result<OpenedRedo> open_files(DP *dp, const Redo &redo) {
    const bool after_restart = redo.header.boot != store::current_boot();
    OpenedRedo opened;
    for (const RedoBatch &batch : redo.batches) {
        auto file = open_batch_file(batch, after_restart);
        if (!file && !is_out_of_reach(file.error(), batch, after_restart)) return file.error();
        add_batch(opened, file ? std::move(*file) : nullptr, batch);
        if (!file)
            log(dp, std::to_string(batch.updates.size()) +
                        " updates of a transaction whose session died are lost: " + file.error().message);
    }
    return opened;
}

Result<void> apply(DP *dp, const Batch &batch) {
    if (!batch.file) return {};
    death_point();
    if (const int refused = refusal()) return system_error(refused, "cannot write to file", batch.file->path());
    const store::UpdateScope scope(dp, batch.is_journalled);
    return batch.file->apply(batch.updates, batch.mode);
}

// On an error `progress` tells what is to be taken back: a batch that is made whole or not at all is not, so that a full
// disk need not take what it has just refused.
Result<void> apply_all(DP *dp, std::span<const Batch> batches, RedoProgress *progress) {
    for (std::uint32_t made = 0; made < batches.size(); ++made) {
        auto applied = apply(dp, batches[made]);
        if (!applied && progress) progress->taken_back = made + (batches[made].file->applies_whole() ? 0 : 1);
        if (!applied) return applied;
    }
    death_point();
    if (progress) progress->taken_back = static_cast<std::uint32_t>(batches.size());
    return {};
}

Result<void> take_back(std::span<const Batch> batches, const RedoProgress &progress) {
    return apply_all(nullptr, batches.first(std::min<std::size_t>(progress.taken_back, batches.size())), nullptr);
}

// --- the journal ---

Result<void> journal_result(DP *dp, int error) {
    if (error == 0) return {};
    return Error{error, velda_logger_error(dp)};
}

std::uint64_t size_of(std::span<const Batch> batches) {
    std::uint64_t size_bytes = 0;
    for (const Batch &batch : batches)
        for (const store::Update &update : batch.updates)
            if (batch.is_journalled) size_bytes += update.key.size() + update.record.value_or("").size();
    return size_bytes;
}

// The transaction in the journal: it is aborted there unless it was ended.
class JournalTurn {
  public:
    JournalTurn(DP *dp, RedoFile &redo, const Remarks &remarks) : dp_(dp), redo_(redo), remarks_(remarks) {}
    ~JournalTurn() {
        if (is_begun_ && velda_logger_transaction_abort(dp_, nullptr) == 0) redo_.progress.state &= ~JournalBegun;
    }
    JournalTurn(const JournalTurn &) = delete;
    JournalTurn &operator=(const JournalTurn &) = delete;

    Result<void> begin(std::span<const Batch> batches) {
        const int error = velda_logger_transaction_start(dp_, &remarks_.begin, size_of(batches));
        death_point();
        is_begun_ = error == 0;
        if (!is_begun_) redo_.progress.state &= ~JournalBegun;
        return journal_result(dp_, error);
    }
    // When the end is there nothing is left to do but to remove the record.
    Result<void> end() {
        death_point();
        is_begun_ = false;
        const int error = velda_logger_transaction_end(dp_, &remarks_.end);
        if (error != 0) return journal_result(dp_, error);
        death_point();
        redo_.progress.state = AllMade;
        (void)store_progress(redo_);
        return {};
    }

  private:
    DP *const dp_;
    RedoFile &redo_;
    const Remarks &remarks_;
    bool is_begun_ = false;
};

// A transaction that its process began in the journal and cannot end any more.
Result<void> end_for_the_dead(DP *dp, RedoFile &redo) {
    const RedoProgress &began = redo.progress;
    const int error = velda_logger_transaction_abort_dead(dp, began.journal_pid, began.journal_port);
    if (error != 0) return journal_result(dp, error);
    redo.progress.state &= ~JournalBegun;
    return store_progress(redo);
}

// The mark comes first: a dead process may be said to have begun where it has not, but never the other way round.
Result<void> mark_as_begun(DP *dp, RedoFile &redo) {
    if (redo.progress.state & JournalBegun) return {};
    redo.progress = {JournalBegun, getpid(), VELDAGetPortNumber(dp), 0};
    return store_progress(redo);
}

// Nobody who comes by is made to wait until an operator lets the journal go on.
bool waits_for_journal(DP *dp, const RedoFile &redo, std::span<const Batch> batches) {
    const bool is_journalled = (redo.progress.state & JournalBegun) || are_journalled(batches);
    return is_journalled && VediLoggerStatus(dp) == VELDA_LOGGER_SUSPENDED;
}

// The updates in the direction in which they can go.
Result<void> carry_out(DP *dp, RedoFile &redo, const OpenedRedo &opened) {
    if (redo.progress.state & JournalBegun)
        if (auto ended = end_for_the_dead(dp, redo); !ended) return ended;
    if (!(redo.progress.state & RollsBack)) {
        if (make_batches(dp, opened.forward, &redo, {})) return {};
        redo.progress.state |= RollsBack;
        // Whoever was here before may have come further.
        redo.progress.taken_back = static_cast<std::uint32_t>(opened.back.size());
        if (auto stored = store_progress(redo); !stored) return stored;
    }
    return take_back(opened.back, redo.progress);
}

}  // namespace

Result<std::string> redo_directory(const lock::LockTable &table) {
    return shared_subdirectory(table.system_directory(), DirectoryName);
}

std::string redo_path(const lock::LockTable &table, const std::string &directory, lock::OwnerId owner) {
    char number[17];
    std::snprintf(number, sizeof number, "%016llx", static_cast<unsigned long long>(owner));
    return directory + "/" + std::filesystem::path(table.path()).filename().string() + "-" + number +
           std::string(RedoEnding);
}

bool are_journalled(std::span<const Batch> batches) {
    return std::ranges::any_of(batches, [](const Batch &batch) { return batch.is_journalled; });
}

Result<void> make_batches(DP *dp, std::span<const Batch> batches, RedoFile *redo, const Remarks &remarks) {
    RedoProgress *const progress = redo ? &redo->progress : nullptr;
    if (!are_journalled(batches)) return apply_all(dp, batches, progress);
    if (auto marked = mark_as_begun(dp, *redo); !marked) return marked;
    JournalTurn turn(dp, *redo, remarks);
    if (auto begun = turn.begin(batches); !begun) return begun;
    if (auto applied = apply_all(dp, batches, progress); !applied) return applied;
    return turn.end();
}

Result<void> finish_redo(const std::string &path) {
    const auto bytes = read_file(path);
    if (!bytes) return bytes.error();
    if (!*bytes) return {};
    const auto record = parse_redo(**bytes);
    if (!record) return remove_redo({path, false, {}});
    RedoFile redo{path, record->header.is_durable != 0, record->header.progress};
    const bool is_promised = redo.is_durable || record->header.boot == store::current_boot();
    if (is_promised && !(redo.progress.state & AllMade)) {
        const FinishingSession session;
        const auto opened = open_files(session.dp(), *record);
        if (!opened) return opened.error();
        if (waits_for_journal(session.dp(), redo, opened->forward))
            return Error{EAGAIN, "the transaction journal is suspended"};
        if (auto done = carry_out(session.dp(), redo, *opened); !done) return done;
    }
    return remove_redo(redo);
}

}  // namespace velda::transaction
