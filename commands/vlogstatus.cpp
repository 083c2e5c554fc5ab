// vlogstatus: the journal's reports for people, as JSON, and as metrics.
#include <algorithm>
#include <charconv>
#include <ctime>

#include "commands/actions.h"
#include "commands/operands.h"
#include "commands/table_output.h"
#include "journal/journal.h"

namespace velda::commands {

namespace {

constexpr std::string_view Name = "vlogstatus";

enum class Kind { Number, Switch, Time, Text, Status };

struct Field {
    int attribute;
    std::string_view label;
    std::string_view json_name;
    Kind kind;
};

constexpr Field Fields[] = {
    {11, "Status", "status", Kind::Status},
    {22, "Current set", "current_set", Kind::Number},
    {1, "Set", "set", Kind::Number},
    {7, "Bytes of the set", "bytes", Kind::Number},
    {8, "Records of the set", "records", Kind::Number},
    {36, "First time of the set", "first_time", Kind::Time},
    {37, "Last time of the set", "last_time", Kind::Time},
    {38, "Archived", "archived_time", Kind::Time},
    {39, "Archived to", "archive_location", Kind::Text},
    {41, "Last checkpoint", "last_checkpoint", Kind::Time},
    {23, "Seconds between syncs", "sync_seconds", Kind::Number},
    {40, "Minutes between checkpoints", "checkpoint_minutes", Kind::Number},
    {43, "Sync at transaction ends", "sync_transactions", Kind::Switch},
    {25, "Extended records", "extended_records", Kind::Switch},
    {42, "Enciphered records", "encrypted_records", Kind::Switch},
    {33, "First warning, percent", "warn_initial_percent", Kind::Number},
    {34, "Further warnings, percent", "warn_step_percent", Kind::Number},
    {35, "Further warnings, seconds", "warn_step_seconds", Kind::Number},
    {9, "Changes", "update_count", Kind::Number},
    {12, "Created", "created_time", Kind::Time},
    {14, "Created by", "created_user", Kind::Text},
    {15, "Last change", "updated_time", Kind::Time},
    {17, "Last change by", "updated_user", Kind::Text},
    {18, "Last switch", "switched_time", Kind::Time},
    {20, "Last switch by", "switched_user", Kind::Text},
    {10, "Configuration", "configuration", Kind::Text},
    {30, "Administration log", "administration_log", Kind::Text},
    {31, "Notify program", "notify_program", Kind::Text},
};

// Attributes of a file's row.
enum FileAttribute { Path = 1, Percent = 2, Named = 3, Limit = 4, NamedForPeople = 5, LimitForPeople = 6 };

constexpr Column FileColumns[] = {{Path, "File", "path", false},
                                  {Percent, "Percent used", "percent_used", true},
                                  {NamedForPeople, "Named", "created", false},
                                  {LimitForPeople, "Limit", "limit", true}};

// The same for programs, with the time as a number.
constexpr Column FileMembers[] = {{Path, "", "path", false},
                                  {Percent, "", "percent_used", true},
                                  {Named, "", "created_time", true},
                                  {Limit, "", "max_size", true}};

// Attributes of a duplicator's row: those of its slot, and from 30 on how far it has got.
enum DuplicatorAttribute {
    Process = 1,
    Started = 2,
    Port = 3,
    Doing = 4,
    Input = 10,
    RecordsRead = 12,
    BytesRead = 14,
    InputErrors = 15,
    Output = 20,
    RecordsWritten = 22,
    BytesWritten = 24,
    OutputErrors = 25,
    LastTime = 30,
    Rate = 31,
    RecordsBehind = 32,
    SecondsBehind = 33,
    Milestone = 34,
    MilestoneForPeople = 35,
    BytesBehind = 36,
    LastError = 37
};

constexpr Column DuplicatorColumns[] = {{Process, "Process", "pid", true},
                                        {Port, "Port", "port", true},
                                        {Doing, "Doing", "status", false},
                                        {Input, "Input", "input", false},
                                        {RecordsRead, "Read", "records_read", true},
                                        {BytesRead, "Bytes", "bytes_read", true},
                                        {Rate, "A second", "records_per_second", true},
                                        {InputErrors, "Errors", "input_errors", true},
                                        {RecordsBehind, "Behind", "lag_records", true},
                                        {BytesBehind, "Bytes", "lag_bytes", true},
                                        {SecondsBehind, "Seconds", "lag_seconds", true},
                                        {Output, "Output", "output", false},
                                        {RecordsWritten, "Written", "records_written", true},
                                        {BytesWritten, "Bytes", "bytes_written", true},
                                        {OutputErrors, "Errors", "output_errors", true},
                                        {MilestoneForPeople, "Milestone", "milestone", false},
                                        {LastError, "Last error", "last_error", false}};

// The same for programs, with the times as numbers.
constexpr Column DuplicatorMembers[] = {{Process, "", "pid", true},
                                        {Started, "", "start_time", true},
                                        {Port, "", "port", true},
                                        {Doing, "", "status", false},
                                        {Input, "", "input", false},
                                        {RecordsRead, "", "records_read", true},
                                        {BytesRead, "", "bytes_read", true},
                                        {InputErrors, "", "input_errors", true},
                                        {Output, "", "output", false},
                                        {RecordsWritten, "", "records_written", true},
                                        {BytesWritten, "", "bytes_written", true},
                                        {OutputErrors, "", "output_errors", true},
                                        {Rate, "", "records_per_second", true},
                                        {LastTime, "", "last_time", true},
                                        {RecordsBehind, "", "lag_records", true},
                                        {BytesBehind, "", "lag_bytes", true},
                                        {SecondsBehind, "", "lag_seconds", true},
                                        {Milestone, "", "milestone", true},
                                        {LastError, "", "last_error", false}};

struct Reports {
    VAR status;
    std::vector<VAR> files;
    std::vector<VAR> duplicators;
    int64_t last_sync = 0;
};

std::string text_at(const VAR &report, int attribute) { return VAR(report(attribute)).str(); }

// The columns of values turned into a row for each value.
std::vector<VAR> rows_of(const VAR &report, int counted_attribute, std::initializer_list<std::pair<int, int>> places) {
    std::vector<VAR> rows;
    for (int value = 1; value <= dcount(VAR(report(counted_attribute)), VM); ++value) {
        VAR row;
        for (const auto &[from, to] : places) row(to) = VAR(report(from, value));
        rows.push_back(row);
    }
    return rows;
}

std::string time_for_people(const std::string &seconds) {
    const std::time_t time = static_cast<std::time_t>(VAR(seconds).to_integer());
    if (time <= 0) return "never";
    std::tm parts;
    gmtime_r(&time, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts);
    return text;
}

// The row of the process in a report of all, or an empty one.
VAR row_of_process(const std::vector<VAR> &rows, const VAR &process) {
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const VAR &row) { return row(1) == process; });
    return found == rows.end() ? VAR() : *found;
}

std::vector<VAR> read_duplicators(DP *dp) {
    VAR slots, lags;
    VELDALoggerStatusRead(dp, &slots);
    velda_duplicator_lag(dp, &lags);
    std::vector<VAR> duplicators = rows_of(slots, 1,
                                           {{1, Process},
                                            {2, Started},
                                            {3, Port},
                                            {4, Doing},
                                            {10, Input},
                                            {12, RecordsRead},
                                            {14, BytesRead},
                                            {15, InputErrors},
                                            {20, Output},
                                            {22, RecordsWritten},
                                            {24, BytesWritten},
                                            {25, OutputErrors}});
    const std::vector<VAR> rows = rows_of(lags, 1, {{1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {7, 7}, {8, 8}});
    for (VAR &duplicator : duplicators) {
        const VAR lag = row_of_process(rows, VAR(duplicator(Process)));
        constexpr int Places[] = {0,         0,           LastTime, Rate, RecordsBehind, SecondsBehind,
                                  Milestone, BytesBehind, LastError};
        for (int attribute = 2; attribute <= 8; ++attribute) duplicator(Places[attribute]) = VAR(lag(attribute));
        if (!VAR(lag(6)).empty()) duplicator(MilestoneForPeople) = time_for_people(VAR(lag(6)).str());
    }
    return duplicators;
}

Reports read_reports(DP *dp, int set) {
    Reports reports;
    VELDALoggerGetStatus(&reports.status, dp, set);
    if (text_at(reports.status, 1) == "-1")
        fail("vlogstatus: " + text_at(reports.status, 2) + "\n" + velda_logger_error(dp));
    reports.last_sync = velda_logger_last_sync(dp);
    reports.files = rows_of(reports.status, 3, {{3, Path}, {4, Percent}, {5, Named}, {6, Limit}});
    for (VAR &file : reports.files) {
        if (text_at(file, Named).empty()) continue;  // it cannot be opened
        file(NamedForPeople) = time_for_people(text_at(file, Named));
        file(LimitForPeople) = text_at(file, Limit) == "-1" ? "none" : text_at(file, Limit);
    }
    reports.duplicators = read_duplicators(dp);
    return reports;
}

std::string status_word(const std::string &number) {
    constexpr std::string_view Words[] = {"inactive", "active", "suspended"};
    const auto n = VAR(number).to_integer();
    return n >= 0 && n < 3 ? std::string(Words[n]) : number;
}

std::string value_for_people(const Field &field, const std::string &value) {
    if (field.kind == Kind::Time) return time_for_people(value);
    if (field.kind == Kind::Switch) return value == "0" ? "no" : "yes";
    return field.kind == Kind::Status ? status_word(value) : value;
}

std::string report_for_people(const Reports &reports) {
    std::string text;
    for (const Field &field : Fields) {
        std::string label(field.label);
        label.resize(30, ' ');
        const std::string value = value_for_people(field, text_at(reports.status, field.attribute));
        text += (value.empty() ? std::string(field.label) : label + value) + "\n";
    }
    text += "\n" + table_for_people(FileColumns, reports.files);
    if (!reports.duplicators.empty()) text += "\n" + table_for_people(DuplicatorColumns, reports.duplicators);
    return text;
}

std::string without_line_end(std::string text) {
    if (text.ends_with('\n')) text.pop_back();
    return text;
}

std::string report_as_json(const Reports &reports) {
    std::string text = "{";
    for (const Field &field : Fields) {
        const std::string value = text_at(reports.status, field.attribute);
        const bool is_number = field.kind != Kind::Text && field.kind != Kind::Status;
        text += json_string(field.json_name) + ": " +
                (is_number ? value : json_string(field.kind == Kind::Status ? status_word(value) : value)) + ",\n ";
    }
    text += "\"files\": " + without_line_end(table_as_json(FileMembers, reports.files)) + ",\n ";
    return text + "\"duplicators\": " + without_line_end(table_as_json(DuplicatorMembers, reports.duplicators)) + "}\n";
}

struct Metric {
    std::string_view name;
    std::string_view type;
    std::string_view help;
};

std::string metric_head(const Metric &metric) {
    const std::string name = "velda_journal_" + std::string(metric.name);
    return "# HELP " + name + " " + std::string(metric.help) + "\n# TYPE " + name + " " + std::string(metric.type) +
           "\n";
}

std::string sample(const Metric &metric, const std::string &label, const std::string &label_value,
                   const std::string &value) {
    const std::string labels = label.empty() ? "" : "{" + label + "=" + json_string(label_value) + "}";
    return "velda_journal_" + std::string(metric.name) + labels + " " + value + "\n";
}

constexpr std::pair<int, Metric> SetMetrics[] = {
    {11, {"status", "gauge", "0 inactive, 1 active, 2 suspended."}},
    {22, {"current_set", "gauge", "Set that is written, 0 for none."}},
    {8, {"records", "gauge", "Records in the set."}},
    {7, {"bytes", "gauge", "Bytes in the set."}},
    {41, {"last_checkpoint_seconds", "gauge", "Time of the last checkpoint, -1 for none."}},
    {23, {"sync_interval_seconds", "gauge", "Longest time between two syncs."}},
};

constexpr Metric PercentUsed = {"file_used_percent", "gauge", "How full a file of the set is."};
constexpr std::pair<int, Metric> DuplicatorMetrics[] = {
    {RecordsRead, {"duplicator_records_read", "counter", "Records that a duplicator has read."}},
    {BytesRead, {"duplicator_bytes_read", "counter", "Bytes of records that a duplicator has read."}},
    {RecordsWritten, {"duplicator_records_written", "counter", "Records that a duplicator has written."}},
    {BytesWritten, {"duplicator_bytes_written", "counter", "Bytes of records that a duplicator has written."}},
    {InputErrors, {"duplicator_input_errors", "counter", "Errors of a duplicator's input."}},
    {OutputErrors, {"duplicator_output_errors", "counter", "Errors of a duplicator's output."}},
    {RecordsBehind, {"duplicator_lag_records", "gauge", "Records of the journal that a duplicator has not read yet."}},
    {BytesBehind, {"duplicator_lag_bytes", "gauge", "Bytes of the journal that a duplicator has not read yet."}},
    {SecondsBehind, {"duplicator_lag_seconds", "gauge", "Seconds that a duplicator is behind the journal."}},
    {LastTime, {"duplicator_last_record_seconds", "gauge", "Time of the last record that a duplicator has read."}},
    {Milestone, {"duplicator_milestone_seconds", "gauge", "Last milestone of a duplicator, come in or sent."}},
};

constexpr Metric LastSync = {"last_sync_seconds", "gauge", "Time of the last sync of the journal, 0 for none."};
constexpr Metric SinceSync = {"since_sync_seconds", "gauge", "Seconds since the last sync of the journal."};

std::string sync_metrics(int64_t last_sync) {
    std::string text = metric_head(LastSync) + sample(LastSync, "", "", std::to_string(last_sync));
    if (last_sync == 0) return text;
    const int64_t since = std::max<int64_t>(std::time(nullptr) - last_sync, 0);
    return text + metric_head(SinceSync) + sample(SinceSync, "", "", std::to_string(since));
}

std::string report_as_metrics(const Reports &reports) {
    std::string text = sync_metrics(reports.last_sync);
    for (const auto &[attribute, metric] : SetMetrics)
        text += metric_head(metric) + sample(metric, "", "", text_at(reports.status, attribute));
    text += metric_head(PercentUsed);
    for (const VAR &file : reports.files)
        if (!text_at(file, Percent).empty())
            text += sample(PercentUsed, "file", text_at(file, Path), text_at(file, Percent));
    for (const auto &[attribute, metric] : DuplicatorMetrics) {
        text += metric_head(metric);
        for (const VAR &duplicator : reports.duplicators) {
            const std::string value = text_at(duplicator, attribute);
            if (!value.empty()) text += sample(metric, "pid", text_at(duplicator, Process), value);
        }
    }
    return text;
}

int set_operand(const Words &words) {
    if (words.empty()) return -1;
    int set = 0;
    const auto [end, error] = std::from_chars(words[0].data(), words[0].data() + words[0].size(), set);
    if (words.size() > 1 || error != std::errc() || end != words[0].data() + words[0].size() || set < 1)
        usage_error(Name, "'" + words.back() + "' is not a set");
    return set;
}

}  // namespace

void journal_status(DP *dp, const Words &words) {
    Words operands = words;
    const bool as_json = take_option(operands, "--json");
    const bool as_metrics = take_option(operands, "--metrics");
    if (as_json && as_metrics) usage_error(Name, "--json and --metrics exclude each other");
    const Reports reports = read_reports(dp, set_operand(operands));
    crt(as_json ? report_as_json(reports) : as_metrics ? report_as_metrics(reports) : report_for_people(reports));
}

}  // namespace velda::commands
