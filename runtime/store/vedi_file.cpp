// The driver layer's entries for whole files: open, close, commands, create, copy, move, delete, enumerate.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

#include "runtime/process/context.h"
#include "runtime/store/journalling.h"
#include "runtime/store/setting_words.h"
#include "runtime/store/vedi_call.h"
#include "runtime/transaction/session_file.h"

namespace velda::store {
namespace {

struct VediState {
    std::string error_text;
};

constexpr int OptionCommand = 21;

Result<std::string> path_of(const char *name) {
    auto parsed = parse_file_name(name ? name : "", false);
    if (!parsed) return parsed.error();
    return parsed->path;
}

template <class Take>
Result<void> each_word(std::string_view text, char divider, Take &&take) {
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(divider));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        if (word.empty()) continue;
        if (auto taken = take(word); !taken) return taken;
    }
    return {};
}

void fill_reply(const FileSettings &settings, void *reply, uint32_t reply_size) {
    if (!reply || reply_size == 0) return;
    std::string text;
    for (const auto &option : settings.options) text.append(text.empty() ? 0 : 1, AM).append(option);
    text.resize(std::min<std::size_t>(text.size(), reply_size - 1));
    std::memcpy(reply, text.c_str(), text.size() + 1);
}

// The settings that an option string asks for, from those that the file has.
Result<FileSettings> changed_settings(OpenFile &file, std::string_view words) {
    auto settings = file.settings();
    if (!settings) return settings.error();
    WantedFile wanted{std::nullopt, std::move(*settings)};
    auto taken = each_word(words, AM, [&](std::string_view word) { return take_setting_word(wanted, word); });
    if (!taken) return taken.error();
    if (wanted.type) return Error{EINVAL, "the type of file '" + std::string(file.path()) + "' cannot be changed"};
    return wanted.settings;
}

bool is_size(std::string_view word) { return word.find_first_not_of("0123456789,") == word.npos; }

Result<void> take_create_word(WantedFile &wanted, std::string_view word) {
    if (!is_size(word)) return take_setting_word(wanted, word);
    wanted.settings.options.emplace_back(word);
    return {};
}

Result<void> create_section(const char *name, const char *driver_text, const char *const *arguments) {
    WantedFile wanted;
    const auto take = [&](std::string_view word) { return take_create_word(wanted, word); };
    if (auto taken = each_word(driver_text ? driver_text : "", ' ', take); !taken) return taken;
    for (; arguments && *arguments && **arguments; ++arguments)
        if (auto taken = take(*arguments); !taken) return taken;
    auto path = path_of(name);
    if (!path) return path.error();
    return create_file(*path, wanted.type.value_or("HL"), wanted.settings);
}

Result<void> file_operation(int operation, int kind, const char *name, const char *target) {
    constexpr int DatabaseFile = 4;
    if (kind != DatabaseFile) return Error{EINVAL, "there is no kind " + std::to_string(kind) + " of files"};
    auto from = path_of(name);
    if (!from) return from.error();
    if (operation == VEDI_FILE_DELETE) return destroy_file(*from);
    auto to = path_of(target);
    if (!to) return to.error();
    if (operation == VEDI_FILE_COPY) return copy_file(*from, *to);
    if (operation == VEDI_FILE_MOVE) return move_file(*from, *to);
    return Error{EINVAL, "there is no file operation " + std::to_string(operation)};
}

int report(DP *dp, const Result<void> &result, char *error_text) {
    if (error_text)
        std::snprintf(error_text, VEDI_ERROR_TEXT_BYTES, "%s", result ? "" : result.error().message.c_str());
    return result ? 0 : fail_call(dp, result.error());
}

// The data sections of the database files in the current directory.
std::set<std::string> files_of_account() {
    std::set<std::string> names;
    std::error_code failed;
    for (const auto &entry : std::filesystem::directory_iterator(".", failed)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(".") || name.find(']') != name.npos || name.ends_with("-lock")) continue;
        names.insert(name);
    }
    return names;
}

std::vector<std::shared_ptr<OpenFile>> account_or_open_files(int which) {
    std::vector<std::shared_ptr<OpenFile>> files;
    if (which == VEDI_FILES_OPEN) {
        std::vector<std::string> paths;
        for_each_open_file([&](OpenFile &file) { paths.emplace_back(file.path()); });
        for (const auto &path : paths)
            if (auto opened = open_file(path)) files.push_back(std::move(*opened));
        return files;
    }
    for (const auto &name : files_of_account())
        if (auto opened = open_file(name)) files.push_back(std::move(*opened));
    return files;
}

}  // namespace

int fail_call(DP *dp, const Error &error) {
    if (dp) {
        dp->last_error = error.number;
        dp->state<VediState>().error_text = error.message;
    }
    errno = error.number;
    return error.number;
}

}  // namespace velda::store

using namespace velda::store;

const char *VediErrorText(DP *dp) { return dp->state<VediState>().error_text.c_str(); }

int VediOpen(DP *dp, VediControlBlock *file, const char *name, int, int) {
    if (!file) return fail_call(dp, {EINVAL, "there is no control block"});
    auto path = path_of(name);
    if (!path) return fail_call(dp, path.error());
    velda::transaction::before_open(dp);
    auto opened = open_file(*path);
    if (!opened) return fail_call(dp, opened.error());
    construct_control_block(*file, std::move(*opened), name);
    return 0;
}

int VediClose(DP *dp, VediControlBlock *file, int) {
    if (!is_open(file)) return fail_call(dp, {EINVAL, "the file is not open"});
    destroy_control_block(*file);
    return 0;
}

int VediIOCTL(DP *dp, VediControlBlock *file, int command, const void *argument, uint32_t argument_size, void *reply,
              uint32_t reply_size) {
    return call_on(dp, file, [&](ControlBlockContent &content) -> velda::Result<void> {
        if (command != OptionCommand)
            return velda::Error{EINVAL, "there is no driver command " + std::to_string(command)};
        auto settings = changed_settings(*content.file, bytes_of(static_cast<const char *>(argument), argument_size));
        if (!settings) return settings.error();
        const auto words = bytes_of(static_cast<const char *>(argument), argument_size);
        const UpdateScope scope(dp, !(file->flags & VEDI_FILE_NOT_JOURNALLED));
        if (scope.journalled)
            if (auto journalled = journal_settings(content.file->path(), words); !journalled) return journalled;
        if (auto changed = content.file->change_settings(*settings); !changed) return changed;
        file->flags =
            settings->journalled ? file->flags & ~VEDI_FILE_NOT_JOURNALLED : file->flags | VEDI_FILE_NOT_JOURNALLED;
        fill_reply(*settings, reply, reply_size);
        return {};
    });
}

int VediClearFile(DP *dp, VediControlBlock *file) {
    return call_on(dp, file,
                   [dp](ControlBlockContent &content) { return velda::transaction::clear_file(dp, content); });
}

int VediFileOp(DP *dp, int operation, int kind, const char *name, const char *target, char *error_text) {
    const UpdateScope scope(dp, true);
    return report(dp, file_operation(operation, kind, name, target), error_text);
}

int VediCreateFileRaw(DP *dp, const char *name, const char *driver_text, char *error_text, int,
                      const char *const *arguments, int) {
    const UpdateScope scope(dp, true);
    return report(dp, create_section(name, driver_text, arguments), error_text);
}

int VediGetAllFiles(DP *dp, VediFileCallback callback, void *context, int which, int) {
    if (which != VEDI_FILES_OF_ACCOUNT && which != VEDI_FILES_OPEN)
        return fail_call(dp, {EINVAL, "there is no list " + std::to_string(which) + " of files"});
    int result = 0;
    for (const auto &opened : account_or_open_files(which)) {
        const std::string path(opened->path());
        const std::string name = which == VEDI_FILES_OPEN ? path : std::filesystem::path(path).filename().string();
        VediControlBlock file;
        construct_control_block(file, opened, name);
        result = callback(dp, context, &file, name.c_str());
        if (is_open(&file)) destroy_control_block(file);
        if (result) break;
    }
    return result;
}
