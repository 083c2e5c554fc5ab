// statement.h - what the statements on files share: the file behind a cell, the checks of keys and records, and the one
// place where an Error becomes a result, a code and a message. Private to the family.
#pragma once

#include <string_view>

#include "runtime/base/result.h"
#include "runtime/file/file.h"
#include "runtime/process/context.h"
#include "runtime/store/control_block.h"

namespace velda::file {

// Results of the statements.
inline constexpr int Done = 1;
inline constexpr int ElsePath = 0;
inline constexpr int LockedByOther = 2;
inline constexpr int ErrorReported = 3;

// What a statement was about, for the message of its failure: the key of that message.
enum class Action { Read, Write, Delete, Clear, Lock, Select, ReadNext };

// One statement under way.
struct Statement {
    DP *dp;
    int flags;
    VAR *setting;  // may be null
};

// The code of a failure as SYSTEM(0) and setting variables show it.
int statement_code(int error_number);

// Notes the code of a failure in SYSTEM(0) and the setting variable.
void note_code(const Statement &statement, int code);

// A failure that the ELSE path takes: notes the code, gives ElsePath.
int take_else_path(const Statement &statement, int error_number);

// A failure for which there is no ELSE path: ErrorReported when the caller asked for that, else the command ends with a
// message of the action, the file, the key and the reason.
int fail(const Statement &statement, Action action, std::string_view file, std::string_view key, const Error &error);

// A key or other text from the outside as a message shows it: marks and unprintable bytes as ".", long texts cut.
std::string shown_in_message(std::string_view text);

// The control block of an open file's cell (null: the default file); null when the cell holds no open file.
VediControlBlock *block_of(DP *dp, const VAR *file);

// The same as its private part.
store::ControlBlockContent *content_of_cell(DP *dp, const VAR *file);

// What a statement reports when its cell holds no open file.
Error not_open_error();

// Checks what every driver must be given: a key of 1 to 65,536 bytes, a record of at most 1 GiB.
Result<void> check_key(std::string_view key);
Result<void> check_record(std::string_view record);

// The text of an optional cell; "" for a null pointer.
inline std::string_view text_of(const VAR *cell) { return cell ? cell->view() : std::string_view(); }

// A driver's road into a cell.
class CellBuffer final : public store::RecordBuffer {
  public:
    CellBuffer(DP *dp, VAR &cell) : dp_(dp), cell_(cell) {}
    char *prepare(std::size_t size_bytes) override;

  private:
    DP *dp_;
    VAR &cell_;
};

// What the family keeps in each session.
struct FileState {
    VAR default_file;
    VAR default_list;
    VAR saved_list;  // the list that was saved without a name: "" when there is none
};

}  // namespace velda::file
