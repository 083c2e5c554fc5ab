// A run over a log set: reading, counting, what ends it, and what it shows.
#include <map>
#include <optional>

#include "journal/journal.h"
#include "tests/duplicator/replay_fixture.h"
#include "tests/support/mounted_disk.h"

namespace {

using namespace velda;
using namespace velda::journal;
using namespace velda::test;

constexpr std::int64_t SetTime = 1000000;

class Loop : public ReplayTest {
  protected:
    Loop() : set({path("set")}, SetTime), config(*VediLoggerInit(dp, 1)) {
        VELDALoggerSelectEnd(dp, &context.input);
        VELDALoggerSelectEnd(dp, &context.output);
    }

    void fill(const std::vector<BuiltRecord> &records) {
        for (const BuiltRecord &record : records) placed.push_back(set.add(record));
        finish_set();
    }

    void finish_set() {
        set.write();
        set.configure(config);
        config.currentSet = 1;
    }

    // A whole run, to its exit.
    int duplicate(
        const std::string &input = "set=1 terminate=eos", const std::string &output = "set=database",
        const std::function<void()> &prepare = [] {}) {
        return run([&] {
            context.input = VELDALoggerSelectStart(dp, input.c_str(), 0, nullptr);
            context.output = VELDALoggerSelectStart(dp, output.c_str(), 1, nullptr);
            ASSERT_TRUE(context.input && context.output);
            prepare();
            const int code = run_duplicator(dp);
            ended_with = *context.slot;
            DupExit(dp, code);
        });
    }

    SetBuilder set;
    VELDALoggerConfig &config;
    std::vector<Placed> placed;
    DupStatusSlot ended_with{};  // the slot as the loop left it
};

TEST_F(Loop, EveryRecordOfTheSetIsApplied) {
    const std::string file = make_file("ORDERS");
    fill({write_record(file, "1", "a"), write_record(file, "2", "b"), delete_record(file, "1")});
    EXPECT_EQ(duplicate(), 0);
    EXPECT_EQ(said, "");
    EXPECT_EQ(read(file, "1"), "(none)");
    EXPECT_EQ(read(file, "2"), "b");
}

TEST_F(Loop, InputAndOutputAreCounted) {
    const std::string file = make_file("ORDERS");
    fill({write_record(file, "1", "a"), write_record(file, "2", "b")});
    duplicate();
    EXPECT_EQ(ended_with.inputRecords, 2u);
    EXPECT_EQ(ended_with.inputBytes, placed[0].size + placed[1].size);
    EXPECT_EQ(ended_with.outputRecords, 2u);
    EXPECT_EQ(ended_with.outputBytes, ended_with.inputBytes);
    EXPECT_EQ(context.recordsFromSet, 2u);
    EXPECT_STREQ(ended_with.statusText, "READING");
}

TEST_F(Loop, ThePositionOfTheLastRecordAndTheTimesAreKept) {
    const std::string file = make_file("ORDERS");
    BuiltRecord first = write_record(file, "1", "a"), last = write_record(file, "2", "b");
    first.time = SetTime + 5;
    last.time = SetTime + 9;
    fill({first, last});
    duplicate();
    EXPECT_EQ(context.firstTime, SetTime + 5);
    EXPECT_EQ(context.lastTime, SetTime + 9);
    EXPECT_EQ(context.lastSet, 1u);
    EXPECT_EQ(context.lastFile, 0u);
    EXPECT_EQ(context.lastOffset, placed[1].offset);
    EXPECT_EQ(context.watch->inputFile, 0u);
    EXPECT_EQ(context.watch->inputOffset, placed[1].offset + static_cast<std::int64_t>(placed[1].size));
}

TEST_F(Loop, NothingIsCountedForAnOutputOfNull) {
    fill({write_record("/nowhere", "1", "a")});
    EXPECT_EQ(duplicate("set=1 terminate=eos", "set=null"), 0);
    EXPECT_EQ(ended_with.inputRecords, 1u);
    EXPECT_EQ(ended_with.outputRecords, 0u);
}

TEST_F(Loop, BlocksReadAreTakenOverFromTheInputExceptAtAnEndRecord) {
    fill({checkpoint_record(1, "")});
    context.input = VELDALoggerSelectStart(dp, "set=1", 0, nullptr);
    context.output = VELDALoggerSelectStart(dp, "set=null", 1, nullptr);
    ASSERT_TRUE(context.input && context.output);
    const auto blocks_after = [&](const BuiltRecord &record, std::int64_t blocks) {
        const std::string bytes = bytes_of(record);
        context.input->blockCount = blocks;
        DupDispatch(dp, reinterpret_cast<const unsigned char *>(bytes.data()));
        return context.slot->inputBlocks;
    };
    EXPECT_EQ(blocks_after(checkpoint_record(1, ""), 7), 7u);
    EXPECT_EQ(blocks_after(record_of(EofType), 8), 7u);
}

TEST_F(Loop, AnOperatorsOrderIsNoticedBehindTheRecordInHand) {
    const std::string file = make_file("ORDERS");
    fill({write_record(file, "1", "a"), write_record(file, "2", "b")});
    EXPECT_EQ(duplicate("set=1 terminate=eos", "set=database",
                        [&] { context.slot->killerPid = context.slot->killerPort = 1; }),
              5);
    EXPECT_EQ(read(file, "1"), "a");
    EXPECT_EQ(read(file, "2"), "(none)");
}

TEST_F(Loop, TheEndOfTheInputIsExitCodeNought) {
    fill({checkpoint_record(1, "")});
    EXPECT_EQ(duplicate(), 0);
    EXPECT_EQ(context.terminationReason, 0x00040A02u);  // reason 4; the error 2562 of the end of a set
}

TEST_F(Loop, ACheckpointAtTheEndTimeEndsTheRun) {
    const std::string file = make_file("ORDERS");
    BuiltRecord one = write_record(file, "1", "a"), checkpoint = checkpoint_record(1, ""),
                two = write_record(file, "2", "b");
    one.time = SetTime + 1;
    checkpoint.time = SetTime + 2;
    two.time = SetTime + 2;
    fill({one, checkpoint, two});
    EXPECT_EQ(duplicate("set=1 terminate=eos", "set=database", [&] { context.input->endTime = SetTime + 2; }), 0);
    EXPECT_EQ(read(file, "1"), "a");
    EXPECT_EQ(read(file, "2"), "(none)");
    EXPECT_EQ(ended_with.outputRecords, 1u);  // the checkpoint itself is not dispatched
}

TEST_F(Loop, ACheckpointAtAnotherTimeDoesNotEndIt) {
    const std::string file = make_file("ORDERS");
    BuiltRecord checkpoint = checkpoint_record(1, ""), two = write_record(file, "2", "b");
    checkpoint.time = SetTime + 1;
    two.time = SetTime + 2;
    fill({checkpoint, two});
    duplicate("set=1 terminate=eos", "set=database", [&] { context.input->endTime = SetTime + 2; });
    EXPECT_EQ(read(file, "2"), "b");
}

TEST_F(Loop, RecordsBeforeTheFirstCheckpointAreSkippedWhereThatIsAskedFor) {
    const std::string file = make_file("ORDERS");
    fill({write_record(file, "1", "a"), checkpoint_record(1, ""), write_record(file, "2", "b")});
    duplicate("set=1 terminate=eos", "set=database", [&] { context.input->flags |= SelectSkipToCheckpoint; });
    EXPECT_EQ(read(file, "1"), "(none)");
    EXPECT_EQ(read(file, "2"), "b");
    EXPECT_EQ(ended_with.inputRecords, 3u);
    EXPECT_EQ(ended_with.outputRecords, 1u);
}

TEST_F(Loop, ASelectListGivesTheRecordsToRead) {
    const std::string file = make_file("ORDERS");
    fill({write_record(file, "1", "a"), write_record(file, "2", "b"), write_record(file, "3", "c")});
    const VAR keys(marks(placed[2].key(1) + "^0*1*99*1^" + placed[0].key(1)));
    duplicate("set=1 terminate=eos", "set=database", [&] {
        SelectList list(keys);
        list.make_default();
        context.useSelectList = 1;
    });
    EXPECT_EQ(read(file, "1"), "a");
    EXPECT_EQ(read(file, "2"), "(none)");
    EXPECT_EQ(read(file, "3"), "c");
    EXPECT_EQ(reported(), "ERROR:Error number 2014 reading log record id 0*1*99*1");
    EXPECT_EQ(ended_with.inputRecords, 2u);
    EXPECT_EQ(ended_with.inputErrors, 1u);
    EXPECT_EQ(context.terminationReason, 0x00010002u);
}

TEST_F(Loop, AFailedReadIsReportedAndTriedAgainUntilTheLimit) {
    fill({checkpoint_record(1, "")});
    EXPECT_EQ(duplicate("set=1 terminate=eos", "set=database",
                        [&] {
                            context.maxErrors = 2;
                            context.input->deviceType = 64;  // a device that nobody reads: error 22 at each try
                        }),
              4);
    const std::string report = "ERROR:Error number 22 reading next key from set set=1 terminate=eos|";
    EXPECT_EQ(reported(), report + report + report + "ERROR:Aborting -- exceeded the maximum of 2 errors");
}

// The number is cut to a byte before it is looked at.
TEST_F(Loop, AStoppedReadIsError221AndALostConnectionError70) {
    EXPECT_EQ((ReadingStopped + SelectStopped) & 0xFF, 221);
    EXPECT_EQ((VELDA_SOCKET_RESET + SelectStopped) & 0xFF, 70);
}

TEST_F(Loop, ExclusiveUseGivesTheSameDatabaseAndTheSameCounts) {
    const std::string file = make_file("ORDERS", "HL", "DURABILITY=LAZY");
    for (int i = 0; i < 5000; ++i)
        placed.push_back(set.add(i % 7 == 0 ? delete_record(file, std::to_string(i % 90))
                                            : write_record(file, std::to_string(i % 90), std::to_string(i))));
    finish_set();
    duplicate();
    const DupStatusSlot alone = ended_with;
    std::map<std::string, std::string> database;
    for (int i = 0; i < 90; ++i) database[std::to_string(i)] = read(file, std::to_string(i));
    {
        File opened;
        ASSERT_TRUE(opened.open(file));
        opened.clear();
    }
    start_dup_context(dp);
    duplicate("set=1 terminate=eos", "set=database", [&] { context.exclusive = 1; });
    for (const auto &[key, record] : database) EXPECT_EQ(read(file, key), record);
    EXPECT_EQ(ended_with.outputRecords, alone.outputRecords);
    EXPECT_EQ(ended_with.outputBytes, alone.outputBytes);
    EXPECT_EQ(ended_with.inputRecords, alone.inputRecords);
}

TEST_F(Loop, UpdatesFromALogSetAreNotJournalledAgain) {
    const std::string file = make_file("ORDERS");
    fill({write_record(file, "1", "a")});
    config.status = VELDA_LOGGER_ACTIVE;
    EXPECT_EQ(duplicate(), 0);
    config.status = VELDA_LOGGER_INACTIVE;
    EXPECT_EQ(config.sets[0].recordCount, 1);
    EXPECT_EQ(read(file, "1"), "a");
}

TEST_F(Loop, AnOutputOfALogSetTakesTheRecordsAsTheyAreInTheNameOfTheirProcess) {
    ASSERT_EQ(set_file(1, 1, path("current")), 0);
    ASSERT_EQ(swap(1), 0);
    config.status = VELDA_LOGGER_ACTIVE;
    std::string records;
    run([&] {
        context.input = VELDALoggerSelectStart(dp, "set=1 terminate=eos", 0, nullptr);
        context.output = VELDALoggerSelectStart(dp, "set=logset", 1, nullptr);
        for (const BuiltRecord &record :
             {begin(71), inside(71, write_record("/f", "k", "data")), end(71), record_of(EofType)}) {
            const std::string bytes = bytes_of(record);
            DupDispatch(dp, reinterpret_cast<const unsigned char *>(bytes.data()));
        }
        while (const unsigned char *const record = VELDALoggerReadnext(dp, context.input, nullptr))
            records += std::to_string(record[20]) + ":" + std::to_string(vgetint32(record + 16)) + ":" +
                       std::to_string(record[21] & 1) + " ";
    });
    config.status = VELDA_LOGGER_INACTIVE;
    EXPECT_EQ(said, "");
    EXPECT_EQ(records, "7:71:0 2:71:1 8:71:0 ");
    EXPECT_EQ(context.slot->outputRecords, 3u);
}

// --- trouble at the receiver ---

class SmallDisk : public Loop {
  protected:
    void SetUp() override {
        disk.emplace(path("disk"), "2m");
        if (!*disk) GTEST_SKIP() << "cannot mount a small disk";
    }
    void TearDown() override { close_all_cached(dp, context); }

    // More than the disk holds, then one more record for a file elsewhere.
    void fill_with_too_much(const std::string &file, const std::string &elsewhere) {
        for (int i = 0; i < 40; ++i) set.add(write_record(file, std::to_string(i), std::string(100000, 'x')));
        set.add(write_record(elsewhere, "last", "x"));
        finish_set();
    }

    std::optional<MountedDisk> disk;
};

class SmallDiskOfUse : public SmallDisk, public testing::WithParamInterface<bool> {};

TEST_P(SmallDiskOfUse, UpdatesThatFindNoRoomAreReportedOneByOneAndTheRunGoesOn) {
    const std::string file = make_file("disk/ORDERS"), elsewhere = make_file("OTHER");
    fill_with_too_much(file, elsewhere);
    EXPECT_EQ(duplicate("set=1 terminate=eos", "set=database", [&] { context.exclusive = GetParam(); }), 0);
    EXPECT_TRUE(reported().starts_with("ERROR:Error number 28 writing to file '" + file + "'")) << said;
    EXPECT_GT(ended_with.outputErrors, 10u);
    EXPECT_LT(ended_with.outputErrors, 40u);
    EXPECT_EQ(ended_with.outputRecords, 41u);
    EXPECT_EQ(read(file, "0").size(), 100000u);  // what found room is there
    EXPECT_EQ(read(elsewhere, "last"), "x");
}

INSTANTIATE_TEST_SUITE_P(Uses, SmallDiskOfUse, testing::Bool(),
                         [](const auto &use) { return std::string(use.param ? "Exclusive" : "Shared"); });

TEST_F(SmallDisk, TheLimitOfErrorsEndsARunWhoseDiskIsFull) {
    const std::string file = make_file("disk/ORDERS"), elsewhere = make_file("OTHER");
    fill_with_too_much(file, elsewhere);
    EXPECT_EQ(duplicate("set=1 terminate=eos", "set=database", [&] { context.maxErrors = 3; }), 4);
    EXPECT_EQ(read(elsewhere, "last"), "(none)");
}

// --- what it shows ---

TEST_F(Loop, AMarkIsShownForSoManyRecordsAndALineForFifty) {
    for (int i = 0; i < 103; ++i) set.add(checkpoint_record(1, ""));
    finish_set();
    duplicate("set=1 terminate=eos", "set=null", [&] { context.progressEvery = 2; });
    EXPECT_EQ(said, std::string(50, '*') + "\n*");
}

TEST_F(Loop, AVerboseLineNamesTheRecordItsTypeFileAndKey) {
    BuiltRecord record = write_record("/origin/ORDERS", "K1", "a");
    fill({record});
    duplicate("set=1 terminate=eos", "set=null", [&] {
        context.progressEvery = 1;
        context.verboseLevel = 1;
        context.output->renames = {{"/origin", "/copy"}};
    });
    EXPECT_EQ(said, "0*1*3660*1000000      WRITE   /copy/ORDERS                    K1             \n");
}

TEST_F(Loop, TheSecondLevelAddsApplicationPortAndTime) {
    BuiltRecord record = write_record("/origin/ORDERS", "K1", "a");
    record.time = 1700000000;
    SetBuilder later({path("set")}, 1700000000);
    set = later;
    fill({record});
    duplicate("set=1 terminate=eos", "set=null", [&] {
        context.progressEvery = 1;
        context.verboseLevel = 2;
    });
    EXPECT_EQ(said,
              "0*1*3660*1700000000   WRITE   /origin/ORDERS                  K1             "
              "app              3       22:13:20  14 NOV 2023\n");
}

TEST_F(Loop, TheFutureIsShownBeforeTheRecordIsApplied) {
    fill({record_of(99)});
    const auto show = [&](bool future) {
        start_dup_context(dp);
        duplicate("set=1 terminate=eos", "set=database", [&] {
            context.progressEvery = 1;
            context.future = future;
        });
        return said.find('*') < said.find("illegal type");
    };
    EXPECT_TRUE(show(true));
    EXPECT_FALSE(show(false));
}

}  // namespace
