// select.cpp - SELECT, READNEXT and the default list.
#include <cerrno>
#include <climits>

#include "runtime/file/select_list.h"
#include "runtime/file/statement.h"
#include "runtime/process/system_numbers.h"
#include "runtime/transaction/session_file.h"
#include "runtime/value/value.h"

namespace velda::file {
namespace {

// A walk that fails must not look like one that ended: without a setting variable to tell it by, the command ends.
int fail_list(const Statement &statement, Action action, std::string_view file, const Error &error) {
    if (statement.setting) return take_else_path(statement, error.number);
    return fail(statement, action, file, "", error);
}

std::string_view file_of(const SelectList &list) { return list.file() ? list.file()->path() : std::string_view(); }

VAR &default_list(DP *dp) { return dp->state<FileState>().default_list; }

bool is_list(const VAR &cell) { return cell.form == VELDA_FORM_LIST; }

// Puts the list into the target; an empty list is no active default list.
int hand_over(const Statement &statement, VAR list, VAR *target) {
    if (target) {
        *target = std::move(list);
        return Done;
    }
    const auto end = SelectList::of(list).at_end();
    if (!end) return fail_list(statement, Action::Select, file_of(SelectList::of(list)), end.error());
    if (*end)
        default_list(statement.dp) = "";
    else
        default_list(statement.dp) = std::move(list);
    return Done;
}

int select_file(const Statement &statement, store::ControlBlockContent *content, VAR *target) {
    if (!content) return fail_list(statement, Action::Select, "", not_open_error());
    auto cursor = transaction::select_records(statement.dp, *content, content->read_mode);
    if (!cursor) return fail_list(statement, Action::Select, content->file->path(), cursor.error());
    VAR list;
    store_list(statement.dp, list, std::make_unique<SelectList>(content->file, std::move(*cursor), content->read_mode));
    return hand_over(statement, std::move(list), target);
}

int select_keys(const Statement &statement, const VAR &source, VAR *target) {
    VAR list;
    if (is_list(source))
        list = source;
    else
        store_list(statement.dp, list, std::make_unique<SelectList>(source.str()));
    return hand_over(statement, std::move(list), target);
}

// A string of keys becomes a list where it stands, so that each READNEXT costs the same however long it is.
void make_list(DP *dp, VAR &cell) {
    if (!is_list(cell)) store_list(dp, cell, std::make_unique<SelectList>(cell.str()));
}

// The key goes into its cell, which may be the cell of the list.
void store_key(VAR &target, const VAR &list, std::string_view key) {
    if (&target == &list)
        target = std::string(key);
    else
        target = key;
}

// SYSTEM(11): the length of the active select list, false when there is none.
const SystemNumberProvider list_length(11, [](DP *dp, VAR &target) { target = VRunCountDefaultSel(dp); });

}  // namespace
}  // namespace velda::file

using namespace velda::file;

int VLibFSELECT_IBBB(DP *dp, const VAR *source, VAR *target, VAR *setting) {
    const Statement statement{dp, 0, setting};
    FileState &state = dp->state<FileState>();
    if (!source) source = &state.default_file;
    if (source == &state.default_file && target && is_list(state.default_list)) {
        *target = std::exchange(state.default_list, VAR(""));
        return Done;
    }
    if (source->is_file() || source == &state.default_file)
        return select_file(statement, content_of_cell(dp, source), target);
    return select_keys(statement, *source, target);
}

int VLibFREADNEXT_IBBBBB(DP *dp, VAR *key, VAR *value, VAR *subvalue, VAR *list, VAR *setting) {
    const Statement statement{dp, 0, setting};
    if (value) *value = 0;
    if (subvalue) *subvalue = 0;
    VAR &cell = list ? *list : default_list(dp);
    if (cell.is_file()) {
        *key = "";
        return take_else_path(statement, EINVAL);
    }
    make_list(dp, cell);
    const auto next = SelectList::of(cell).next();
    if (!next) return fail_list(statement, Action::ReadNext, file_of(SelectList::of(cell)), next.error());
    if (*next) {
        store_key(*key, cell, **next);
        return Done;
    }
    if (!list) cell = "";
    *key = "";
    return ElsePath;
}

VAR *VLibReturnDefaultSelect(DP *dp) { return &default_list(dp); }

int VRunCountDefaultSel(DP *dp) {
    const VAR &list = default_list(dp);
    if (!is_list(list)) return 0;
    const auto count = SelectList::of(list).count_left();
    if (!count) return fail_list({dp, 0, nullptr}, Action::ReadNext, file_of(SelectList::of(list)), count.error());
    return static_cast<int>(std::min<std::uint64_t>(*count, INT_MAX));
}
