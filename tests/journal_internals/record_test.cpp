// Reading one record: movement over blocks and files, and every check.
#include "tests/journal_internals/reading_fixture.h"
#include "tests/support/seed.h"

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

}  // namespace
