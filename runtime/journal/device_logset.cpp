// Records of another system's journal put into this one as they are.
#include <cerrno>
#include <cstring>
#include <utility>

#include "runtime/convert/convert.h"
#include "runtime/journal/file_records.h"
#include "runtime/journal/journal.h"
#include "runtime/process/context.h"

namespace velda::journal {

namespace {

constexpr std::size_t HeaderBytes = RecordHeader::Bytes;

std::int32_t header_number(const unsigned char *record, std::size_t field) { return vgetint32(record + field); }

// False for a record whose sizes contradict each other.
bool take_record(const unsigned char *bytes, NewRecord &record) {
    const auto size = static_cast<std::uint32_t>(header_number(bytes, RecordHeader::RecordSize));
    const auto strings_size = static_cast<std::uint32_t>(header_number(bytes, RecordHeader::StringsSize));
    if (size < HeaderBytes + RecordTrailerBytes || strings_size > size - HeaderBytes - RecordTrailerBytes) return false;
    record.type = RecordType{bytes[RecordHeader::Type]};
    record.flags = bytes[RecordHeader::Flags];
    record.is_encrypted = std::memcmp(bytes, EncryptedMarker.data(), EncryptedMarker.size()) == 0;
    record.strings_size = strings_size;
    record.body = {reinterpret_cast<const char *>(bytes) + HeaderBytes, size - HeaderBytes - RecordTrailerBytes};
    return true;
}

Result<void> append_record(DP *dp, const NewRecord &record) {
    for (;;) {
        if (auto may_go = wait_for_append_leave(dp); !may_go) return may_go;
        Configuration *const configuration = journal_of_updates(dp);
        if (!configuration) return {};
        auto appended = append_records(dp, *configuration, {&record, 1}, Hold::WhileSuspended);
        if (!is_asked_again(appended)) return appended;
    }
}

// While a session appends in the name of another process, whose updates readers then keep apart from its own.
class StandsFor {
  public:
    StandsFor(JournalSession &session, std::int32_t pid)
        : session_(session), before_(std::exchange(session.stands_for, pid)) {}
    ~StandsFor() { session_.stands_for = before_; }
    StandsFor(const StandsFor &) = delete;
    StandsFor &operator=(const StandsFor &) = delete;

  private:
    JournalSession &session_;
    std::int32_t before_;
};

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int WriteDeviceLogset(DP *dp, const unsigned char *bytes) {
    NewRecord record;
    if (!take_record(bytes, record)) return errno = VELDA_LOGGER_DAMAGED;
    if (record.type == RecordType::Eof) return 0;
    auto &session = dp->state<JournalSession>();
    const StandsFor stands_for(session, header_number(bytes, RecordHeader::Pid));
    return number_of(dp, append_record(dp, record));
}
