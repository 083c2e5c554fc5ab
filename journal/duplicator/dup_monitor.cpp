// What a supervisor and a terminal are shown of a run. The counters lie in the run's slot, each stored at once, so the
// run is never held up by those who watch it.
#include "journal/duplicator/dup_monitor.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>

#include "journal/logger_lag.h"

namespace velda::journal {

namespace {

constexpr int Pace = 1000;  // milliseconds

template <class Number>
Number now(const Number &field) {
    return std::atomic_ref<Number>(const_cast<Number &>(field)).load(std::memory_order_relaxed);
}

// What is shown at one instant.
struct RunState {
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;
    std::uint32_t errors = 0;
    std::int64_t rate = 0;  // records a second since the instant before
    std::int64_t last_time = 0;
    DuplicatorLag lag;
    std::string status;
    std::string last_error;
};

// A text may change while it is read: what cannot be shown becomes a blank.
std::string shown(std::string text) {
    for (char &byte : text)
        if (byte < ' ' || byte > '~' || byte == '"' || byte == '\\') byte = ' ';
    return text;
}

RunState state_of(const VELDALoggerConfig &config, const DupStatusSlot &slot) {
    RunState state;
    state.records = now(slot.inputRecords);
    state.bytes = now(slot.inputBytes);
    state.errors = now(slot.inputErrors) + now(slot.outputErrors);
    state.last_time = now(slot.lastTime);
    state.lag = lag_of(config, slot);
    state.status = shown(logger_text(slot.statusText, sizeof slot.statusText));
    state.last_error = shown(last_error_of(config, slot));
    return state;
}

template <class... Values>
std::string formatted(const char *format, const Values &...values) {
    char text[512];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

std::string as_json(const RunState &state, bool ended, int exit_code) {
    std::string line = formatted("{\"time\": %" PRId64 ", \"records\": %" PRIu64 ", \"bytes\": %" PRIu64
                                 ", \"rate\": %" PRId64 ", \"errors\": %" PRIu32 ", \"last_time\": %" PRId64,
                                 present_time(), state.records, state.bytes, state.rate, state.errors, state.last_time);
    line += state.lag.is_known
                ? formatted(", \"lag_records\": %" PRId64 ", \"lag_bytes\": %" PRId64 ", \"lag_seconds\": %" PRId64,
                            state.lag.records, state.lag.bytes, state.lag.seconds)
                : ", \"lag_records\": null, \"lag_bytes\": null, \"lag_seconds\": null";
    line += ", \"last_error\": " + (state.last_error.empty() ? "null" : '"' + state.last_error + '"');
    line += ", \"state\": \"" + (ended ? "ENDED" : state.status) + "\"";
    if (ended) line += formatted(", \"exit_code\": %d", exit_code);
    return line + "}\n";
}

std::string for_people(const RunState &state) {
    std::string line = formatted("%" PRIu64 " records, %.1f MB, %" PRId64 " a second", state.records,
                                 static_cast<double>(state.bytes) / 1e6, state.rate);
    if (state.lag.is_known) line += formatted(", %" PRId64 " s behind", state.lag.seconds);
    return line + formatted(", %" PRIu32 " errors, ", state.errors) + state.status;
}

}  // namespace

std::unique_ptr<RunMonitor> RunMonitor::start(DP *dp, const DupContext &context, const char *json_file,
                                              bool on_terminal) {
    constexpr int AnyoneMayRead = 0644;
    std::unique_ptr<RunMonitor> monitor(new RunMonitor(dp, *context.slot, *logger_context(dp).config));
    monitor->on_terminal_ = on_terminal;
    if (json_file) {
        monitor->json_file_ = VRunFileIOOpen(
            dp, json_file, VELDA_OPEN_READ_WRITE | VELDA_OPEN_CREATE | VELDA_OPEN_TRUNCATE, AnyoneMayRead);
        if (!monitor->json_file_) {
            VELDAfprintf(dp, stderr, "%s: Error, the progress file '%s' cannot be opened: %s\n",
                         context.programName.c_str(), json_file, error_words(errno).c_str());
            return nullptr;
        }
    }
    monitor->milliseconds_before_ = steady_milliseconds();
    monitor->ticker_ = velda_ticker_start(dp, Pace, tick, monitor.get());
    return monitor;
}

RunMonitor::~RunMonitor() {
    velda_ticker_stop(dp_, ticker_);
    erase();
    VRunFileIOClose(dp_, json_file_);
}

void RunMonitor::finish(int exit_code) {
    velda_ticker_stop(dp_, ticker_);
    ticker_ = nullptr;
    show(true, exit_code);
}

void RunMonitor::show(bool ended, int exit_code) {
    RunState state = state_of(config_, slot_);
    const std::int64_t milliseconds = steady_milliseconds();
    const std::int64_t passed = std::max<std::int64_t>(milliseconds - milliseconds_before_, 1);
    state.rate = static_cast<std::int64_t>(state.records - records_before_) * 1000 / passed;
    records_before_ = state.records;
    milliseconds_before_ = milliseconds;
    if (json_file_) write_json(as_json(state, ended, exit_code));
    if (ended)
        erase();
    else if (on_terminal_ && !state.status.starts_with("PROMPT"))
        draw(for_people(state));
}

// A file that cannot be written is given up: the run goes on.
void RunMonitor::write_json(const std::string &line) {
    std::size_t written = 0;
    const int error = VRunFileIOWrite(dp_, json_file_, json_size_, line.data(), line.size(), &written);
    json_size_ += static_cast<std::int64_t>(written);
    if (error == 0) return;
    erase();
    VELDAfprintf(dp_, stderr, "The progress file '%s' cannot be written: %s\n", VRunFileIOGetFullPath(dp_, json_file_),
                 error_words(error).c_str());
    VRunFileIOClose(dp_, json_file_);
    json_file_ = nullptr;
}

void RunMonitor::draw(const std::string &line) {
    constexpr std::size_t Columns = 79;
    const std::string shown = line.substr(0, Columns);
    const std::size_t rest = drawn_columns_ > shown.size() ? drawn_columns_ - shown.size() : 0;
    VELDAfprintf(dp_, stderr, "\r%s%s\r", shown.c_str(), std::string(rest, ' ').c_str());
    VELDAfflush(dp_, stderr);
    drawn_columns_ = shown.size();
}

void RunMonitor::erase() {
    if (drawn_columns_ == 0) return;
    draw("");
}

RunMonitor::Pause::Pause(RunMonitor *monitor) : monitor_(monitor) {
    if (!monitor_) return;
    velda_ticker_pause(monitor_->dp_, monitor_->ticker_);
    monitor_->erase();
}

RunMonitor::Pause::~Pause() {
    if (monitor_) velda_ticker_resume(monitor_->dp_, monitor_->ticker_);
}

}  // namespace velda::journal
