#include "runtime/store/directory_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/store/atomic_file.h"
#include "runtime/store/directory_control.h"
#include "runtime/store/directory_cursor.h"
#include "runtime/store/directory_name.h"
#include "runtime/store/hashed_file.h"
#include "runtime/store/journalling.h"
#include "runtime/store/settings_text.h"
#include "runtime/store/text_mode.h"

namespace velda::store {
namespace {

constexpr char LazyWord[] = "lazy";

// Called in the directory's turn before a change is there to be seen: an error number stops it.
using BeforeItCounts = std::function<int()>;

constexpr int Refused = -2;  // by the journal; beside error numbers

// The chain of sub-directories that hold the long keys of one hash: NUMBER counts from 0 without gaps; one whose record
// was deleted stays, empty, while another follows it. Walked in the directory's turn when something is to be changed.
struct LongPlace {
    std::string name;  // of the key's sub-directory, or of the first that is free
    std::string last;  // the chain's last sub-directory, "" when there is none
    bool found = false;
};

int find_long_place(int directory, std::string_view key, LongPlace &place) {
    const std::string family = long_name_family(key);
    for (unsigned number = 0;; ++number) {
        const std::string name = family + std::to_string(number);
        struct stat status;
        if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) < 0) {
            if (errno != ENOENT) return errno;
            if (place.name.empty()) place.name = name;
            return 0;
        }
        place.last = name;
        std::string its_key;
        StringBuffer into(its_key);
        const int rc = read_whole_file(directory, name + "/key", into);
        if (rc == ENOENT) {
            if (place.name.empty()) place.name = name;
        } else if (rc) {
            return rc;
        } else if (its_key == key) {
            place.name = name;
            place.found = true;
            return 0;
        }
    }
}

int sync_directory(int directory, const std::string &name) {
    const Descriptor inner(openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return inner.number() < 0 || fsync(inner.number()) < 0 ? errno : 0;
}

// The new sub-directory is complete before it gets its name.
int make_long_record(int directory, std::string_view key, std::string_view content, const std::string &name,
                     bool durable, const BeforeItCounts &before) {
    const std::string temporary = temporary_name();
    if (mkdirat(directory, temporary.c_str(), 0777) < 0) return errno;
    const ReplaceOptions options{.mode = 0666, .keep_mode = false, .durable = durable};
    int rc = write_new_file(directory, temporary + "/key", key, options);
    if (rc == 0) rc = write_new_file(directory, temporary + "/record", content, options);
    if (rc == 0 && durable) rc = sync_directory(directory, temporary);
    if (rc == 0) rc = before();
    if (rc == 0 && renameat(directory, temporary.c_str(), directory, name.c_str()) < 0) rc = errno;
    if (rc == 0) return durable && fsync(directory) < 0 ? errno : 0;
    unlinkat(directory, (temporary + "/key").c_str(), 0);
    unlinkat(directory, (temporary + "/record").c_str(), 0);
    unlinkat(directory, temporary.c_str(), AT_REMOVEDIR);
    return rc;
}

int write_long_record(int directory, std::string_view key, std::string_view content, bool durable,
                      const BeforeItCounts &before) {
    LongPlace place;
    if (const int rc = find_long_place(directory, key, place)) return rc;
    if (!place.found) return make_long_record(directory, key, content, place.name, durable, before);
    const Descriptor within(openat(directory, place.name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (within.number() < 0) return errno;
    return replace_file(within.number(), "record", content, {.durable = durable, .before_it_counts = &before});
}

int remove_long_record(int directory, std::string_view key, const BeforeItCounts &before) {
    LongPlace place;
    if (const int rc = find_long_place(directory, key, place)) return rc;
    if (!place.found) return ENOENT;
    if (const int rc = before()) return rc;
    // Without its key it is no record any more, whatever happens next.
    if (unlinkat(directory, (place.name + "/key").c_str(), 0) < 0) return errno;
    unlinkat(directory, (place.name + "/record").c_str(), 0);
    LongPlace rest;
    if (find_long_place(directory, key, rest) == 0 && rest.last == place.name)
        unlinkat(directory, place.name.c_str(), AT_REMOVEDIR);
    return 0;
}

// Where the file of a plain name really lies: a link to a file is written through, not replaced.
int write_plain_record(int directory, const std::string &name, std::string_view content, const std::string &path,
                       bool durable, const BeforeItCounts &before) {
    const ReplaceOptions options{.durable = durable, .before_it_counts = &before};
    struct stat status;
    if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISREG(status.st_mode)) {
        if (!S_ISLNK(status.st_mode)) return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        auto target = absolute_path(path + "/" + name);
        if (!target) return target.error().number;
        const Descriptor parent(::open(parent_directory(*target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (parent.number() < 0) return errno;
        if (fstatat(parent.number(), base_name(*target).c_str(), &status, 0) == 0 && !S_ISREG(status.st_mode))
            return EINVAL;
        return replace_file(parent.number(), base_name(*target), content, options);
    }
    return replace_file(directory, name, content, options);
}

}  // namespace

Error DirectoryFile::failure(int number, std::string_view what, std::string_view key) const {
    return system_error(number, what, path_ + "/" + encode_name(key));
}

Result<std::unique_ptr<DirectoryFile>> DirectoryFile::open_marked(const std::string &path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return system_error(errno, "cannot open file", path);
    struct stat status;
    fstat(descriptor, &status);
    std::unique_ptr<DirectoryFile> file(new DirectoryFile(path, descriptor, {status.st_dev, status.st_ino}));
    auto settings = file->settings();
    if (!settings) return settings.error();
    file->lazy_ = settings->durability == Durability::Lazy;
    return file;
}

Result<std::unique_ptr<OpenFile>> DirectoryFile::open(const std::string &path) {
    auto file = open_marked(path);
    if (!file) return file.error();
    if (auto usable = (*file)->mark_.check(); !usable) return usable.error();
    return std::unique_ptr<OpenFile>(std::move(*file));
}

bool DirectoryFile::writable() const { return faccessat(directory(), ".", W_OK, AT_EACCESS) == 0; }

Result<bool> DirectoryFile::read(std::string_view key, RecordBuffer &into, TransferMode mode) {
    if (auto sized = check_sizes(key, 0, path_); !sized) return sized.error();
    std::string name = encode_name(key);
    int rc = 0;
    if (name.size() > MaxNameBytes) {
        LongPlace place;
        rc = find_long_place(directory(), key, place);
        if (rc == 0 && !place.found) return false;
        name = place.name + "/record";
    }
    if (rc == 0) rc = read_record_file(directory(), name, into, mode);
    if (rc == 0) return true;
    if (rc == ENOENT) return false;
    return failure(rc, "cannot read record", key);
}

Result<bool> DirectoryFile::exists(std::string_view key) {
    if (auto sized = check_sizes(key, 0, path_); !sized) return sized.error();
    const std::string name = encode_name(key);
    if (name.size() > MaxNameBytes) {
        LongPlace place;
        if (const int rc = find_long_place(directory(), key, place)) return failure(rc, "cannot read record", key);
        return place.found;
    }
    struct stat status;
    if (fstatat(directory(), name.c_str(), &status, 0) == 0) return S_ISREG(status.st_mode);
    if (errno == ENOENT || errno == ELOOP) return false;
    return failure(errno, "cannot read record", key);
}

Result<void> DirectoryFile::write(std::string_view key, std::string_view record, TransferMode mode) {
    if (auto sized = check_sizes(key, record.size(), path_); !sized) return sized;
    const std::string text = mode == TransferMode::Binary ? std::string() : text_of_record(record);
    const std::string_view content = mode == TransferMode::Binary ? record : text;
    if (content.size() > MaxRecordBytes) return failure(EFBIG, "cannot write record", key);
    const DirectoryMark::Update turn(mark_, lazy_);
    if (!turn.allowed()) return turn.allowed();
    const Update update{key, record};
    const std::string name = encode_name(key);
    return change(
        "cannot write record", key,
        [&](const BeforeItCounts &before) {
            return name.size() > MaxNameBytes ? write_long_record(directory(), key, content, !lazy_, before)
                                              : write_plain_record(directory(), name, content, path_, !lazy_, before);
        },
        [&] {
            return journal_updates(path_, {&update, 1}, mode);
        });
}

// Makes a change in the directory's turn and journals it there, before it is there to be seen.
template <class Change, class Journal>
Result<void> DirectoryFile::change(std::string_view failed, std::string_view key, Change &&change, Journal &&journal) {
    for (;;) {
        if (auto may_go = journal_wait(); !may_go) return may_go;
        Result<void> journalled;
        const std::lock_guard other_threads(turn_);
        const FileTurn other_processes(directory());
        const int rc = change([&] {
            if (auto its_settings = settings(); !its_settings || its_settings->journalled) journalled = journal();
            return journalled ? 0 : Refused;
        });
        if (rc == 0) return {};
        if (rc != Refused) return failure(rc, failed, key);
        if (!journal_asks_again(journalled.error())) return journalled;
    }
}

int DirectoryFile::remove_record(std::string_view key, const BeforeItCounts &before) {
    const std::string name = encode_name(key);
    if (name.size() > MaxNameBytes) return remove_long_record(directory(), key, before);
    auto there = exists(key);
    if (!there) return there.error().number;
    if (!*there) return ENOENT;
    if (const int rc = before()) return rc;
    if (unlinkat(directory(), name.c_str(), 0) < 0) return errno;
    return !lazy_ && fsync(directory()) < 0 ? errno : 0;
}

Result<bool> DirectoryFile::remove(std::string_view key) {
    if (auto sized = check_sizes(key, 0, path_); !sized) return sized.error();
    const DirectoryMark::Update turn(mark_, lazy_);
    if (!turn.allowed()) return turn.allowed().error();
    const Update update{key, std::nullopt};
    const auto removed = change(
        "cannot delete record", key, [&](const BeforeItCounts &before) { return remove_record(key, before); },
        [&] {
            return journal_updates(path_, {&update, 1}, TransferMode::Default);
        });
    if (removed) return true;
    if (removed.error().number == ENOENT) return false;
    return removed.error();
}

// A directory has no commits: the changes are made one by one, and a failure leaves those before it.
Result<void> DirectoryFile::apply(const std::vector<Update> &updates, TransferMode mode) {
    for (const Update &update : updates) {
        if (update.record) {
            if (auto written = write(update.key, *update.record, mode); !written) return written;
        } else if (auto removed = remove(update.key); !removed) {
            return removed.error();
        }
    }
    return {};
}

std::string DirectoryFile::as_read(std::string_view record, TransferMode written, TransferMode read) const {
    const bool written_as_text = written != TransferMode::Binary;
    const bool read_as_text = read != TransferMode::Binary;
    if (written_as_text == read_as_text) return std::string(record);
    return written_as_text ? text_of_record(record) : record_of_text(record);
}

Result<void> DirectoryFile::clear() {
    const DirectoryMark::Update turn(mark_, lazy_);
    if (!turn.allowed()) return turn.allowed();
    return change(
        "cannot clear file", "", [&](const BeforeItCounts &before) { return remove_all(before); },
        [&] { return journal_clear(path_); });
}

int DirectoryFile::remove_all(const BeforeItCounts &before) {
    DirectoryWalk walk;
    if (walk.open(directory()) < 0) return errno;
    if (const int rc = before()) return rc;
    int failed;
    while (walk.next(failed)) {
        const int rc = remove_record(walk.key(), [] { return 0; });
        if (rc != 0 && rc != ENOENT) return rc;
    }
    return failed;
}

Result<std::unique_ptr<Cursor>> DirectoryFile::select(TransferMode mode) {
    auto cursor = std::make_unique<DirectoryCursor>(path_, mode);
    if (auto opened = cursor->open(directory()); !opened) return opened.error();
    return std::unique_ptr<Cursor>(std::move(cursor));
}

// --- control records and settings ---

Result<std::optional<std::string>> DirectoryFile::control_read(std::uint32_t number) {
    auto blocks = read_control_blocks(directory(), path_);
    if (!blocks) return blocks.error();
    const auto at = blocks->find(control_block_name(number));
    if (at == blocks->end()) return std::optional<std::string>();
    return std::optional<std::string>(at->second);
}

Result<void> DirectoryFile::control_write(std::uint32_t number, std::string_view block) {
    const FileTurn turn(directory());
    auto blocks = read_control_blocks(directory(), path_);
    if (!blocks) return blocks.error();
    (*blocks)[control_block_name(number)] = block;
    return write_control_blocks(directory(), *blocks, path_);
}

Result<bool> DirectoryFile::control_remove(std::uint32_t number) {
    const FileTurn turn(directory());
    auto blocks = read_control_blocks(directory(), path_);
    if (!blocks) return blocks.error();
    if (blocks->erase(control_block_name(number)) == 0) return false;
    if (auto written = write_control_blocks(directory(), *blocks, path_); !written) return written.error();
    return true;
}

Result<FileSettings> DirectoryFile::settings() {
    auto blocks = read_control_blocks(directory(), path_);
    if (!blocks) return blocks.error();
    const bool lazy = (*blocks)[DurabilityBlock] == LazyWord;
    return parse_settings_text((*blocks)[SettingsBlock], lazy ? Durability::Lazy : Durability::Sync);
}

Result<void> DirectoryFile::change_settings(const FileSettings &settings) {
    const FileTurn turn(directory());
    auto blocks = read_control_blocks(directory(), path_);
    if (!blocks) return blocks.error();
    (*blocks)[SettingsBlock] = settings_text(settings);
    (*blocks)[DurabilityBlock] = settings.durability == Durability::Lazy ? LazyWord : "";
    lazy_ = settings.durability == Durability::Lazy;
    if (auto left = lazy_ ? Result<void>() : mark_.leave_clean(); !left) return left;
    return write_control_blocks(directory(), *blocks, path_);
}

Result<FileStatus> DirectoryFile::status() {
    FileStatus status{std::string(type()), path_, {}, 0, 0, {}};
    auto its_settings = settings();
    if (!its_settings) return its_settings.error();
    status.settings = *its_settings;
    DirectoryWalk walk;
    if (walk.open(directory()) < 0) return system_error(errno, "cannot read file", path_);
    int failed;
    while (walk.next(failed)) {
        struct stat on_disk;
        if (fstatat(directory(), walk.file_name().c_str(), &on_disk, 0) < 0) continue;
        ++status.records;
        status.size_bytes += static_cast<std::uint64_t>(on_disk.st_blocks) * 512;
    }
    if (failed) return system_error(failed, "cannot read file", path_);
    if (!writable()) status.flags.emplace_back("read-only");
    return status;
}

Result<void> DirectoryFile::sync() { return lazy_ ? mark_.leave_clean() : Result<void>(); }

}  // namespace velda::store
