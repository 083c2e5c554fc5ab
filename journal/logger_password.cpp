// The journal's password, and questions to the operator.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "journal/logger_admin.h"

namespace velda::journal {

namespace {

constexpr int NoJournal = -1;
constexpr size_t CipherBlockBytes = 8;

VAR password_key(DP *dp) { return velda_builtin_key(dp, VELDA_KEY_JOURNAL_PASSWORD); }

// The field does not say how long its text is, and the text may end with zero bytes: a length is the right one when the
// text can be deciphered.
std::string deciphered(DP *dp, const VELDALoggerConfig &config) {
    const VAR key = password_key(dp);
    for (size_t length = sizeof config.password; length > CipherBlockBytes; length -= CipherBlockBytes) {
        const VAR text = decrypt(std::string_view(config.password, length), key, VELDA_SCHEME_RC2);
        if (system_number(0).to_integer() == VELDA_CRYPT_DONE) return text.str();
    }
    return "";
}

void call(VELDALoggerCallback callback, DP *dp, int event) {
    if (callback) callback(dp, event);
}

// The end of the input, or a failure.
int no_reply(DP *dp, char *reply) {
    int error = errno;
    VELDAprintf(dp, "\n");
    reply[0] = 0;
    if (error != EINTR)
        VELDAprintf(dp, "\nError number %d reading from stdin\n", error);
    else
        error = errno = 0;
    return error;
}

void keep_reply(char *reply, const VAR &line) {
    std::string text = line.str().substr(0, VELDA_LOGGER_REPLY_BYTES - 1);
    while (text.ends_with('\n')) text.pop_back();
    std::memcpy(reply, text.c_str(), text.size() + 1);
}

int prompt(DP *dp, char *reply, VELDALoggerCallback callback, const char *format, va_list arguments) {
    constexpr int BeforeQuestion = 7, BehindQuestion = 8;
    if (system_number(1043)) {
        VELDAfprintf(dp, stderr, "Unable to prompt user when a background job\n");
        return EINVAL;
    }
    call(callback, dp, BeforeQuestion);
    char question[VELDA_LOGGER_REPLY_BYTES];
    std::vsnprintf(question, sizeof question, format, arguments);
    VELDAprintf(dp, "%s", question);
    VELDAfflush(dp, stdout);
    VAR line;
    errno = 0;
    const bool got = VLibFINPUT_IBBBBBIII(dp, &line, nullptr, nullptr, nullptr, nullptr, VELDA_LOGGER_REPLY_BYTES - 1,
                                          VELDA_INPUT_NO_PROMPT | VELDA_INPUT_NO_NEWLINE, 0) != 0;
    if (got) {
        VELDAprintf(dp, "\n");  // that of the operator's Enter, which the end of the input has not
        keep_reply(reply, line);
    }
    const int error = got ? 0 : no_reply(dp, reply);
    call(callback, dp, BehindQuestion);
    return error;
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDALoggerSetPassword(DP *dp, VAR *password) {
    LoggerContext &context = logger_context(dp);
    if (!map_logger(dp, context)) return NoJournal;
    VELDALoggerConfig &config = *context.config;
    if (password->empty()) {
        config.password[0] = 0;
    } else {
        *password = velda::encrypt(*password, password_key(dp), VELDA_SCHEME_RC2);
        const std::string text = password->str();
        if (text.empty() || text.size() > sizeof config.password) {
            tell(dp, "%s: Error! %s\n", text.empty() ? velda_crypt_error(dp) : "Password too long");
            return EINVAL;
        }
        std::memset(config.password, 0, sizeof config.password);
        std::memcpy(config.password, text.data(), text.size());
    }
    LoggerSaveConfig(dp);
    VediLoggerError(dp, 0, "Log password changed\n");
    return 0;
}

int VELDALoggerTestPassword(DP *dp) {
    constexpr int LongestAnswer = 128;
    LoggerContext &context = logger_context(dp);
    if (!map_logger(dp, context)) return NoJournal;
    // Deliberately before the answer is known: a session is asked only once.
    context.passwordAsked = 1;
    VELDAprintf(dp, "Please Enter Journal Password      ");
    VELDAfflush(dp, stdout);
    char answer[LongestAnswer + 1];
    if (VRunFStringIn(dp, answer, sizeof answer, "\n\r") < 0) answer[0] = 0;
    const std::string password = deciphered(dp, *context.config);
    VELDAprintf(dp, "\n");
    return password.compare(answer);
}

int VELDALoggerPromptReply(DP *dp, char *reply, VELDALoggerCallback callback, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int error = prompt(dp, reply, callback, format, arguments);
    va_end(arguments);
    return error;
}

int VELDALoggerPrompt(DP *dp, char *reply, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int error = prompt(dp, reply, nullptr, format, arguments);
    va_end(arguments);
    return error;
}
