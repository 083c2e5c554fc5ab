// writer_fixture.h - a journal that is written to, and the walk over what was written: byte by byte from the description
// of the format alone.
#pragma once

#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "runtime/file/file.h"
#include "runtime/port/port.h"
#include "runtime/value/value.h"
#include "tests/runtime/journal/fixture.h"
#include "tests/support/journal_builder.h"
#include "tests/support/marks.h"

namespace velda::test {

struct Walked {
    int type;
    int flags;
    std::int64_t time;
    std::uint32_t pid;
    int set, file;
    std::int64_t offset;
    int port;
    std::vector<std::string> strings;
    std::string payload;
    std::string marker;
    std::string bytes;
};

class WriterTest : public JournalTest {
  protected:
    WriterTest() : config(mapped()) {}

    void SetUp() override { ASSERT_NE(config, VELDA_LOGGER_NOT_MAPPED); }

    // Names files for a set and empties it, as the operations do.
    void make_set(int set, int files, std::int64_t max_size = -1) {
        LogSetInfo &info = config->sets[set - 1];
        for (int n = 0; n < files; ++n) {
            const std::string path = set_path(set, n);
            std::ofstream(path, std::ios::binary) << std::string(4095, '\0') << 'x';
            std::strncpy(info.files[n].path, path.c_str(), VELDA_LOGGER_PATH_BYTES - 1);
            info.files[n].maxSize = max_size;
        }
        reset(set, velda_logger_next_time(dp));
    }
    std::string set_path(int set, int file) const {
        return system_ / ("set" + std::to_string(set) + "." + std::to_string(file));
    }
    void reset(int set, std::int64_t time) {
        LogSetInfo &info = config->sets[set - 1];
        info.setState = 0;
        info.timeFirst = info.timeLast = time;
        std::memcpy(info.timeFirstPortable, int64(time).data(), 8);
        info.recordCount = 0;
        info.currentFile = 0;
        info.fileOffset = 0;
        config->blockSize = info.blockPosition = 4096;
        for (const LogFileEntry &entry : info.files) {
            if (entry.path[0] && entry.maxSize < 1) {
                ASSERT_EQ(truncate(entry.path, 4096), 0);
            }
        }
    }
    void activate(int set = 1) {
        config->currentSet = static_cast<std::uint32_t>(set);
        config->status = VELDA_LOGGER_ACTIVE;
    }

    // --- files of the database ---

    std::string path(const std::string &name) const { return system_ / name; }
    void make_file(const std::string &name, const std::string &words = "DURABILITY=LAZY") {
        VAR message;
        const VAR operands(translate_bytes("DATA " + path(name) + " " + words, " ", "\xFE"));
        ASSERT_EQ(velda_create_file(dp, &operands, &message), 1) << shown(message.view());
    }
    VAR opened(const std::string &name, DP *session = nullptr) {
        VAR file;
        const VAR wanted(path(name));
        EXPECT_EQ(VLibFNEWOPEN_IIBBBB(session ? session : static_cast<DP *>(dp), 0, nullptr, &wanted, &file, nullptr),
                  1);
        return file;
    }
    int write(const VAR &file, const VAR &key, const std::string &record, VAR *code = nullptr) {
        const VAR bytes(marks(record));
        return VLibFNEWWRITE_IIBBBIB(dp, code ? VELDA_REPORT_ERRORS : 0, &file, &bytes, &key, 0, code);
    }
    int remove(const VAR &file, const VAR &key, VAR *code = nullptr) {
        return VLibFNEWDELETE_IIBBB(dp, code ? VELDA_REPORT_ERRORS : 0, &file, &key, code);
    }
    std::string read(const VAR &file, const VAR &key) {
        VAR record;
        const int found = VLibFNEWREAD_IIBBBIB(dp, 0, &file, &record, &key, 0, nullptr);
        return found == 1 ? shown(record.view()) : "(none)";
    }

    // --- the walk ---

    // Every whole record of the set, in order: as many as the description counts, and one more where that is an EOF.
    std::vector<Walked> records(int set = 1) {
        SetWalk walk(*this, config->sets[set - 1]);
        std::vector<Walked> found;
        for (std::int64_t n = 0; n < config->sets[set - 1].recordCount; ++n) found.push_back(walk.next());
        return found;
    }
    // Type and key of each record: "WRITE F key".
    std::vector<std::string> summary(int set = 1) {
        static constexpr const char *Names[] = {"0",
                                                "EOF",
                                                "WRITE",
                                                "DELETE",
                                                "CLEARFILE",
                                                "DELETEFILE",
                                                "CREATEFILE",
                                                "TRANSTART",
                                                "TRANSEND",
                                                "TRANSABORT",
                                                "10",
                                                "MOVEFILE",
                                                "REMOVEFILE",
                                                "VCHMOD",
                                                "MKDIR",
                                                "FLATFILE",
                                                "16",
                                                "17",
                                                "CHECKPOINT",
                                                "CREATEINDEX",
                                                "DELETEINDEX",
                                                "REBUILDINDEX",
                                                "CREATETRIGGER",
                                                "DELETETRIGGER"};
        std::vector<std::string> lines;
        for (const Walked &record : records(set)) {
            std::string line = Names[record.type];
            const std::string &file = record.strings[0];
            if (!file.empty()) line += " " + file.substr(file.rfind('/') + 1);
            if (!record.strings[1].empty()) line += " " + shown(record.strings[1]);
            lines.push_back(line);
        }
        return lines;
    }

    static std::uint64_t number(const std::string &bytes, std::size_t at, int size) {
        std::uint64_t value = 0;
        for (int n = 0; n < size; ++n) value = value << 8 | static_cast<unsigned char>(bytes.at(at + n));
        return value;
    }

    VELDALoggerConfig *const config;

  private:
    // The stream of one set, read file by file.
    class SetWalk {
      public:
        SetWalk(WriterTest &, const LogSetInfo &info) : info_(info) {
            for (const LogFileEntry &entry : info.files)
                if (entry.path[0]) files_.push_back(content(entry.path));
        }

        Walked next() {
            Walked record;
            const std::string head = take(48, &record);
            record.marker = head.substr(0, 8);
            record.time = static_cast<std::int64_t>(number(head, 8, 8));
            record.pid = static_cast<std::uint32_t>(number(head, 16, 4));
            record.type = static_cast<unsigned char>(head[20]);
            record.flags = static_cast<unsigned char>(head[21]);
            record.set = static_cast<unsigned char>(head[22]);
            EXPECT_EQ(record.file, static_cast<unsigned char>(head[23]));
            EXPECT_EQ(record.offset, static_cast<std::int64_t>(number(head, 24, 8)));
            record.port = static_cast<int>(number(head, 32, 4));
            const std::size_t size = number(head, 36, 4), strings = number(head, 44, 4);
            EXPECT_TRUE(head.substr(0, 8) ==
                            "V\xFFR\xFF"
                            "E\xFF"
                            "C\xFF" ||
                        head.substr(0, 8) ==
                            "V\xFF"
                            "E\xFFN\xFF"
                            "C\xFF");
            if (size < 56 + strings || HasFailure())
                throw std::runtime_error("no record at " + std::to_string(record.offset));
            record.bytes = head + take(size - 48, nullptr);
            std::string text = record.bytes.substr(48, strings);
            for (std::size_t end; (end = text.find('\xFE')) != text.npos; text.erase(0, end + 1))
                record.strings.push_back(text.substr(0, end));
            EXPECT_EQ(text, "");
            record.payload = record.bytes.substr(48 + strings, size - 56 - strings);
            EXPECT_EQ(record.bytes.substr(size - 8), head.substr(8, 8));
            std::string without = record.bytes;
            without.replace(40, 4, 4, '\0');
            const std::uint32_t crc = plain_crc32c(without);
            EXPECT_EQ(number(record.bytes, 40, 4), crc == 0 ? 1 : crc);
            return record;
        }

      private:
        std::string take(std::size_t count, Walked *begins) {
            std::string bytes;
            while (bytes.size() < count) {
                if (position_ % 4096 == 0) enter_block();
                if (begins && bytes.empty()) {
                    begins->file = static_cast<int>(position_ / 4096 % files_.size());
                    begins->offset =
                        static_cast<std::int64_t>(position_ / 4096 / files_.size() * 4096 + position_ % 4096);
                }
                const std::size_t part = std::min<std::size_t>(count - bytes.size(), 4096 - position_ % 4096);
                bytes += files_[position_ / 4096 % files_.size()].substr(
                    position_ / 4096 / files_.size() * 4096 + position_ % 4096, part);
                position_ += part;
            }
            return bytes;
        }
        void enter_block() {
            const std::size_t block = position_ / 4096;
            const std::string head = files_[block % files_.size()].substr(block / files_.size() * 4096, 28);
            EXPECT_EQ(head.substr(0, 7), block == 0 ? std::string("V\xFF"
                                                                  "C\xFFR\xFF\0",
                                                                  7)
                                                    : std::string("V\xFF"
                                                                  "B\xFFL\xFF\0",
                                                                  7));
            if (head.size() < 28) throw std::runtime_error("no block " + std::to_string(block));
            EXPECT_EQ(static_cast<std::int64_t>(number(head, 8, 8)), info_.timeFirst) << "block " << block;
            if (block > 0) {
                EXPECT_EQ(number(head, 16, 8), block << 32 | 4096) << "number and size of a block";
            }
            position_ += block == 0 ? 3660 : 28;
        }

        const LogSetInfo &info_;
        std::vector<std::string> files_;
        std::size_t position_ = 0;
    };
};

}  // namespace velda::test
