// How far a duplicator that reads the journal's sets is behind them.
#include "journal/logger_lag.h"
#include "tests/journal_internals/reading_fixture.h"

using namespace velda::journal;
using namespace velda::test;

namespace {

class Lag : public ReadingTest {
  protected:
    Lag() {
        slot.inputDevice = LogSetDevice;
        slot.inputSet = 1;
    }

    // Of a reader of set 1 that has taken so many records and stands there.
    DuplicatorLag lag_at(std::int64_t records, int file, std::int64_t offset) {
        slot.inputSetRecords = records;
        config.dupWatches[0].inputFile = static_cast<std::uint32_t>(file);
        config.dupWatches[0].inputOffset = offset;
        return lag_of(config, slot);
    }
    DuplicatorLag lag_at(std::int64_t records, const Placed &next) { return lag_at(records, next.file, next.offset); }

    static BuiltRecord sized(std::size_t bytes) {
        const std::size_t bare = record_bytes(write_record("FILE", "k", ""), 1, 0, 0).size();
        return write_record("FILE", "k", std::string(bytes - bare, 'x'));
    }

    DupStatusSlot &slot = config.dupSlots[0];
};

TEST_F(Lag, RecordsAndBytesBehindAreThoseThatFollow) {
    SetBuilder set = set_of(3);
    set.add(sized(200));
    set.add(sized(19000));
    const Placed third = set.add(sized(300));
    const Placed last = set.add(sized(400));
    ASSERT_EQ(third.file, last.file);
    publish(set);
    EXPECT_EQ(lag_at(2, third).records, 2);
    EXPECT_EQ(lag_at(2, third).bytes, 700);
    EXPECT_EQ(lag_at(3, last).records, 1);
    EXPECT_EQ(lag_at(3, last).bytes, 400);
}

TEST_F(Lag, NothingIsBehindAtTheEndWhereverThatIs) {
    SetBuilder set = set_of(3);
    set.add(sized(200));
    publish(set);
    EXPECT_EQ(lag_at(1, 0, 0).records, 0);
    EXPECT_EQ(lag_at(1, 0, 0).bytes, 0);
    EXPECT_EQ(lag_at(1, 0, 0).seconds, 0);
}

TEST_F(Lag, AReaderAtTheEndOfABlockIsNotARowFurther) {
    constexpr int BlockHeaderBytes = 28;
    SetBuilder set = set_of(3);
    const Placed first = set.next_place();
    set.add(sized(4096 - static_cast<std::size_t>(first.offset)));
    ASSERT_EQ(set.add(sized(300)).file, 1);
    publish(set);
    EXPECT_EQ(lag_at(1, 0, 4096).bytes, BlockHeaderBytes + 300);
}

TEST_F(Lag, LaterSetsCountWhole) {
    SetBuilder set = set_of(2), later = set_of(1, 2, FirstTime + 50), earlier = set_of(1, 3, FirstTime - 50);
    const Placed only = set.add(sized(200));
    for (SetBuilder *const other : {&later, &earlier}) {
        other->add(sized(1000));
        publish(*other);
    }
    publish(set);
    EXPECT_EQ(lag_at(0, only).records, 2);
    EXPECT_EQ(lag_at(0, only).bytes, 200 + later.next_place().offset);
    EXPECT_EQ(lag_at(0, only).seconds, 50);
}

TEST_F(Lag, IsKnownOnlyWhereASetIsRead) {
    EXPECT_TRUE(lag_at(0, 0, 0).is_known);
    slot.inputSet = 0;
    EXPECT_FALSE(lag_at(0, 0, 0).is_known);
    slot.inputSet = 1;
    slot.inputDevice = Socket;
    EXPECT_FALSE(lag_at(0, 0, 0).is_known);
}

TEST_F(Lag, TheLastErrorIsShownOnceThereIsOne) {
    EXPECT_EQ(last_error_of(config, slot), "");
    std::strcpy(config.dupWatches[0].lastError, "of a run before");
    EXPECT_EQ(last_error_of(config, slot), "");
    config.dupWatches[0].lastErrorTime = 5;
    EXPECT_EQ(last_error_of(config, slot), "of a run before");
    std::memset(config.dupWatches[0].lastError, 'x', sizeof config.dupWatches[0].lastError);
    EXPECT_EQ(last_error_of(config, slot).size(), sizeof config.dupWatches[0].lastError);
}

}  // namespace
