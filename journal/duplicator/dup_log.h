// dup_log.h - the duplicator: copies journal records from a log set, a file, a device, the terminal or a socket to the
// database, the journal, a file, a device, the terminal, a socket, or nowhere. For native programs; docs/replication.md
// is for those who run it.
//
// A run is the command whose words SYSTEM(1000) holds: options, the word INPUT and a specification, the word OUTPUT and
// a specification. VELDALoggerSelectStart (journal/log_reading.h) tells of specifications.
#ifndef VELDA_JOURNAL_DUP_LOG_H
#define VELDA_JOURNAL_DUP_LOG_H

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// Runs the duplicator. Gives 0 when help was asked for and 2 for a wrong option; otherwise it does not return: the
// command ends with the run's exit code. 0 the input has ended, 2 a wrong specification, 3 no journal, 4 too many errors,
// 5 ended by an operator, 7 the output could not be written, 8 nobody to ask, 9 ended at a question, 2000 a signal, else
// the error that stopped the reading.
VELDA_EXPORT int DupLog(DP *dp);

// What a run does besides.
typedef struct VELDADupOptions {
    int skipped_words;          // words behind the command's name that are the caller's
    const char *json_progress;  // a file that gets a JSON object a line, each second and at the end; null: none
    int terminal_progress;  // whether a line on standard error, a terminal, shows how far the run is; not with -v, -V, -u
    int dry_run;            // whether it only counts what it would do
    int help;               // whether it only prints the verbose help, whatever the words are
} VELDADupOptions;

// The same with these. A null address is DupLog.
VELDA_EXPORT int velda_dup_log(DP *dp, const VELDADupOptions *options);

#ifdef __cplusplus
}

namespace velda::journal {

// The two helps, line by line: the concise one, and what the verbose one adds. %s stands for the program's name, %d for
// the number of errors that a run may have. The words are fixed, slips and all.
// clang-format off
inline constexpr const char *ConciseHelp[] = {
    "Usage: Called as:",
    "   %s: {-options} INPUT input_spec OUTPUT output_spec",
    "Where {-options} can be one or more of :",
    "  -efilename     Error file for database update errors",
    "  -f             Used with -v or -V, show Future update not Past update",
    "  -h             Display the concise help screen",
    "  -lfilename     Log file name to write all status and errors information",
    "  -mnn           Maximum number of errors (default %d)",
    "  -unn           Write '*' to the screen every nn input records",
    "  -v             verbose output , 1 line per record",
    "  -x             eXclusive use of the database , no group locks taken",
    "  -H             Display the verbose help screen",
    "  -V             Very verbose output , 1 line per record",
};

inline constexpr const char *VerboseHelp[] = {
    "Where 'input_spec' and 'output_spec' can be one or more of the following :",
    "  blockmax=nnn (S)           The maximum size, in blocks, of a serial device",
    "  blocksize=nnn              The block size to read or write data to/from a TTY or SERIAL device or file",
    "  device=file|device (S)     Provide the name of a file or device for a SERIAL device. Can be more than one of these",
    "  encrypt=true(O)            Output transfer is to be encrypted",
    "  end=timespec (I)           Specify a time specification (see later) to end the input data at",
    "  hostname=host(IOK)         Host for socket transfers to / from",
    "  key=encryptkey             The key to use for encryption",
    "  noflush{=true|false} (O)   End of transaction causes the output buffer to be flushed immediately",
    "  notrans{=true|false} (O)   All transaction boundaries will be ignore if true (default false)",
    "  port=portnum (IOK)         Socket port to use for socket transfer",
    "  prompt{=true|false}        When switching serial devices or files, always prompt user first",
    "  rename=fromdir,todir (O)   Path names will be converted from 'fromdir' to 'todir'",
    "  renamefile=filename (O)    Specifies a file with a list of renames in the format 'fromdir,todir'",
    "  retry=nn (I)               When 'terminate=wait' used, the time interval between retry attempts",
    "  scheme=method              Encryption method for socket transfers",
    "  set=current (I) (L)        Begin using the current log set as input",
    "  set=database (O) (D)       The output should update the database i.e. a restore process",
    "  set=eldest (I) (L)         Begin using the log set that has the eldest entries in it",
    "  set=n (I) (L) (N)          Begin using log set number n",
    "  set=null (O)               Output is to NULL i.e. discarded",
    "  set=serial (S)             The input/output is to a serial device or file - requires one or more 'device=file|device'",
    "  set=socket (IOK)           Input/output is to a socket",
    "  set=stdin (I) (T)          The input data comes from the terminal stdin",
    "  set=stdout (O) (T)         The output data goes to the terminal stdout",
    "  set=tty (T)                The input is from stdin or the output data is to stdout",
    "  set=logset (O) (L)         The output will be placed on the current log set as though a native update",
    "  start=timespec (I)         Specify a time specification (see later) to start the input data at",
    "  terminate=eof (I)          Switch to elder log sets as necessary and only terminate on very eldest update",
    "  terminate=eos (I)          Terminate program when the log set first processed is exhausted",
    "  terminate=wait (I)         Switch to elder log sets as necessary and wait for new updates when exhausted",
    "  terminate=waiteos (I)      Switch to elder log sets as required and wait for new updates until logset switched, then terminate",
    "  timeout=nnn (I)            Provides a timeout for 'terminate=wait' in seconds",
    "  verbose{=true|false}       Display to stderr a summary of the specification",
    "  (D) shows we assume the device type is DATABASE",
    "  (I) shows it is only valid for an INPUT device",
    "  (L) shows we assume the device type is LOG SET",
    "  (N) shows we assume the device type is NULL",
    "  (O) shows it is only valid for an INPUT device",
    "  (S) shows we assume the device type is SERIAL",
    "  (T) shows we assume the device type is TTY",
    "timespec (used in start= and end=) can be one of the following :",
    "  nn:nn:nn                   Time of day (todays date assumed)",
    "  DD-MMM-YYYY                Date (midnight assumed). Any date convention accepted",
    "  nn:nn:nn,DD-MM-YYYY        Both time and date specified (or the other way around)",
    "  filename                   Name of file create with 'vbackup -sfilename' -- the time vbackup started is used",
    "  filename                   Any other normal file , the time the file last modified is used",
};
// clang-format on

}  // namespace velda::journal
#endif

#endif
