// duplicator.h - what the files of the duplicator share: the state of a run and the steps of its main loop. Private to
// the subsystem. A run has one thread and one context; README.md of this folder tells the road of a record.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "journal/log_select.h"
#include "journal/logger_context.h"
#include "runtime/vutil.h"

namespace velda::journal {

// The updates of a process that wait for the end of its transaction.
struct DupTransaction {
    std::uint32_t pid = 0;              // 0: the entry is free
    std::uint32_t count = 0;            // updates held
    std::vector<unsigned char> buffer;  // each: a 4-byte length that counts itself, then the record
    std::int64_t startTime = 0;         // stamp of its TRANSTART: a restart has to read from there
};

// One open file of the cache.
struct CachedFile {
    std::string name;
    std::uint32_t hash = 0;
    std::unique_ptr<VediControlBlock> file;  // null: the entry is free
};

// Open files by the hash of their names. Each bucket is kept in order of last use, the latest first.
inline constexpr std::size_t CacheBuckets = 97, CachedFilesOfBucket = 30;
using FileCache = std::array<std::array<CachedFile, CachedFilesOfBucket>, CacheBuckets>;

// The file of the last update, by the name that its record has: the next update is most often one of the same file.
struct OpenFileMemo {
    std::string recordName;
    std::string name;                  // with its renames
    VediControlBlock *file = nullptr;  // null: nothing is remembered
};

class UpdateBatch;
class DryRun;
class RunMonitor;

// Codes of VediLoggerMisc that only replay uses.
enum LoggerCode : int {
    LoggerFreshView = 7,     // what the session knows of journal and files is fresh from here on
    LoggerApplyBegins = 16,  // encloses what is applied to the database
    LoggerApplyEnds = 17
};

enum class Severity { Status = 1, Warning = 2, Error = 3 };

// What the codes of the callback stand for.
enum CallbackCode : int {
    RetryBegins = 1,
    RetryEnds = 2,
    WaitBegins = 3,
    WaitEnds = 4,
    BlockReadBegins = 5,
    BlockReadEnds = 6,
    PromptBegins = 7,
    PromptEnds = 8,
    BetweenRecords = 10,
    ErrorText = 20
};

// How a run ends: exit codes of the process.
enum DupExitCode : int {
    ExitDone = 0,
    ExitBadSpecification = 2,
    ExitNoJournal = 3,  // or no console
    ExitTooManyErrors = 4,
    ExitKilled = 5,
    ExitWriteFailed = 7,  // on standard output or a socket
    ExitNoPrompt = 8,
    ExitQuit = 9,
    ExitSignal = 2000
};

// What the devices of a run keep.
struct TransferState {
    struct {
        std::array<unsigned char, 8> bytes{};
        std::size_t filled = 0;
    } milestone;                    // the one that arrives, as far as it is there
    bool hasMilestoneFile = false;  // the milestone file has a milestone
    bool isEndingDevice = false;    // the record that ends a device is under way
    bool isKilled = false;          // an operator has asked the run to stop, and that was reported
    bool hasTrap = false;           // the trap for signals is set
    bool hasHeldBytes = false;      // the connection may hold back bytes until more follow
    std::string savedStatusText;    // from before a wait
};

// How often a receiver tells how far it is, at most, and by which clock. Tests change them.
inline std::int64_t milestone_seconds = 30;
inline std::int64_t (*milestone_clock)() = present_time;

struct DupContext {
    std::uint32_t progressEvery = 0;  // show progress at each multiple of so many records; 0: never
    std::uint32_t starsPending = 0;   // a line of progress marks is unfinished
    VRunFile *logFile = nullptr;      // opened for writing and emptied
    std::int64_t logFileSize = 0;
    std::string errorFileName;
    std::unique_ptr<VAR> errorFile;  // open: where failed updates are kept
    std::uint32_t maxErrors = 10000;
    std::uint32_t errorCount = 0;
    LogSelect *input = nullptr;
    LogSelect *output = nullptr;
    DupStatusSlot unlistedSlot{};         // where a run counts that has no slot of its own
    DupStatusSlot *slot = &unlistedSlot;  // never null
    DupWatch unlistedWatch{};
    DupWatch *watch = &unlistedWatch;  // beside the slot
    std::int64_t startTicks = 0;       // milliseconds of a steady clock at the start
    double startUserSeconds = 0;       // processor time of the process at the start
    double startSystemSeconds = 0;
    std::uint32_t initialised = 0;  // both specifications were reached
    std::uint32_t useSelectList = 0;
    std::uint32_t verboseLevel = 0;
    std::uint32_t exclusive = 0;
    std::uint32_t future = 0;
    std::uint32_t lastSet = 0, lastFile = 0;  // position of the last record read
    std::int64_t lastOffset = 0;
    std::int64_t lastTime = 0;   // stamp of the last record read
    std::int64_t firstTime = 0;  // of the first
    std::int64_t ackTime = 0;    // the last milestone received
    std::uint32_t recordsFromSet = 0;
    FileCache fileCache;
    TransferState transfer;
    std::vector<DupTransaction> transactions;
    std::uint32_t transactionCount = 0;
    std::int64_t lastMilestoneSent = 0;
    std::string programName;
    std::uint32_t terminationReason = 0;  // low half: the error that ended the reading; high half: why it ended
    bool tooManyErrors = false;           // the limit was exceeded, and that was reported
    bool exiting = false;                 // DupExit runs or has run
    bool staysAfterExit = false;          // DupExit returns to its caller
    bool allowsManyFiles = false;         // the process's limit of open files was raised
    OpenFileMemo memo;
    std::unique_ptr<UpdateBatch> batch;  // exclusive use: updates that wait to be applied together
    bool keepsBatchWhole = false;        // a transaction is being added to the batch

    std::unique_ptr<DryRun> dryRun;       // a run that only counts what it would do
    std::unique_ptr<RunMonitor> monitor;  // shows the run each second

    DupContext();
    ~DupContext();
};

// The session's context, made at its first use.
DupContext &dup_context(DP *dp);
// The same as new, with its start noted: what a run calls before anything else.
DupContext &start_dup_context(DP *dp);

// --- the main loop and replay ---

// Reads records and hands them on until the input ends; gives the exit code.
int run_duplicator(DP *dp);
// The next record of the input, or null with errno.
const unsigned char *DupReadRecord(DP *dp);
// Hands a record to the output.
void DupDispatch(DP *dp, const unsigned char *record);
// Applies a record to the database. A failure is reported and the run goes on.
void DupApply(DP *dp, const unsigned char *record);
// The open file of a name through the cache; null after a report.
VediControlBlock *DupOpenCached(DP *dp, const char *name, std::uint32_t length, const unsigned char *record);
// One line to the log file and standard error. `definition` and `record` may be null.
void DupReport(DP *dp, const LogSelect *definition, const unsigned char *record, Severity severity, const char *format,
               ...) __attribute__((format(printf, 5, 6)));
// The record as a dynamic array, with the message as its extra text. 0 or the error.
int convert_record(DP *dp, const unsigned char *record, const char *message, VAR &converted);
// Ends the run: statistics, the end of the output stream, the slot. Ends the command with the code, unless the context
// says to stay; returns at once when it runs already.
void DupExit(DP *dp, int code);
// Applies what waits in a batch. Called before whatever may wait, and before the database is said to have got anywhere.
void apply_pending(DP *dp);
// Shows the progress that the options ask for, for a record that was read last.
void show_progress(DP *dp, const unsigned char *record);
// The same without a report; null with the error.
VediControlBlock *open_cached(DP *dp, std::string_view name, int &error);
void report_failed_open(DP *dp, std::string_view name, int error, const unsigned char *record);
// Closes each file of the cache that has this name.
void close_cached(DP *dp, DupContext &context, std::string_view name);
void close_all_cached(DP *dp, DupContext &context);
// Milliseconds of a clock that never goes back.
std::int64_t steady_milliseconds();
// A path with the first rename of the output that applies.
std::string renamed_path(const LogSelect &output, std::string_view path);

// --- the status slot, which other processes read ---

// Stores a status text and gives the one before. No lock: whoever reads the slot while it changes may see a mixture for
// a moment, and nobody decides anything by it.
std::string set_status_text(DP *dp, std::string_view text);
// Stores how far the run has got: the position last read, and the milestone that came in or went out last.
void publish_position(const DupContext &context);
void publish_milestone(const DupContext &context, std::int64_t milestone);
void publish_error(const DupContext &context, std::string_view message);
// The same where the text before does not matter: costs nothing when it is shown already.
void show_status(DP *dp, std::string_view text);
// Add records and their bytes to the counters of the slot.
void count_input(DP *dp, std::int64_t bytes);
void count_output(DP *dp, std::int64_t bytes, std::int64_t records = 1);

// --- devices, sockets and milestones ---

// The next record of a stream, or null with errno.
const unsigned char *LoggerReadDevice(DP *dp, LogSelect *select, VELDALoggerCallback callback);
// The next block of a stream. 0 or an error.
int LoggerFillBlock(DP *dp, LogSelect *select, VELDALoggerCallback callback);
// Copies a record to the output's stream.
void DupWriteDevice(DP *dp, const unsigned char *record);
// Writes the block; with the flag, moves to the next device.
void DupFlushBlock(DP *dp, bool new_device);
// Starts a block.
void DupInitBlock(DP *dp);
// Writes the type 1 record that ends a stream or a device.
void write_end_record(DP *dp);
// Ends the output's stream and sends what is left of it. A sender then waits, if told so, until the receiver has taken
// all and closed the connection.
void end_stream(DP *dp, bool waits_for_receiver);
// Receiver: tells the sender how far the database has got.
void DupSendMilestone(DP *dp, DupContext &context, std::int64_t time);
// Sender: takes in what the receiver tells, and keeps it in the milestone file.
void DupReadMilestone(DP *dp, DupContext &context);
// Takes the milestones that have arrived. False when the receiver has closed the connection.
bool take_milestones(DP *dp, DupContext &context);
// The callback of a run.
void DupCallback(DP *dp, int code, ...);

}  // namespace velda::journal
