#include "runtime/journal/session_texts.h"

#include <algorithm>
#include <cerrno>

#include "runtime/journal/configuration.h"
#include "runtime/journal/log_format.h"
#include "runtime/process/command_level.h"
#include "runtime/process/context.h"
#include "runtime/process/session_names.h"
#include "runtime/terminal/terminal.h"
#include "runtime/value/value.h"

namespace velda::journal {

namespace {

constexpr unsigned char FieldEnd = 0xFE;

bool holds_field_end(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char byte) { return static_cast<unsigned char>(byte) >= FieldEnd; });
}

// As much of a text as a field can hold.
void add_text(std::string &target, std::string_view text) {
    for (const char byte : text) target += static_cast<unsigned char>(byte) >= FieldEnd ? '.' : byte;
    target += AM;
}

std::string_view first_word(std::string_view line) { return line.substr(0, line.find_first_of("\xFE ")); }

// The six fields behind file and key. User, terminal and account of a session stay what they are.
void add_session(std::string &target, DP *dp, SessionTexts &texts) {
    if (texts.user.empty()) {
        VAR terminal;
        VELDAGetTTYName(dp, &terminal);
        texts = {user_name(), terminal.str(), account_name(), texts.source_file, texts.source_line};
    }
    add_text(target, first_word(current_level(dp).command_line));
    for (const std::string *text :
         {&texts.user, &texts.terminal, &texts.account, &texts.source_file, &texts.source_line})
        add_text(target, *text);
}

}  // namespace

Result<void> add_strings(std::string &target, DP *dp, const VELDALoggerConfig &config, std::string_view file_name,
                         std::string_view key) {
    if (holds_field_end(file_name) || holds_field_end(key))
        return Error{EINVAL, "a key or file name with an attribute mark or a segment mark cannot be journalled"};
    target.append(file_name).append(1, AM).append(key).append(1, AM);
    if (config.extendedRecords != 0)
        add_session(target, dp, dp->state<JournalSession>().texts);
    else
        target.append(RecordStrings - 2, AM);
    return {};
}

}  // namespace velda::journal
