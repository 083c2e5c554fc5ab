// The tokens of a specification: their names, where they may stand, and what each does.
#include <cerrno>
#include <iterator>

#include "journal/select_parser.h"

namespace velda::journal {

namespace {

// Where a token may stand.
constexpr char Anywhere = 0, InputOnly = 'I', OutputOnly = 'O';

struct TokenRow {
    TokenCode code;
    const char *name;
    char rule;
    bool (SpecParser::*action)();
};

constexpr TokenRow Tokens[] = {
    {TokenCode::Set, "SET", Anywhere, &SpecParser::set},
    {TokenCode::Start, "FROM", InputOnly, &SpecParser::start},
    {TokenCode::Start, "BEGIN", InputOnly, &SpecParser::start},
    {TokenCode::Start, "START", InputOnly, &SpecParser::start},
    {TokenCode::End, "TO", InputOnly, &SpecParser::end},
    {TokenCode::End, "UNTIL", InputOnly, &SpecParser::end},
    {TokenCode::End, "END", InputOnly, &SpecParser::end},
    {TokenCode::Terminate, "TERMINATE", InputOnly, &SpecParser::terminate},
    {TokenCode::Device, "DEVICE", Anywhere, &SpecParser::device},
    {TokenCode::Device, "FILE", Anywhere, &SpecParser::device},
    {TokenCode::Device, "SERIAL", Anywhere, &SpecParser::device},
    {TokenCode::Type, "TYPE", Anywhere, &SpecParser::ignore},
    {TokenCode::Verbose, "VERBOSE", Anywhere, &SpecParser::verbose},
    {TokenCode::BlockSize, "BLOCKSIZE", Anywhere, &SpecParser::block_size},
    {TokenCode::BlockSize, "SIZEBLOCK", Anywhere, &SpecParser::block_size},
    {TokenCode::BlockMax, "BLOCKMAX", Anywhere, &SpecParser::block_max},
    {TokenCode::BlockMax, "MAXBLOCK", Anywhere, &SpecParser::block_max},
    {TokenCode::Rename, "RENAME", OutputOnly, &SpecParser::rename},
    {TokenCode::RenameFile, "RENAMEFILE", OutputOnly, &SpecParser::rename_file},
    {TokenCode::NoTrans, "NOTRANS", OutputOnly, &SpecParser::no_transactions},
    {TokenCode::NoFlush, "NOFLUSH", OutputOnly, &SpecParser::no_flush},
    {TokenCode::Prompt, "PROMPT", Anywhere, &SpecParser::prompt},
    {TokenCode::Timeout, "TIMEOUT", InputOnly, &SpecParser::timeout},
    {TokenCode::Retry, "RETRY", InputOnly, &SpecParser::retry},
    {TokenCode::HostName, "HOSTNAME", Anywhere, &SpecParser::host_name},
    {TokenCode::Port, "PORT", Anywhere, &SpecParser::port},
    {TokenCode::Encrypt, "ENCRYPT", OutputOnly, &SpecParser::encrypt},
    {TokenCode::Scheme, "SCHEME", OutputOnly, &SpecParser::scheme},
    {TokenCode::Key, "KEY", OutputOnly, &SpecParser::key},
    {TokenCode::SkipRec, "SKIPREC", Anywhere, &SpecParser::skip_records},
    {TokenCode::Milestone, "MILESTONE", Anywhere, &SpecParser::milestone},
};

struct TokenNames {
    LogToken row[std::size(Tokens) + 1];
};

constexpr TokenNames names_of(const TokenRow (&tokens)[std::size(Tokens)]) {
    TokenNames names = {};
    for (std::size_t n = 0; n < std::size(tokens); ++n)
        names.row[n] = {static_cast<int>(tokens[n].code), tokens[n].name};
    return names;
}

constexpr TokenNames Names = names_of(Tokens);

// The operands of SET that name no set.
struct SetOperand {
    const char *name;
    char rule;
    DeviceType type;
    bool needs_journal = false;
};

constexpr SetOperand SetOperands[] = {
    {"DATABASE", OutputOnly, Database},
    {"NULL", OutputOnly, Null},
    {"SERIAL", Anywhere, Serial},
    {"TTY", Anywhere, Tty},
    {"STDIN", InputOnly, Tty},
    {"STDOUT", OutputOnly, Tty},
    {"LOGSET", OutputOnly, LogSetDevice, true},
    {"SOCKET", Anywhere, Socket},
    {"ENCRYPT", OutputOnly, LogSetDevice},
};

struct TerminateOperand {
    const char *name;
    std::uint32_t kept_flags;
    std::uint32_t new_flags;
};

constexpr TerminateOperand TerminateOperands[] = {
    {"EOS", ~std::uint32_t{SelectEof | SelectWait}, SelectEos},
    {"EOF", ~std::uint32_t{SelectEos | SelectWait}, SelectEof},
    {"WAIT", ~std::uint32_t{SelectEos | SelectEof}, SelectWait},
    // Deliberate: every flag that an earlier token set is lost, also one that has nothing to do with the end.
    {"WAITEOS", SelectEof, SelectEos | SelectWait},
};

constexpr char InputOnlyText[] = "Only valid for an INPUT specification";
constexpr char OutputOnlyText[] = "Only valid for an OUTPUT specification";

template <class Row, std::size_t Count>
const Row *find_operand(const Row (&rows)[Count], std::string_view operand) {
    for (const Row &row : rows)
        if (same_word(row.name, operand)) return &row;
    return nullptr;
}

// The set that an operand of SET chooses for reading, if it is such an operand.
std::optional<std::int32_t> chosen_set(const VELDALoggerConfig &config, std::string_view operand) {
    if (same_word(operand, "CURRENT")) return static_cast<std::int32_t>(config.currentSet);
    if (same_word(operand, "ELDEST")) return eldest_set(config);
    if (same_word(operand, "AUTO")) return SetAuto;
    const auto number = decimal_number(operand);
    if (number && *number >= 1 && *number <= VELDA_LOGGER_SETS) return number;
    return std::nullopt;
}

bool has_current_set(const VELDALoggerConfig &config) {
    return config.currentSet >= 1 && config.currentSet <= VELDA_LOGGER_SETS;
}

}  // namespace

// --- reading tokens -------------------------------------------------------------------------------------------------

bool SpecParser::read(std::string_view text) {
    for (std::string_view part; !(part = take_part(text, Blanks)).empty();)
        if (!token(part)) return false;
    complete_times();
    return complete_device();
}

bool SpecParser::token(std::string_view text) {
    const std::size_t equals = std::min(text.find('='), text.size());
    context_.command = text;
    context_.operand = text.substr(std::min(equals + 1, text.size()));
    const TokenRow *const found = find_operand(Tokens, text.substr(0, equals));
    if (!found) {
        LoggerSpecError(dp_, "The command is not recognised");
        return false;
    }
    last_code_ = found->code;
    return is_allowed(found->rule) && (this->*found->action)();
}

bool SpecParser::is_allowed(char rule) {
    if (rule == InputOnly && is_output_)
        LoggerSpecError(dp_, InputOnlyText);
    else if (rule == OutputOnly && !is_output_)
        LoggerSpecError(dp_, OutputOnlyText);
    else
        return true;
    return false;
}

bool SpecParser::boolean(bool &value) {
    value = false;
    return LoggerParseBool(dp_, context_.operand, value);
}

bool SpecParser::boolean_flag(std::uint32_t flag) {
    bool value = false;
    if (!boolean(value)) return false;
    select_.flags = value ? select_.flags | flag : select_.flags & ~flag;
    return true;
}

bool SpecParser::number(std::int32_t &field, std::int32_t least, const char *message) {
    const auto given = decimal_number(context_.operand);
    if (!given || *given < least) {
        LoggerSpecError(dp_, "%s", message);
        return false;
    }
    field = *given;
    return true;
}

bool SpecParser::time_token(TimeOperand &operand) {
    // The stamp of a checkpoint is taken behind the last token.
    return same_word(context_.operand, "CHECKPOINT") || LoggerParseTime(dp_, context_.operand, operand);
}

// --- what to read, and from when to when ----------------------------------------------------------------------------

bool SpecParser::set() {
    if (const auto chosen = chosen_set(*context_.config, context_.operand)) {
        if (!is_allowed(InputOnly) || !LoggerSetDeviceType(dp_, select_, LogSetDevice)) return false;
        select_.set = *chosen;
        return true;
    }
    const SetOperand *const found = find_operand(SetOperands, context_.operand);
    if (!found) {
        LoggerSpecError(dp_, "Command is unrecognised");
        return false;
    }
    if (!is_allowed(found->rule) || !LoggerSetDeviceType(dp_, select_, found->type)) return false;
    if (found->needs_journal && !has_current_set(*context_.config)) {
        LoggerSpecError(dp_, "Unable to log updates - logging not set up");
        return false;
    }
    return true;
}

bool SpecParser::start() { return time_token(start_); }

bool SpecParser::end() { return time_token(end_); }

bool SpecParser::terminate() {
    const TerminateOperand *const found = find_operand(TerminateOperands, context_.operand);
    if (!found) {
        LoggerSpecError(dp_, "The operand should be EOS , EOF or WAIT");
        return false;
    }
    select_.flags = (select_.flags & found->kept_flags) | found->new_flags;
    return true;
}

bool SpecParser::timeout() { return number(select_.timeout, 1, "The TIMEOUT is an invalid value"); }

bool SpecParser::retry() { return number(select_.retry, 1, "The RETRY is an invalid value"); }

bool SpecParser::skip_records() {
    bool value = false;
    if (!boolean(value)) return false;
    spec_settings().skip_damaged = value;
    spec_settings().skip_given = true;
    return true;
}

bool SpecParser::verbose() {
    bool value = false;
    if (!boolean(value)) return false;
    spec_settings().verbose = value;
    return true;
}

// --- devices --------------------------------------------------------------------------------------------------------

bool SpecParser::device() {
    if (!LoggerSetDeviceType(dp_, select_, Serial)) return false;
    if (context_.operand.empty()) {
        LoggerSpecError(dp_, "No device name follows");
        return false;
    }
    select_.devices.push_back(context_.operand);
    return true;
}

bool SpecParser::block_size() { return number(select_.blockSize, 1, "The block size is an invalid value"); }

bool SpecParser::block_max() {
    return LoggerSetDeviceType(dp_, select_, Serial) &&
           number(select_.blockMax, 1, "The block max is an invalid value");
}

bool SpecParser::prompt() { return boolean_flag(SelectPrompt); }

bool SpecParser::host_name() {
    select_.hostName = context_.operand;
    return true;
}

bool SpecParser::port() {
    constexpr std::int32_t LeastPort = 1025, LastPort = 65535;
    std::int32_t port = 0;
    if (const auto given = decimal_number(context_.operand); given && *given <= LastPort) port = *given;
    if (port < LeastPort) {
        LoggerSpecError(dp_, "The TCP port is an invalid value");
        return false;
    }
    select_.port = static_cast<std::uint16_t>(port);
    return true;
}

bool SpecParser::milestone() {
    milestone_given_ = true;
    if (is_output_) {
        select_.milestoneFile = context_.operand;
        return is_trial_ || make_milestone_file(select_.milestoneFile);
    }
    bool value = false;
    if (!boolean(value)) return false;
    select_.sendMilestone = value;
    return true;
}

bool SpecParser::make_milestone_file(const std::string &name) {
    constexpr int AnyoneMayUse = 0666;
    VRunFile *const file = VRunFileIOOpen(dp_, name.c_str(), VELDA_OPEN_READ_WRITE | VELDA_OPEN_CREATE, AnyoneMayUse);
    if (!file) {
        LoggerSpecError(dp_, "The milestone file cannot be opened or created");
        return false;
    }
    VRunFileIOClose(dp_, file);
    return true;
}

// --- the transfer ---------------------------------------------------------------------------------------------------

bool SpecParser::rename() {
    if (LoggerAddRename(dp_, select_, context_.operand) == 0) return true;
    errno = EINVAL;
    return false;
}

bool SpecParser::rename_file() {
    const int error = LoggerReadRenameFile(dp_, select_, context_.operand);
    if (error != 0) errno = error;
    return error == 0;
}

bool SpecParser::no_transactions() { return boolean_flag(SelectNoTrans); }

bool SpecParser::no_flush() { return boolean_flag(SelectNoFlush); }

void SpecParser::use_builtin_key() { select_.key = velda_builtin_key(dp_, VELDA_KEY_TRANSFER); }

bool SpecParser::encrypt() {
    if (!boolean_flag(SelectEncrypt)) return false;
    if (select_.flags & SelectEncrypt) use_builtin_key();
    return true;
}

bool SpecParser::scheme() {
    const int number = velda_scheme_number(dp_, context_.operand.c_str());
    if (number == 0) {
        LoggerSpecError(dp_, "The Encryption Scheme is an invalid value");
        return false;
    }
    select_.scheme = static_cast<std::uint32_t>(number);
    select_.flags |= SelectEncrypt;
    if (select_.key.empty()) use_builtin_key();
    return true;
}

bool SpecParser::key() {
    select_.key = context_.operand;
    select_.flags |= SelectEncrypt;
    return true;
}

}  // namespace velda::journal

using namespace velda::journal;

const LogToken *VELDALoggerTokenList(DP *) { return Names.row; }
