// The walk over a command's records: the first call finds file and list, every call reads the next record.
#include "frame/utility_frame.h"

using namespace velda;
using namespace velda::frame;

namespace {

constexpr int AllRecordsSetting = 34;  // a command with no list acts on all records

// Values of Result.
constexpr int NoMoreRecords = 0;
constexpr int RecordRead = 1;
constexpr int RecordReadUnlocked = 2;  // another port holds the lock
constexpr int RecordMissing = -1;
constexpr int RecordMissingUnlocked = -2;  // another port holds the lock
constexpr int FileNotOpened = -3;

// Values of LockFlag; any other takes no lock.
constexpr int LockAndWait = 1;
constexpr int LockWithoutWaiting = 2;

constexpr char FileRequired = 'F';
constexpr char AlwaysPrompt = 'P';

bool has_flag(const VAR &commandflags, char flag) { return commandflags.view().find(flag) != std::string_view::npos; }

bool names_dictionary(const VAR &word) { return upcase(word) == "DICT"; }

// Looks whether the first operand, or "DICT" and the one after it, is a file. The operands stay where they are.
VAR first_operand_as_file(const VAR &operands) {
    if (!names_dictionary(operands(1))) return operands(1);
    return cat("DICT ", operands(2));
}

// Takes the file's name off the operands.
VAR take_file_operand(VAR &operands) {
    VAR name = operands(1);
    operands.remove(1);
    if (name.empty()) stop(NoFileName);
    if (!names_dictionary(name)) return name;
    name = cat("DICT ", operands(1));
    operands.remove(1);
    if (name == "DICT ") stop(NoFileName);
    return name;
}

// A line of stacked data, read so that nothing of it shows.
VAR read_stacked_line() {
    const EchoOff echo_off;
    VAR line;
    input(line, {.flags = VELDA_INPUT_NO_NEWLINE});
    return line;
}

VAR ask_for_keys(const VAR &commandflags) {
    if (stacked_data()) return read_stacked_line();
    if (!has_flag(commandflags, AlwaysPrompt) && emulation(AllRecordsSetting)) return "*";
    VAR line;
    crt("Record Keys : ");
    input(line);
    return line;
}

// With no operands left the list is the saved one, or what the operator answers.
void find_list(const UtilityCommon &utility, const VAR &commandflags) {
    velda::SelectList saved;
    if (saved.get_saved("")) {
        utility[UtilityCell::SelectList] = saved.cell();
        return;
    }
    VAR &operands = utility[CommandArgs];
    operands = ask_for_keys(commandflags);
    if (operands.empty()) stop(NoRecordList);
    operands = convert(trim(operands), " ", AM);
}

void select_operands(const UtilityCommon &utility) {
    const VAR &operands = utility[CommandArgs];
    if (operands.empty()) return;
    const bool whole_file = utility[FileModeVelda] && operands == "*";
    velda::SelectList list(whole_file ? utility[PreviousFileDSCB] : operands);
    utility[UtilityCell::SelectList] = list.cell();
}

// Sets the walk up. False, with the file's name, when the command requires a file that cannot be opened.
bool start_walk(const UtilityCommon &utility, VAR &FileName, const VAR &commandflags) {
    call_on_exit("VELDAUtilityExit");
    const VAR AutoName = first_operand_as_file(utility[CommandArgs]);
    utility[FileModeVelda] = 0;
    if (!AutoName.empty()) {
        if (FileWords(utility[PreviousFileDSCB]).open(AutoName)) {
            utility[FileModeVelda] = 1;
        } else if (has_flag(commandflags, FileRequired)) {
            FileName = AutoName;
            return false;
        }
    }
    if (utility[FileModeVelda]) utility[PreviousFileName] = take_file_operand(utility[CommandArgs]);
    if (utility[CommandArgs].empty()) find_list(utility, commandflags);
    select_operands(utility);
    utility[RecordsProcessed] = 0;
    return true;
}

// Without a file operand a key may carry the path of its file.
void split_path(VAR &RecordKey, VAR &FileName) {
    const std::string path = RecordKey.str();
    const std::size_t separator = path.rfind('\\');
    if (separator == std::string::npos) {
        FileName = ".";
        return;
    }
    // A key directly under the root names it by two separators: programs that test the name expect that spelling.
    FileName = separator == 0 ? "\\\\" : path.substr(0, separator);
    RecordKey = path.substr(separator + 1);
}

// Opens the file of the record unless it is the one of the record before.
bool open_file_of_record(const UtilityCommon &utility, const VAR &FileName) {
    if (FileName.view() == utility[PreviousFileName].view()) return true;
    if (!FileWords(utility[PreviousFileDSCB]).open(FileName)) {
        utility[PreviousFileName] = "";
        return false;
    }
    utility[PreviousFileName] = FileName;
    return true;
}

int read_record(const FileWords &file, const VAR &key, VAR &Record, int64_t LockFlag) {
    if (LockFlag != LockAndWait && LockFlag != LockWithoutWaiting)
        return file.read(Record, key) ? RecordRead : RecordMissing;
    LockedRecord locked = LockFlag == LockAndWait ? file.read_locked(key) : file.try_read_locked(key);
    if (locked.busy()) return file.read(Record, key) ? RecordReadUnlocked : RecordMissingUnlocked;
    Record = std::move(locked.record);
    return locked ? RecordRead : RecordMissing;
}

}  // namespace

bool frame::is_quoted(const VAR &key) {
    const std::string_view text = key.view();
    return (text.starts_with('"') || text.starts_with('\'')) && text.ends_with(text.front());
}

VAR frame::without_quotes(const VAR &key) { return is_quoted(key) ? key.substring(2, -2) : key; }

VBC_SUBROUTINE(VELDANextRecord, LockFlag, Result, Record, FileName, RecordKey, commandflags) {
    const UtilityCommon utility(dp);
    Result = 0;
    Record = "";
    FileName = "";
    RecordKey = "";

    if (utility[RecordsProcessed].to_integer() < 0 && !start_walk(utility, FileName, commandflags)) {
        Result = FileNotOpened;
        return;
    }
    if (!velda::SelectList(utility[UtilityCell::SelectList]).next(RecordKey)) {
        Result = NoMoreRecords;
        return;
    }
    RecordKey = without_quotes(RecordKey);
    if (utility[FileModeVelda]) {
        FileName = utility[PreviousFileName];
    } else {
        split_path(RecordKey, FileName);
        if (!open_file_of_record(utility, FileName)) {
            Result = FileNotOpened;
            return;
        }
    }
    Result = read_record(FileWords(utility[PreviousFileDSCB]), RecordKey, Record, LockFlag.to_integer());
}
