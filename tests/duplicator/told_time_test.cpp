// Which records a receiver tells its sender of: how far the database has got.
#include "tests/duplicator/replay_fixture.h"

namespace {

using namespace velda;
using namespace velda::journal;
using namespace velda::test;

class ToldTime : public ReplayTest {
  protected:
    ToldTime() : file(make_file("ORDERS")) {
        in_.deviceType = Socket;  // without a connection: what would be sent is in the slot
        in_.sendMilestone = 1;
        milestone_seconds = 0;
    }
    ~ToldTime() override { milestone_seconds = 30; }

    // Whether the record is told of once it was applied; its own time must then be.
    bool tells(BuiltRecord record) {
        record.time = ++time_;
        context.slot->milestone = 0;
        apply(record);
        const std::int64_t told = context.slot->milestone;
        EXPECT_TRUE(told == 0 || told == time_) << told;
        return told != 0;
    }

    const std::string file;

  private:
    std::int64_t time_ = 2000000;
};

TEST_F(ToldTime, EveryAppliedRecordIsToldOf) {
    for (const BuiltRecord &record :
         {write_record(file, "1", "x"), delete_record(file, "1"), record_of(ClearFileType, "", file),
          text_record(ChmodType, "-L", file), create_file_record(path("NEW"), "HL", "", {}),
          move_record(path("NEW"), path("MOVED")), text_record(RemoveFileType, path("MOVED")),
          mkdir_record(path("dir")), flat_file_record(path("flat"), "x"), checkpoint_record(1, ""),
          text_record(CreateIndexType, "^x", file), text_record(DeleteIndexType, "^x", file),
          text_record(RebuildIndexType, "^x", file), text_record(CreateTriggerType, "^x", file),
          text_record(DeleteTriggerType, "^x", file), record_of(DeleteFileType, "", file)})
        EXPECT_TRUE(tells(record)) << record.type;
}

TEST_F(ToldTime, WhatCannotBeAppliedIsToldOfToo) {
    for (const BuiltRecord &record :
         {write_record(file, std::string(70000, 'k'), "x"), write_record("", "1", "x"), delete_record("", "1"),
          record_of(ClearFileType), text_record(ChmodType, "-L"), move_record(path("none"), path("moved")),
          text_record(RemoveFileType, path("none")), mkdir_record(path("none/dir")),
          flat_file_record(path("none/flat"), "x"), create_file_record(file, "HL", "", {}), record_of(99)}) {
        EXPECT_TRUE(tells(record)) << record.type;
        EXPECT_NE(reported(), "") << record.type;
    }
}

TEST_F(ToldTime, EndAndFlushRecordsAreNotToldOf) {
    EXPECT_FALSE(tells(record_of(EofType)));
    EXPECT_FALSE(tells(record_of(FlushType)));
}

TEST_F(ToldTime, ARecordWhoseFileCannotBeOpenedIsNotToldOf) {
    EXPECT_FALSE(tells(write_record(path("NOWHERE"), "1", "x")));
}

TEST_F(ToldTime, TheBoundsOfATransactionAreToldOfAndWhatIsHeldIsNot) {
    EXPECT_TRUE(tells(begin(7)));
    EXPECT_FALSE(tells(inside(7, write_record(file, "1", "x"))));
    EXPECT_FALSE(tells(inside(7, delete_record(file, "1"))));
    EXPECT_TRUE(tells(end(7)));
}

TEST_F(ToldTime, AStartOrEndOutOfPlaceIsNotToldOfButAnAbortIs) {
    EXPECT_FALSE(tells(end(7)));
    EXPECT_TRUE(tells(abort(7)));
    EXPECT_TRUE(tells(begin(7)));
    EXPECT_FALSE(tells(begin(7)));
    EXPECT_TRUE(tells(abort(7)));
}

TEST_F(ToldTime, WithNotransTheBoundsAreNotToldOfAndUpdatesAre) {
    out_.flags |= SelectNoTrans;
    EXPECT_FALSE(tells(begin(7)));
    EXPECT_TRUE(tells(inside(7, write_record(file, "1", "x"))));
    EXPECT_FALSE(tells(end(7)));
    EXPECT_FALSE(tells(abort(7)));
}

}  // namespace
