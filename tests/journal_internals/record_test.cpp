// Reading one record: movement over blocks and files, and every check.
#include "tests/journal_internals/reading_fixture.h"
#include "tests/support/seed.h"
#include "tests/support/terminal_program.h"

using namespace velda::test;
using velda::journal::LogPosition;

namespace {

class Record : public ReadingTest {};

// --- movement -------------------------------------------------------------------------------------------------------

// Where the data of each block begins, in the order of the stream.
std::vector<LogPosition> block_data(int files, int blocks) {
    std::vector<LogPosition> places;
    LogPosition position;
    for (int n = 0; n < blocks; ++n) {
        position = velda::journal::at_data(position, files, 4096);
        places.push_back(position);
        position.offset += 4096 - position.offset % 4096;
    }
    return places;
}

TEST(Movement, BlocksAreStripedAndTheOffsetRisesOnlyBehindTheLastFile) {
    const std::vector<LogPosition> expected = {{0, 3660},      {1, 28},        {2, 28},       {0, 4096 + 28},
                                               {1, 4096 + 28}, {2, 4096 + 28}, {0, 8192 + 28}};
    EXPECT_EQ(block_data(3, 7), expected);
}

TEST(Movement, OneFileTakesBlockAfterBlock) {
    const std::vector<LogPosition> expected = {{0, 3660}, {0, 4096 + 28}, {0, 8192 + 28}};
    EXPECT_EQ(block_data(1, 3), expected);
}

TEST_F(Record, DataBeginsAt3660InTheFirstBlockAndAt28InAllOthers) {
    SetBuilder set = set_of(3);
    for (int n = 0; n < 300; ++n) set.add(write_record("FILE", "key" + std::to_string(n), std::string(50, 'd')));
    publish(set);
    unsigned char byte = 0;
    int32_t file = 0;
    int64_t offset = 0;
    ASSERT_EQ(velda::journal::LoggerReadBytes(dp, &file, 1, &offset, &byte, 1), 0);
    EXPECT_EQ(std::make_pair(file, offset), std::make_pair(0, int64_t{3661}));
    for (const auto &[end_file, end_offset, begin_file, begin_offset] :
         std::vector<std::array<int, 4>>{{0, 4096, 1, 29}, {1, 4096, 2, 29}, {2, 4096, 0, 4096 + 29}}) {
        file = end_file;
        offset = end_offset;
        ASSERT_EQ(velda::journal::LoggerReadBytes(dp, &file, 1, &offset, &byte, 1), 0);
        EXPECT_EQ(std::make_pair(file, offset), std::make_pair(begin_file, int64_t{begin_offset}));
    }
}

TEST_F(Record, AdvanceMovesAsReadingDoes) {
    SetBuilder set = set_of(3);
    for (int n = 0; n < 40; ++n) set.add(write_record("FILE", "key", std::string(1000, 'd')));
    publish(set);
    LogPosition read, advanced;
    std::vector<unsigned char> bytes(5000);
    for (const int count : {1, 435, 1, 4068, 4069, 5000, 3, 2500}) {
        ASSERT_EQ(velda::journal::LoggerReadBytes(dp, &read.file, 1, &read.offset, bytes.data(), count), 0);
        velda::journal::LoggerAdvance(dp, &advanced.file, &advanced.offset, count);
        EXPECT_EQ(read, advanced) << count;
    }
}

TEST_F(Record, ARecordMayCrossAnyNumberOfBlocksAndFiles) {
    SetBuilder set = set_of(3);
    const std::string data = [] {
        std::string text;
        for (int n = 0; n < 30000; ++n) text += static_cast<char>('a' + n % 23);
        return text;
    }();
    set.add(write_record("FILE", "small", "x"));
    const Placed large = set.add(write_record("FILE", "large", data));
    publish(set);
    const unsigned char *const record = read(large);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(velda::journal::LogParts(record).payload.substr(12), data);
}

TEST_F(Record, FromTheLastFileToTheFirstTheOffsetMovesForward) {
    SetBuilder set = set_of(3);
    set.add(write_record("FILE", "fill", std::string(436 + 2 * 4068 - 200, 'f')));
    const Placed crossing = set.add(write_record("FILE", "crossing", std::string(200, 'c')));
    ASSERT_EQ(crossing.file, 2);
    ASSERT_LT(crossing.offset, 4096);
    publish(set);
    ASSERT_NE(read(crossing), nullptr);
    LogPosition position{crossing.file, crossing.offset};
    velda::journal::LoggerAdvance(dp, &position.file, &position.offset, static_cast<int64_t>(crossing.size));
    EXPECT_EQ(position.file, 0);
    EXPECT_GT(position.offset, 4096);
}

TEST_F(Record, AModelThatCutsTheBlocksApartAgreesAtEveryPlace) {
    auto random = seeded_random();
    for (const int files : {1, 2, 3, 16}) {
        SetBuilder set = set_of(files, 1, FirstTime + files);
        std::vector<std::pair<Placed, std::string>> model;
        for (int n = 0; n < 150; ++n) {
            BuiltRecord record = write_record("FILE", std::to_string(n), random_bytes(random, n % 10 ? 300 : 9000));
            record.time = set.time_first() + n;
            const Placed placed = set.next_place();
            set.add(record);
            model.emplace_back(placed, record_bytes(record, 1, placed.file, placed.offset));
            model.back().first.time = record.time;
        }
        publish(set);
        for (const auto &[placed, bytes] : model) EXPECT_EQ(bytes_or_error(placed) == bytes, true) << placed.key(1);
    }
}

// --- blocks ---------------------------------------------------------------------------------------------------------

TEST_F(Record, ABlockOfAnotherUseOfTheSetIsDamage) {
    SetBuilder set = set_of(1);
    const Placed first = set.add(write_record("FILE", "key", "data"));
    publish(set);
    config.sets[0].timeFirst = FirstTime - 1;
    EXPECT_EQ(bytes_or_error(first), "error 2014");
}

TEST_F(Record, ABlockHeldFromBeforeTheSetWasEmptiedIsDamage) {
    SetBuilder set = set_of(1);
    const Placed first = set.add(write_record("FILE", "a", "data"));
    publish(set);
    ASSERT_NE(read(first), nullptr);
    config.sets[0].timeFirst = FirstTime + 1;
    EXPECT_EQ(bytes_or_error(first), "error 2014");
}

TEST_F(Record, ABlockWithAnotherMarkerIsDamage) {
    for (std::size_t byte = 0; byte < 8; ++byte) {
        SetBuilder set = set_of(1, 1, FirstTime + static_cast<int>(byte));
        const Placed first = set.add(write_record("FILE", "key", "data"));
        set.blocks()[0][byte] ^= 1;
        publish(set);
        // Deliberately the eighth byte of a block marker is not compared.
        EXPECT_EQ(bytes_or_error(first) == "error 2014", byte < 7) << byte;
    }
}

TEST_F(Record, AFileThatEndsBeforeTheRecordIsDamage) {
    SetBuilder set = set_of(1);
    const Placed first = set.add(write_record("FILE", "key", std::string(9000, 'd')));
    publish(set);
    for (const std::uintmax_t size : {8192u, 4096u, 5000u, 3700u, 20u, 0u}) {
        std::filesystem::resize_file(set.paths()[0], size);
        velda::journal::release_blocks(dp, context());
        EXPECT_EQ(bytes_or_error(first), "error 2014") << size;
    }
}

TEST_F(Record, AHeldBlockIsReadAgainWhenARecordCameIntoIt) {
    SetBuilder set = set_of(1);
    const Placed first = set.add(write_record("FILE", "a", "data"));
    publish(set);
    ASSERT_NE(read(first), nullptr);
    const Placed second = set.next_place();
    EXPECT_EQ(bytes_or_error(second.file, second.offset), "error 2014");
    set.add(write_record("FILE", "b", "data"));
    publish(set);
    EXPECT_NE(read(Placed{second.file, second.offset, FirstTime, 0}), nullptr);
}

TEST_F(Record, AFullBlockIsReadOnceForManyRecords) {
    SetBuilder set = set_of(1);
    std::vector<Placed> places;
    for (int n = 0; n < 4; ++n) places.push_back(set.add(record_of(DeleteType, int32(0))));
    publish(set);
    ASSERT_NE(read(places[0]), nullptr);
    std::ofstream(set.paths()[0], std::ios::binary) << "";  // what was read is in memory
    for (const Placed &place : places) EXPECT_NE(bytes_or_error(place).substr(0, 5), "error");
}

// --- one record -----------------------------------------------------------------------------------------------------

TEST_F(Record, ARepeatedReadOfTheSameKeyDoesNotTouchTheFile) {
    SetBuilder set = set_of(1);
    const Placed first = set.add(write_record("FILE", "key", "data"));
    publish(set);
    const unsigned char *const record = read(first);
    ASSERT_NE(record, nullptr);
    std::filesystem::remove(set.paths()[0]);
    velda::journal::release_blocks(dp, context());
    context().openSet = -1;
    EXPECT_EQ(read(first), record);
    Placed other = first;
    other.time = 0;
    EXPECT_EQ(read(other), nullptr);
}

TEST_F(Record, AFailedReadGivesNothingOutAgain) {
    SetBuilder set = set_of(1);
    BuiltRecord torn = write_record("FILE", "key", "data");
    torn.is_complete = false;
    const Placed first = set.add(torn);
    publish(set);
    EXPECT_EQ(read(first), nullptr);
    EXPECT_EQ(read(first), nullptr);
}

TEST_F(Record, ATrailerThatDiffersIsDamageAndItsWriterIsKept) {
    SetBuilder set = set_of(1);
    BuiltRecord torn = write_record("FILE", "key", "data");
    torn.is_complete = false;
    torn.pid = 815;
    const Placed first = set.add(torn);
    publish(set);
    EXPECT_EQ(bytes_or_error(first), "error 2014");
    EXPECT_EQ(context().unfinishedPid, 815u);
}

TEST_F(Record, AnotherStampThanTheOneAskedForIsDamage) {
    SetBuilder set = set_of(1);
    Placed first = set.add(write_record("FILE", "key", "data"));
    publish(set);
    ++first.time;
    EXPECT_EQ(bytes_or_error(first), "error 2014");
    first.time = 0;
    EXPECT_NE(bytes_or_error(first), "error 2014");
}

TEST_F(Record, TheStampOfTheLastRecordReadIsKept) {
    SetBuilder set = set_of(1);
    BuiltRecord record = write_record("FILE", "key", "data");
    record.time = FirstTime + 5;
    const Placed first = set.add(record);
    publish(set);
    ASSERT_NE(read(first), nullptr);
    EXPECT_EQ(context().lastTime, FirstTime + 5);
}

TEST_F(Record, EachByteOfTheMarkerIsCompared) {
    for (std::size_t byte = 0; byte < 8; ++byte) {
        SetBuilder set = set_of(1, 1, FirstTime + static_cast<int>(byte));
        BuiltRecord record = write_record("FILE", "key", "data");
        record.told_marker =
            "V\xFF"
            "R\xFF"
            "E\xFF"
            "C\xFF";
        record.told_marker[byte] ^= 1;
        const Placed first = set.add(record);
        publish(set);
        EXPECT_EQ(bytes_or_error(first), "error 2014") << byte;
    }
}

TEST_F(Record, TheMarkerOfEncipheredDataIsARecordToo) {
    SetBuilder set = set_of(1);
    BuiltRecord record = write_record("FILE", "key", "data");
    record.is_encrypted = true;
    const Placed first = set.add(record);
    publish(set);
    EXPECT_NE(read(first), nullptr);
}

TEST_F(Record, AStampOutsideOfTheSetIsLoggedAndAbsent) {
    SetBuilder set = set_of(1);
    BuiltRecord record = write_record("FILE", "key", "data");
    record.time = FirstTime + 10;
    const Placed first = set.add(record);
    publish(set);
    config.sets[0].timeLast = FirstTime + 9;
    logged();
    EXPECT_EQ(bytes_or_error(first), "error 2");
    char expected[200];
    std::snprintf(expected, sizeof expected,
                  "Time update is now outside of start and end of logset | Record time update is %x| Set time.first is "
                  "%x|  Set time last is %x| ",
                  static_cast<unsigned>(FirstTime + 10), static_cast<unsigned>(FirstTime),
                  static_cast<unsigned>(FirstTime + 9));
    EXPECT_EQ(logged(), expected);
}

TEST_F(Record, AStampBeforeTheSetIsAbsent) {
    SetBuilder set = set_of(1);
    BuiltRecord record = write_record("FILE", "key", "data");
    record.time = FirstTime - 1;
    const Placed first = set.add(record);
    publish(set);
    config.sets[0].timeLast = 0;
    EXPECT_EQ(bytes_or_error(first), "error 2");
}

TEST_F(Record, ASetWithoutALastTimeTakesAnyLaterStamp) {
    SetBuilder set = set_of(1);
    BuiltRecord record = write_record("FILE", "key", "data");
    record.time = FirstTime + 10;
    const Placed first = set.add(record);
    publish(set);
    config.sets[0].timeLast = 0;
    EXPECT_NE(read(first), nullptr);
}

TEST_F(Record, TheBufferGrowsByTheRecordAndABlockAndDoesNotShrink) {
    SetBuilder set = set_of(2);
    const Placed small = set.add(record_of(DeleteType, int32(0)));
    const Placed large = set.add(write_record("FILE", "key", std::string(100'000, 'd')));
    publish(set);
    ASSERT_NE(read(small), nullptr);
    EXPECT_EQ(context().recordCapacity, 4096);
    ASSERT_NE(read(large), nullptr);
    EXPECT_EQ(context().recordCapacity, static_cast<int32_t>(large.size) + 4096);
    ASSERT_NE(read(small), nullptr);
    EXPECT_EQ(context().recordCapacity, static_cast<int32_t>(large.size) + 4096);
}

TEST_F(Record, ARecordWithoutAChecksumIsReadAsItStands) {
    SetBuilder set = set_of(1);
    BuiltRecord record = write_record("FILE", "key", "data");
    record.has_crc = false;
    record.told_file = 7;
    record.told_offset = 99;
    const Placed first = set.add(record);
    publish(set);
    EXPECT_NE(read(first), nullptr) << errno;
}

TEST_F(Record, AChecksumThatDoesNotAgreeIsDamage) {
    SetBuilder set = set_of(1);
    const Placed first = set.add(write_record("FILE", "key", "data"));
    set.blocks()[0][set.blocks()[0].size() - 10] ^= 1;
    publish(set);
    EXPECT_EQ(bytes_or_error(first), "error 2014");
}

// The sector's zeros take the checksum away, and with it the marks of the strings, which no record lacks.
TEST_F(Record, ARecordThatLostItsSectorFromTheChecksumOnIsDamage) {
    SetBuilder set = set_of(1);
    const Placed first = set.add(write_record("FILE", "key", std::string(600, 'd')));
    auto &block = set.blocks()[0];
    std::fill(block.begin() + first.offset + 40, block.end(), '\0');
    publish(set);
    EXPECT_EQ(bytes_or_error(first), "error 2014");
}

TEST_F(Record, ARecordWithAChecksumAtAnotherPlaceThanItTellsIsDamage) {
    for (const auto &[file, offset] : std::vector<std::pair<int, int>>{{1, 3660}, {0, 3661}, {0, 28}}) {
        SetBuilder set = set_of(2, 1, FirstTime + file * 10 + offset);
        BuiltRecord record = write_record("FILE", "key", "data");
        record.told_file = file;
        record.told_offset = offset;
        set.add(record);
        publish(set);
        EXPECT_EQ(bytes_or_error(0, 3660), "error 2014") << offset;
    }
}

TEST_F(Record, TheEndOfTheBlockInFrontAndTheRecordsFirstByteAreOnePlace) {
    SetBuilder set = set_of(2);
    set.add(write_record("FILE", "fill", std::string(436 - 107, 'f')));
    const Placed second = set.add(record_of(DeleteType, int32(0)));
    ASSERT_EQ(second.file, 1);
    ASSERT_EQ(second.offset, 28);
    publish(set);
    EXPECT_EQ(bytes_or_error(0, 4096), bytes_or_error(1, 28));
    EXPECT_NE(bytes_or_error(1, 28), "error 2014");
}

TEST_F(Record, APositionThatNoSetHasIsDamage) {
    SetBuilder set = set_of(3);
    set.add(write_record("FILE", "key", "data"));
    publish(set);
    for (const auto &[file, offset] : std::vector<std::pair<int, int64_t>>{
             {1, 0}, {-1, 3660}, {3, 28}, {0, -1}, {0, -4096}, {0, INT64_MAX}, {0, INT64_MIN}, {INT32_MAX, 0}})
        EXPECT_EQ(bytes_or_error(file, offset), "error 2014") << file << " " << offset;
}

// --- sets and rights ------------------------------------------------------------------------------------------------

TEST_F(Record, UnnamedFilesOfASetAreSkipped) {
    SetBuilder set = set_of(2);
    const Placed first = set.add(write_record("FILE", "key", std::string(6000, 'd')));
    publish(set);
    std::swap(config.sets[0].files[1], config.sets[0].files[9]);
    EXPECT_NE(read(first), nullptr);
    EXPECT_EQ(context().openFileCount, 2);
}

TEST_F(Record, ASetWithoutFilesIsTold) {
    std::string result;
    admin([&] {
        result = bytes_or_error(0, 0, 0, 5);
        return 0;
    });
    EXPECT_EQ(result, "error 2");
    EXPECT_EQ(said, "Error! Set 5 has no files that can be opened\n");
}

TEST_F(Record, SetZeroHasNoFilesAndNothingIsTold) {
    std::string result;
    admin([&] {
        result = bytes_or_error(0, 0, 0, 0);
        return 0;
    });
    EXPECT_EQ(result, "error 2");
    EXPECT_EQ(said, "");
}

TEST_F(Record, AFileThatCannotBeOpenedClosesThemAllAndIsTold) {
    SetBuilder set = set_of(3);
    set.add(write_record("FILE", "key", "data"));
    publish(set);
    std::filesystem::remove(set.paths()[1]);
    VRunFile *handles[VELDA_LOGGER_FILES] = {};
    int count = 0;
    admin([&] {
        count = velda::journal::LoggerOpenSetFiles(dp, 1, handles);
        return 0;
    });
    EXPECT_EQ(count, -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(said.find(set.paths()[1]), std::string::npos) << said;
    for (const VRunFile *const handle : handles) EXPECT_EQ(handle, nullptr);
}

TEST_F(Record, AnotherSetIsOpenedInPlaceOfTheOneBefore) {
    SetBuilder one = set_of(1, 1), two = set_of(3, 2);
    const Placed first = one.add(write_record("FILE", "one", "data"));
    const Placed second = two.add(write_record("FILE", "two", std::string(9000, 'd')));
    publish(one);
    publish(two, false);
    ASSERT_NE(read(first, 1), nullptr);
    EXPECT_EQ(context().openSet, 1);
    ASSERT_NE(read(second, 2), nullptr);
    EXPECT_EQ(context().openSet, 2);
    EXPECT_EQ(context().openFileCount, 3);
}

TEST_F(Record, WithoutAJournalTheReadIsRefused) {
    std::filesystem::remove_all(system_ / "config");
    ScratchSession other;
    const unsigned char *record = nullptr;
    int error = 0;
    admin([&] {
        record = VELDALoggerReadRecord(other, nullptr, 0, 1, 0, 0, nullptr);
        error = errno;
        return 0;
    });
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(error, 2);
    EXPECT_EQ(said, "Error! Velda Journaler not defined\n");
}

class Right : public ReadingTest {
  protected:
    Right() {
        SetBuilder set = set_of(1);
        first = set.add(write_record("FILE", "key", "data"));
        publish(set);
    }
    ~Right() override { unsetenv("ALLOWLOGDATA"); }
    std::string read_now() {
        std::string result;
        admin([&] {
            result = bytes_or_error(first).substr(0, 7);
            return 0;
        });
        return result;
    }
    Placed first;
};

TEST_F(Right, ALLOWLOGDATAMustBeOn) {
    for (const char *const value : {"", "ON", "yes", "one"}) {
        setenv("ALLOWLOGDATA", value, 1);
        EXPECT_EQ(read_now(), "error 2") << value;
        EXPECT_EQ(said, "\nThe environment variable ALLOWLOGDATA is not set correctly\n");
    }
    setenv("ALLOWLOGDATA", "on", 1);
    EXPECT_NE(read_now(), "error 2");
    EXPECT_EQ(said, "");
}

TEST_F(Right, AWrongPasswordIsRefusedOnceAndThenNotAskedAgain) {
    VAR password("secret");
    ASSERT_EQ(VELDALoggerSetPassword(dp, &password), 0);
    setenv("ALLOWLOGDATA", "on", 1);
    const Placed place = first;
    const auto ending = run_on_pipes("wrong\n", [place](DP *session) {
        for (int n = 0; n < 2; ++n) {
            const void *const record =
                VELDALoggerReadRecord(session, nullptr, place.file, 1, place.offset, place.time, nullptr);
            VELDAprintf(session, "<%s>", record ? "read" : "refused");
        }
    });
    EXPECT_NE(ending.output.find("The journal password is incorrect\n"), std::string::npos) << ending.output;
    // Deliberately a session is asked only once, also after a wrong answer.
    EXPECT_NE(ending.output.find("<refused><read>"), std::string::npos) << ending.output;
}

TEST_F(Right, TheRightPasswordLetsRead) {
    VAR password("secret");
    ASSERT_EQ(VELDALoggerSetPassword(dp, &password), 0);
    setenv("ALLOWLOGDATA", "on", 1);
    const Placed place = first;
    const auto ending = run_on_pipes("secret\n", [place](DP *session) {
        const void *const record =
            VELDALoggerReadRecord(session, nullptr, place.file, 1, place.offset, place.time, nullptr);
        VELDAprintf(session, "<%s>", record ? "read" : "refused");
    });
    EXPECT_NE(ending.output.find("<read>"), std::string::npos) << ending.output;
}

// --- forged headers -------------------------------------------------------------------------------------------------

struct Forgery {
    const char *name;
    void (*forge)(BuiltRecord &);
    const char *outcome;  // "read" or the error; the record has a checksum that agrees with its lies
};

void PrintTo(const Forgery &forgery, std::ostream *out) { *out << forgery.name; }

const Forgery Forgeries[] = {
    {"SizeZero", [](BuiltRecord &record) { record.told_record_size = 0; }, "error 2014"},
    {"SizeNegative", [](BuiltRecord &record) { record.told_record_size = -2; }, "error 2014"},
    {"SizeSmallest", [](BuiltRecord &record) { record.told_record_size = INT32_MIN; }, "error 2014"},
    {"SizeLargest", [](BuiltRecord &record) { record.told_record_size = INT32_MAX; }, "error 2014"},
    {"SizeOfHeaderOnly", [](BuiltRecord &record) { record.told_record_size = 48; }, "error 2014"},
    {"SizeBelowHeaderAndTrailer", [](BuiltRecord &record) { record.told_record_size = 55; }, "error 2014"},
    {"SizeBeyondTheFile", [](BuiltRecord &record) { record.told_record_size = 60'000; }, "error 2014"},
    {"SizeBeyondTheSet", [](BuiltRecord &record) { record.told_record_size = 1'000'000'000; }, "error 2014"},
    {"SizeOneTooLarge", [](BuiltRecord &record) { record.told_record_size = 99; }, "error 2014"},
    {"SizeOneTooSmall", [](BuiltRecord &record) { record.told_record_size = 97; }, "error 2014"},
    {"StringsNegative", [](BuiltRecord &record) { record.told_strings_size = -2; }, "error 2014"},
    {"StringsOfTheWholeRecord", [](BuiltRecord &record) { record.told_strings_size = 98; }, "error 2014"},
    {"StringsOneBeyondTheRecord", [](BuiltRecord &record) { record.told_strings_size = 43; }, "error 2014"},
    {"StringsUpToTheTrailer", [](BuiltRecord &record) { record.told_strings_size = 42; }, "read"},
    {"StringsLargest", [](BuiltRecord &record) { record.told_strings_size = INT32_MAX; }, "error 2014"},
    {"StampOfAnotherTime", [](BuiltRecord &record) { record.time = FirstTime + 100; }, "error 2"},
    {"StampNegative", [](BuiltRecord &record) { record.time = -5; }, "error 2"},
    {"BlockMarker",
     [](BuiltRecord &record) {
         record.told_marker = std::string(
             "V\xFF"
             "B\xFF"
             "L\xFF\0\0",
             8);
     },
     "error 2014"},
    {"MarkerOfZeros", [](BuiltRecord &record) { record.told_marker = std::string(8, '\0'); }, "error 2014"},
    {"AnotherFile", [](BuiltRecord &record) { record.told_file = 3; }, "error 2014"},
    {"AnotherOffset", [](BuiltRecord &record) { record.told_offset = 4096; }, "error 2014"},
    {"NegativeOffset", [](BuiltRecord &record) { record.told_offset = -4096; }, "error 2014"},
    // An imported set keeps the number it had.
    {"AnotherSet", [](BuiltRecord &record) { record.told_set = 9; }, "read"},
    {"NonsenseType", [](BuiltRecord &record) { record.type = 200; }, "read"},
    {"TypeZero", [](BuiltRecord &record) { record.type = 0; }, "read"},
};

class ForgedHeader : public ReadingTest, public ::testing::WithParamInterface<Forgery> {};

TEST_P(ForgedHeader, HasItsOutcome) {
    SetBuilder set = set_of(2);
    BuiltRecord record = delete_record("FILE", "key");
    record.time = FirstTime;
    ASSERT_EQ(record_bytes(record, 1, 0, 3660).size(), 98u);
    GetParam().forge(record);
    set.add(record);
    publish(set);
    config.sets[0].timeLast = FirstTime;
    const int32_t capacity_before = context().recordCapacity;
    const std::string outcome = bytes_or_error(0, 3660);
    EXPECT_EQ(outcome.starts_with("error") ? outcome : "read", GetParam().outcome);
    EXPECT_LE(context().recordCapacity - capacity_before, 70'000) << "allocated for a lie";
}

INSTANTIATE_TEST_SUITE_P(Kinds, ForgedHeader, ::testing::ValuesIn(Forgeries),
                         [](const auto &kind) { return std::string(kind.param.name); });

// --- keys -----------------------------------------------------------------------------------------------------------

std::string split(DP *dp, const std::string &key) {
    int32_t file = -1, set = -1;
    int64_t offset = -1, time = -1;
    VELDALoggerSplitKey(dp, &file, &set, &offset, &time, key.data(), static_cast<int>(key.size()));
    return std::to_string(file) + " " + std::to_string(set) + " " + std::to_string(offset) + " " + std::to_string(time);
}

TEST_F(Record, AKeySplitsIntoFileSetOffsetAndTime) { EXPECT_EQ(split(dp, "1*2*3*4"), "1 2 3 4"); }

TEST_F(Record, ANumberOfAKeyEndsAtAnyByteThatIsNoDigit) {
    EXPECT_EQ(split(dp,
                    "1x2 3\xFE"
                    "4"),
              "1 2 3 4");
    EXPECT_EQ(split(dp, "1**3*4"), "1 0 3 4");
    EXPECT_EQ(split(dp, "1*2"), "1 2 0 0");
    EXPECT_EQ(split(dp, ""), "0 0 0 0");
    EXPECT_EQ(split(dp, "1*-2*3*4"), "1 0 2 3");
    EXPECT_EQ(split(dp, "1*2*3*4*5"), "1 2 3 4");
}

TEST_F(Record, OnlyTheGivenLengthOfAKeyCounts) {
    int32_t file, set;
    int64_t offset, time;
    VELDALoggerSplitKey(dp, &file, &set, &offset, &time, "1*2*3*4567", 8);
    EXPECT_EQ(time, 45);
    VELDALoggerSplitKey(dp, &file, &set, &offset, &time, "1*2*3*4567", -1);
    EXPECT_EQ(file, 0);
}

TEST_F(Record, AKeyNamesItsRecord) {
    SetBuilder set = set_of(3);
    std::vector<Placed> places;
    for (int n = 0; n < 60; ++n)
        places.push_back(set.add(write_record("FILE", std::to_string(n), std::string(500, 'd'))));
    publish(set);
    for (const Placed &place : places) {
        const unsigned char *const record = read(place);
        ASSERT_NE(record, nullptr);
        char key[VELDA_LOGGER_KEY_BYTES];
        EXPECT_EQ(VELDALoggerMakeKey(dp, record, key), static_cast<int>(place.key(1).size()));
        EXPECT_EQ(key, place.key(1));
        EXPECT_EQ(split(dp, key), split(dp, place.key(1)));
    }
}

TEST_F(Record, TheLongestKeyFits) {
    BuiltRecord record = write_record("FILE", "key", "data");
    record.time = INT64_MIN;
    const std::string bytes = record_bytes(record, 255, 255, INT64_MIN);
    char key[VELDA_LOGGER_KEY_BYTES];
    EXPECT_EQ(VELDALoggerMakeKey(dp, reinterpret_cast<const unsigned char *>(bytes.data()), key), 49);
    EXPECT_STREQ(key, "255*255*-9223372036854775808*-9223372036854775808");
}

}  // namespace
