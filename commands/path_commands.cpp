// vrm and vmv: files of the operating system, database files among them. Other parts of the system execute them.
#include <filesystem>

#include "commands/actions.h"
#include "commands/operands.h"

namespace velda::commands {

namespace {

namespace fs = std::filesystem;

struct RemoveOptions {
    bool recursive = false;
    bool quiet_when_absent = false;
};

RemoveOptions remove_options(const Words &options) {
    RemoveOptions result;
    for (const std::string &option : options) {
        for (const char letter : option.substr(1)) {
            if (letter == 'r')
                result.recursive = true;
            else if (letter == 'f')
                result.quiet_when_absent = true;
            else
                usage_error("vrm", "unknown option '-" + std::string(1, letter) + "'");
        }
    }
    return result;
}

// The reason why the path was not removed; "" when it was.
std::string remove_path(const fs::path &path, const RemoveOptions &options) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    if (!fs::exists(status)) return options.quiet_when_absent ? "" : "does not exist";
    if (fs::is_directory(status) && !options.recursive) return "is a directory";
    options.recursive ? fs::remove_all(path, error) : fs::remove(path, error);
    return error ? error.message() : "";
}

}  // namespace

void remove_paths(DP *, const Words &words) {
    Words paths = words;
    const RemoveOptions options = remove_options(take_options(paths));
    if (paths.empty()) usage_error("vrm", "a path is missing");
    bool failed = false;
    for (const std::string &path : paths) {
        const std::string reason = remove_path(path, options);
        if (reason.empty()) continue;
        crt_line("vrm: cannot remove '" + path + "': " + reason);
        failed = true;
    }
    if (failed) exit_command(1);
}

void move_path(DP *, const Words &words) {
    if (words.size() != 2) usage_error("vmv", "two paths are needed: FROM and TO");
    fs::path target = words[1];
    if (fs::is_directory(target)) target /= fs::path(words[0]).filename();
    std::error_code error;
    fs::rename(words[0], target, error);
    if (error == std::errc::cross_device_link) {
        error.clear();
        fs::copy(words[0], target, fs::copy_options::recursive | fs::copy_options::overwrite_existing, error);
        if (!error) fs::remove_all(words[0], error);
    }
    if (error) fail("vmv: cannot move '" + words[0] + "' to '" + target.string() + "': " + error.message());
}

}  // namespace velda::commands
