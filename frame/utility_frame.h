// utility_frame.h - chief header of the frame: the common block VELDA_dUtil, which every utility command shares with
// the routines that parse its words, walk its records and read its keys.
//
// A subroutine that uses the block makes a UtilityCommon at its head and names cells by the constants below:
//
//     const UtilityCommon utility(dp);
//     utility[ProgramName] = Program;
//     if (utility.option('T')) ...
#pragma once

#include <cassert>
#include <string_view>

#include "runtime/vutil.h"

namespace velda::frame {

inline constexpr std::string_view Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";

// Cells of VELDA_dUtil. The order is fixed for all who attach the block, programs outside this library too.
enum UtilityCell : int {
    CommandArgs = 0,         // operands, one attribute each, once the options have been taken out
    Option = 1,              // 26 flags, OptionA to OptionZ: 1 when the option was given, else 0
    OptionNum = 27,          // 26 lists, OptionANum to OptionZNum: the values given with the option, one attribute each
    ProgramName = 53,        // the command's name, for messages
    RecordsProcessed = 54,   // -1 until record walking has started, then 0
    SelectList = 55,         // the list being walked
    HelpScreen = 56,         // help text, one line per attribute
    PreviousFileName = 57,   // name of the file open in PreviousFileDSCB
    PreviousFileDSCB = 58,   // the file open for record walking
    FileModeVelda = 59,      // 1 when the first operand named a file, 0 when keys are paths
    ReservedCommon = 60,     // 10 cells, not used
    CommandXref = 70,        // 10 cells, the key table: see key_table.h
    PromptLastLineLen = 80,  // 80 to 86, 89 and 90 are the database shell's own; nothing here reads them
    CurrentDisplay = 81,
    CurrentCommandPos = 82,
    CurrentCommand = 83,
    CommandListEntry = 84,
    CurrentFullPrompt = 85,
    CommandList = 86,
    ReservedVutil1 = 87,
    ReservedVutil2 = 88,
    ExecuteArgs = 89,
    CurrentCommandMode = 90,
    EchoFlag = 91,       // keeps SYSTEM(3024) while a command changes the echo
    OptionsPrompt = 92,  // 92 to 99 are the shell's options, 95 to 99 free
    OptionsShellType = 93,
    OptionsPromptSec = 94,
    UtilityCells = 100  // size of the block
};

// Cells of VELDAFileLock, the port report's block, in the order of its request and result.
enum FileLockCell : int {
    FileLockPortList = 0,
    FileLockVerbose = 1,
    FileLockReturnMessage = 2,
    FileLockReturn = 3,
    FileLockReturnQuantity = 4,
    FileLockXrefName = 5,
    FileLockXrefId = 6,
    FileLockIpAddress = 7,
    FileLockCells = 8
};

// Numbers of SYSTEM() that the frame and the commands on it read.
enum SystemNumber : int {
    SystemActiveListLength = 11,  // keys left in the active select list, 0 when there is none
    SystemCommandLine = 1000,     // attribute 1 the command's name, then its arguments
    SystemKeyCapabilities = 1005  // the terminal's keys: names in attribute 1, sequences in attribute 2
};

// The block VELDA_dUtil, attached for the length of a subroutine.
class UtilityCommon {
  public:
    explicit UtilityCommon(DP *dp) : block_("VELDA_dUtil", UtilityCells) { VELDAUtil(dp, 1); }

    VAR &operator[](UtilityCell cell) const { return block_[cell]; }

    // The flag of an option, by its upper-case letter.
    VAR &option(char letter) const { return block_[Option + place_of(letter)]; }
    // The values given with an option, one attribute each.
    VAR &option_values(char letter) const { return block_[OptionNum + place_of(letter)]; }

  private:
    static int place_of(char letter) {
        assert(letter >= 'A' && letter <= 'Z');
        return letter - 'A';
    }

    mutable CommonBlock block_;
};

// Message keys that commands stop with.
inline constexpr const char *NoFileName = "200";
inline constexpr const char *CannotOpenFile = "201";
inline constexpr const char *NoRecordList = "203";

// A key in quotes begins with one and ends with the same one. It loses both; a lone quote stays.
bool is_quoted(const VAR &key);
VAR without_quotes(const VAR &key);

}  // namespace velda::frame

extern "C" {

// Takes a command's words apart: `Args`, one attribute each without the command's name, into options and operands in
// VELDA_dUtil. `Help` is the help text, one line per attribute. Ends the command when help was asked for. Letters
// "VVV".
VELDA_EXPORT void VBC_VELDAInit(DP *dp, const char *letters, VAR *Help, VAR *Args, VAR *Program);

// Take SYSTEM(1000) apart. 1: the words that begin with "-", the last word in parentheses, the rest; no file. 2: also
// opens the file and makes the select list; the words behind the file's name go to `Operand`, joined by blanks. 3: the
// file alone. 2 and 3 stop with a message when there is no name or no such file. Letters "VVV", "VVVVVV", "VV".
VELDA_EXPORT void VBC_VELDAParseCommandLine1(DP *dp, const char *letters, VAR *Options1, VAR *Options2, VAR *Operand);
VELDA_EXPORT void VBC_VELDAParseCommandLine2(DP *dp, const char *letters, VAR *FileDSCB, VAR *FileName, VAR *Options1,
                                             VAR *Options2, VAR *Operand, VAR *PassList);
VELDA_EXPORT void VBC_VELDAParseCommandLine3(DP *dp, const char *letters, VAR *FileDSCB, VAR *FileName);

// The next record of the command's list; the first call after VBC_VELDAInit finds file and list. LockFlag: 1 lock and
// wait, 2 lock without waiting, else no lock. `commandflags`: "F" the first operand must be a file, "P" always prompt
// for keys. Result: 0 no further records, 1 read, -1 no such record, 2 and -2 the same while another port holds the
// lock (LockFlag 2), -3 the file `FileName` cannot be opened. Letters "VVVVVV".
VELDA_EXPORT void VBC_VELDANextRecord(DP *dp, const char *letters, VAR *LockFlag, VAR *Result, VAR *Record,
                                      VAR *FileName, VAR *RecordKey, VAR *commandflags);

// The exit handler of the record walk: closes its file and clears the port report's answer. Letters "V".
VELDA_EXPORT void VBC_VELDAUtilityExit(DP *dp, const char *letters, VAR *parm1);

// A record of six attributes for tests, and a key for it. Letters "VV".
VELDA_EXPORT void VBC_VELDARandomRecord(DP *dp, const char *letters, VAR *record, VAR *key);

// Makes the key table: the terminal's keys, the control keys, the user's `.vedrc`. Once per interactive session. No
// letters.
VELDA_EXPORT void VBC_VELDACommandInit(DP *dp, const char *letters);

// Reads one key command. `Command` is its code: 1 to 72 as the key table says, 100 not a command, 101 a printable
// character, 102 nothing typed within UserTimeout (tenths of a second, 0 none), 103 interrupted. `String` is what was
// read. Letters "VVV".
VELDA_EXPORT void VBC_VELDACommandNext(DP *dp, const char *letters, VAR *Command, VAR *String, VAR *UserTimeout);
}
