// device_fixture.h - streams of blocks built and taken apart byte by byte, and a run of the duplicator around them.
#pragma once

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <fstream>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "journal/duplicator/device_stream.h"
#include "journal/duplicator/duplicator.h"
#include "tests/journal/fixture.h"
#include "tests/support/journal_builder.h"

namespace velda::test {

constexpr std::int64_t DeviceStamp = 1'700'000'500;
constexpr int DeviceBlock = 256;

inline std::string bytes_of(const BuiltRecord &record) {
    BuiltRecord stamped = record;
    if (stamped.time == 0) stamped.time = 1'700'000'000;
    return record_bytes(stamped, 3, 1, 8192);
}

inline BuiltRecord numbered(int number, std::size_t data_bytes = 20) {
    return write_record("FILE", "key" + std::to_string(number),
                        std::string(data_bytes, static_cast<char>('a' + number % 26)));
}

inline BuiltRecord end_of_stream() { return record_of(EofType); }

// One block of a stream: the header, the content, zeros.
inline std::string block_of(const std::string &content, int number = 0, std::int64_t stamp = DeviceStamp,
                            int size = DeviceBlock) {
    std::string block = std::string(
                            "V\xFF"
                            "B\xFF"
                            "L\xFF\0\0",
                            8) +
                        int64(stamp) + int32(number) + int32(size) + int32(0) + content;
    block.resize(static_cast<std::size_t>(size), '\0');
    return block;
}

// The blocks of a stream that holds these records: no header of a record stands in two blocks.
inline std::string stream_of(const std::vector<BuiltRecord> &records, std::int64_t stamp = DeviceStamp,
                             int size = DeviceBlock) {
    const auto room = static_cast<std::size_t>(size) - 28;
    std::vector<std::string> contents(1);
    for (const BuiltRecord &record : records) {
        std::string bytes = bytes_of(record);
        if (room - contents.back().size() < 48) contents.emplace_back();
        while (!bytes.empty()) {
            if (contents.back().size() == room) contents.emplace_back();
            const std::size_t piece = std::min(bytes.size(), room - contents.back().size());
            contents.back() += bytes.substr(0, piece);
            bytes.erase(0, piece);
        }
    }
    std::string stream;
    for (std::size_t n = 0; n < contents.size(); ++n) stream += block_of(contents[n], static_cast<int>(n), stamp, size);
    return stream;
}

inline void store(const std::string &path, const std::string &bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << bytes;
    ASSERT_TRUE(file.flush());
}

// What a callback was told.
inline std::string told;
inline void note(DP *, int code, ...) {
    if (code != journal::ErrorText) {
        told += std::to_string(code) + " ";
        return;
    }
    va_list arguments;
    va_start(arguments, code);
    const char *const format = va_arg(arguments, const char *);
    char text[500];
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    told += std::string("[") + text + "] ";
}

// A run with an input and an output, serial devices of small blocks.
inline void start_run(DP *session) {
    journal::DupContext &context = journal::start_dup_context(session);
    for (LogSelect **select : {&context.input, &context.output}) {
        *select = new LogSelect;
        (*select)->deviceType = journal::Serial;
        (*select)->blockSize = DeviceBlock;
    }
    context.programName = "vlogdup";
}

class DeviceTest : public LoggerTest {
  protected:
    DeviceTest() {
        defined();
        journal::map_logger(dp, journal::logger_context(dp));
        start_run(dp);
        told.clear();
    }
    ~DeviceTest() override { end_run(); }

    void end_run() {
        if (run().input) VELDALoggerSelectEnd(dp, &run().input);
        if (run().output) VELDALoggerSelectEnd(dp, &run().output);
    }

    journal::DupContext &run() { return journal::dup_context(dp); }
    LogSelect &input() { return *run().input; }
    LogSelect &output() { return *run().output; }

    // Input from a file of this content.
    void read_from(const std::string &content) {
        store(system_ / "input", content);
        input().devices = {system_ / "input"};
    }
    // Output to files of these names.
    void write_to(const std::vector<std::string> &names) {
        output().devices.clear();
        for (const std::string &name : names) output().devices.push_back(system_ / name);
    }
    std::string written(const std::string &name = "output") { return content(system_ / name); }

    void write(const BuiltRecord &record) {
        const std::string bytes = bytes_of(record);
        journal::DupWriteDevice(dp, reinterpret_cast<const unsigned char *>(bytes.data()));
    }

    // The next record's bytes, or "error N"; what is told goes to `told`.
    std::string next() {
        errno = 0;
        const unsigned char *const record = journal::LoggerReadDevice(dp, &input(), note);
        if (!record) return "error " + std::to_string(errno);
        const auto size = static_cast<std::size_t>(vgetint32(record + 36));
        return {reinterpret_cast<const char *>(record), size};
    }
    // Keys of the records until there is none, and the error.
    std::string keys_until_end() {
        std::string keys;
        for (;;) {
            const std::string record = next();
            if (record.starts_with("error ")) return keys + record;
            const std::size_t key = record.find('\xFE', 48) + 1;
            keys += record.substr(key, record.find('\xFE', key) - key) + " ";
        }
    }

    // Runs as a command and gives its exit code; standard error goes to `said`.
    int command(const std::function<void()> &operation) {
        ::testing::internal::CaptureStderr();
        const int code = velda_run(
            dp, "vlogdup", [](DP *, void *argument) { (*static_cast<const std::function<void()> *>(argument))(); },
            const_cast<std::function<void()> *>(&operation));
        said = ::testing::internal::GetCapturedStderr();
        return code;
    }

    // Makes the input or output a socket: the other end is given.
    int as_socket(LogSelect &select) {
        const int listener = velda_socket_open(dp, "127.0.0.1");
        velda_socket_bind(dp, listener, "127.0.0.1", 0);
        velda_socket_listen(dp, listener, 1);
        const int other = velda_connect(dp, "127.0.0.1", velda_socket_port(dp, listener));
        select.deviceType = journal::Socket;
        select.fd = velda_socket_accept(dp, listener);
        select.deviceIndex = journal::SocketAtStart;
        velda_socket_close(dp, listener);
        return other;
    }
    void send(int descriptor, const std::string &bytes) {
        ASSERT_EQ(velda_write(dp, descriptor, bytes.data(), bytes.size()), static_cast<ptrdiff_t>(bytes.size()));
    }
    std::string receive(int descriptor) {
        std::string bytes;
        char buffer[4096];
        while (velda_socket_ready(dp, descriptor, VELDA_SOCKET_INPUT)) {
            const ptrdiff_t got = velda_read(dp, descriptor, buffer, sizeof buffer);
            if (got <= 0) break;
            bytes.append(buffer, static_cast<std::size_t>(got));
        }
        return bytes;
    }
};

}  // namespace velda::test
