// native_output.cpp - printf and its family for native logic.
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

#include "runtime/process/output.h"
#include "runtime/terminal/terminal.h"

namespace {

// The formatted text; empty on a bad format.
std::string formatted(const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length <= 0) return {};
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

int print_formatted(DP *dp, const char *format, va_list arguments) {
    const std::string text = formatted(format, arguments);
    velda::write_output(dp, text);
    return static_cast<int>(text.size());
}

}  // namespace

int VELDAprintf(DP *dp, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int printed = print_formatted(dp, format, arguments);
    va_end(arguments);
    return printed;
}

int VELDAfprintf(DP *dp, FILE *stream, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int printed =
        stream == stdout ? print_formatted(dp, format, arguments) : std::vfprintf(stream, format, arguments);
    va_end(arguments);
    return printed;
}

int VELDAjprintf(DP *dp, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int printed = print_formatted(dp, format, arguments);
    va_end(arguments);
    velda::flush_output(dp);
    return printed;
}

int VELDAfflush(DP *dp, FILE *stream) {
    if (stream != stdout) return std::fflush(stream);
    velda::flush_output(dp);
    return 0;
}

void VELDAperror(DP *dp, const char *text) {
    const int error = errno;
    velda::flush_output(dp);
    std::fprintf(stderr, "%s: %s\n", text, std::strerror(error));
}
