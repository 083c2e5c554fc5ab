// Streams of blocks written: how records fill blocks, when blocks get out, devices that follow one another, failures.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "tests/journal_internals/device_fixture.h"
#include "tests/support/seed.h"
#include "tests/support/terminal_program.h"

using namespace velda::journal;
using namespace velda::test;

namespace {

class DeviceWrite : public DeviceTest {
  protected:
    DeviceWrite() { write_to({"output"}); }

    // A record of that many bytes.
    static BuiltRecord sized(std::size_t bytes, int number = 1) {
        const std::size_t least = bytes_of(numbered(number, 0)).size();
        return numbered(number, bytes - least);
    }
    // The data of a written block.
    std::string data_of(int block, const std::string &name = "output") {
        return written(name).substr(static_cast<std::size_t>(block) * DeviceBlock + 28, DeviceBlock - 28);
    }
    std::uint64_t blocks() { return run().slot->outputBlocks; }
    void expect_sealed(bool is_sealed) {
        write(numbered(1));
        DupFlushBlock(dp, false);
        EXPECT_EQ(data_of(0).starts_with("V\xFF"
                                         "E\xFF"),
                  is_sealed);
    }
};

constexpr std::size_t Room = DeviceBlock - 28;

TEST_F(DeviceWrite, ABlockBeginsWithItsHeaderAndIsFilledWithZeros) {
    const std::int64_t before = std::time(nullptr);
    write(numbered(1));
    DupFlushBlock(dp, false);
    write(numbered(2));
    DupFlushBlock(dp, false);
    ASSERT_EQ(written().size(), 2u * DeviceBlock);
    const std::int64_t stamp = vgetlong64(written().data() + 8);
    EXPECT_GE(stamp, before);
    EXPECT_EQ(written().substr(0, DeviceBlock), block_of(bytes_of(numbered(1)), 0, stamp));
    EXPECT_EQ(written().substr(DeviceBlock), block_of(bytes_of(numbered(2)), 1, stamp));
    EXPECT_EQ(blocks(), 2u);
    EXPECT_EQ(output().deviceStamps, std::vector<std::int64_t>{stamp});
}

TEST_F(DeviceWrite, AnEmptyBlockIsNeverWritten) {
    DupFlushBlock(dp, false);
    DupFlushBlock(dp, false);
    EXPECT_EQ(written(), "");
    write(numbered(1));
    DupFlushBlock(dp, false);
    DupFlushBlock(dp, false);
    EXPECT_EQ(written().size(), static_cast<std::size_t>(DeviceBlock));
}

TEST_F(DeviceWrite, ARecordOfExactlyTheSpaceLeftLeavesTheNextFlushAFullBlock) {
    write(sized(Room));
    EXPECT_EQ(blocks(), 0u);
    EXPECT_EQ(output().bufferPosition, DeviceBlock);
    DupFlushBlock(dp, false);
    EXPECT_EQ(blocks(), 1u);
    EXPECT_EQ(data_of(0), bytes_of(sized(Room)));
}

TEST_F(DeviceWrite, With47BytesLeftARecordStartsInTheNextBlockAndTheRestIsZero) {
    write(sized(Room - 47));
    write(numbered(2));
    EXPECT_EQ(blocks(), 1u);
    EXPECT_EQ(data_of(0).substr(Room - 47), std::string(47, '\0'));
    DupFlushBlock(dp, false);
    EXPECT_TRUE(data_of(1).starts_with(bytes_of(numbered(2))));
}

TEST_F(DeviceWrite, With48BytesLeftARecordStartsThere) {
    write(sized(Room - 48));
    write(numbered(2));
    EXPECT_EQ(blocks(), 1u);
    EXPECT_EQ(data_of(0).substr(Room - 48), bytes_of(numbered(2)).substr(0, 48));
}

TEST_F(DeviceWrite, ARecordWithTheFlushBitGetsOutAtOnce) {
    BuiltRecord record = numbered(1);
    write(record);
    EXPECT_EQ(blocks(), 0u);
    record.flags = 2;
    write(record);
    EXPECT_GE(blocks(), 1u);
    EXPECT_LE(output().bufferPosition, 28);
}

TEST_F(DeviceWrite, NoflushHoldsBackTheEndOfATransactionOnly) {
    output().flags = SelectNoFlush;
    BuiltRecord end = transaction_record(TranEndType);
    end.flags = 2;
    write(end);
    EXPECT_EQ(blocks(), 0u);
    BuiltRecord record = numbered(1, 10);
    record.flags = 2;
    write(record);
    EXPECT_GE(blocks(), 1u);
    EXPECT_LE(output().bufferPosition, 28);
}

TEST_F(DeviceWrite, ARecordOfTypeTenFlushesAndIsNotPassedOn) {
    write(numbered(1));
    write(record_of(FlushType));
    EXPECT_EQ(blocks(), 1u);
    write(record_of(FlushType));
    EXPECT_EQ(blocks(), 1u);
    EXPECT_EQ(data_of(0), block_of(bytes_of(numbered(1))).substr(28));
}

TEST_F(DeviceWrite, TheEndRecordHas61Bytes) {
    write_end_record(dp);
    DupFlushBlock(dp, false);
    const std::string record = data_of(0).substr(0, 61);
    const std::string stamp = record.substr(8, 8);
    EXPECT_EQ(record, std::string("V\xFF"
                                  "R\xFF"
                                  "E\xFF"
                                  "C\xFF") +
                          stamp + int32(getpid()) + std::string("\x01\0\0\0", 4) + int64(0) +
                          int32(VELDAGetPortNumber(dp)) + int32(61) + int32(0) + int32(5) + marks("^^^^^") + stamp);
    EXPECT_EQ(data_of(0).substr(61), std::string(Room - 61, '\0'));
}

// --- enciphered transfers ---

TEST_F(DeviceWrite, ATransferIsEncipheredWithEncryptAlone) {
    output().flags = SelectEncrypt;
    output().key = "k";
    expect_sealed(true);
}

TEST_F(DeviceWrite, AnyOtherFlagBesideEncryptLeavesTheTransferInClear) {
    output().flags = SelectEncrypt | SelectNoFlush;
    expect_sealed(false);
}

TEST_F(DeviceWrite, PromptBesideEncryptLeavesTheTransferInClear) {
    OnTerminal terminal([&](DP *session) {
        start_run(session);
        LogSelect &select = *dup_context(session).output;
        select.devices = {system_ / "output"};
        select.flags = SelectEncrypt | SelectPrompt;
        const std::string bytes = bytes_of(numbered(1));
        DupWriteDevice(session, reinterpret_cast<const unsigned char *>(bytes.data()));
        DupFlushBlock(session, false);
    });
    terminal.prompted("Enter C to continue, R to rename or Q to quit : ");
    terminal.type("C\n");
    EXPECT_EQ(terminal.exit_code(), 0);
    EXPECT_TRUE(data_of(0).starts_with(bytes_of(numbered(1))));
}

class EveryScheme : public DeviceWrite, public testing::WithParamInterface<int> {};

TEST_P(EveryScheme, RecordsInEnvelopesComeBack) {
    output().flags = SelectEncrypt;
    output().scheme = static_cast<std::uint32_t>(GetParam());
    output().key = "a key of some length";
    for (const BuiltRecord &record : {numbered(1), numbered(2, 3000), numbered(3, 0)}) write(record);
    write_end_record(dp);
    DupFlushBlock(dp, false);
    EXPECT_EQ(written().find("FILE"), std::string::npos);
    input().devices = output().devices;
    EXPECT_EQ(next(), bytes_of(numbered(1)));
    EXPECT_EQ(next(), bytes_of(numbered(2, 3000)));
    EXPECT_EQ(next(), bytes_of(numbered(3, 0)));
    EXPECT_EQ(next(), "error 2");
}
INSTANTIATE_TEST_SUITE_P(Schemes, EveryScheme, testing::Range(1, 14),
                         [](const auto &scheme) { return std::string(velda_scheme_name(nullptr, scheme.param)); });

// The stream of two records in envelopes.
std::string sealed_stream(DP *dp, const std::string &key) {
    LogSelect select;
    select.key = key;
    std::string content;
    for (const int number : {1, 2}) content += sealed(dp, select, bytes_of(numbered(number)));
    std::string stream;
    for (std::size_t at = 0, number = 0; at < content.size(); at += Room, ++number)
        stream += block_of(content.substr(at, Room), static_cast<int>(number));
    return stream;
}

TEST_F(DeviceWrite, AnEnvelopeOfAnotherKeyIsAClearErrorAndTheNextOneIsRead) {
    std::string stream = sealed_stream(dp, "key");
    stream[28 + 24 + 3] ^= 1;  // in the first one's key
    read_from(stream);
    EXPECT_EQ(next(), "error 74");
    EXPECT_NE(told.find("[Error! A record of the stream cannot be deciphered: "), std::string::npos);
    EXPECT_EQ(next(), bytes_of(numbered(2)));
}

TEST_F(DeviceWrite, AnEnvelopeWhoseBodyWasChangedIsAnError) {
    std::string stream = sealed_stream(dp, "key");
    stream[28 + 24 + 40] ^= 1;
    read_from(stream);
    EXPECT_EQ(next(), "error 74");
}

TEST_F(DeviceWrite, AnEnvelopeThatHoldsNoRecordIsAnError) {
    LogSelect select;
    read_from(block_of(sealed(dp, select, "no record at all")));
    EXPECT_EQ(next(), "error 74");
    EXPECT_NE(told.find("what it holds is no record"), std::string::npos);
}

TEST_F(DeviceWrite, LengthsOfAnEnvelopeThatCannotBeAreNoEnvelope) {
    struct Lie {
        std::int64_t body, key, scheme;
    };
    for (const Lie lie : {Lie{-1, 16, 6}, Lie{0, 16, 6}, Lie{INT64_MAX, 16, 6}, Lie{1LL << 40, 16, 6}, Lie{64, -1, 6},
                          Lie{64, 0, 6}, Lie{64, 1 << 20, 6}, Lie{64, 16, 0}, Lie{64, 16, 14}}) {
        const std::string forged =
            "V\xFF"
            "E\xFF"
            "N\xFF"
            "C\xFF" +
            int64(lie.body) + int32(lie.key) + int32(lie.scheme);
        read_from(block_of(forged + std::string(60, 'x') + bytes_of(numbered(2, 5))));
        input().fd = -1;
        input().deviceIndex = NoDevice;
        input().bufferPosition = DeviceBlock;
        EXPECT_EQ(next(), bytes_of(numbered(2, 5))) << lie.body << " " << lie.key << " " << lie.scheme;
    }
}

TEST_F(DeviceWrite, AnEnvelopesClaimedLengthTakesNoMemoryBeforeTheBytesArrive) {
    read_from(
        block_of("V\xFF"
                 "E\xFF"
                 "N\xFF"
                 "C\xFF" +
                 int64(1 << 30) + int32(16) + int32(6)));
    EXPECT_EQ(next(), "error 5");
}

// --- devices one after another ---

TEST_F(DeviceWrite, AFullDeviceIsEndedAndTheNextOneBegun) {
    write_to({"one", "two"});
    output().blockMax = 2;
    for (int number = 1; number <= 3; ++number) write(numbered(number, 80));
    EXPECT_EQ(output().deviceIndex, 1);
    DupFlushBlock(dp, false);
    input().devices = {system_ / "one"};
    const std::string first = keys_until_end();
    EXPECT_TRUE(first.ends_with("error 2")) << "the first device ends with its end record: " << first;
    EXPECT_TRUE(first.starts_with("key1 key2 "));
    EXPECT_NE(written("two").find("key3"), std::string::npos);
    EXPECT_EQ(vgetint32(written("two").data() + 16), 0) << "each device begins at block 0";
}

TEST_F(DeviceWrite, ADeviceOfAnySizeIsNeverFull) {
    write_to({"one", "two"});
    for (int number = 1; number <= 100; ++number) write(numbered(number, 80));
    EXPECT_EQ(output().deviceIndex, 0);
}

// Writes records in a session of its own until a first device of one block is full.
void fill_devices(DP *dp, const std::vector<std::string> &devices, std::uint32_t flags, int block_max, int records) {
    start_run(dp);
    LogSelect &select = *dup_context(dp).output;
    select.devices = devices;
    select.flags = flags;
    select.blockMax = block_max;
    for (int number = 1; number <= records; ++number) {
        const std::string bytes = bytes_of(numbered(number, 80));
        DupWriteDevice(dp, reinterpret_cast<const unsigned char *>(bytes.data()));
    }
    DupFlushBlock(dp, false);
    VELDAprintf(dp, "<done on %d>\n", select.deviceIndex);
}

std::string output_question(const std::string &name) {
    return "Waiting to open output device '" + name + "'\r\nEnter C to continue, R to rename or Q to quit : ";
}

TEST_F(DeviceWrite, AVolumeOfThisRunIsNotOverwritten) {
    const std::string volume = system_ / "volume", other = system_ / "other";
    OnTerminal terminal([&](DP *session) { fill_devices(session, {volume}, 0, 1, 1); });
    EXPECT_NE(terminal.prompted(output_question(volume))
                  .find("Error! File '" + volume + "' appears to have valid data created by this process already\r\n"),
              std::string::npos);
    const std::string before = content(volume);
    terminal.type("C\n");
    terminal.until("appears to have valid data");
    terminal.prompted(output_question(volume));
    EXPECT_EQ(content(volume), before);
    terminal.type("R\n");
    terminal.prompted("Enter name of new file to write to : ");
    terminal.type(other + "\n");
    terminal.prompted(output_question(other));
    terminal.type("C\n");
    terminal.until("<done on 0>");
    EXPECT_EQ(content(volume), before);
    EXPECT_TRUE(std::filesystem::exists(other));
}

TEST_F(DeviceWrite, AnOlderFileIsOverwritten) {
    store(system_ / "output", block_of(bytes_of(numbered(9)), 0, 12345));
    write(numbered(1));
    DupFlushBlock(dp, false);
    EXPECT_NE(written().find("key1"), std::string::npos);
    EXPECT_EQ(written().find("key9"), std::string::npos);
}

TEST_F(DeviceWrite, WithPromptTheOperatorIsAskedForEachDevice) {
    const std::string one = system_ / "one", two = system_ / "two";
    OnTerminal terminal([&](DP *session) { fill_devices(session, {one, two}, SelectPrompt, 1, 1); });
    terminal.prompted(output_question(one));
    EXPECT_FALSE(std::filesystem::exists(one));
    terminal.type("c\n");
    terminal.prompted(output_question(two));
    terminal.type("x\n");
    terminal.prompted(output_question(two));
    terminal.type("C\n");
    terminal.until("<done on 1>");
}

TEST_F(DeviceWrite, AFileThatCannotBeOpenedIsAskedFor) {
    const std::string missing = system_ / "nowhere/file";
    OnTerminal terminal([&](DP *session) { fill_devices(session, {missing}, 0, 0, 1); });
    terminal.until("WARNING: ");
    terminal.until("Error number 2 while opening output file '" + missing + "'");
    terminal.prompted(output_question(missing));
    std::filesystem::create_directory(system_ / "nowhere");
    terminal.type("C\n");
    terminal.until("<done on 0>");
}

TEST_F(DeviceWrite, TheOperatorMayQuitInPlaceOfADevice) {
    const std::string missing = system_ / "nowhere/file";
    OnTerminal terminal([&](DP *session) { fill_devices(session, {missing}, 0, 0, 1); });
    terminal.prompted(output_question(missing));
    terminal.type("Q\n");
    terminal.until("Quit by operator");
    EXPECT_EQ(terminal.exit_code(), ExitQuit);
}

TEST_F(DeviceWrite, ABackgroundJobEndsWhereAnOperatorIsNeeded) {
    const auto ending =
        run_on_pipes("", [&](DP *session) { fill_devices(session, {system_ / "nowhere/file"}, 0, 0, 1); });
    EXPECT_EQ(ending.exit_code, ExitNoPrompt);
    EXPECT_NE(ending.output.find("Unable to prompt terminal for a new output device"), std::string::npos);
}

// --- failing writes ---

const std::string FullQuestion =
    "Error 28 writing to device '/dev/full'\r\nEnter R to retry , N to start new device or Q to quit : ";

TEST_F(DeviceWrite, AFailedWriteIsTheOperatorsToDecide) {
    const std::string next_file = system_ / "next";
    OnTerminal terminal([&](DP *session) { fill_devices(session, {"/dev/full", next_file}, 0, 0, 9); });
    terminal.until("Error number 28 writing to '/dev/full'");
    terminal.prompted(FullQuestion);
    terminal.type("what\n");
    terminal.prompted(FullQuestion);
    terminal.type("r\n");
    terminal.prompted(FullQuestion);
    terminal.type("N\n");
    terminal.until("<done on 1>");
    EXPECT_EQ(terminal.exit_code(), 0);
    // The block that could not be written is the first of the new device: nothing is lost.
    input().devices = {next_file};
    EXPECT_EQ(keys_until_end(), "key1 key2 key3 key4 key5 key6 key7 key8 key9 error 5");
}

TEST_F(DeviceWrite, TheOperatorMayQuitAfterAFailedWrite) {
    OnTerminal terminal([&](DP *session) { fill_devices(session, {"/dev/full"}, 0, 0, 9); });
    terminal.prompted(FullQuestion);
    terminal.type("q\n");
    EXPECT_EQ(terminal.exit_code(), ExitQuit);
}

TEST_F(DeviceWrite, ABackgroundJobEndsAfterAFailedWrite) {
    const auto ending = run_on_pipes("", [&](DP *session) { fill_devices(session, {"/dev/full"}, 0, 0, 9); });
    EXPECT_EQ(ending.exit_code, ExitNoPrompt);
    EXPECT_NE(ending.output.find("Unable to prompt terminal during a write error"), std::string::npos);
}

TEST_F(DeviceWrite, AFailedWriteOnStandardOutputEndsTheRun) {
    output().deviceType = Tty;
    output().fd = VediWin32open("/dev/full", VELDA_OPEN_WRITE, 0);
    EXPECT_EQ(command([&] {
                  write(numbered(1));
                  DupFlushBlock(dp, false);
              }),
              ExitWriteFailed);
    EXPECT_NE(said.find("Error number 28 writing to stdout"), std::string::npos);
}

TEST_F(DeviceWrite, AFailedWriteOnASocketEndsTheRun) {
    const int other = as_socket(output());
    velda_socket_close(dp, other);
    EXPECT_EQ(command([&] {
                  for (int number = 0; number < 10000; ++number) write(numbered(number, 200));
              }),
              ExitWriteFailed);
    EXPECT_NE(said.find("Error number 10054 writing to socket"), std::string::npos);
}

TEST_F(DeviceWrite, TheTerminalsStreamGoesToStandardOutput) {
    const auto ending = run_on_pipes("", [&](DP *session) {
        start_run(session);
        LogSelect &select = *dup_context(session).output;
        select.deviceType = Tty;
        const std::string bytes = bytes_of(numbered(1));
        DupWriteDevice(session, reinterpret_cast<const unsigned char *>(bytes.data()));
        DupFlushBlock(session, false);
    });
    ASSERT_EQ(ending.output.size(), static_cast<std::size_t>(DeviceBlock));
    EXPECT_EQ(ending.output.substr(28), block_of(bytes_of(numbered(1))).substr(28));
}

// A pipe with a name: to open it for writing takes a reader, and what nobody reads fills it up.
TEST_F(DeviceWrite, WhatTheWriterWaitsForIsShown) {
    const std::string pipe_name = system_ / "pipe";
    ASSERT_EQ(mkfifo(pipe_name.c_str(), 0600), 0);
    auto &slot = *static_cast<DupStatusSlot *>(
        mmap(nullptr, sizeof(DupStatusSlot), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const auto shows = [&](const std::string &text) { return eventually([&] { return slot.statusText == text; }); };
    std::fflush(nullptr);
    const pid_t writer = fork();
    if (writer == 0) {
        write_to({"pipe"});
        run().slot = &slot;
        for (;;) write(numbered(1));
    }
    EXPECT_TRUE(shows("READING header from output file"));
    const int reader = open(pipe_name.c_str(), O_RDONLY);
    EXPECT_TRUE(shows("WRITING to serial device"));
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    close(reader);
    munmap(&slot, sizeof slot);
}

// --- everything ---

TEST_F(DeviceWrite, WhatIsWrittenIsReadBackForAnySizes) {
    auto random = seeded_random();
    for (int round = 0; round < 60; ++round) {
        const int size = 76 + static_cast<int>(random() % 600);
        input().blockSize = output().blockSize = size;
        output().flags = random() % 3 == 0 ? static_cast<std::uint32_t>(SelectEncrypt) : 0u;
        output().buffer.clear();
        output().bufferPosition = 0;
        output().deviceIndex = NoDevice;
        if (output().fd > 2) VediWin32close(std::exchange(output().fd, -1));
        output().deviceStamps.clear();
        std::vector<BuiltRecord> records;
        for (std::size_t n = 0; n < 40; ++n)
            records.push_back(numbered(static_cast<int>(n), random() % (random() % 9 ? 100 : 2000)));
        for (const BuiltRecord &record : records) {
            write(record);
            if (random() % 10 == 0) DupFlushBlock(dp, false);
        }
        write_end_record(dp);
        DupFlushBlock(dp, false);
        input().devices = output().devices;
        input().fd = -1;
        input().deviceIndex = NoDevice;
        input().bufferPosition = size;
        for (const BuiltRecord &record : records) ASSERT_EQ(next(), bytes_of(record)) << "block size " << size;
        ASSERT_EQ(next(), "error 2");
    }
}

}  // namespace
