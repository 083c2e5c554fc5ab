// select_parser.h - reading a specification: what the files select_*.cpp share. Private to the subsystem.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "journal/log_select.h"
#include "journal/logger_context.h"

namespace velda::journal {

// The codes of the tokens, as VELDALoggerTokenList tells them.
enum class TokenCode : int {
    None = 0,
    Set = 1,
    Start,
    End,
    Terminate,
    Device,
    Type,
    Verbose,
    BlockSize,
    BlockMax,
    Rename,
    RenameFile,
    NoTrans,
    NoFlush,
    Prompt,
    Timeout,
    Retry,
    HostName,
    Port,
    Encrypt,
    Scheme,
    Key,
    SkipRec,
    Milestone
};
static_assert(static_cast<int>(TokenCode::Milestone) == 23);

// What specifications have set for the whole process.
struct SpecSettings {
    std::atomic<bool> verbose = false;
    std::atomic<bool> skip_damaged = true;
    std::atomic<bool> skip_given = false;
    std::atomic<bool> ending_shown = false;  // the line of the summary that is shown once
    std::atomic<std::uint32_t> previous_flags = 0;
    std::atomic<std::int32_t> previous_timeout = 0;
};
SpecSettings &spec_settings();

// What a start or end token gave: a stamp, or a local date and time of day that become one behind the last token. A
// part that was not given is 0.
struct TimeOperand {
    std::int64_t stamp = 0;
    std::int32_t date = 0;
    std::int32_t time = 0;
};

// One specification on its way into a LogSelect.
class SpecParser {
  public:
    // With `is_trial`, nothing outside is touched: no milestone file is made and no connection.
    SpecParser(DP *dp, LogSelect &select, bool is_output, bool is_trial)
        : dp_(dp), context_(logger_context(dp)), select_(select), is_output_(is_output), is_trial_(is_trial) {}

    // Reads all tokens and completes the selection. False after a report, with errno set.
    bool read(std::string_view text);

    // The actions of the tokens, on the context's operand.
    bool set();
    bool start();
    bool end();
    bool terminate();
    bool device();
    bool ignore() { return true; }
    bool verbose();
    bool block_size();
    bool block_max();
    bool rename();
    bool rename_file();
    bool no_transactions();
    bool no_flush();
    bool prompt();
    bool timeout();
    bool retry();
    bool host_name();
    bool port();
    bool encrypt();
    bool scheme();
    bool key();
    bool skip_records();
    bool milestone();

  private:
    bool token(std::string_view text);
    bool is_allowed(char rule);
    bool boolean(bool &value);
    bool boolean_flag(std::uint32_t flag);
    bool number(std::int32_t &field, std::int32_t least, const char *message);
    bool time_token(TimeOperand &operand);
    bool make_milestone_file(const std::string &name);
    void use_builtin_key();

    void complete_times();
    bool complete_device();
    bool complete_stream();
    bool complete_log_set();

    DP *dp_;
    LoggerContext &context_;
    LogSelect &select_;
    bool is_output_;
    bool is_trial_;
    TokenCode last_code_ = TokenCode::None;
    TimeOperand start_;
    TimeOperand end_;
    bool milestone_given_ = false;
};

// VELDALoggerSelectStart, and the same as a trial.
LogSelect *start_selection(DP *dp, const char *specification, bool is_output, VAR *error_text, bool is_trial);

// Sets the device type. False after a report when another one was set before.
bool LoggerSetDeviceType(DP *dp, LogSelect &select, DeviceType type);

// YES, TRUE, NO or FALSE; an empty operand leaves the value. False after a report.
bool LoggerParseBool(DP *dp, std::string_view operand, bool &value);

// Adds "from to" to the renames; an empty line or a comment adds nothing. 0, or 22 after a warning.
int LoggerAddRename(DP *dp, LogSelect &select, std::string_view text);
// Adds each line of a file. 0, or an error after a report.
int LoggerReadRenameFile(DP *dp, LogSelect &select, const std::string &name);

// Reads a time, a date, both, or the name of a file that stands for a time. False after a report.
bool LoggerParseTime(DP *dp, const std::string &operand, TimeOperand &result);
// The number behind `tag` in the first line of a file that begins with `label` and has one; 0 when there is none.
std::int64_t LoggerFileStamp(DP *dp, const std::string &name, std::string_view label, std::string_view tag);
// The UTC stamp of a local day number and seconds since midnight; a date of 0 is today, both 0 give 0.
std::int32_t LoggerMakeTime(DP *dp, std::int32_t time, std::int32_t date);

// Tells standard error what the specification means.
void show_summary(DP *dp, const LogSelect &select, bool is_output, bool milestone_given);

// --- texts ---

inline constexpr std::string_view Blanks = " \t";
inline constexpr std::string_view PartSeparators = " \t,;";

// Whether the texts are equal, letters in any case.
bool same_word(std::string_view left, std::string_view right);
// The whole text as a decimal number.
std::optional<std::int32_t> decimal_number(std::string_view text);
// Takes the next part that one of `separators` ends off the front of the text; "" at its end.
std::string_view take_part(std::string_view &text, std::string_view separators);

// A text file line by line, without more of a line in memory than its first 1024 bytes.
class SpecLines {
  public:
    SpecLines(DP *dp, const std::string &name);
    ~SpecLines();
    SpecLines(const SpecLines &) = delete;
    SpecLines &operator=(const SpecLines &) = delete;

    bool is_open() const { return file_ != nullptr; }
    VRunFile *file() const { return file_; }
    // The next line; false at the end of the file or on an error, which `error` has.
    bool next(std::string &line);
    int error() const { return error_; }
    // Whether the line was longer than what was given of it.
    bool was_cut() const { return was_cut_; }

  private:
    bool fill();

    static constexpr std::size_t LineBytes = 1024, ChunkBytes = 65536;
    DP *dp_;
    VRunFile *file_;
    std::int64_t offset_ = 0;
    std::string chunk_;
    std::size_t position_ = 0;
    int error_ = 0;
    bool was_cut_ = false;
};

}  // namespace velda::journal
