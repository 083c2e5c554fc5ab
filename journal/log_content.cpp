// Whether the contents of a record are what its type has.
#include <array>

#include "journal/log_scan.h"

namespace velda::journal {

namespace {

// Reads lengths and fields off a payload; once something is missing it stays so.
class PayloadReader {
  public:
    explicit PayloadReader(std::string_view payload) : rest_(payload) {}

    std::int64_t number() {
        const std::string_view bytes = take(4);
        return bytes.size() == 4 ? word_at(reinterpret_cast<const unsigned char *>(bytes.data())) : 0;
    }
    std::string_view take(std::int64_t size) {
        if (size < 0 || size > static_cast<std::int64_t>(rest_.size())) {
            is_whole_ = false;
            return {};
        }
        const std::string_view bytes = rest_.substr(0, static_cast<std::size_t>(size));
        rest_.remove_prefix(bytes.size());
        return bytes;
    }
    void field() { take(number()); }
    bool is_whole() const { return is_whole_; }
    bool is_at_end() const { return is_whole_ && rest_.empty(); }

  private:
    std::string_view rest_;
    bool is_whole_ = true;
};

bool is_write(std::string_view payload) {
    PayloadReader reader(payload);
    reader.take(WritePayload::DataLength);
    reader.field();
    return reader.is_at_end();
}

bool is_delete(std::string_view payload) { return payload.size() >= 4; }

bool is_transaction(std::string_view payload) { return payload.size() >= TransactionPayload::Bytes; }

bool is_move(std::string_view payload) {
    PayloadReader reader(payload);
    const std::int64_t from = reader.number(), to = reader.number();
    reader.take(from + 1);
    reader.take(to + 1);
    return from >= 0 && to >= 0 && reader.is_whole();
}

bool is_text(std::string_view payload) {
    PayloadReader reader(payload);
    reader.field();
    return reader.is_whole();
}

bool is_directory(std::string_view payload) {
    PayloadReader reader(payload);
    const std::int64_t length = reader.number();
    reader.take(DirectoryPayload::Path - DirectoryPayload::Uid);
    reader.take(length);
    return reader.is_whole();
}

bool is_flat_file(std::string_view payload) {
    PayloadReader reader(payload);
    const std::int64_t path = reader.number();
    reader.take(FlatFilePayload::DataLength - FlatFilePayload::Uid);
    const std::int64_t data = reader.number();
    reader.take(path + 1);
    reader.take(data);
    return path >= 0 && reader.is_whole();
}

bool is_checkpoint(std::string_view payload) { return payload.size() >= CheckpointPayload::Array; }

bool is_arguments(std::string_view block) {
    PayloadReader reader(block);
    for (std::int64_t left = reader.number(); left > 0 && reader.is_whole(); --left) reader.field();
    return reader.is_whole();
}

bool is_creation(std::string_view payload) {
    constexpr int Operations = 3, Values = 3;
    PayloadReader reader(payload);
    reader.field();
    reader.field();
    const std::string_view arguments = reader.take(reader.number());
    for (int n = 0; n < Operations; ++n) reader.field();
    reader.take(Values * 4);
    return reader.is_whole() && is_arguments(arguments);
}

bool is_anything(std::string_view) { return true; }

struct TypeContent {
    RecordType type;
    bool (*is_right)(std::string_view payload);
};

constexpr TypeContent Contents[] = {
    {RecordType::Eof, is_anything},
    {RecordType::Write, is_write},
    {RecordType::Delete, is_delete},
    {RecordType::ClearFile, is_anything},
    {RecordType::DeleteFile, is_anything},
    {RecordType::CreateFile, is_creation},
    {RecordType::TranStart, is_transaction},
    {RecordType::TranEnd, is_transaction},
    {RecordType::TranAbort, is_transaction},
    {RecordType::Flush, is_anything},
    {RecordType::MoveFile, is_move},
    {RecordType::RemoveFile, is_text},
    {RecordType::Chmod, is_text},
    {RecordType::MakeDirectory, is_directory},
    {RecordType::FlatFile, is_flat_file},
    {RecordType::Checkpoint, is_checkpoint},
    {RecordType::CreateIndex, is_text},
    {RecordType::DeleteIndex, is_text},
    {RecordType::RebuildIndex, is_text},
    {RecordType::CreateTrigger, is_text},
    {RecordType::DeleteTrigger, is_text},
};

using ContentCheck = bool (*)(std::string_view payload);

// By the type's number; null for a type that does not exist.
constexpr auto Checks = [] {
    std::array<ContentCheck, 256> checks{};
    for (const TypeContent &content : Contents) checks[static_cast<std::size_t>(content.type)] = content.is_right;
    return checks;
}();

// The last text has an end.
bool are_strings(std::string_view area) { return area.empty() || (area.back() & 0xFE) == 0xFE; }

}  // namespace

const char *content_fault(const LogHeader &header, const unsigned char *record) {
    const ContentCheck check = Checks[header.type];
    if (!check) return "the record's type is unknown";
    const RecordAreas areas(header, record);
    if (!are_strings(areas.strings)) return "the record's texts do not end inside their area";
    return check(areas.payload) ? nullptr : "the record's contents do not fill it as their lengths tell";
}

}  // namespace velda::journal
