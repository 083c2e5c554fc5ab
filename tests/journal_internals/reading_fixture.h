// reading_fixture.h - a journal whose sets are built byte by byte, and its records read by every road.
#pragma once

#include <cerrno>
#include <memory>
#include <vector>

#include "journal/log_bytes.h"
#include "journal/log_record.h"
#include "journal/log_select.h"
#include "tests/journal/fixture.h"
#include "tests/support/journal_builder.h"

namespace velda::test {

constexpr std::int64_t FirstTime = 1'700'000'000;

class ReadingTest : public LoggerTest {
  protected:
    ReadingTest() : config(defined()) {
        unsetenv("ALLOWLOGDATA");
        context_of(dp).config = &config;
    }

    static journal::LoggerContext &context_of(DP *session) { return journal::logger_context(session); }
    journal::LoggerContext &context() { return context_of(dp); }

    // A set whose files are named after it: "set1file1" and so on, in the system's directory.
    SetBuilder set_of(int files, int number = 1, std::int64_t time_first = FirstTime) {
        std::vector<std::string> paths;
        for (int file = 1; file <= files; ++file)
            paths.push_back(system_ / ("set" + std::to_string(number) + "file" + std::to_string(file)));
        return SetBuilder(paths, time_first, number);
    }

    // Puts the set onto disk and into the configuration, as the current one or beside it.
    void publish(const SetBuilder &set, bool is_current = true) {
        set.write();
        set.configure(config);
        if (is_current) config.currentSet = static_cast<std::uint32_t>(set.number());
    }

    const unsigned char *read(const Placed &placed, int set = 1) {
        return VELDALoggerReadRecord(dp, nullptr, placed.file, set, placed.offset, placed.time, nullptr);
    }

    // Reads with no record kept from before: its bytes, or "error N".
    std::string bytes_or_error(int file, std::int64_t offset, std::int64_t time = 0, int set = 1) {
        context().hasRecord = false;
        errno = 0;
        const unsigned char *const record = VELDALoggerReadRecord(dp, nullptr, file, set, offset, time, nullptr);
        if (!record) return "error " + std::to_string(errno);
        return {reinterpret_cast<const char *>(record),
                static_cast<std::size_t>(journal::LogHeader(record).record_size)};
    }
    std::string bytes_or_error(const Placed &placed) { return bytes_or_error(placed.file, placed.offset, placed.time); }

    // A selection of a set that never sleeps.
    std::unique_ptr<LogSelect> selection(int set = 1, std::uint32_t flags = journal::SelectEos) {
        auto select = std::make_unique<LogSelect>();
        select->deviceType = journal::LogSetDevice;
        select->set = set;
        select->setFirstTime = config.sets[set - 1].timeFirst;
        select->flags = flags;
        select->retry = 0;
        return select;
    }

    // The keys of the records that a selection gives, and why it stopped: "key1 key2 stop N", errno less 2048.
    std::string keys_until_stop(LogSelect &select) {
        std::string keys;
        while (const unsigned char *const record = VELDALoggerReadnext(dp, &select, nullptr))
            keys += std::string(journal::LogParts(record).texts[1]) + " ";
        return keys + "stop " + std::to_string(errno - 2048);
    }

    VELDALoggerConfig &config;
};

}  // namespace velda::test
