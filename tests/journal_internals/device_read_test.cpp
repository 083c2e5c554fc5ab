// Streams of blocks read: records over blocks, damage, devices that follow one another, sockets.
#include "journal/log_record.h"
#include "tests/journal_internals/device_fixture.h"
#include "tests/support/terminal_program.h"

using namespace velda::journal;
using namespace velda::test;

namespace {

using DeviceRead = DeviceTest;

constexpr int WriteHeaderBytes = 48;
const std::string SearchError = "Velda: TJ Search error -- continue searching\n";

TEST_F(DeviceRead, RecordsComeAsTheyStandInTheStream) {
    const BuiltRecord one = numbered(1), two = numbered(2);
    read_from(stream_of({one, two, end_of_stream()}));
    EXPECT_EQ(next(), bytes_of(one));
    EXPECT_EQ(next(), bytes_of(two));
}

TEST_F(DeviceRead, ARecordMayCrossManyBlocks) {
    const BuiltRecord large = numbered(1, 5000), small = numbered(2);
    read_from(stream_of({large, small}));
    EXPECT_EQ(next(), bytes_of(large));
    EXPECT_EQ(next(), bytes_of(small));
    EXPECT_GT(input().blockCount, 20);
}

TEST_F(DeviceRead, ARecordAskedForByItsPlaceIsLookedForFurtherOnInTheStream) {
    constexpr std::int64_t Time = 1'700'000'000;
    std::vector<BuiltRecord> records = {numbered(1), numbered(2), numbered(3)};
    for (std::size_t n = 0; n < records.size(); ++n) records[n].time = Time + static_cast<std::int64_t>(n);
    read_from(stream_of({records[0], records[1], records[2], end_of_stream()}));
    const auto record_of_time = [&](std::int64_t time, int file = 1, std::int64_t offset = 8192) {
        const unsigned char *const record = VELDALoggerReadRecord(dp, &input(), file, 3, offset, time, nullptr);
        return record ? std::string(LogParts(record).texts[1]) : "none";
    };
    EXPECT_EQ(record_of_time(Time + 1), "key2");
    EXPECT_EQ(record_of_time(Time + 1), "key2") << "it is in the buffer";
    EXPECT_EQ(record_of_time(Time + 2, 1), "key3");
    EXPECT_EQ(record_of_time(Time), "none") << "a stream goes forward only";
}

TEST_F(DeviceRead, ABlockIsToldBeforeAndBehindItsReading) {
    read_from(stream_of({numbered(1), numbered(2, 300)}));
    next();
    EXPECT_EQ(told, "5 6 ");
    next();
    EXPECT_EQ(told, "5 6 5 6 5 6 ");
}

TEST_F(DeviceRead, AStreamThatBreaksOffIsAnErrorAndItsHalfRecordIsDropped) {
    const std::string stream = stream_of({numbered(1), numbered(2, 1000)});
    read_from(stream.substr(0, stream.size() - DeviceBlock));
    EXPECT_EQ(keys_until_end(), "key1 error 5");
}

TEST_F(DeviceRead, ADeviceThatIsNotThereGivesItsError) {
    input().devices = {system_ / "nothing"};
    EXPECT_EQ(next(), "error 2");
    EXPECT_EQ(input().fd, -1);
}

TEST_F(DeviceRead, TheEndOfTheOnlyDeviceEndsReadingAndTheLogSaysHowItWouldGoOn) {
    read_from(stream_of({numbered(1), end_of_stream()}));
    logged();
    EXPECT_EQ(keys_until_end(), "key1 error 2");
    EXPECT_EQ(logged(), "Must use terminate=wait");
}

TEST_F(DeviceRead, TheEndOfATerminalsStreamEndsReading) {
    store(system_ / "input", stream_of({numbered(1), end_of_stream(), numbered(2)}));
    input().deviceType = Tty;
    input().fd = VediWin32open((system_ / "input").c_str(), VELDA_OPEN_READ, 0);
    input().deviceStamp = DeviceStamp;
    EXPECT_EQ(keys_until_end(), "key1 error 2");
}

TEST_F(DeviceRead, MediaThatChangeInMidRunAreNoticedByTheStamp) {
    const std::string stream = stream_of({numbered(1), numbered(2, 300), numbered(3)});
    read_from(stream.substr(0, DeviceBlock) + stream_of({numbered(4)}, DeviceStamp + 1));
    EXPECT_EQ(keys_until_end(), "key1 error 22");
    EXPECT_NE(told.find("[Error! The time stamp verification do not match. The device is corrupt]"), told.npos);
}

TEST_F(DeviceRead, WhatIsNoStreamIsRefusedAtItsFirstBlock) {
    read_from(std::string(1000, 'V'));
    EXPECT_EQ(next(), "error 22");
    EXPECT_EQ(told, "5 [Error! The data of '" + input().devices[0] + "' are not blocks of a journal stream] 6 ");
}

TEST_F(DeviceRead, BlocksOfAnotherSizeAreRefusedWithTheSizeToGive) {
    read_from(stream_of({numbered(1), numbered(2, 900)}, DeviceStamp, 512));
    EXPECT_EQ(next(), "error 22");
    EXPECT_NE(told.find("have 512 bytes and not 256, give blocksize=512]"), told.npos);
}

TEST_F(DeviceRead, ABlockSizeWithoutRoomForAHeaderIsRefused) {
    read_from(stream_of({numbered(1)}));
    for (const int size : {0, 75, -1, (64 << 20) + 1}) {
        input().blockSize = size;
        EXPECT_EQ(next(), "error 22") << size;
    }
}

TEST_F(DeviceRead, OtherBytesBetweenRecordsAreSearchedThrough) {
    const std::string one = bytes_of(numbered(1)), two = bytes_of(numbered(2, 10));
    read_from(block_of(std::string("noise V noise") + one) + block_of("VVVV" + two, 1));
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(next(), one);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), SearchError);
    ::testing::internal::CaptureStderr();
    // Two bytes are passed over with each letter: the first and the third are found, and then the record.
    EXPECT_EQ(next(), two);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), SearchError + SearchError);
}

TEST_F(DeviceRead, ARecordWithAnotherTrailerIsPassedOverInSilence) {
    BuiltRecord unfinished = numbered(1);
    unfinished.is_complete = false;
    unfinished.has_crc = false;
    read_from(stream_of({unfinished, numbered(2), end_of_stream()}));
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(keys_until_end(), "key2 error 2");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(DeviceRead, ARecordThatWasChangedOnItsWayIsReportedAndNotGivenOut) {
    std::string stream = stream_of({numbered(1), numbered(2), end_of_stream()});
    stream[stream.find("bbbbb")] = 'x';
    read_from(stream);
    EXPECT_EQ(keys_until_end(), "key2 error 2");
    stream[stream.find("ccccc")] = 'x';
    read_from(stream);
    input().fd = -1;
    input().bufferPosition = DeviceBlock;
    EXPECT_EQ(keys_until_end(), "error 2");
    EXPECT_NE(told.find("is damaged]"), told.npos);
}

TEST_F(DeviceRead, SizesThatContradictEachOtherAreNoHeader) {
    struct Lie {
        std::int64_t record_size, strings_size;
    };
    for (const Lie lie : {Lie{0, -1}, Lie{-5, -1}, Lie{55, -1}, Lie{INT32_MAX, -1}, Lie{(1 << 30) + (1 << 20) + 1, -1},
                          Lie{-1, -2}, Lie{-1, INT32_MAX}, Lie{56, 1}}) {
        BuiltRecord forged = numbered(1);
        forged.told_record_size = lie.record_size;
        forged.told_strings_size = lie.strings_size;
        read_from(stream_of({forged, numbered(2), end_of_stream()}));
        input().fd = -1;
        input().deviceIndex = NoDevice;
        input().bufferPosition = DeviceBlock;
        EXPECT_EQ(keys_until_end(), "key2 error 2") << lie.record_size << " " << lie.strings_size;
    }
}

TEST_F(DeviceRead, AClaimedLengthTakesNoMemoryBeforeTheBytesArrive) {
    BuiltRecord forged = numbered(1);
    forged.told_record_size = 1 << 30;
    read_from(stream_of({forged, numbered(2, 3000)}));
    EXPECT_EQ(next(), "error 5");
    EXPECT_LT(logger_context(dp).recordCapacity, 100000);
}

TEST_F(DeviceRead, ARecordWithEncipheredDataIsNoEnvelope) {
    BuiltRecord enciphered = numbered(1);
    enciphered.is_encrypted = true;
    read_from(stream_of({enciphered, numbered(2)}));
    EXPECT_EQ(next(), bytes_of(enciphered));
    EXPECT_EQ(next(), bytes_of(numbered(2)));
}

// --- devices one after another ---

// Reads the files of a run on a terminal; shows each key, and the error at the end.
void show_keys(DP *dp, const std::vector<std::string> &devices, std::uint32_t flags = 0) {
    velda::test::start_run(dp);
    LogSelect &select = *dup_context(dp).input;
    select.devices = devices;
    select.flags = flags;
    map_logger(dp, logger_context(dp));
    while (const unsigned char *const record = LoggerReadDevice(dp, &select, nullptr)) {
        const char *const key = reinterpret_cast<const char *>(record) + WriteHeaderBytes + 5;
        VELDAprintf(dp, "<%.4s>", key);
    }
    VELDAprintf(dp, "<error %d>\n", errno);
}

class DeviceChange : public DeviceTest {
  protected:
    DeviceChange() {
        for (int n = 1; n <= 3; ++n) store(file(n), stream_of({numbered(n), end_of_stream()}, DeviceStamp + n));
    }
    std::string file(int n) const { return system_ / ("volume" + std::to_string(n)); }
    static std::string question(const std::string &name) {
        return "Waiting to open input device '" + name + "'\r\nEnter C to continue, R to rename or Q to quit : ";
    }
};

TEST_F(DeviceChange, TheOperatorIsAlwaysAskedForTheNextInputDevice) {
    for (const std::uint32_t flags : {0u, static_cast<std::uint32_t>(SelectPrompt)}) {
        OnTerminal terminal([&](DP *session) { show_keys(session, {file(1), file(2)}, flags); });
        EXPECT_EQ(terminal.prompted(question(file(2))), "<key1>");
        terminal.type("c\n");
        terminal.until("<key2><error 2>");
        EXPECT_EQ(terminal.exit_code(), 0);
    }
}

TEST_F(DeviceChange, OtherRepliesAskAgain) {
    OnTerminal terminal([&](DP *session) { show_keys(session, {file(1), file(2)}); });
    terminal.prompted(question(file(2)));
    terminal.type("yes\n");
    terminal.prompted(question(file(2)));
    terminal.type("\n");
    terminal.prompted(question(file(2)));
    terminal.type("C\n");
    terminal.until("<key2>");
}

TEST_F(DeviceChange, TheOperatorMayNameAnotherFile) {
    OnTerminal terminal([&](DP *session) { show_keys(session, {file(1), file(2)}); });
    terminal.prompted(question(file(2)));
    terminal.type("r\n");
    terminal.prompted("Enter new name of file : ");
    terminal.type("\n");
    terminal.prompted(question(file(2)));
    terminal.type("R\n");
    terminal.prompted("Enter new name of file : ");
    terminal.type(file(3) + "\n");
    terminal.until("<key3><error 2>");
}

TEST_F(DeviceChange, ADeviceThatCannotBeReadIsAskedForAgain) {
    std::filesystem::rename(file(2), file(9));
    OnTerminal terminal([&](DP *session) { show_keys(session, {file(1), file(2)}); });
    terminal.prompted(question(file(2)));
    terminal.type("C\n");
    terminal.until("Error number 2 reading first block from device " + file(2));
    terminal.prompted(question(file(2)));
    std::filesystem::rename(file(9), file(2));
    terminal.type("C\n");
    terminal.until("<key2><error 2>");
}

TEST_F(DeviceChange, TheOperatorMayQuit) {
    OnTerminal terminal([&](DP *session) { show_keys(session, {file(1), file(2)}); });
    terminal.prompted(question(file(2)));
    terminal.type("q\n");
    terminal.until("QUIT requested by operator");
    terminal.until("<error 2>");
}

TEST_F(DeviceChange, AWaitingInputGoesBackToTheFirstDeviceBehindTheLast) {
    OnTerminal terminal([&](DP *session) { show_keys(session, {file(1)}, SelectWait); });
    EXPECT_EQ(terminal.prompted(question(file(1))), "<key1>");
    store(file(1), stream_of({numbered(7), end_of_stream()}, DeviceStamp + 7));
    terminal.type("C\n");
    terminal.until("<key7>");
    terminal.prompted(question(file(1)));
    terminal.type("Q\n");
    terminal.until("<error 2>");
}

TEST_F(DeviceChange, ABackgroundJobCannotChangeDevices) {
    const auto ending = run_on_pipes("", [&](DP *session) { show_keys(session, {file(1), file(2)}); });
    EXPECT_NE(ending.output.find("Unable to prompt terminal for new input device"), std::string::npos);
    EXPECT_NE(ending.output.find("<key1><error 22>"), std::string::npos);
}

// --- sockets ---

TEST_F(DeviceRead, ALostConnectionIsToldByItsNumberAndAHalfRecordIsDropped) {
    const int other = as_socket(input());
    const std::string stream = stream_of({numbered(1), numbered(2, 1000)});
    send(other, stream.substr(0, stream.size() - 100));
    velda_socket_close(dp, other);
    EXPECT_EQ(keys_until_end(), "key1 error 10054");
    EXPECT_EQ(next(), "error 10054");
}

TEST_F(DeviceRead, TheEndOfASocketsStreamEndsReading) {
    const int other = as_socket(input());
    send(other, stream_of({numbered(1), end_of_stream()}));
    EXPECT_EQ(keys_until_end(), "key1 error 2");
}

TEST_F(DeviceRead, ASocketTakesTheStampOfEachBlock) {
    const int other = as_socket(input());
    send(other, stream_of({numbered(1, 150)}, 5) + stream_of({numbered(2), end_of_stream()}, 6));
    EXPECT_EQ(keys_until_end(), "key1 key2 error 2");
    EXPECT_EQ(input().deviceStamp, 6);
}

TEST_F(DeviceRead, AWaitForTheSenderIsToldAroundIt) {
    const int other = as_socket(input());
    std::thread sender([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        const std::string stream = stream_of({numbered(1)});
        EXPECT_EQ(::send(other, stream.data(), stream.size(), 0), static_cast<ssize_t>(stream.size()));
    });
    EXPECT_EQ(next(), bytes_of(numbered(1)));
    sender.join();
    EXPECT_EQ(told, "3 4 5 6 ");
}

TEST_F(DeviceRead, AWaitingReceiverTakesTheNextSenderOnTheSamePort) {
    const int other = as_socket(input());
    input().flags = SelectWait;
    input().listener.descriptor = velda_socket_open(dp, "127.0.0.1");
    velda_socket_bind(dp, input().listener.descriptor, "127.0.0.1", 0);
    velda_socket_listen(dp, input().listener.descriptor, 1);
    send(other, stream_of({numbered(1), end_of_stream()}));
    const int second = velda_connect(dp, "127.0.0.1", velda_socket_port(dp, input().listener.descriptor));
    send(second, stream_of({numbered(2)}, DeviceStamp + 1));
    EXPECT_EQ(next(), bytes_of(numbered(1)));
    EXPECT_EQ(next()[20], EofType);
    EXPECT_EQ(next(), bytes_of(numbered(2)));
    char byte;
    EXPECT_EQ(velda_read(dp, other, &byte, 1), 0) << "the first connection is closed";
}

}  // namespace
