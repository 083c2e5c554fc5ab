#include "runtime/store/directory_driver.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "runtime/store/directory_control.h"
#include "runtime/store/directory_cursor.h"
#include "runtime/store/directory_file.h"
#include "runtime/store/directory_name.h"
#include "runtime/store/journal_copy.h"
#include "runtime/store/path.h"

namespace velda::store {
namespace {

namespace fs = std::filesystem;

// A sub-directory that is not the store's own; "" when there is none.
std::string foreign_directory_in(const std::string &path) {
    std::error_code failed;
    for (const auto &entry : fs::directory_iterator(path, failed)) {
        const std::string name = entry.path().filename().string();
        if (entry.symlink_status().type() == fs::file_type::directory && !name.starts_with(HiddenPrefix)) return name;
    }
    return "";
}

// "PREFIX-PROCESS-..." was left by a process that is gone.
bool is_left_over(const std::string &name) {
    if (!name.starts_with(TemporaryPrefix)) return false;
    const pid_t process = std::atoi(name.c_str() + TemporaryPrefix.size());
    return process > 0 && kill(process, 0) < 0 && errno == ESRCH;
}

// A directory with its settings, under a name that nobody knows yet.
Result<void> make_directory(const std::string &path, const FileSettings &settings) {
    const mode_t mode = static_cast<mode_t>(settings.permissions & 0777);
    const mode_t search = (mode & 0444) >> 2;  // whoever may read its records may look them up
    if (mkdir(path.c_str(), mode | search) < 0) return system_error(errno, "cannot make file", path);
    const Descriptor made(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (made.number() < 0 || set_special_modes(made.number(), settings.permissions) < 0)
        return system_error(errno, "cannot make file", path);
    auto file = DirectoryFile::open(path);
    return file ? (*file)->change_settings(settings) : Result<void>(file.error());
}

// `journal` tells of the file before anybody can see it.
template <class Journal>
Result<void> put_in_place(const std::string &hidden, const std::string &path, Journal &&journal) {
    const DirectoryTurn turn(parent_directory(path));
    if (path_exists(path)) return system_error(EEXIST, "cannot make file", path);
    if (Result<void> journalled = journal(); !journalled) return journalled;
    if (rename_new(hidden, path) < 0) return system_error(errno, "cannot make file", path);
    turn.sync();
    return {};
}

Result<void> copy_records(OpenFile &source, const std::string &path) {
    const UpdateScope unnamed(updating_session(), false);  // the copy is journalled under its name, not under this one
    auto target = DirectoryFile::open(path);
    if (!target) return target.error();
    auto cursor = source.select(TransferMode::Binary);
    if (!cursor) return cursor.error();
    for (;;) {
        auto item = (*cursor)->next_item();
        if (!item) return item.error();
        if (!*item) return {};
        auto written = (*target)->write((*item)->key, (*item)->record, TransferMode::Binary);
        if (!written) return written;
    }
}

Result<void> copy_control_file(const std::string &from, const std::string &to) {
    std::error_code failed;
    const fs::path control = fs::path(from) / ControlFileName;
    if (fs::exists(control, failed))
        fs::copy_file(control, fs::path(to) / ControlFileName, fs::copy_options::overwrite_existing, failed);
    if (failed) return system_error(failed.value(), "cannot copy file", from);
    return {};
}

// Of a directory that may be damaged.
bool is_journalled(const std::string &path) {
    auto file = DirectoryFile::open_marked(path);
    if (!file) return true;
    const auto settings = (*file)->settings();
    return !settings || settings->journalled;
}

}  // namespace

bool DirectoryDriver::recognises(const std::string &path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Result<void> DirectoryDriver::create(const std::string &path, const FileSettings &settings) {
    if (path_exists(path)) return system_error(EEXIST, "cannot make file", path);
    const TemporaryPath hidden(path);
    auto made = make_directory(hidden.path(), settings);
    if (!made) return system_error(made.error().number, "cannot make file", path);
    return put_in_place(hidden.path(), path, [&]() -> Result<void> {
        return settings.journalled ? journal_create(path, type(), settings) : Result<void>();
    });
}

Result<std::unique_ptr<OpenFile>> DirectoryDriver::open(const std::string &path) { return DirectoryFile::open(path); }

// The directory loses its name first: nobody sees it half removed.
Result<void> DirectoryDriver::destroy(const std::string &path) {
    if (const std::string inner = foreign_directory_in(path); !inner.empty())
        return Error{ENOTEMPTY, "cannot remove file '" + path + "': it contains the directory '" + inner + "'"};
    const DirectoryTurn turn(parent_directory(path));
    if (is_journalled(path))
        if (auto journalled = journal_destroy(path); !journalled) return journalled;
    const TemporaryPath hidden(path);
    if (rename(path.c_str(), hidden.path().c_str()) < 0) return system_error(errno, "cannot remove file", path);
    std::error_code failed;
    fs::remove_all(hidden.path(), failed);
    turn.sync();
    if (failed) return system_error(failed.value(), "cannot remove all of file", path);
    return {};
}

Result<void> DirectoryDriver::copy(const std::string &from, const std::string &to) {
    if (path_exists(to)) return system_error(EEXIST, "cannot make file", to);
    auto source = DirectoryFile::open(from);
    if (!source) return source.error();
    auto settings = (*source)->settings();
    if (!settings) return settings.error();
    const TemporaryPath hidden(to);
    auto copied = make_directory(hidden.path(), *settings);
    if (copied) copied = copy_records(**source, hidden.path());
    if (copied) copied = copy_control_file(from, hidden.path());
    if (!copied) return copied;
    return put_in_place(hidden.path(), to, [&]() -> Result<void> {
        auto copy = DirectoryFile::open(hidden.path());
        return copy ? journal_copy(**copy, to) : Result<void>(copy.error());
    });
}

Result<void> DirectoryDriver::move(const std::string &from, const std::string &to) {
    const DirectoryTurn turn(parent_directory(to));
    if (path_exists(to)) return system_error(EEXIST, "cannot move file", from);
    if (is_journalled(from))
        if (auto journalled = journal_move(from, to); !journalled) return journalled;
    if (rename_new(from, to) < 0) return system_error(errno, "cannot move file", from);
    turn.sync();
    return {};
}

Result<std::uint64_t> DirectoryDriver::check(const std::string &path, const CheckReport &report) {
    auto file = DirectoryFile::open_marked(path);
    if (!file) {
        report(file.error().message);
        return std::uint64_t{0};
    }
    bool clean = true;
    const auto find = [&](const Error &error) {
        clean = false;
        report(error.message);
    };
    std::error_code failed;
    for (const auto &entry : fs::directory_iterator(path, failed)) {
        if (!is_left_over(entry.path().filename().string())) continue;
        fs::remove_all(entry.path(), failed);  // the record it was to become still has its old content
    }
    DirectoryWalk walk;
    const Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.number() < 0 || walk.open(directory.number()) < 0)
        return system_error(errno, "cannot read file", path);
    std::uint64_t records = 0;
    int rc;
    while (walk.next(rc)) {
        std::string record;
        StringBuffer into(record);
        const int broken = read_record_file(directory.number(), walk.file_name(), into, TransferMode::Binary);
        if (broken == 0)
            ++records;
        else if (broken != ENOENT)
            find(system_error(broken, "cannot read record", walk.file_name()));
    }
    if (rc) find(system_error(rc, "cannot read all of file", path));
    if (clean) {
        if (auto cleared = (*file)->clear_mark(); !cleared) return cleared.error();
    }
    return records;
}

}  // namespace velda::store
