// dup_record.h - a journal record taken apart for replay. Private to the duplicator.
//
// A record may come from outside, so no length in it is believed: what lies beyond the record's end is never read.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "journal/duplicator/duplicator.h"
#include "runtime/journal/log_format.h"

namespace velda::journal {

inline std::int64_t record_time(const unsigned char *record) { return vgetlong64(record + RecordHeader::UpdateTime); }
inline std::uint32_t record_size(const unsigned char *record) {
    return static_cast<std::uint32_t>(vgetint32(record + RecordHeader::RecordSize));
}
inline RecordType record_type(const unsigned char *record) { return RecordType{record[RecordHeader::Type]}; }

// Reads fields one after another. What is not there reads as 0 and "", and is remembered.
class PayloadReader {
  public:
    explicit PayloadReader(std::string_view bytes) : rest_(bytes) {}

    std::uint32_t number() {
        const std::string_view field = text(4);
        return field.empty() ? 0 : static_cast<std::uint32_t>(vgetint32(field.data()));
    }
    std::string_view text(std::size_t size) {
        if (size > rest_.size()) {
            whole_ = false;
            rest_ = {};
            return {};
        }
        const std::string_view field = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return field;
    }
    // A 4-byte length and so many bytes.
    std::string_view counted_text() { return text(number()); }
    bool whole() const { return whole_; }

  private:
    std::string_view rest_;
    bool whole_ = true;
};

struct DupRecord {
    const unsigned char *bytes = nullptr;
    std::uint32_t size = 0;
    RecordType type = RecordType::Eof;
    std::int64_t time = 0;
    std::uint32_t pid = 0;
    bool in_transaction = false;
    bool encrypted = false;      // the data of a WRITE is enciphered
    std::string_view file_name;  // as the record has it
    std::string_view key;
    std::string_view payload;  // without the trailer
};

// One text of the strings area, which is shortened by it and the byte that ends it.
inline std::string_view take_string(std::string_view &strings) {
    std::size_t length = 0;
    while (length < strings.size() && static_cast<unsigned char>(strings[length]) < 0xFE) ++length;
    const std::string_view text = strings.substr(0, length);
    strings.remove_prefix(length < strings.size() ? length + 1 : length);
    return text;
}

// False for a record whose sizes contradict each other.
inline bool take_apart(const unsigned char *bytes, DupRecord &record) {
    record.bytes = bytes;
    record.size = record_size(bytes);
    record.type = record_type(bytes);
    record.time = record_time(bytes);
    record.pid = static_cast<std::uint32_t>(vgetint32(bytes + RecordHeader::Pid));
    record.in_transaction = bytes[RecordHeader::Flags] & InTransaction;
    record.encrypted = std::memcmp(bytes, EncryptedMarker.data(), EncryptedMarker.size()) == 0;
    if (record.size < RecordHeader::Bytes + RecordTrailerBytes) return false;
    const std::size_t room = record.size - RecordHeader::Bytes - RecordTrailerBytes;
    const auto strings_size = static_cast<std::uint32_t>(vgetint32(bytes + RecordHeader::StringsSize));
    if (strings_size > room) return false;
    const std::string_view body(reinterpret_cast<const char *>(bytes) + RecordHeader::Bytes, room);
    std::string_view strings = body.substr(0, strings_size);
    record.file_name = take_string(strings);
    record.key = take_string(strings);
    record.payload = body.substr(strings_size);
    return true;
}

}  // namespace velda::journal
