// A specification becomes a selection: the entry, its reports, and what the whole process keeps of specifications.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>

#include "journal/select_parser.h"

namespace velda::journal {

namespace {

// The caller's error text is known to the session as long as the specification is read.
class ErrorTextScope {
  public:
    ErrorTextScope(LoggerContext &context, VAR *error_text) : context_(context) {
        context_.errorText = error_text;
        context_.command.clear();
        context_.operand.clear();
    }
    ~ErrorTextScope() { context_.errorText = nullptr; }
    ErrorTextScope(const ErrorTextScope &) = delete;
    ErrorTextScope &operator=(const ErrorTextScope &) = delete;

  private:
    LoggerContext &context_;
};

}  // namespace

SpecSettings &spec_settings() {
    static SpecSettings settings;
    return settings;
}

bool skips_damaged_records() { return spec_settings().skip_damaged; }

void LoggerSpecError(DP *dp, const char *format, ...) {
    LoggerContext &context = logger_context(dp);
    std::string text = "Error: ";
    if (!context.command.empty()) text += "For command '" + context.command + "': ";
    va_list arguments;
    va_start(arguments, format);
    char message[1024];
    std::vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    text += message;
    if (context.errorText)
        *context.errorText = text;
    else
        VELDAfprintf(dp, stderr, "%s\n", text.c_str());
    errno = EINVAL;
}

bool LoggerSetDeviceType(DP *dp, LogSelect &select, DeviceType type) {
    if (select.deviceType != 0 && select.deviceType != type) {
        LoggerSpecError(dp, "This command changes the type of device");
        return false;
    }
    select.deviceType = type;
    return true;
}

bool LoggerParseBool(DP *dp, std::string_view operand, bool &value) {
    const bool is_true = same_word(operand, "YES") || same_word(operand, "TRUE");
    if (is_true || same_word(operand, "NO") || same_word(operand, "FALSE"))
        value = is_true;
    else if (!operand.empty()) {
        LoggerSpecError(dp, "The operand should be YES, NO, TRUE or FALSE");
        return false;
    }
    return true;
}

LogSelect *start_selection(DP *dp, const char *specification, bool is_output, VAR *error_text, bool is_trial) {
    LoggerContext &context = logger_context(dp);
    const ErrorTextScope scope(context, error_text);
    SpecSettings &settings = spec_settings();
    if (is_output && !settings.skip_given) settings.skip_damaged = false;
    if (!map_logger(dp, context)) {
        LoggerSpecError(dp, "Velda Journaler not defined");
        errno = ENOENT;
        return nullptr;
    }
    auto select = std::make_unique<LogSelect>();
    select->specText = specification;
    SpecParser parser(dp, *select, is_output, is_trial);
    return parser.read(select->specText) ? select.release() : nullptr;
}

}  // namespace velda::journal

using namespace velda::journal;

LogSelect *VELDALoggerSelectStart(DP *dp, const char *specification, int is_output, VAR *error_text) {
    return start_selection(dp, specification, is_output != 0, error_text, false);
}
