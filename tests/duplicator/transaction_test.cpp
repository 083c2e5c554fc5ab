// Updates held by process until their transaction ends.
#include <map>
#include <random>

#include "tests/duplicator/replay_fixture.h"

namespace {

using namespace velda;
using namespace velda::journal;
using namespace velda::test;

using Transactions = ReplayTest;

TEST_F(Transactions, AnUpdateIsNotInTheDatabaseUntilItsTransactionEnds) {
    const std::string file = make_file("ORDERS");
    put(file, "2", "old");
    apply_quietly({begin(7), inside(7, write_record(file, "1", "x")), inside(7, delete_record(file, "2"))});
    EXPECT_EQ(read(file, "1"), "(none)");
    EXPECT_EQ(read(file, "2"), "old");
    apply_quietly({end(7)});
    EXPECT_EQ(read(file, "1"), "x");
    EXPECT_EQ(read(file, "2"), "(none)");
}

TEST_F(Transactions, AnAbortedTransactionLeavesNoTrace) {
    const std::string file = make_file("ORDERS");
    apply_quietly({begin(7), inside(7, write_record(file, "1", "x")), abort(7)});
    EXPECT_EQ(read(file, "1"), "(none)");
    EXPECT_EQ(context.transactionCount, 0u);
    apply_quietly({begin(7), inside(7, write_record(file, "1", "y")), end(7)});
    EXPECT_EQ(read(file, "1"), "y");
}

TEST_F(Transactions, OfTwoProcessesTheOneThatEndsLastWins) {
    const std::string file = make_file("ORDERS");
    apply_quietly({begin(7), begin(8), inside(7, write_record(file, "1", "seven")),
                   inside(8, write_record(file, "1", "eight")), inside(7, write_record(file, "7", "x")),
                   inside(8, write_record(file, "8", "x")), end(8)});
    EXPECT_EQ(read(file, "1"), "eight");
    EXPECT_EQ(read(file, "8"), "x");
    EXPECT_EQ(read(file, "7"), "(none)");
    apply_quietly({end(7)});
    EXPECT_EQ(read(file, "1"), "seven");
    EXPECT_EQ(read(file, "7"), "x");
}

TEST_F(Transactions, UpdatesOfOneTransactionAreAppliedInTheirOrder) {
    const std::string file = make_file("ORDERS");
    apply_quietly({begin(7), inside(7, write_record(file, "1", "a")), inside(7, delete_record(file, "1")),
                   inside(7, write_record(file, "1", "b")), inside(7, write_record(file, "2", "c")),
                   inside(7, delete_record(file, "2")), end(7)});
    EXPECT_EQ(read(file, "1"), "b");
    EXPECT_EQ(read(file, "2"), "(none)");
}

TEST_F(Transactions, AnUpdateOutsideOfATransactionGoesThroughMeanwhile) {
    const std::string file = make_file("ORDERS");
    apply_quietly({begin(7), by(7, write_record(file, "1", "x")), by(9, write_record(file, "2", "y"))});
    EXPECT_EQ(read(file, "1"), "x");
    EXPECT_EQ(read(file, "2"), "y");
}

TEST_F(Transactions, AnUpdateWhoseStartWasNotSeenIsAViolationAndNotApplied) {
    const std::string file = make_file("ORDERS");
    apply(inside(7, write_record(file, "1", "x")));
    EXPECT_EQ(reported(), "ERROR:TRANSACTION violation: Originally in a transaction, but not now during vlogdup");
    apply(inside(7, delete_record(file, "1")));
    EXPECT_EQ(reported(), "ERROR:TRANSACTION violation: Originally in a transaction, but not now during vlogdup");
    EXPECT_EQ(read(file, "1"), "(none)");
    EXPECT_EQ(context.slot->outputRecords, 0u);
}

TEST_F(Transactions, ASecondStartIsReportedAndTheFirstGoesOn) {
    const std::string file = make_file("ORDERS");
    apply_quietly({begin(7), inside(7, write_record(file, "1", "x"))});
    apply(begin(7));
    EXPECT_EQ(reported(), "ERROR:TRANSTART seen when process is already in a transaction");
    apply_quietly({end(7)});
    EXPECT_EQ(read(file, "1"), "x");
}

TEST_F(Transactions, AnEndWithoutAStartIsReported) {
    apply(end(7));
    EXPECT_EQ(reported(), "ERROR:TRANSEND seen when process is NOT in a transaction");
}

TEST_F(Transactions, AnAbortWithoutAStartIsReported) {
    apply(abort(7));
    EXPECT_EQ(reported(), "ERROR:TRANSABORT seen when process is NOT in a transaction");
}

TEST_F(Transactions, NotransAppliesEachUpdateAtOnceAndLeavesTheBoundariesAlone) {
    const std::string file = make_file("ORDERS");
    out_.flags |= SelectNoTrans;
    apply_quietly({begin(7), inside(7, write_record(file, "1", "x"))});
    EXPECT_EQ(read(file, "1"), "x");
    apply_quietly({abort(7), end(7), begin(7), begin(7)});
    EXPECT_EQ(context.transactionCount, 0u);
}

TEST_F(Transactions, TheOutputsFlagsAreAsBeforeAfterATransaction) {
    const std::string file = make_file("ORDERS");
    out_.flags = SelectNoFlush;
    apply_quietly({begin(7), inside(7, write_record(file, "1", "x")), end(7)});
    EXPECT_EQ(out_.flags, static_cast<std::uint32_t>(SelectNoFlush));
}

TEST_F(Transactions, HeldUpdatesAreCountedWhenTheyAreApplied) {
    const std::string file = make_file("ORDERS");
    apply_quietly({begin(7), inside(7, write_record(file, "1", "x")), inside(7, write_record(file, "2", "y"))});
    EXPECT_EQ(context.slot->outputRecords, 1u);
    apply_quietly({end(7)});
    EXPECT_EQ(context.slot->outputRecords, 4u);
}

TEST_F(Transactions, FreeingATransactionTakesItFromTheOutputsCounts) {
    const std::string file = make_file("ORDERS");
    out_.recordsRead = 10;
    out_.byteCount = 10000;
    const std::string one = bytes_of(inside(7, write_record(file, "1", "x")));
    const std::string two = bytes_of(inside(7, delete_record(file, "22")));
    apply(begin(7));
    apply_bytes(one);
    apply_bytes(two);
    apply(abort(7));
    EXPECT_EQ(out_.recordsRead, 8);
    EXPECT_EQ(out_.byteCount, 10000 - static_cast<std::int64_t>(one.size() + two.size()));
}

TEST_F(Transactions, UpdatesOfSeveralFilesAreAppliedTogether) {
    const std::string file = make_file("ORDERS"), other = make_file("OTHER"), directory = make_file("PLAIN", "UD");
    put(other, "2", "old");
    apply_quietly({begin(7), inside(7, write_record(file, "1", "x")), inside(7, delete_record(other, "2")),
                   inside(7, write_record(directory, "3", "z", VEDI_BINARY)), end(7)});
    EXPECT_EQ(read(file, "1"), "x");
    EXPECT_EQ(read(other, "2"), "(none)");
    EXPECT_EQ(read(directory, "3"), "z");
    EXPECT_EQ(velda_transaction_active(dp), 0);
    EXPECT_EQ(context.slot->outputRecords, 5u);
}

TEST_F(Transactions, AnUpdateThatCannotBeMadeIsReportedAndTheOthersAreMade) {
    const std::string file = make_file("ORDERS"), other = make_file("OTHER");
    std::vector<std::string> records;
    for (const BuiltRecord &record :
         {begin(7), inside(7, write_record(file, "1", "x")),
          inside(7, write_record(file, std::string(70000, 'k'), "y")), inside(7, write_record(other, "2", "z"))})
        records.push_back(bytes_of(record));
    for (const std::string &bytes : records) apply_bytes(bytes);
    apply(end(7));
    EXPECT_EQ(reported(), "ERROR:Error number 22 writing to file '" + file + "'");
    EXPECT_EQ(read(file, "1"), "x");
    EXPECT_EQ(read(other, "2"), "z");
    EXPECT_EQ(velda_transaction_active(dp), 0);
    EXPECT_EQ(context.slot->outputRecords, 5u);
}

TEST_F(Transactions, AFileThatWasRemovedMeanwhileIsReportedAtTheEnd) {
    const std::string file = make_file("ORDERS"), other = make_file("OTHER");
    apply_quietly({begin(7), inside(7, write_record(file, "1", "x")), inside(7, write_record(other, "2", "z")),
                   by(8, record_of(DeleteFileType, "", file))});
    apply(end(7));
    EXPECT_EQ(reported(), "ERROR:Unable to open file '" + file + "' , error value 2");
    EXPECT_EQ(read(other, "2"), "z");
}

TEST_F(Transactions, TheTableGrowsByTenEntriesAndReusesTheFreeOnes) {
    std::vector<BuiltRecord> starts;
    for (std::uint32_t pid = 1; pid <= 10; ++pid) starts.push_back(begin(pid));
    apply_quietly(starts);
    EXPECT_EQ(context.transactions.size(), 10u);
    apply_quietly({begin(11)});
    EXPECT_EQ(context.transactions.size(), 20u);
    apply_quietly({abort(3), begin(33)});
    EXPECT_EQ(context.transactions[2].pid, 33u);
    EXPECT_EQ(context.transactions.size(), 20u);
    EXPECT_EQ(context.transactionCount, 11u);
}

TEST_F(Transactions, AManyTimesInterleavedHistoryEndsAsAModelSays) {
    const std::string file = make_file("ORDERS", "HL", "DURABILITY=LAZY");
    std::map<std::string, std::string> model;
    std::map<std::uint32_t, std::vector<std::pair<std::string, std::string>>> open;
    std::mt19937 random(20261121);
    SCOPED_TRACE("seed 20261121");
    std::vector<BuiltRecord> history;
    for (int step = 0; step < 2000; ++step) {
        const std::uint32_t pid = 1 + random() % 25;
        const std::string key = std::to_string(random() % 40), data = std::to_string(step);
        const bool is_open = open.contains(pid);
        switch (random() % 6) {
            case 0:
                if (!is_open) {
                    history.push_back(begin(pid));
                    open[pid];
                }
                break;
            case 1:
                if (is_open) {
                    history.push_back(end(pid));
                    for (const auto &[held_key, held_data] : open[pid]) model[held_key] = held_data;
                    open.erase(pid);
                }
                break;
            case 2:
                if (is_open && random() % 3 == 0) {
                    history.push_back(abort(pid));
                    open.erase(pid);
                }
                break;
            default:
                if (is_open) {
                    history.push_back(inside(pid, write_record(file, key, data)));
                    open[pid].emplace_back(key, data);
                } else {
                    history.push_back(by(pid, write_record(file, key, data)));
                    model[key] = data;
                }
        }
    }
    apply_quietly(history);
    for (int number = 0; number < 40; ++number) {
        const std::string key = std::to_string(number);
        EXPECT_EQ(read(file, key), model.contains(key) ? model[key] : "(none)") << key;
    }
}

}  // namespace
