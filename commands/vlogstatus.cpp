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

enum class Kind { Number, Time, Text, Status };

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
    {43, "Sync at transaction ends", "sync_transactions", Kind::Number},
    {25, "Extended records", "extended_records", Kind::Number},
    {42, "Enciphered records", "encrypted_records", Kind::Number},
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

constexpr Column FileColumns[] = {
    {1, "File", "path", false},
    {2, "Percent used", "percent_used", true},
    {3, "Named", "created_time", true},
    {4, "Limit", "max_size", true},
};

constexpr Column DuplicatorColumns[] = {{1, "Process", "pid", true},          {3, "Port", "port", true},
                                        {4, "Doing", "status", false},        {10, "Input", "input", false},
                                        {12, "Read", "records_read", true},   {15, "Errors", "input_errors", true},
                                        {20, "Output", "output", false},      {22, "Written", "records_written", true},
                                        {25, "Errors", "output_errors", true}};

struct Reports {
    VAR status;
    std::vector<VAR> files;
    std::vector<VAR> duplicators;
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

Reports read_reports(DP *dp, int set) {
    Reports reports;
    VELDALoggerGetStatus(&reports.status, dp, set);
    if (text_at(reports.status, 1) == "-1")
        fail("vlogstatus: " + text_at(reports.status, 2) + "\n" + velda_logger_error(dp));
    reports.files = rows_of(reports.status, 3, {{3, 1}, {4, 2}, {5, 3}, {6, 4}});
    VAR slots;
    VELDALoggerStatusRead(dp, &slots);
    reports.duplicators =
        rows_of(slots, 1, {{1, 1}, {3, 3}, {4, 4}, {10, 10}, {12, 12}, {15, 15}, {20, 20}, {22, 22}, {25, 25}});
    return reports;
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

std::string status_word(const std::string &number) {
    constexpr std::string_view Words[] = {"inactive", "active", "suspended"};
    const auto n = VAR(number).to_integer();
    return n >= 0 && n < 3 ? std::string(Words[n]) : number;
}

std::string value_for_people(const Field &field, const std::string &value) {
    if (field.kind == Kind::Time) return time_for_people(value);
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
        const bool is_number = field.kind == Kind::Number || field.kind == Kind::Time;
        text += json_string(field.json_name) + ": " +
                (is_number ? value : json_string(field.kind == Kind::Status ? status_word(value) : value)) + ",\n ";
    }
    text += "\"files\": " + without_line_end(table_as_json(FileColumns, reports.files)) + ",\n ";
    return text + "\"duplicators\": " + without_line_end(table_as_json(DuplicatorColumns, reports.duplicators)) + "}\n";
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
    {12, {"duplicator_records_read", "counter", "Records that a duplicator has read."}},
    {22, {"duplicator_records_written", "counter", "Records that a duplicator has written."}},
};
constexpr Metric Lag = {"duplicator_lag_records", "gauge", "Records of the set that a duplicator has not read yet."};

std::string lag_of(const Reports &reports, const VAR &duplicator) {
    const int64_t behind = VAR(reports.status(8)).to_integer() - VAR(duplicator(12)).to_integer();
    return std::to_string(std::max<int64_t>(behind, 0));
}

std::string report_as_metrics(const Reports &reports) {
    std::string text;
    for (const auto &[attribute, metric] : SetMetrics)
        text += metric_head(metric) + sample(metric, "", "", text_at(reports.status, attribute));
    text += metric_head(PercentUsed);
    for (const VAR &file : reports.files)
        if (!text_at(file, 2).empty()) text += sample(PercentUsed, "file", text_at(file, 1), text_at(file, 2));
    for (const auto &[attribute, metric] : DuplicatorMetrics) {
        text += metric_head(metric);
        for (const VAR &duplicator : reports.duplicators)
            text += sample(metric, "pid", text_at(duplicator, 1), text_at(duplicator, attribute));
    }
    text += metric_head(Lag);
    for (const VAR &duplicator : reports.duplicators)
        text += sample(Lag, "pid", text_at(duplicator, 1), lag_of(reports, duplicator));
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
