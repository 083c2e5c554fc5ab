#include "commands/log_text.h"

#include <algorithm>
#include <charconv>
#include <ctime>

#include "commands/operands.h"

namespace velda::commands {

namespace {

using namespace velda::journal;

template <class Number>
void add_number(std::string &text, Number number) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    text.append(digits, end);
}

bool is_plain(char c) { return c >= ' ' && c < '\x7F' && c != '"' && c != '\\'; }

void add_escaped(std::string &text, char c) {
    constexpr char Hex[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\')
        text += {'\\', c};
    else
        text += {'\\', 'x', Hex[byte >> 4], Hex[byte & 15]};
}

// In quotes; bytes that are not plain as \xNN.
void add_quoted(std::string &text, std::string_view value) {
    text += '"';
    while (!value.empty()) {
        const auto special = std::find_if_not(value.begin(), value.end(), is_plain);
        text.append(value.begin(), special);
        value.remove_prefix(static_cast<std::size_t>(special - value.begin()));
        if (value.empty()) break;
        add_escaped(text, value[0]);
        value.remove_prefix(1);
    }
    text += '"';
}

void add_key(std::string &text, const LogHeader &header) {
    add_number(text, header.file);
    text += '*';
    add_number(text, header.set);
    text += '*';
    add_number(text, header.offset);
    text += '*';
    add_number(text, header.time);
}

std::string quoted(std::string_view value) {
    std::string text;
    add_quoted(text, value);
    return text;
}

// Fields of a payload; nothing beyond its end.
struct Payload {
    std::string_view bytes;
    std::int64_t word(std::size_t offset) const {
        return bytes.size() >= offset + 4 ? vgetint32(bytes.data() + offset) : 0;
    }
    std::int64_t long_word(std::size_t offset) const {
        return bytes.size() >= offset + 8 ? vgetlong64(bytes.data() + offset) : 0;
    }
    std::string_view part(std::int64_t offset, std::int64_t length) const {
        if (offset < 0 || length < 0 || offset > static_cast<std::int64_t>(bytes.size())) return {};
        return bytes.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
    }
};

std::string write_details(const Payload &payload) {
    return "data " + std::to_string(payload.word(WritePayload::DataLength)) + " bytes";
}

std::string transaction_details(const Payload &payload) {
    return "values " + std::to_string(payload.long_word(TransactionPayload::First)) + " " +
           std::to_string(payload.long_word(TransactionPayload::Second));
}

std::string move_details(const Payload &payload) {
    const std::int64_t from = payload.word(MovePayload::FromLength), to = payload.word(MovePayload::ToLength);
    return "from " + quoted(payload.part(MovePayload::Paths, from)) + " to " +
           quoted(payload.part(static_cast<std::int64_t>(MovePayload::Paths) + from + 1, to));
}

std::string text_details(const Payload &payload) {
    return "text " + quoted(payload.part(PathPayload::Text, payload.word(PathPayload::Length)));
}

std::string directory_details(const Payload &payload) {
    return "path " + quoted(payload.part(DirectoryPayload::Path, payload.word(DirectoryPayload::PathLength)));
}

std::string flat_file_details(const Payload &payload) {
    return "path " + quoted(payload.part(FlatFilePayload::Path, payload.word(FlatFilePayload::PathLength))) + " data " +
           std::to_string(payload.word(FlatFilePayload::DataLength)) + " bytes";
}

// The file's type, and the words of its settings.
std::string creation_details(const Payload &payload) {
    constexpr std::int64_t LengthBytes = 4;
    const auto field = [&](std::int64_t at) {
        return payload.part(at + LengthBytes, payload.word(static_cast<std::size_t>(at)));
    };
    const auto size_of = [](std::string_view text) { return LengthBytes + static_cast<std::int64_t>(text.size()); };
    const std::string_view type = field(0);
    const std::int64_t arguments = size_of(type) + size_of(field(size_of(type)));
    const Payload words{field(arguments)};
    std::string text = "type " + quoted(type);
    for (std::int64_t at = LengthBytes, left = words.word(0); left > 0 && !words.part(at, 1).empty(); --left) {
        const std::string_view word = words.part(at + LengthBytes, words.word(static_cast<std::size_t>(at)));
        text += ' ' + quoted(word);
        at += size_of(word);
    }
    return text;
}

std::string checkpoint_details(const Payload &payload) {
    return "behind " + std::to_string(payload.long_word(CheckpointPayload::Value)) + " records";
}

struct Details {
    RecordType type;
    std::string (*text)(const Payload &payload);
};

constexpr Details DetailsOfTypes[] = {
    {RecordType::Write, write_details},
    {RecordType::CreateFile, creation_details},
    {RecordType::TranStart, transaction_details},
    {RecordType::TranEnd, transaction_details},
    {RecordType::TranAbort, transaction_details},
    {RecordType::MoveFile, move_details},
    {RecordType::RemoveFile, text_details},
    {RecordType::Chmod, text_details},
    {RecordType::MakeDirectory, directory_details},
    {RecordType::FlatFile, flat_file_details},
    {RecordType::Checkpoint, checkpoint_details},
    {RecordType::CreateIndex, text_details},
    {RecordType::DeleteIndex, text_details},
    {RecordType::RebuildIndex, text_details},
    {RecordType::CreateTrigger, text_details},
    {RecordType::DeleteTrigger, text_details},
};

struct NamedText {
    RecordString which;
    std::string_view name;
};

constexpr NamedText NamedTexts[] = {
    {RecordString::FileName, "file"},
    {RecordString::Key, "id"},
    {RecordString::ApplicationName, "application"},
    {RecordString::UserName, "user"},
    {RecordString::TerminalName, "terminal"},
    {RecordString::ApplicationId, "application_id"},
    {RecordString::SourceFile, "source"},
    {RecordString::SourceLine, "line"},
};

std::string_view text_of(const LogParts &record, RecordString which) {
    return record.texts[static_cast<std::size_t>(which)];
}

}  // namespace

std::string utc_text(std::int64_t time) {
    const auto seconds = static_cast<std::time_t>(time);
    std::tm parts;
    char text[40];
    if (!gmtime_r(&seconds, &parts) || std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
        return std::to_string(time);
    return text;
}

std::string record_details(const LogParts &record) {
    for (const Details &details : DetailsOfTypes)
        if (static_cast<std::uint8_t>(details.type) == record.header.type) return details.text({record.payload});
    return {};
}

std::string_view record_data(const LogParts &record) {
    if (record.header.type != static_cast<std::uint8_t>(RecordType::Write)) return {};
    const Payload payload{record.payload};
    return payload.part(WritePayload::Data, payload.word(WritePayload::DataLength));
}

std::string_view LogText::time_text(std::int64_t time) {
    if (time != shown_time_) time_ = utc_text(time);
    shown_time_ = time;
    return time_;
}

void LogText::add_line(std::string &text, const LogParts &record) {
    const LogHeader &header = record.header;
    add_key(text, header);
    text += ' ';
    text += time_text(header.time);
    text += ' ';
    text += record_type_name(header.type);
    text += " port ";
    add_number(text, header.port);
    text += " pid ";
    add_number(text, header.pid);
    text += " size ";
    add_number(text, header.record_size);
    if ((header.flags & InTransaction) != 0) text += " in transaction";
    if (header.is_encrypted) text += " enciphered";
    text += " file ";
    add_quoted(text, text_of(record, RecordString::FileName));
    text += " id ";
    add_quoted(text, text_of(record, RecordString::Key));
    if (const std::string details = record_details(record); !details.empty()) text += ' ' + details;
    if (with_data_ && header.type == static_cast<std::uint8_t>(RecordType::Write)) {
        text += ' ';
        add_quoted(text, record_data(record));
    }
    text += '\n';
}

void LogText::add_json(std::string &text, const LogParts &record) const {
    const LogHeader &header = record.header;
    std::string key;
    add_key(key, header);
    JsonObject object;
    object.text("key", key)
        .text("type", record_type_name(header.type))
        .number("type_number", std::to_string(header.type))
        .number("time", std::to_string(header.time))
        .number("port", std::to_string(header.port))
        .number("pid", std::to_string(header.pid))
        .number("size", std::to_string(header.record_size))
        .number("in_transaction", (header.flags & InTransaction) != 0 ? "true" : "false")
        .number("enciphered", header.is_encrypted ? "true" : "false");
    for (const NamedText &named : NamedTexts) object.text(named.name, text_of(record, named.which));
    object.text("details", record_details(record));
    if (with_data_ && header.type == static_cast<std::uint8_t>(RecordType::Write))
        object.text("data", record_data(record));
    text += object.str() + "\n";
}

void LogText::add(std::string &text, const LogParts &record) {
    if (as_json_)
        add_json(text, record);
    else
        add_line(text, record);
}

}  // namespace velda::commands
