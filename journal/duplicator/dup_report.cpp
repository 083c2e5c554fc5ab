// One line of the run's story to the log file and standard error; failed updates go to the error file too.
#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "journal/duplicator/dup_monitor.h"
#include "journal/duplicator/duplicator.h"

namespace velda::journal {

namespace {

constexpr const char *SeverityWords[] = {"STATUS: ", "WARNING: ", "ERROR: "};

std::string format_text(const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

// The system's marks as characters that a terminal shows.
void show_marks(std::string &text) {
    constexpr char Shown[] = {'\\', ']', '^', '_'};  // for 0xFC to 0xFF
    for (char &byte : text)
        if (const auto code = static_cast<unsigned char>(byte); code >= 0xFC) byte = Shown[code - 0xFC];
}

std::string report_line(const LogSelect *definition, Severity severity, const std::string &message) {
    std::string line = oconv(time_of_day(), "MTS").str() + " " + oconv(today(), "D4").str() + " : ";
    line += SeverityWords[static_cast<int>(severity) - 1];
    if (definition) line += " For definition " + definition->specText;
    line += "\n    " + message;
    if (!line.ends_with('\n')) line += '\n';
    show_marks(line);
    return line;
}

void write_line(DP *dp, DupContext &context, const std::string &line) {
    const RunMonitor::Pause pause(context.monitor.get());
    VELDAfprintf(dp, stderr, "%s%s", context.starsPending ? "\n" : "", line.c_str());
    context.starsPending = 0;
    if (!context.logFile) return;
    std::size_t written = 0;
    VRunFileIOWrite(dp, context.logFile, context.logFileSize, line.data(), line.size(), &written);
    context.logFileSize += static_cast<std::int64_t>(written);
}

void add_one(std::uint32_t &counter) {
    const std::atomic_ref<std::uint32_t> shared(counter);
    shared.store(shared.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

// The message on one line that can be shown anywhere.
void note_last_error(const DupContext &context, std::string message) {
    show_marks(message);
    std::erase(message, '\n');
    publish_error(context, message);
}

void count_error(DP *dp, DupContext &context, const LogSelect *definition) {
    if (definition && definition == context.input) add_one(context.slot->inputErrors);
    if (definition && definition == context.output) add_one(context.slot->outputErrors);
    if (++context.errorCount <= context.maxErrors) return;
    if (!context.tooManyErrors) {
        context.tooManyErrors = true;
        DupReport(dp, nullptr, nullptr, Severity::Error, "Aborting -- exceeded the maximum of %d errors",
                  static_cast<int>(context.maxErrors));
    }
    DupExit(dp, ExitTooManyErrors);
}

// The failed update as a dynamic array, under the key by which the journal finds the record again.
void keep_failed_update(DP *dp, DupContext &context, const unsigned char *record, const std::string &message) {
    VAR converted;
    int error = convert_record(dp, record, message.c_str(), converted);
    if (error == 0) {
        char key[VELDA_LOGGER_KEY_BYTES];
        const int length = VELDALoggerMakeKey(dp, record, key);
        FileWords file(*context.errorFile);
        error = file.try_write(std::string_view(key, static_cast<std::size_t>(length)), converted.view());
    }
    if (error != 0)
        DupReport(dp, nullptr, nullptr, Severity::Warning, "Error number %d writing to the error file '%s'", error,
                  context.errorFileName.c_str());
}

char *allocate(DP *dp, char *old, std::uint32_t size) {
    return static_cast<char *>(VELDArealloc(dp, old, size, "vlogdupC", __LINE__));
}

}  // namespace

int convert_record(DP *dp, const unsigned char *record, const char *message, VAR &converted) {
    char *buffer = nullptr;
    std::uint32_t size = 0;
    const int error = VELDALoggerConvertRecord(dp, record, message, &buffer, &size, allocate);
    if (error == 0) converted = std::string_view(buffer, size);
    VELDAfree(dp, buffer, "vlogdupC", __LINE__);
    return error;
}

void DupReport(DP *dp, const LogSelect *definition, const unsigned char *record, Severity severity, const char *format,
               ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string message = format_text(format, arguments);
    va_end(arguments);
    DupContext &context = dup_context(dp);
    write_line(dp, context, report_line(definition, severity, message));
    if (severity == Severity::Error) {
        note_last_error(context, message);
        // Deliberate order: the error that exceeds the limit ends the run before it is kept in the error file.
        count_error(dp, context, definition);
        if (record && definition && definition == context.output && context.output->deviceType == Database &&
            context.errorFile)
            keep_failed_update(dp, context, record, message);
    }
    DupCallback(dp, BetweenRecords);
}

}  // namespace velda::journal
