// saved_list.cpp - READLIST, and the lists that SAVE-LIST keeps: records of the file lists/saved in the global directory.
#include <cerrno>

#include "runtime/base/global_directory.h"
#include "runtime/file/select_list.h"
#include "runtime/file/statement.h"
#include "runtime/value/value.h"

namespace velda::file {
namespace {

// Path of the file below the global directory.
constexpr const char *ListsDirectory = "lists";
constexpr const char *ListsFile = "/saved";

Result<std::shared_ptr<store::OpenFile>> open_saved_lists() {
    return store::open_file(global_directory() + "/" + ListsDirectory + ListsFile);
}

// The same, made when it is missing.
Result<std::shared_ptr<store::OpenFile>> make_saved_lists() {
    auto opened = open_saved_lists();
    if (opened || opened.error().number != ENOENT) return opened;
    const auto directory = global_subdirectory(ListsDirectory);
    if (!directory) return directory.error();
    const auto made = store::create_file(*directory + ListsFile, "HL", {.journalled = false});
    // Another session may have made it meanwhile.
    if (!made && made.error().number != EEXIST) return made.error();
    return open_saved_lists();
}

Result<bool> read_saved(std::string_view name, VAR &keys) {
    auto file = open_saved_lists();
    if (!file && file.error().number == ENOENT) return false;
    if (!file) return file.error();
    CellBuffer buffer(nullptr, keys);
    return (*file)->read(name, buffer, store::TransferMode::Default);
}

Result<void> write_saved(std::string_view name, std::string_view keys) {
    auto file = make_saved_lists();
    if (!file) return file.error();
    return (*file)->write(name, keys, store::TransferMode::Default);
}

Result<bool> remove_saved(std::string_view name) {
    auto file = open_saved_lists();
    if (!file && file.error().number == ENOENT) return false;
    if (!file) return file.error();
    return (*file)->remove(name);
}

// The active default list, or else the one saved without a name; used up by this. False when there is neither.
bool take_session_list(FileState &state, VAR &list) {
    for (VAR *const source : {&state.default_list, &state.saved_list}) {
        if (source->form != VELDA_FORM_LIST) continue;
        list = std::exchange(*source, VAR(""));
        return true;
    }
    return false;
}

// What a command tells of a list that could not be saved, read or deleted.
void tell(VAR *message, std::string_view key, std::string_view name, const Error &error) {
    if (message) *message = std::string(key) + VM + shown_in_message(name) + VM + error.message;
}

// The list to be saved: the caller's, or the default list, which is used up. False when there is none.
bool keys_to_save(FileState &state, VAR *list, VAR &keys) {
    if (list) {
        keys = list->view();
        return true;
    }
    if (state.default_list.form != VELDA_FORM_LIST) return false;
    keys = state.default_list.view();
    return true;
}

}  // namespace
}  // namespace velda::file

using namespace velda::file;

int VLibFREADLIST_IBBB(DP *dp, VAR *target, const VAR *name, VAR *setting) {
    const Statement statement{dp, 0, setting};
    const std::string list_name(text_of(name));
    if (list_name.empty()) {
        VAR list;
        if (!take_session_list(dp->state<FileState>(), list)) {
            *target = "";
            return take_else_path(statement, ENOENT);
        }
        *target = std::move(list);
        return Done;
    }
    VAR keys;
    const auto found = read_saved(list_name, keys);
    if (found && *found) {
        store_list(dp, *target, std::make_unique<SelectList>(keys.str()));
        return Done;
    }
    *target = "";
    return take_else_path(statement, found ? ENOENT : found.error().number);
}

int velda_save_list(DP *dp, const VAR *name, VAR *list, VAR *message) {
    FileState &state = dp->state<FileState>();
    VAR keys;
    if (!keys_to_save(state, list, keys)) {
        tell(message, "LIST_NONE", "", {});
        return take_else_path({dp, 0, nullptr}, ENOENT);
    }
    const std::string list_name(text_of(name));
    if (list_name.empty()) {
        store_list(dp, state.saved_list, std::make_unique<SelectList>(keys.str()));
    } else if (const auto written = write_saved(list_name, keys.view()); !written) {
        tell(message, "LIST_SAVE", list_name, written.error());
        return take_else_path({dp, 0, nullptr}, written.error().number);
    }
    if (!list) state.default_list = "";
    return Done;
}

int velda_delete_list(DP *dp, const VAR *name, VAR *message) {
    const std::string list_name(text_of(name));
    FileState &state = dp->state<FileState>();
    if (list_name.empty()) {
        const bool was_there = state.saved_list.form == VELDA_FORM_LIST;
        state.saved_list = "";
        if (was_there) return Done;
    }
    auto removed = list_name.empty() ? velda::Result<bool>(false) : remove_saved(list_name);
    if (removed && *removed) return Done;
    if (removed)
        tell(message, "LIST_MISSING", list_name, {});
    else
        tell(message, "LIST_DELETE", list_name, removed.error());
    return take_else_path({dp, 0, nullptr}, removed ? ENOENT : removed.error().number);
}
