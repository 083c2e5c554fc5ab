// A record as a dynamic array, for reports and for the file of failed updates.
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "journal/log_reading.h"
#include "journal/log_record.h"

namespace velda::journal {

namespace {

constexpr std::size_t UsualBytes = 16384;
constexpr int NameAttribute = 21, KeyAttribute = 22, TransactionTextAttribute = 12;

void put_attribute(std::string &text, std::string_view attribute) {
    text += attribute;
    text += AM;
}

void put_attribute(std::string &text, int64_t number) { put_attribute(text, std::to_string(number)); }

// Attributes 1 to 28.
std::string fixed_attributes(const LogParts &record, const char *extra_text) {
    constexpr int EmptyAttributes = 9;
    const LogHeader &header = record.header;
    std::string text;
    text.reserve(UsualBytes);
    for (const int64_t number : {int64_t{header.set}, int64_t{header.file}, header.offset, int64_t{header.record_size}})
        put_attribute(text, number);
    put_attribute(text, record_type_name(header.type));
    put_attribute(text, header.time);
    for (const int64_t number : {int64_t{header.flags & InTransaction}, int64_t{header.type}})
        put_attribute(text, number);
    put_attribute(text, static_cast<int32_t>(header.pid));
    put_attribute(text, header.port);
    put_attribute(text, extra_text ? extra_text : "");
    for (int n = 0; n < EmptyAttributes; ++n) put_attribute(text, "");
    for (const std::string_view field : record.texts) put_attribute(text, field);
    return text;
}

// `length` bytes of a payload, as many as there are.
std::string_view bytes_at(std::string_view payload, std::size_t offset, std::size_t length) {
    return offset < payload.size() ? payload.substr(offset, length) : std::string_view();
}

bool has_bytes(std::string_view payload, std::size_t count) { return payload.size() >= count; }

std::size_t length_at(std::string_view payload, std::size_t offset) {
    const int32_t length = has_bytes(payload, offset + 4) ? vgetint32(payload.data() + offset) : 0;
    return static_cast<std::size_t>(std::max(length, 0));
}

// What a path names ends at its zero byte.
std::string_view path_at(std::string_view payload, std::size_t offset, std::size_t length) {
    const std::string_view bytes = bytes_at(payload, offset, length);
    return bytes.substr(0, bytes.find('\0'));
}

void replace_attribute(std::string &text, int attribute, std::string_view value) {
    VAR array(text);
    array(attribute) = value;
    text = array.str();
}

// The length of the data is deliberately read as the low half of the eight bytes in front of it.
void add_data(DP *dp, std::string &text, std::string_view payload) {
    if (!VELDAgetenv(dp, "ALLOWLOGDATA") || !has_bytes(payload, WritePayload::Data)) return;
    const auto length = static_cast<uint32_t>(vgetlong64(payload.data() + WritePayload::Value));
    text += AM;
    text += bytes_at(payload, WritePayload::Data, length);
}

void add_transaction(DP *, std::string &text, std::string_view payload) {
    if (has_bytes(payload, TransactionPayload::Bytes)) {
        put_attribute(text, vgetlong64(payload.data() + TransactionPayload::First));
        const auto second = static_cast<int32_t>(vgetlong64(payload.data() + TransactionPayload::Second));
        text += second != 0 ? std::to_string(second) : std::string(1, AM);
    }
    VAR array(text);
    array(TransactionTextAttribute) = VAR(array(KeyAttribute));
    array(KeyAttribute) = "";
    text = array.str();
}

void add_move(DP *, std::string &text, std::string_view payload) {
    const std::size_t from = length_at(payload, MovePayload::FromLength),
                      to = length_at(payload, MovePayload::ToLength);
    std::string name(path_at(payload, MovePayload::Paths, from));
    name += VM;
    name += path_at(payload, MovePayload::Paths + from + 1, to);
    replace_attribute(text, NameAttribute, name);
}

void add_path(std::string &text, std::string_view payload, std::size_t path) {
    replace_attribute(text, NameAttribute, path_at(payload, path, length_at(payload, PathPayload::Length)));
}

void add_removed(DP *, std::string &text, std::string_view payload) { add_path(text, payload, PathPayload::Text); }

void add_directory(DP *, std::string &text, std::string_view payload) {
    add_path(text, payload, DirectoryPayload::Path);
}

// Deliberately four bytes behind the path's start: the name lacks its first four characters.
void add_flat_file(DP *, std::string &text, std::string_view payload) {
    add_path(text, payload, FlatFilePayload::Path + 4);
}

// The second and third attribute of the array are numbers of eight bytes, which may hold a mark.
void add_checkpoint(DP *, std::string &text, std::string_view payload) {
    constexpr int NumberAttributes[] = {32, 33};
    constexpr std::size_t NumberBytes = 8;
    std::string_view rest = bytes_at(payload, CheckpointPayload::Array, payload.size());
    const std::string_view first = rest.substr(0, rest.find(AM));
    rest.remove_prefix(std::min(first.size() + 1, rest.size()));
    VAR array(text);
    array(NameAttribute) = first;
    for (const int attribute : NumberAttributes) {
        if (rest.size() < NumberBytes) break;
        array(attribute) = vgetlong64(rest.data());
        const std::size_t mark = rest.find(AM, NumberBytes);
        rest.remove_prefix(mark == std::string_view::npos ? rest.size() : mark + 1);
    }
    text = array.str();
}

struct Addition {
    RecordType type;
    void (*add)(DP *dp, std::string &text, std::string_view payload);
};

constexpr Addition Additions[] = {
    {RecordType::Write, add_data},
    {RecordType::TranStart, add_transaction},
    {RecordType::TranEnd, add_transaction},
    {RecordType::TranAbort, add_transaction},
    {RecordType::MoveFile, add_move},
    {RecordType::RemoveFile, add_removed},
    {RecordType::MakeDirectory, add_directory},
    {RecordType::FlatFile, add_flat_file},
    {RecordType::Checkpoint, add_checkpoint},
};

std::string converted(DP *dp, const LogParts &record, const char *extra_text) {
    std::string text = fixed_attributes(record, extra_text);
    for (const Addition &addition : Additions)
        if (static_cast<uint8_t>(addition.type) == record.header.type) addition.add(dp, text, record.payload);
    return text;
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDALoggerConvertRecord(DP *dp, const unsigned char *record, const char *extra_text, char **buffer, uint32_t *size,
                             VELDALoggerAllocator allocate) {
    const std::string text = converted(dp, LogParts(record), extra_text);
    if (text.size() > *size) {
        char *const larger = allocate(dp, *buffer, static_cast<uint32_t>(text.size()));
        if (!larger) return errno = ENOMEM;
        *buffer = larger;
    }
    std::memcpy(*buffer, text.data(), text.size());
    *size = static_cast<uint32_t>(text.size());
    return 0;
}
