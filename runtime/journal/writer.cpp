#include "runtime/journal/writer.h"

#include <array>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>
#include <utility>

#include "runtime/base/process_number.h"
#include "runtime/convert/convert.h"
#include "runtime/journal/append_lock.h"
#include "runtime/journal/bus_error.h"
#include "runtime/journal/capacity.h"
#include "runtime/journal/checkpoint.h"
#include "runtime/journal/injection.h"
#include "runtime/journal/record_crc.h"
#include "runtime/journal/recovery.h"
#include "runtime/journal/set_change.h"
#include "runtime/journal/sync.h"
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

// UTC nanoseconds, exact to a few milliseconds. Asked for once in an append.
std::int64_t wall_clock() {
    timespec now;
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
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
          process_(process) {
        stream_.enter();
    }
    ~Append() { stream_.leave(); }
    Append(const Append &) = delete;
    Append &operator=(const Append &) = delete;

    Result<void> run(std::span<const NewRecord> records) {
        if (auto begun = begin(Look::NowAndThen); !begun) return begun;
        const std::uint64_t block_before = to_.stream / BlockBytes;
        const std::int64_t now = std::max(to_.time_last, seconds());
        if (is_checkpoint_due(*configuration_.record, set_, now)) (void)put_checkpoint(now);
        std::uint64_t end = to_.stream;
        for (const NewRecord &record : records) end = stream_behind(end, whole_size(record));
        if (auto room = stream_.make_room(set_, state_, stream_behind(end, EofBytes)); !room) return room;
        int failed = 0;
        const bool stored = survives_bus_error([&] {
            for (std::size_t n = 0; n < records.size() && failed == 0; ++n) failed = put(records[n]);
            if (failed == 0) publish();
        });
        if (stored && failed == 0) {
            stream_.fetch_ahead(to_.stream);
            const bool is_new_row = to_.stream / BlockBytes != block_before;
            warning_ = capacity_warning(*configuration_.record, set_, state_.warned, to_.time_last, is_new_row);
            return {};
        }
        Error error = stream_.failure(stored ? failed : EIO);
        stream_.forget();
        return error;
    }

    // Puts a record that does not count.
    Result<void> put_end(const NewRecord &record) {
        if (auto begun = begin(Look::Now); !begun) return begun;
        if (auto room = stream_.make_room(set_, state_, stream_behind(to_.stream, whole_size(record))); !room)
            return room;
        int failed = 0;
        const bool stored = survives_bus_error([&] { failed = put(record); });
        if (!stored || failed != 0) return stream_.failure(stored ? failed : EIO);
        state_.closed_use = set_.timeFirst;
        failed = stream_.sync();
        return failed == 0 ? Result<void>() : stream_.failure(failed);
    }

    // The percentage that an operator is to be warned of.
    std::optional<int> warning() const { return warning_; }

    Result<void> secure(std::uint64_t size_bytes) {
        if (auto begun = begin(Look::NowAndThen); !begun) return begun;
        return stream_.make_room(set_, state_, stream_behind(to_.stream, size_bytes + EofBytes));
    }

    Result<OpenForSync> open_for_sync(const WrittenTo &synced, bool all) {
        if (auto begun = begin(Look::Now); !begun) return begun.error();
        const bool is_known = !all && synced.time_first == to_.time_first;
        auto files = is_known ? stream_.duplicates(synced.stream, to_.stream) : stream_.duplicates();
        if (!files) return files.error();
        return OpenForSync{std::move(*files), to_};
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

    Result<void> begin(Look look) {
        if (state_.needs_recovery.load(std::memory_order_relaxed) != 0)
            if (auto recovered = recover(); !recovered) return recovered;
        begin_use();
        return open_set(look);
    }

    // Finds out how far the set is written after the machine stopped.
    Result<void> recover() {
        begin_use();
        // The configuration may not know of any record that this use has on disk.
        const bool is_begun = to_.stream != 0 || first_block_stamp(set_) == set_.timeFirst;
        if (to_.time_first != 0 && is_begun) {
            auto found = find_end(set_, static_cast<int>(configuration_.record->currentSet), state_.synced);
            if (!found) return found.error();
            to_ = *found;
            stream_.forget();
            forget_room();
            if (auto opened = stream_.use(set_, to_); !opened) return opened;
            if (!survives_bus_error([&] { publish(); })) return stream_.failure(EIO);
        }
        state_.needs_recovery.store(0);
        return {};
    }

    Result<void> open_set(Look look) {
        constexpr std::int64_t Interval = 10'000'000;  // nanoseconds
        if (auto opened = stream_.use(set_, to_); !opened) return opened;
        const std::int64_t before = configuration_.looked_at_files;
        if (look == Look::NowAndThen && before <= clock_ && clock_ < before + Interval) return {};
        auto found = stream_.check_files(to_.stream);
        if (found)
            configuration_.looked_at_files = clock_;
        else
            stream_.forget();
        return found;
    }

    std::int64_t seconds() const { return clock_ / 1'000'000'000; }

    // Kept free behind every append, so that a set can always be closed.
    static constexpr std::uint64_t EofBytes = 128;

    // A use of the set that this configuration's writers do not know is either empty or was written by others, whose
    // records its first block vouches for.
    void begin_use() {
        to_ = state_.written[state_.valid.load(std::memory_order_relaxed)];
        if (to_.time_first == set_.timeFirst) return;
        to_ = {set_.timeFirst, 0, 0, set_.timeFirst};
        if (set_.recordCount > 0 && set_.currentFile > 0 && first_block_stamp(set_) == set_.timeFirst) {
            const std::uint64_t block =
                static_cast<std::uint64_t>(set_.fileOffset) / BlockBytes * files_with_names(set_) + set_.currentFile -
                1;
            to_ = {set_.timeFirst, block * BlockBytes + set_.blockPosition, set_.recordCount,
                   std::max(set_.timeFirst, set_.timeLast)};
        }
        forget_room();
    }

    // Nothing is known of what the files hold behind the stream's last row.
    void forget_room() {
        state_.allocated_rows = rows_of(to_.stream);
        state_.begun_blocks = state_.allocated_rows * files_with_names(set_);
    }

    std::uint64_t rows_of(std::uint64_t stream) const {
        const std::uint64_t files = files_with_names(set_);
        const std::uint64_t blocks = (stream + BlockBytes - 1) / BlockBytes;
        return files == 0 ? 0 : (blocks + files - 1) / files;
    }

    // What cannot be put now is put in front of a later append.
    Result<void> put_checkpoint(std::int64_t now) {
        VELDALoggerConfig &config = *configuration_.record;
        const std::string body = checkpoint_body(set_, now, config.lastCheckpoint);
        const NewRecord record{RecordType::Checkpoint, FlushDevice, false, CheckpointStrings.size(), body, {}};
        const WrittenTo before = to_;
        const std::uint64_t end = stream_behind(to_.stream, whole_size(record));
        if (auto room = stream_.make_room(set_, state_, stream_behind(end, EofBytes)); !room) return room;
        int failed = 0;
        if (!survives_bus_error([&] {
                failed = put(record);
                if (failed == 0) publish();
            }))
            failed = EIO;
        if (failed != 0) {
            to_ = before;
            return stream_.failure(failed);
        }
        config.lastCheckpoint = static_cast<std::int32_t>(to_.time_last);
        return {};
    }

    int put(const NewRecord &record) {
        // A record that begins a block is placed behind the block's header.
        const std::uint64_t begin = to_.stream % BlockBytes == 0 ? first_data(to_.stream) : to_.stream;
        to_.time_last = std::max(to_.time_last, seconds());
        char trailer[RecordTrailerBytes];
        vputlong64(trailer, to_.time_last);
        Header header = header_of(record, begin);
        vputint32(header.data() + RecordHeader::Reserved, static_cast<std::int32_t>(checksum(header, record, trailer)));
        const std::pair<Step, std::string_view> parts[] = {{Step::StoreHeader, {header.data(), header.size()}},
                                                           {Step::StoreBody, record.body},
                                                           {Step::StoreData, record.data},
                                                           {Step::StoreTrailer, {trailer, sizeof trailer}}};
        for (const auto &[step, part] : parts) {
            injected_death(step);
            if (const int failed = stream_.put(to_.stream, part, set_, state_)) return failed;
        }
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
        injected_death(Step::Publish);
        publish_written(state_, to_);
        injected_death(Step::Show);
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
    const std::int64_t clock_ = wall_clock();
    WrittenTo to_{};
    std::optional<int> warning_;
};

// Tells an operator of a failure, once a minute while it lasts.
void tell_failure(DP *dp, WriterState &state, const Error &error) {
    constexpr std::int64_t Interval = 60;
    const std::int64_t now = std::time(nullptr);
    if (state.told.number == error.number && now < state.told.time + Interval) return;
    state.told = {now, error.number, 0};
    constexpr int Failure = 2;
    VediLoggerError(dp, Failure, "The journal cannot be written: %s", error.message.c_str());
}

void warn_of_space(DP *dp, int percent) {
    constexpr int SpaceWarning = 257;
    VediLoggerError(dp, SpaceWarning, "Journal Log Files now at %d %% capacity", percent);
}

std::int32_t port_of(DP *dp) {
    auto &session = dp->state<JournalSession>();
    if (session.port == 0) session.port = VELDAGetPortNumber(dp);
    return session.port;
}

}  // namespace

namespace {

// The part of an append that is done under the lock.
Result<void> append_locked(DP *dp, Configuration &configuration, std::int32_t port, std::span<const NewRecord> records,
                           Hold hold, std::optional<int> &warning) {
    VELDALoggerConfig &config = *configuration.record;
    WriterState &state = writer_state(config);
    const AppendLock lock(state);
    const std::uint32_t status = std::atomic_ref(config.status).load(std::memory_order_acquire);
    const std::uint32_t number = config.currentSet;
    if (status == VELDA_LOGGER_INACTIVE || !is_set(number)) return {};
    const bool is_held = status == VELDA_LOGGER_SUSPENDED || is_current_set_closed(configuration);
    if (is_held && hold == Hold::WhileSuspended) return Error{store::JournalSuspended, "the journal is suspended"};
    if (state.closed_use != 0) state.closed_use = 0;
    const std::int32_t stands_for = dp->state<JournalSession>().stands_for;
    Append append(configuration, config.sets[number - 1], port, stands_for != 0 ? stands_for : process_number());
    if (lock.is_inherited()) append.tell();
    auto appended = append.run(records);
    warning = append.warning();
    return appended;
}

}  // namespace

Result<void> append_records(DP *dp, Configuration &configuration, std::span<const NewRecord> records, Hold hold) {
    if (const int failed = prepare_writer_state(dp, configuration))
        return system_error(failed, "cannot lock journal", configuration.path);
    std::optional<int> warning;
    auto appended = append_locked(dp, configuration, port_of(dp), records, hold, warning);
    WriterState &state = writer_state(*configuration.record);
    if (warning) warn_of_space(dp, *warning);
    if (appended) {
        if (state.told.time != 0) state.told = {};
        watch_unsynced(configuration);
    } else if (appended.error().number != store::JournalSuspended) {
        tell_failure(dp, state, appended.error());
    }
    return appended;
}

Result<void> secure_room(DP *dp, Configuration &configuration, std::uint64_t size_bytes) {
    if (const int failed = prepare_writer_state(dp, configuration))
        return system_error(failed, "cannot lock journal", configuration.path);
    Result<void> secured;
    {
        VELDALoggerConfig &config = *configuration.record;
        const AppendLock lock(writer_state(config));
        if (is_set(config.currentSet))
            secured = Append(configuration, config.sets[config.currentSet - 1], port_of(dp)).secure(size_bytes);
    }
    if (!secured) tell_failure(dp, writer_state(*configuration.record), secured.error());
    return secured;
}

Result<OpenForSync> open_for_sync(Configuration &configuration, const WrittenTo &synced, bool all) {
    VELDALoggerConfig &config = *configuration.record;
    const AppendLock lock(writer_state(config));
    if (!is_set(config.currentSet)) return Error{EINVAL, "the journal has no current set"};
    constexpr std::int32_t NoPort = 0;  // nothing is appended
    return Append(configuration, config.sets[config.currentSet - 1], NoPort).open_for_sync(synced, all);
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
