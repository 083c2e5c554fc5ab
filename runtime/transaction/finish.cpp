#include "runtime/transaction/finish.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>

#include "runtime/base/global_directory.h"
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
    Batch forward{file.get(), batch.mode, batch.is_journalled, {}};
    Batch back{file.get(), store::TransferMode::Binary, false, {}};
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
        if (file)
            add_batch(opened, std::move(*file), batch);
        else if (is_out_of_reach(file.error(), batch, after_restart))
            log(dp, std::to_string(batch.updates.size()) +
                        " updates of a transaction whose session died are lost: " + file.error().message);
        else
            return file.error();
    }
    return opened;
}

Result<void> take_back(std::span<const Batch> batches) {
    for (const Batch &batch : batches) {
        death_point();
        if (const int refused = refusal()) return system_error(refused, "cannot write to file", batch.file->path());
        const store::UpdateScope scope(nullptr, false);
        if (auto applied = batch.file->apply(batch.updates, batch.mode); !applied) return applied;
    }
    return {};
}

// The updates in the direction in which they can go.
Result<void> carry_out(DP *dp, const std::string &path, const Redo &redo, OpenedRedo &opened) {
    RedoProgress progress = redo.header.progress;
    const bool durable = redo.header.is_durable != 0;
    if (!(progress.state & RollsBack)) {
        if (make_batches(dp, opened.forward, path, progress, durable)) return {};
        progress.state |= RollsBack;
        if (auto set = set_progress(path, progress, durable); !set) return set;
    }
    return take_back(opened.back);
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

Result<void> make_batches(DP *dp, std::span<const Batch> batches, const std::string &, RedoProgress &, bool) {
    for (const Batch &batch : batches) {
        death_point();
        if (const int refused = refusal()) return system_error(refused, "cannot write to file", batch.file->path());
        const store::UpdateScope scope(dp, batch.is_journalled);
        if (auto applied = batch.file->apply(batch.updates, batch.mode); !applied) return applied;
    }
    death_point();
    return {};
}

Result<void> finish_redo(const std::string &path) {
    const auto bytes = read_file(path);
    if (!bytes) return bytes.error();
    if (!*bytes) return {};
    const auto redo = parse_redo(**bytes);
    const bool is_promised = redo && (redo->header.is_durable || redo->header.boot == store::current_boot());
    if (is_promised && !(redo->header.progress.state & AllMade)) {
        const FinishingSession session;
        auto opened = open_files(session.dp(), *redo);
        if (!opened) return opened.error();
        if (auto done = carry_out(session.dp(), path, *redo, *opened); !done) return done;
    }
    return remove_redo(path, redo && redo->header.is_durable);
}

}  // namespace velda::transaction
