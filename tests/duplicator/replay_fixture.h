// replay_fixture.h - records applied to database files of a scratch system, as a run with "set=database" would.
#pragma once

#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <utility>

#include "journal/duplicator/duplicator.h"
#include "tests/journal/fixture.h"
#include "tests/support/journal_builder.h"

namespace velda::test {

// For as long as it lives the process has no more rights than anybody.
class WithoutPrivileges {
  public:
    explicit WithoutPrivileges(const std::string &directory) {
        std::filesystem::permissions(directory, std::filesystem::perms(0755));
        if (geteuid() == 0) is_changed_ = seteuid(65534) == 0;
    }
    ~WithoutPrivileges() {
        if (is_changed_ && seteuid(0) != 0) std::abort();
    }
    WithoutPrivileges(const WithoutPrivileges &) = delete;
    WithoutPrivileges &operator=(const WithoutPrivileges &) = delete;

  private:
    bool is_changed_ = false;
};

class ReplayTest : public LoggerTest {
  protected:
    ReplayTest() : context((setenv("TZ", "UTC", 1), defined(), journal::start_dup_context(dp))) {
        in_.deviceType = journal::LogSetDevice;
        in_.specText = "set=1";
        out_.deviceType = journal::Database;
        out_.specText = "set=database";
        context.input = &in_;
        context.output = &out_;
    }
    ~ReplayTest() override {
        VELDALoggerSelectEnd(dp, &context.input);
        VELDALoggerSelectEnd(dp, &context.output);
    }

    std::string path(const std::string &name) const { return system_ / name; }

    // --- files ---

    std::string make_file(const std::string &name, const std::string &type = "HL", const std::string &words = "") {
        const std::string type_word = "TYPE=" + type;
        const char *const arguments[] = {type_word.c_str(), words.empty() ? nullptr : words.c_str(), nullptr};
        EXPECT_EQ(VediCreateFileRaw(dp, path(name).c_str(), "", nullptr, 0, arguments, -1), 0) << VediErrorText(dp);
        return path(name);
    }

    // The record, "(none)" when there is none, or "(error N)".
    std::string read(const std::string &file_path, const std::string &key) {
        VediControlBlock file;
        if (const int error = VediOpen(dp, &file, file_path.c_str(), 0, 0))
            return "(error " + std::to_string(error) + ")";
        char *buffer = nullptr;
        uint32_t room = 0, size = 0;
        const int error = VediReadRecord(dp, &file, VEDI_BINARY, key.data(), static_cast<uint32_t>(key.size()), &buffer,
                                         &room, &size);
        std::string result = error == VEDI_NO_RECORD ? "(none)"
                             : error                 ? "(error " + std::to_string(error) + ")"
                                                     : std::string(buffer, size);
        VELDAfree(dp, buffer, "test", __LINE__);
        VediClose(dp, &file, 0);
        return result;
    }

    void put(const std::string &file_path, const std::string &key, const std::string &data) {
        VediControlBlock file;
        ASSERT_EQ(VediOpen(dp, &file, file_path.c_str(), 0, 0), 0);
        EXPECT_EQ(VediWriteRecord(dp, &file, VEDI_BINARY, key.data(), static_cast<uint32_t>(key.size()), data.data(),
                                  static_cast<uint32_t>(data.size()), 0),
                  0);
        VediClose(dp, &file, 0);
    }

    // --- records ---

    // The bytes of a record as the reading layer hands them out. Each gets the next offset, and a stamp if it has none.
    std::string bytes_of(BuiltRecord record) {
        if (record.time == 0) record.time = time_;
        time_ = record.time;
        const std::string bytes = record_bytes(record, 1, 0, offset_);
        offset_ += static_cast<std::int64_t>(bytes.size());
        return bytes;
    }

    // Runs as part of a command; gives its exit code. What it wrote to standard error is in `said`.
    int run(const std::function<void()> &body) {
        ::testing::internal::CaptureStderr();
        const int code = velda_run(
            dp, "vlogdup test", [](DP *, void *argument) { (*static_cast<const std::function<void()> *>(argument))(); },
            const_cast<std::function<void()> *>(&body));
        said = ::testing::internal::GetCapturedStderr();
        return code;
    }

    int apply_bytes(const std::string &bytes) {
        return run([&] { journal::DupApply(dp, reinterpret_cast<const unsigned char *>(bytes.data())); });
    }
    int apply(const BuiltRecord &record) { return apply_bytes(bytes_of(record)); }
    // Several records in one command; none is to be reported.
    void apply_quietly(const std::vector<BuiltRecord> &records) {
        std::vector<std::string> all;
        for (const BuiltRecord &record : records) all.push_back(bytes_of(record));
        run([&] {
            for (const std::string &bytes : all)
                journal::DupApply(dp, reinterpret_cast<const unsigned char *>(bytes.data()));
        });
        EXPECT_EQ(said, "");
    }

    static BuiltRecord by(std::uint32_t pid, BuiltRecord record) {
        record.pid = pid;
        return record;
    }
    static BuiltRecord inside(std::uint32_t pid, BuiltRecord record) {
        record.flags |= 1;
        return by(pid, std::move(record));
    }
    static BuiltRecord begin(std::uint32_t pid) { return by(pid, transaction_record(TranStartType)); }
    static BuiltRecord end(std::uint32_t pid) { return by(pid, transaction_record(TranEndType)); }
    static BuiltRecord abort(std::uint32_t pid) { return by(pid, transaction_record(TranAbortType)); }

    // What was reported: each report as its severity and message, the time and definition left out.
    std::string reported() const {
        static const std::regex head(R"(\d\d:\d\d:\d\d \d\d [A-Z]{3} \d{4} : ([A-Z]+): ( For definition .*)?)");
        std::string all;
        std::istringstream lines(said);
        std::smatch match;
        for (std::string line; std::getline(lines, line);) {
            if (std::regex_match(line, match, head))
                all += (all.empty() ? "" : "|") + match[1].str() + ":";
            else
                all += line.starts_with("    ") ? line.substr(4) : line;
        }
        return all;
    }

    journal::DupContext &context;
    // The run's own; its end frees them.
    LogSelect &in_ = *new LogSelect, &out_ = *new LogSelect;

  private:
    std::int64_t time_ = 1000000;
    std::int64_t offset_ = 3660;
};

}  // namespace velda::test
