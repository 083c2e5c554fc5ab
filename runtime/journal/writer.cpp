#include "runtime/journal/writer.h"

#include <array>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "runtime/base/process_number.h"
#include "runtime/convert/convert.h"
#include "runtime/journal/append_lock.h"
#include "runtime/journal/bus_error.h"
#include "runtime/journal/record_crc.h"
#include "runtime/journal/set_change.h"
#include "runtime/port/port.h"
#include "runtime/process/context.h"
#include "runtime/store/journalling.h"

namespace velda::journal {

namespace {

using Header = std::array<char, RecordHeader::Bytes>;

std::uint32_t whole_size(const NewRecord &record) {
    return static_cast<std::uint32_t>(RecordHeader::Bytes + record.body.size() + record.data.size() +
                                      RecordTrailerBytes);
}

// One append under the lock.
class Append {
  public:
    Append(Configuration &configuration, LogSetInfo &set, std::int32_t port, std::int32_t process = process_number())
        : configuration_(configuration),
          set_(set),
          state_(writer_state(*configuration.record)),
          stream_(*configuration.stream),
          port_(port),
          process_(process) {}

    Result<void> run(std::span<const NewRecord> records) {
        begin_use();
        if (auto opened = open_set(Look::NowAndThen); !opened) return opened;
        std::uint64_t end = to_.stream;
        for (const NewRecord &record : records) end = stream_behind(end, whole_size(record));
        if (auto room = stream_.make_room(set_, state_, stream_behind(end, EofBytes)); !room) return room;
        int failed = 0;
        const bool stored = survives_bus_error([&] {
            for (std::size_t n = 0; n < records.size() && failed == 0; ++n) failed = put(records[n]);
            if (failed == 0) publish();
        });
        if (stored && failed == 0) return {};
        Error error = stream_.failure(stored ? failed : EIO);
        stream_.forget();
        return error;
    }

    // Puts a record that does not count.
    Result<void> put_end(const NewRecord &record) {
        begin_use();
        if (auto opened = open_set(Look::Now); !opened) return opened;
        if (auto room = stream_.make_room(set_, state_, stream_behind(to_.stream, whole_size(record))); !room)
            return room;
        int failed = 0;
        const bool stored = survives_bus_error([&] { failed = put(record); });
        if (!stored || failed != 0) return stream_.failure(stored ? failed : EIO);
        state_.closed_use = set_.timeFirst;
        failed = stream_.sync();
        return failed == 0 ? Result<void>() : stream_.failure(failed);
    }

    // Tells again how far the set is written.
    void tell() {
        const WrittenTo &written = state_.written[state_.valid.load(std::memory_order_relaxed)];
        if (written.time_first != set_.timeFirst) return;
        to_ = written;
        if (stream_.use(set_, to_)) survives_bus_error([&] { show(); });
    }

  private:
    // Whether the files are looked for under their names: that takes longer than an append.
    enum class Look { Now, NowAndThen };

    Result<void> open_set(Look look) {
        constexpr std::int64_t Interval = 10'000'000;  // nanoseconds
        if (auto opened = stream_.use(set_, to_); !opened) return opened;
        const std::int64_t now = coarse_nanoseconds();
        if (look == Look::NowAndThen && now < configuration_.looked_at_files + Interval) return {};
        auto found = stream_.check_files(to_.stream);
        if (found)
            configuration_.looked_at_files = now;
        else
            stream_.forget();
        return found;
    }

    // Kept free behind every append, so that a set can always be closed.
    static constexpr std::uint64_t EofBytes = 128;

    void begin_use() {
        to_ = state_.written[state_.valid.load(std::memory_order_relaxed)];
        if (to_.time_first == set_.timeFirst) return;
        to_ = {set_.timeFirst, 0, 0, set_.timeFirst};
        state_.allocated_rows = 0;
    }

    int put(const NewRecord &record) {
        // A record that begins a block is placed behind the block's header.
        const std::uint64_t begin = to_.stream % BlockBytes == 0 ? first_data(to_.stream) : to_.stream;
        to_.time_last = std::max<std::int64_t>(to_.time_last, std::time(nullptr));
        char trailer[RecordTrailerBytes];
        vputlong64(trailer, to_.time_last);
        Header header = header_of(record, begin);
        vputint32(header.data() + RecordHeader::Reserved, static_cast<std::int32_t>(checksum(header, record, trailer)));
        for (const std::string_view part : {std::string_view(header.data(), header.size()), record.body, record.data,
                                            std::string_view(trailer, sizeof trailer)})
            if (const int failed = stream_.put(to_.stream, part, set_)) return failed;
        ++to_.records;
        return 0;
    }

    static std::uint64_t first_data(std::uint64_t block_begin) {
        return block_begin + (block_begin == 0 ? FirstBlockData : BlockHeader::Bytes);
    }

    Header header_of(const NewRecord &record, std::uint64_t begin) const {
        Header header;
        char *const at = header.data();
        const std::string_view marker = record.is_encrypted ? EncryptedMarker : RecordMarker;
        std::memcpy(at + RecordHeader::Marker, marker.data(), marker.size());
        vputlong64(at + RecordHeader::UpdateTime, to_.time_last);
        vputint32(at + RecordHeader::Pid, process_);
        at[RecordHeader::Type] = static_cast<char>(record.type);
        at[RecordHeader::Flags] = static_cast<char>(record.flags);
        at[RecordHeader::Set] = static_cast<char>(configuration_.record->currentSet);
        at[RecordHeader::File] = static_cast<char>(stream_.file_of(begin));
        vputlong64(at + RecordHeader::Offset, stream_.offset_of(begin));
        vputint32(at + RecordHeader::Port, port_);
        vputint32(at + RecordHeader::RecordSize, static_cast<std::int32_t>(whole_size(record)));
        vputint32(at + RecordHeader::Reserved, 0);
        vputint32(at + RecordHeader::StringsSize, static_cast<std::int32_t>(record.strings_size));
        return header;
    }

    static std::uint32_t checksum(const Header &header, const NewRecord &record, const char *trailer) {
        std::uint32_t crc = crc32c(0, header.data(), header.size());
        crc = crc32c(crc, record.body.data(), record.body.size());
        crc = crc32c(crc, record.data.data(), record.data.size());
        crc = crc32c(crc, trailer, RecordTrailerBytes);
        return crc == 0 ? 1 : crc;
    }

    // The one store from which the append counts, then what readers look at.
    void publish() {
        const std::uint32_t other = 1 - state_.valid.load(std::memory_order_relaxed);
        state_.written[other] = to_;
        state_.valid.store(other, std::memory_order_release);
        show();
    }

    void show() {
        const std::uint64_t last = to_.stream == 0 ? 0 : to_.stream - 1;  // a full block is still the current one
        set_.timeLast = to_.time_last;
        set_.currentFile = to_.stream == 0 ? 0 : static_cast<std::uint32_t>(stream_.file_of(last) + 1);
        set_.fileOffset = static_cast<std::int64_t>(last / BlockBytes / stream_.files() * BlockBytes);
        set_.blockPosition = to_.stream == 0 ? BlockBytes : static_cast<std::uint32_t>(last % BlockBytes + 1);
        std::atomic_ref(set_.recordCount).store(to_.records, std::memory_order_release);
        if (to_.stream != 0) stream_.show(set_);
    }

    Configuration &configuration_;
    LogSetInfo &set_;
    WriterState &state_;
    SetStream &stream_;
    const std::int32_t port_;
    const std::int32_t process_;
    WrittenTo to_{};
};

std::int32_t port_of(DP *dp) {
    auto &session = dp->state<JournalSession>();
    if (session.port == 0) session.port = VELDAGetPortNumber(dp);
    return session.port;
}

bool is_set(std::uint32_t number) { return number >= 1 && number <= VELDA_LOGGER_SETS; }

}  // namespace

Result<void> append_records(DP *dp, Configuration &configuration, std::span<const NewRecord> records, Hold hold) {
    if (const int failed = prepare_writer_state(dp, configuration))
        return system_error(failed, "cannot lock journal", configuration.path);
    const std::int32_t port = port_of(dp);
    VELDALoggerConfig &config = *configuration.record;
    const AppendLock lock(writer_state(config));
    const std::uint32_t status = std::atomic_ref(config.status).load(std::memory_order_acquire);
    const std::uint32_t number = config.currentSet;
    if (status == VELDA_LOGGER_INACTIVE || !is_set(number)) return {};
    const bool is_held = status == VELDA_LOGGER_SUSPENDED || is_current_set_closed(configuration);
    if (is_held && hold == Hold::WhileSuspended) return Error{store::JournalSuspended, "the journal is suspended"};
    if (writer_state(config).closed_use != 0) writer_state(config).closed_use = 0;
    const std::int32_t stands_for = dp->state<JournalSession>().stands_for;
    Append append(configuration, config.sets[number - 1], port, stands_for != 0 ? stands_for : process_number());
    if (lock.is_inherited()) append.tell();
    return append.run(records);
}

Result<void> append_end_of_set(DP *dp, Configuration &configuration) {
    constexpr std::string_view SyntheticStrings = "\xFE\xFE\xFE\xFE\xFE";
    if (const int failed = prepare_writer_state(dp, configuration))
        return system_error(failed, "cannot lock journal", configuration.path);
    VELDALoggerConfig &config = *configuration.record;
    const AppendLock lock(writer_state(config));
    if (!is_set(config.currentSet)) return {};
    Append append(configuration, config.sets[config.currentSet - 1], port_of(dp), process_number());
    return append.put_end({RecordType::Eof, 0, false, SyntheticStrings.size(), SyntheticStrings, {}});
}

void wait_for_append(DP *dp, Configuration &configuration) {
    if (prepare_writer_state(dp, configuration) == 0) const AppendLock lock(writer_state(*configuration.record));
}

}  // namespace velda::journal
