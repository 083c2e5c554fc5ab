// journal_builder.h - files of a log set and configuration records built byte by byte, for tests. Written from the
// description of the format alone: it shares no constant and no code with the writer and the readers that it tests.
//
//   SetBuilder set({path_a, path_b, path_c}, 1000000);      // timeFirst 1000000
//   const Placed first = set.add(write_record("FILE", "key", "data"));
//   set.add(record_of(EofType));
//   set.write();                                            // the files
//   set.configure(config);                                  // as set 1 of a mapped configuration
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "runtime/journal/config_record.h"

namespace velda::test {

// --- bytes ----------------------------------------------------------------------------------------------------------

// An integer, most significant byte first.
inline std::string big_endian(std::uint64_t value, int bytes) {
    std::string text;
    for (int n = bytes; n-- > 0;) text += static_cast<char>(value >> (8 * n) & 0xFF);
    return text;
}
inline std::string int32(std::int64_t value) { return big_endian(static_cast<std::uint64_t>(value), 4); }
inline std::string int64(std::int64_t value) { return big_endian(static_cast<std::uint64_t>(value), 8); }

// CRC-32C, one bit at a time.
inline std::uint32_t plain_crc32c(const std::string &bytes) {
    std::uint32_t crc = ~0u;
    for (const char c : bytes) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (crc & 1 ? 0x82F63B78u : 0);
    }
    return ~crc;
}

// --- records --------------------------------------------------------------------------------------------------------

struct BuiltRecord {
    int type = 2;
    int flags = 0;
    std::int64_t time = 0;  // 0: the one of the record before, or timeFirst
    std::uint32_t pid = 4711;
    int port = 3;
    std::vector<std::string> strings = {"", "", "", "", "", "", "", ""};
    std::string payload;
    bool has_crc = true;
    bool is_encrypted = false;  // carries the other marker
    bool is_complete = true;    // false: the trailer is zero
    // Lies of a forged header: what it says instead of the truth, -1 for the truth.
    std::int64_t told_record_size = -1, told_strings_size = -1, told_set = -1, told_file = -1, told_offset = -1;
    std::string told_marker;
};

constexpr int EofType = 1, WriteType = 2, DeleteType = 3, ClearFileType = 4, DeleteFileType = 5, CreateFileType = 6,
              TranStartType = 7, TranEndType = 8, TranAbortType = 9, FlushType = 10, MoveFileType = 11,
              RemoveFileType = 12, ChmodType = 13, MkdirType = 14, FlatFileType = 15, CheckpointType = 18,
              CreateIndexType = 19, DeleteIndexType = 20, RebuildIndexType = 21, CreateTriggerType = 22,
              DeleteTriggerType = 23;

inline BuiltRecord record_of(int type, std::string payload = "", std::string file_name = "", std::string key = "") {
    BuiltRecord record;
    record.type = type;
    record.payload = std::move(payload);
    record.strings = {std::move(file_name), std::move(key), "app", "user", "tty", "appid", "source", "12"};
    return record;
}

inline BuiltRecord write_record(std::string file_name, std::string key, const std::string &data, int flags = 0,
                                int value = 0) {
    return record_of(WriteType, int32(flags) + int32(value) + int32(static_cast<std::int64_t>(data.size())) + data,
                     std::move(file_name), std::move(key));
}

inline BuiltRecord delete_record(std::string file_name, std::string key, int flags = 0) {
    return record_of(DeleteType, int32(flags), std::move(file_name), std::move(key));
}

// TRANSTART, TRANSEND, TRANSABORT.
inline BuiltRecord transaction_record(int type, std::int64_t first = 0, std::int64_t second = 0,
                                      std::string text = "") {
    return record_of(type, int64(first) + '\0' + int64(second), "", std::move(text));
}

inline BuiltRecord move_record(const std::string &from, const std::string &to) {
    return record_of(MoveFileType, int32(static_cast<std::int64_t>(from.size())) +
                                       int32(static_cast<std::int64_t>(to.size())) + from + '\0' + to + '\0');
}

// REMOVEFILE, VCHMOD, the index and trigger types.
inline BuiltRecord text_record(int type, const std::string &text, std::string file_name = "") {
    return record_of(type, int32(static_cast<std::int64_t>(text.size())) + text, std::move(file_name));
}

inline BuiltRecord mkdir_record(const std::string &path, int uid = 0, int gid = 0, int mode = 0755) {
    return record_of(MkdirType,
                     int32(static_cast<std::int64_t>(path.size())) + int32(uid) + int32(gid) + int32(mode) + path);
}

inline BuiltRecord flat_file_record(const std::string &path, const std::string &data, int uid = 0, int gid = 0,
                                    int mode = 0644) {
    return record_of(FlatFileType, int32(static_cast<std::int64_t>(path.size())) + int32(uid) + int32(gid) +
                                       int32(mode) + int32(static_cast<std::int64_t>(data.size())) + path + '\0' +
                                       data);
}

// `array` as it lies in the record, its attributes divided by 0xFE.
inline BuiltRecord checkpoint_record(std::int64_t value, const std::string &array) {
    return record_of(CheckpointType, int64(value) + array);
}

// The creation block: type, text for the driver, argument strings, three operations, three values.
inline BuiltRecord create_file_record(std::string file_name, const std::string &type, const std::string &driver_text,
                                      const std::vector<std::string> &arguments, int first_value = 0) {
    const auto field = [](const std::string &text) { return int32(static_cast<std::int64_t>(text.size())) + text; };
    std::string block = int32(static_cast<std::int64_t>(arguments.size()));
    for (const std::string &argument : arguments) block += field(argument);
    return record_of(CreateFileType,
                     field(type) + field(driver_text) + field(block) + field("") + field("") + field("") +
                         int32(first_value) + int32(0) + int32(0),
                     std::move(file_name));
}

// The bytes of a record that starts at a position of a set.
inline std::string record_bytes(const BuiltRecord &record, int set, int file, std::int64_t offset) {
    const auto told = [](std::int64_t lie, std::int64_t truth) { return lie == -1 ? truth : lie; };
    std::string strings;
    for (const std::string &text : record.strings) strings += text + '\xFE';
    const std::size_t size = 48 + strings.size() + record.payload.size() + 8;
    std::string bytes = record.is_encrypted ? "V\xFF"
                                              "E\xFF"
                                              "N\xFF"
                                              "C\xFF"
                                            : "V\xFF"
                                              "R\xFF"
                                              "E\xFF"
                                              "C\xFF";
    if (!record.told_marker.empty()) bytes = record.told_marker;
    bytes += int64(record.time) + int32(record.pid);
    bytes += static_cast<char>(record.type);
    bytes += static_cast<char>(record.flags);
    bytes += static_cast<char>(told(record.told_set, set));
    bytes += static_cast<char>(told(record.told_file, file));
    bytes += int64(told(record.told_offset, offset)) + int32(record.port);
    bytes += int32(told(record.told_record_size, static_cast<std::int64_t>(size))) + int32(0);
    bytes += int32(told(record.told_strings_size, static_cast<std::int64_t>(strings.size())));
    bytes += strings + record.payload + int64(record.time);
    if (record.has_crc) {
        const std::uint32_t crc = plain_crc32c(bytes);
        bytes.replace(40, 4, big_endian(crc == 0 ? 1 : crc, 4));
    }
    if (!record.is_complete) bytes.replace(bytes.size() - 8, 8, 8, '\0');
    return bytes;
}

// --- sets -----------------------------------------------------------------------------------------------------------

// Where a record begins: file from 0, and the offset of its first byte; its stamp and size.
struct Placed {
    int file = 0;
    std::int64_t offset = 0;
    std::int64_t time = 0;
    std::size_t size = 0;
    std::string key(int set) const {
        return std::to_string(file) + "*" + std::to_string(set) + "*" + std::to_string(offset) + "*" +
               std::to_string(time);
    }
};

class SetBuilder {
  public:
    SetBuilder(std::vector<std::string> paths, std::int64_t time_first, int set = 1, std::size_t block_size = 4096)
        : paths_(std::move(paths)),
          time_first_(time_first),
          time_last_(time_first),
          set_(set),
          block_size_(block_size) {}

    // Puts a record behind those before it.
    Placed add(BuiltRecord record) {
        if (record.time == 0) record.time = time_last_;
        time_last_ = record.time;
        ++records_;
        Placed placed = next_place();
        const std::string bytes = record_bytes(record, set_, placed.file, placed.offset);
        placed.time = record.time;
        placed.size = bytes.size();
        add_bytes(bytes);
        return placed;
    }

    // Puts any bytes into the stream.
    void add_bytes(const std::string &bytes) {
        for (std::size_t at = 0; at < bytes.size();) {
            open_block();
            const std::size_t part = std::min(bytes.size() - at, block_size_ - blocks_.back().size());
            blocks_.back() += bytes.substr(at, part);
            at += part;
        }
    }

    // Where the next byte will stand.
    Placed next_place() {
        open_block();
        const std::size_t block = blocks_.size() - 1;
        Placed placed;
        placed.file = static_cast<int>(block % paths_.size());
        placed.offset = static_cast<std::int64_t>(block / paths_.size() * block_size_ + blocks_.back().size());
        return placed;
    }

    // What the set's description says of it.
    LogSetInfo info() const {
        LogSetInfo info{};
        info.timeFirst = time_first_;
        info.timeLast = time_last_;
        std::memcpy(info.timeFirstPortable, int64(time_first_).data(), 8);
        info.recordCount = records_;
        info.blockPosition = static_cast<std::uint32_t>(block_size_);
        if (!blocks_.empty()) {
            const std::size_t block = blocks_.size() - 1;
            info.currentFile = static_cast<std::uint32_t>(block % paths_.size() + 1);
            info.fileOffset = static_cast<std::int64_t>(block / paths_.size() * block_size_);
            info.blockPosition = static_cast<std::uint32_t>(blocks_.back().size());
        }
        for (std::size_t n = 0; n < paths_.size(); ++n) {
            if (paths_[n].size() >= sizeof info.files[n].path) throw std::runtime_error("path too long");
            std::memcpy(info.files[n].path, paths_[n].data(), paths_[n].size());
            info.files[n].createdTime = time_first_;
            info.files[n].maxSize = -1;
        }
        return info;
    }

    // The bytes of a file, from 0: whole blocks.
    std::string file_bytes(std::size_t file) const {
        std::string bytes;
        for (std::size_t block = file; block < blocks_.size(); block += paths_.size()) {
            std::string content = blocks_[block];
            content.resize(block_size_, '\0');
            if (block == 0) {
                const LogSetInfo set = info();
                content.replace(16, sizeof set, reinterpret_cast<const char *>(&set), sizeof set);
            }
            bytes += content;
        }
        if (bytes.empty()) bytes.resize(block_size_, '\0');
        return bytes;
    }

    void write() const {
        for (std::size_t file = 0; file < paths_.size(); ++file) {
            std::ofstream out(paths_[file], std::ios::binary | std::ios::trunc);
            out << file_bytes(file);
            if (!out.flush()) throw std::runtime_error("cannot write " + paths_[file]);
        }
    }

    // Describes the set in a configuration, under its number.
    void configure(VELDALoggerConfig &config) const {
        config.blockSize = static_cast<std::uint32_t>(block_size_);
        config.sets[set_ - 1] = info();
    }

    std::int64_t records() const { return records_; }
    std::int64_t time_first() const { return time_first_; }
    std::int64_t time_last() const { return time_last_; }
    int number() const { return set_; }
    const std::vector<std::string> &paths() const { return paths_; }
    // The blocks in the order of the stream; the last one as far as it is filled.
    std::vector<std::string> &blocks() { return blocks_; }

  private:
    void open_block() {
        if (!blocks_.empty() && blocks_.back().size() < block_size_) return;
        const bool is_first = blocks_.empty();
        std::string block = is_first ? std::string(
                                           "V\xFF"
                                           "C\xFF"
                                           "R\xFF\0\0",
                                           8)
                                     : std::string(
                                           "V\xFF"
                                           "B\xFF"
                                           "L\xFF\0\0",
                                           8);
        block += int64(time_first_) + int32(static_cast<std::int64_t>(blocks_.size())) +
                 int32(static_cast<std::int64_t>(block_size_)) + int32(0);
        if (is_first) block.resize(3660, '\0');
        blocks_.push_back(std::move(block));
    }

    std::vector<std::string> paths_;
    std::int64_t time_first_;
    std::int64_t time_last_;
    int set_;
    std::size_t block_size_;
    std::int64_t records_ = 0;
    std::vector<std::string> blocks_;
};

// --- the configuration ----------------------------------------------------------------------------------------------

// The bytes of a configuration file with what a fresh one has, the paths left empty. Numbers in the machine's order.
inline std::string configuration_bytes(const std::string &path, int current_set = 0, int status = 0) {
    std::string bytes(79464, '\0');
    const auto put = [&bytes](std::size_t offset, const auto &value) {
        std::memcpy(bytes.data() + offset, &value, sizeof value);
    };
    bytes.replace(0, 8, "VBC__LOG");
    bytes.replace(8, path.size(), path);
    for (const auto &[offset, value] :
         std::vector<std::pair<std::size_t, std::uint32_t>>{{200, 79464},
                                                            {652, 3},
                                                            {656, 4096},
                                                            {660, 0x12345678},
                                                            {664, 1},
                                                            {764, static_cast<std::uint32_t>(status)},
                                                            {768, 70},
                                                            {772, 1},
                                                            {776, 300},
                                                            {780, 10},
                                                            {784, static_cast<std::uint32_t>(current_set)},
                                                            {944, 10},
                                                            {972, 1},
                                                            {976, 0xFFFFFFFF}})
        put(offset, value);
    put(720, ~std::uint64_t{0});
    return bytes;
}

// Puts a set's description into such bytes.
inline void put_set(std::string &configuration, int set, const LogSetInfo &info) {
    configuration.replace(21480 + 3624 * static_cast<std::size_t>(set - 1), sizeof info,
                          reinterpret_cast<const char *>(&info), sizeof info);
}

}  // namespace velda::test
