// What a run would do, counted: each record has one fate, and the counts are those of the rules of replay.
#include "journal/duplicator/dup_dry_run.h"

#include <gtest/gtest.h>

#include "tests/journal/fixture.h"
#include "tests/support/journal_builder.h"

using namespace velda::journal;
using namespace velda::test;

namespace {

constexpr int InTransactionFlag = 1;

class DryRunCounts : public LoggerTest {
  protected:
    DryRunCounts() { output.deviceType = Database; }

    void take(BuiltRecord record, std::uint32_t pid = 4711, int flags = 0) {
        record.pid = pid;
        record.flags = flags;
        const std::string bytes = record_bytes(record, 1, 0, 0);
        run.count(output, reinterpret_cast<const unsigned char *>(bytes.data()));
    }

    // "TYPE FILE=COUNT" for each, in order.
    std::string done() const {
        std::string text;
        for (const auto &[what, count] : run.done())
            text += std::string(RecordTypeNames[static_cast<std::size_t>(what.second)]) + " " + what.first + "=" +
                    std::to_string(count) + "|";
        return text;
    }

    // The fates of all records, which are as many as there are records.
    std::string fates() const {
        std::uint64_t sum = 0;
        std::string text;
        for (int fate = 0; fate < DryRun::Fates; ++fate) {
            const std::uint64_t count = run.records(static_cast<DryRun::Fate>(fate));
            sum += count;
            text += std::to_string(count) + " ";
        }
        EXPECT_EQ(sum, run.records());
        return text;
    }

    LogSelect output;
    DryRun run;
};

}  // namespace

// Fates in order: done, dropped, unfinished, unsupported, faulty, passed.

TEST_F(DryRunCounts, UpdatesCountByTypeAndFile) {
    take(write_record("/F", "a", "1"));
    take(write_record("/F", "b", "2"));
    take(delete_record("/F", "a"));
    take(write_record("/G", "a", "1"));
    EXPECT_EQ(done(), "WRITE /F=2|DELETE /F=1|WRITE /G=1|");
    EXPECT_EQ(fates(), "4 0 0 0 0 0 ");
}

TEST_F(DryRunCounts, FilesCountUnderTheirNamesHere) {
    output.renames.push_back({"/old", "/new"});
    take(write_record("/old/F", "a", "1"));
    take(move_record("/old/F", "/old/G"));
    take(text_record(RemoveFileType, "/old/G"));
    take(mkdir_record("/old/D"));
    take(flat_file_record("/old/flat", "data"));
    take(record_of(ClearFileType, "", "/older"));
    EXPECT_EQ(done(),
              "MKDIR /new/D=1|WRITE /new/F=1|MOVEFILE /new/F -> /new/G=1|REMOVEFILE /new/G=1|FLATFILE /new/flat=1|"
              "CLEARFILE /older=1|");
}

TEST_F(DryRunCounts, UpdatesOfATransactionCountAtItsEnd) {
    take(transaction_record(TranStartType), 7);
    take(write_record("/F", "a", "1"), 7, InTransactionFlag);
    EXPECT_EQ(fates(), "0 0 1 0 0 1 ");
    take(transaction_record(TranEndType), 7);
    EXPECT_EQ(done(), "WRITE /F=1|");
    EXPECT_EQ(fates(), "1 0 0 0 0 2 ");
}

TEST_F(DryRunCounts, UpdatesOfAnAbortedTransactionAreDropped) {
    take(transaction_record(TranStartType), 7);
    take(transaction_record(TranStartType), 8);
    take(write_record("/F", "a", "1"), 7, InTransactionFlag);
    take(write_record("/F", "b", "1"), 8, InTransactionFlag);
    take(write_record("/F", "c", "1"), 7, InTransactionFlag);
    take(transaction_record(TranAbortType), 7);
    take(transaction_record(TranEndType), 8);
    EXPECT_EQ(done(), "WRITE /F=1|");
    EXPECT_EQ(fates(), "1 2 0 0 0 4 ");
}

TEST_F(DryRunCounts, WhatBreaksTheRulesOfTransactionsIsAnError) {
    take(write_record("/F", "a", "1"), 7, InTransactionFlag);  // in none
    take(transaction_record(TranEndType), 7);                  // of none
    take(transaction_record(TranAbortType), 7);
    take(transaction_record(TranStartType), 7);
    take(transaction_record(TranStartType), 7);  // a second one
    EXPECT_EQ(fates(), "0 0 0 0 4 1 ");
}

TEST_F(DryRunCounts, WithTransactionsIgnoredEveryUpdateCounts) {
    output.flags = SelectNoTrans;
    take(transaction_record(TranEndType), 7);
    take(write_record("/F", "a", "1"), 7, InTransactionFlag);
    EXPECT_EQ(done(), "WRITE /F=1|");
    EXPECT_EQ(fates(), "1 0 0 0 0 1 ");
}

TEST_F(DryRunCounts, RecordsThatCannotBeAppliedAreErrorsOrWarnings) {
    take(write_record("", "a", "1"));
    take(write_record("/F/../../etc", "a", "1"));
    take(move_record("/F", "/../G"));
    take(move_record("/F/..", "/G"));
    take(record_of(17));
    take(record_of(99));
    take(text_record(CreateIndexType, "x^CREATE-INDEX %s", "/F"));
    take(text_record(DeleteTriggerType, "x^DELETE-TRIGGER %s", "/F"));
    BuiltRecord damaged = write_record("/F", "a", "1");
    damaged.told_strings_size = 100000;
    take(damaged);
    EXPECT_EQ(done(), "");
    EXPECT_EQ(fates(), "0 0 0 2 7 0 ");
}

TEST_F(DryRunCounts, ARecordThatLacksTheNameOfItsFileIsAnError) {
    for (const int type : {ClearFileType, DeleteFileType, CreateFileType}) take(record_of(type));
    take(text_record(ChmodType, "-L"));
    take(text_record(RemoveFileType, ""));
    take(move_record("/F", ""));
    take(move_record("", "/F"));
    take(mkdir_record(""));
    take(flat_file_record("", "x"));
    EXPECT_EQ(done(), "");
    EXPECT_EQ(fates(), "0 0 0 0 9 0 ");
}

TEST_F(DryRunCounts, BoundsCheckpointsAndFlushesHaveNothingToDo) {
    take(checkpoint_record(1,
                           "a\xFE"
                           "b"));
    take(record_of(FlushType));
    take(record_of(EofType));
    EXPECT_EQ(fates(), "0 0 0 0 0 3 ");
}

TEST_F(DryRunCounts, AStreamGetsEveryRecordButEndsAndFlushes) {
    output.deviceType = Socket;
    take(write_record("/F", "a", "1"), 7, InTransactionFlag);
    take(transaction_record(TranAbortType), 7);
    take(record_of(FlushType));
    EXPECT_EQ(done(), "TRANSABORT =1|WRITE /F=1|");
    EXPECT_EQ(fates(), "2 0 0 0 0 1 ");
}

TEST_F(DryRunCounts, NothingIsDoneForTheNullOutput) {
    output.deviceType = Null;
    take(write_record("/F", "a", "1"));
    EXPECT_EQ(fates(), "0 0 0 0 0 1 ");
}
