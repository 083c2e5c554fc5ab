// The whole-file operations of the driver "HL". A file is its data at PATH and LMDB's lock file at PATH-lock; whoever
// makes, removes or renames the pair does it in the turn of its directory, so no two files ever share a lock file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/store/environment_table.h"
#include "runtime/store/file_turn.h"
#include "runtime/store/hashed_file.h"
#include "runtime/store/journal_copy.h"
#include "runtime/store/path.h"

namespace velda::store {
namespace {

std::string lock_path(const std::string &path) { return path + "-lock"; }

// An error that names the file the user knows, not the temporary one.
Error named(Error error, const std::string &temporary, const std::string &path) {
    if (const auto at = error.message.find(temporary); at != std::string::npos)
        error.message.replace(at, temporary.size(), path);
    return error;
}

// Gives a finished new file its name; nobody sees it before it is whole and `journal` has told of it.
template <class Journal>
Result<void> put_in_place(const std::string &temporary, const std::string &path, Journal &&journal) {
    const DirectoryTurn turn(parent_directory(path));
    if (path_exists(path)) return system_error(EEXIST, "cannot make file", path);
    if (Result<void> journalled = journal(); !journalled) return journalled;
    unlink(lock_path(path).c_str());  // left by a removal that was cut short
    if (rename_new(temporary, path) < 0) return system_error(errno, "cannot make file", path);
    turn.sync();
    return {};
}

// Of a file that may be damaged.
bool is_journalled(int descriptor, const std::string &path) {
    const auto head = read_file_head(descriptor, path);
    return !head || head->label.not_journalled == 0;
}

// The copy itself is read: the source may have changed since.
Result<void> journal_copy_at(const std::string &temporary, const std::string &path) {
    if (!journal_wants_updates()) return {};
    Result<void> journalled;
    {
        auto environment = acquire_environment(temporary);
        if (!environment) return environment.error();
        HashedFile copy(temporary, std::move(*environment));
        journalled = journal_copy(copy, path);
    }
    unlink(lock_path(temporary).c_str());
    return journalled;
}

}  // namespace

bool HashedDriver::recognises(const std::string &path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        struct stat status;
        return errno == EACCES && stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    }
    struct stat status;
    const bool regular = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    const bool labelled = regular && has_file_label(descriptor);
    ::close(descriptor);
    return labelled;
}

Result<void> HashedDriver::create(const std::string &path, const FileSettings &settings) {
    if (path_exists(path)) return system_error(EEXIST, "cannot make file", path);
    const TemporaryPath temporary(path);
    auto laid_out = Environment::lay_out(temporary.path(), settings);
    if (!laid_out) return named(laid_out.error(), temporary.path(), path);
    return put_in_place(temporary.path(), path, [&]() -> Result<void> {
        return settings.journalled ? journal_create(path, type(), settings) : Result<void>();
    });
}

Result<std::unique_ptr<OpenFile>> HashedDriver::open(const std::string &path) {
    auto environment = acquire_environment(path);
    if (!environment) return environment.error();
    auto file = std::make_unique<HashedFile>(path, std::move(*environment));
    file->settle();
    return std::unique_ptr<OpenFile>(std::move(file));
}

Result<void> HashedDriver::destroy(const std::string &path) {
    const DirectoryTurn directory_turn(parent_directory(path));
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const FileTurn turn(file.number());  // nobody is half-way through opening it
    if (is_journalled(file.number(), path))
        if (auto journalled = journal_destroy(path); !journalled) return journalled;
    if (unlink(path.c_str()) < 0) return system_error(errno, "cannot remove file", path);
    unlink(lock_path(path).c_str());
    directory_turn.sync();
    return {};
}

Result<void> HashedDriver::copy(const std::string &from, const std::string &to) {
    if (path_exists(to)) return system_error(EEXIST, "cannot make file", to);
    auto source = acquire_environment(from);
    if (!source) return source.error();
    const TemporaryPath temporary(to);
    struct stat status;
    if (stat(from.c_str(), &status) < 0) return system_error(errno, "cannot copy file", from);
    const Descriptor target(
        ::open(temporary.path().c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, status.st_mode & 0777));
    if (target.number() < 0) return system_error(errno, "cannot make file", to);
    if (auto copied = (*source)->copy_to(target.number()); !copied) return copied;
    if (auto labelled = write_file_label(target.number(), (*source)->durability(), (*source)->is_journalled(), to);
        !labelled)
        return labelled;
    if (fsync(target.number()) < 0) return system_error(errno, "cannot make file", to);
    return put_in_place(temporary.path(), to, [&] { return journal_copy_at(temporary.path(), to); });
}

// The lock file gets its second name before the data file is renamed: at every instant each name of the data file that
// exists has the one lock file beside it.
Result<void> HashedDriver::move(const std::string &from, const std::string &to) {
    const DirectoryTurn first_turn(std::min(parent_directory(from), parent_directory(to)));
    const DirectoryTurn second_turn(parent_directory(from) == parent_directory(to)
                                        ? std::string()
                                        : std::max(parent_directory(from), parent_directory(to)));
    const Descriptor file(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
    const FileTurn turn(file.number());
    if (path_exists(to)) return system_error(EEXIST, "cannot make file", to);
    if (is_journalled(file.number(), from))
        if (auto journalled = journal_move(from, to); !journalled) return journalled;
    unlink(lock_path(to).c_str());
    if (link(lock_path(from).c_str(), lock_path(to).c_str()) < 0 && errno != ENOENT)
        return system_error(errno, "cannot move file", from);
    if (rename_new(from, to) < 0) {
        const int failed = errno;
        unlink(lock_path(to).c_str());
        return system_error(failed, "cannot move file", from);
    }
    unlink(lock_path(from).c_str());
    first_turn.sync();
    second_turn.sync();
    return {};
}

}  // namespace velda::store
