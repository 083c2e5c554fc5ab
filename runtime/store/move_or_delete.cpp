// Moving and removing what a path names, whether it is a database file or a plain one.
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "runtime/journal/journal.h"
#include "runtime/store/path.h"
#include "runtime/store/vedi_call.h"

namespace velda::store {
namespace {

namespace fs = std::filesystem;

Error path_error(int number, const char *what, const std::string &path) {
    return {number, std::string(what) + " '" + path + "': " + std::generic_category().message(number)};
}

// What was done to a plain file; a database file's driver journals by itself.
enum class Done { Nothing, ToDatabaseFile, ToPlainFile };

Result<Done> remove_path(const std::string &path) {
    const auto removed = destroy_file(path);
    if (removed) return Done::ToDatabaseFile;
    if (removed.error().number != EINVAL) return removed.error();
    if (unlink(path.c_str()) != 0) return path_error(errno, "cannot remove", path);
    return Done::ToPlainFile;
}

// To another disk: the copy is complete before it has its name, and only then the source goes.
Result<void> move_across_disks(const std::string &from, const std::string &to) {
    const TemporaryPath copy(to);
    std::error_code failed;
    fs::copy_file(from, copy.path(), failed);
    if (failed) return path_error(failed.value(), "cannot copy", from);
    if (rename(copy.path().c_str(), to.c_str()) != 0) return path_error(errno, "cannot make", to);
    if (unlink(from.c_str()) != 0) return path_error(errno, "cannot remove", from);
    return {};
}

Result<void> move_plain_file(const std::string &from, const std::string &to) {
    if (rename(from.c_str(), to.c_str()) == 0) return {};
    if (errno == EXDEV) return move_across_disks(from, to);
    return path_error(errno, "cannot move", from);
}

bool is_directory(const std::string &path) {
    std::error_code failed;
    return fs::is_directory(path, failed);
}

// Also by two names: what has to make room for itself would be lost.
bool is_same_file(const std::string &from, const std::string &to) {
    std::error_code failed;
    return fs::equivalent(from, to, failed);
}

Result<Done> move_path(const std::string &from, const std::string &to) {
    if (is_same_file(from, to)) return Done::Nothing;
    if (path_exists(from) && path_exists(to) && is_directory(from) != is_directory(to))
        return path_error(is_directory(to) ? EISDIR : ENOTDIR, "cannot move onto", to);
    auto moved = move_file(from, to);
    if (!moved && moved.error().number == EEXIST) {
        if (auto removed = remove_path(to); !removed) return removed;
        moved = move_file(from, to);
    }
    if (moved) return Done::ToDatabaseFile;
    if (moved.error().number != EINVAL) return moved.error();
    if (moved = move_plain_file(from, to); !moved) return moved.error();
    return Done::ToPlainFile;
}

}  // namespace
}  // namespace velda::store

using namespace velda::store;

int VELDAMoveOrDeleteFile(DP *dp, const char *from, const char *to, int logged) {
    const bool is_move = to && *to;
    const auto done = is_move ? move_path(from, to) : remove_path(from);
    if (!done) return fail_call(dp, done.error());
    if (!logged || *done != Done::ToPlainFile) return 0;
    return is_move ? velda_logger_move_file(dp, from, to) : velda_logger_remove_file(dp, from);
}
