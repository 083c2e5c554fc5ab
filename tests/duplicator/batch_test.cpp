// Exclusive use of the database: updates wait to be applied together, and nobody can tell but by the speed.
#include <map>
#include <random>

#include "journal/duplicator/dup_batch.h"
#include "tests/duplicator/replay_fixture.h"

namespace {

using namespace velda;
using namespace velda::journal;
using namespace velda::test;

class Batch : public ReplayTest {
  protected:
    Batch() { context.exclusive = 1; }

    bool waits() const { return context.batch && !context.batch->empty(); }
    void apply_waiting() {
        run([&] { apply_pending(dp); });
    }
};

TEST_F(Batch, UpdatesWaitAndAreAppliedTogether) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "2", "b"), write_record(file, "1", "a")});
    EXPECT_TRUE(waits());
    EXPECT_EQ(read(file, "1"), "(none)");
    EXPECT_EQ(context.slot->outputRecords, 0u);  // counted when they are applied
    apply_waiting();
    EXPECT_FALSE(waits());
    EXPECT_EQ(read(file, "1"), "a");
    EXPECT_EQ(read(file, "2"), "b");
    EXPECT_EQ(context.slot->outputRecords, 2u);
}

TEST_F(Batch, OfSeveralUpdatesOfAKeyTheLastCounts) {
    const std::string file = make_file("ORDERS");
    put(file, "3", "old");
    apply_quietly({write_record(file, "1", "a"), write_record(file, "2", "x"), write_record(file, "1", "b"),
                   delete_record(file, "2"), delete_record(file, "3"), write_record(file, "3", "c")});
    apply_waiting();
    EXPECT_EQ(read(file, "1"), "b");
    EXPECT_EQ(read(file, "2"), "(none)");
    EXPECT_EQ(read(file, "3"), "c");
    EXPECT_EQ(context.slot->outputRecords, 6u);
    EXPECT_EQ(said, "");
}

TEST_F(Batch, KeysThatDifferOnlyBehindTheirSortedHeadsAreDifferentKeys) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "b1234567890-1", "one"), write_record(file, "a", "x"),
                   write_record(file, "b1234567890-2", "two"), write_record(file, "b1234567890", "short")});
    apply_waiting();
    EXPECT_EQ(read(file, "b1234567890-1"), "one");
    EXPECT_EQ(read(file, "b1234567890-2"), "two");
    EXPECT_EQ(read(file, "b1234567890"), "short");
}

TEST_F(Batch, ARecordOfAnotherTypeFindsTheUpdatesBeforeItApplied) {
    const std::string file = make_file("ORDERS"), other = make_file("OTHER");
    for (const BuiltRecord &record :
         {record_of(ClearFileType, "", other), text_record(ChmodType, "-L", other), flat_file_record(path("flat"), "x"),
          mkdir_record(path("directory")), text_record(RemoveFileType, path("flat")),
          record_of(DeleteFileType, "", other)}) {
        apply_quietly({write_record(file, "1", "x")});
        EXPECT_TRUE(waits());
        apply_quietly({record});
        EXPECT_FALSE(waits()) << record.type;
    }
    apply_quietly({write_record(file, "2", "x"), record_of(ClearFileType, "", file), write_record(file, "3", "x"),
                   move_record(file, path("MOVED"))});
    EXPECT_EQ(read(path("MOVED"), "2"), "(none)");
    EXPECT_EQ(read(path("MOVED"), "3"), "x");
}

TEST_F(Batch, TransactionsOfOneFileWaitWithTheOthers) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "1", "before"), begin(7), inside(7, write_record(file, "1", "inside")),
                   inside(7, delete_record(file, "2")), end(7), write_record(file, "2", "after")});
    EXPECT_TRUE(waits());
    EXPECT_EQ(read(file, "1"), "(none)");
    apply_waiting();
    EXPECT_EQ(read(file, "1"), "inside");
    EXPECT_EQ(read(file, "2"), "after");
    EXPECT_EQ(context.slot->outputRecords, 6u);
}

TEST_F(Batch, ATransactionIsNeverPartOfTwoBatches) {
    const std::string file = make_file("ORDERS");
    std::vector<BuiltRecord> records;
    for (int i = 0; i < 700; ++i) records.push_back(write_record(file, std::to_string(i), "x"));
    records.push_back(begin(7));
    for (int i = 0; i < 700; ++i) records.push_back(inside(7, write_record(file, "T" + std::to_string(i), "x")));
    records.push_back(end(7));
    apply_quietly(records);
    EXPECT_EQ(read(file, "699"), "x");  // made room for it
    EXPECT_EQ(read(file, "T0"), "(none)");
    EXPECT_TRUE(waits());
    apply_waiting();
    EXPECT_EQ(read(file, "T0"), "x");
    EXPECT_EQ(read(file, "T699"), "x");
}

TEST_F(Batch, ATransactionOfManyUpdatesOrSeveralFilesIsAppliedAtItsEnd) {
    const std::string file = make_file("ORDERS", "HL", "DURABILITY=LAZY"), other = make_file("OTHER");
    apply_quietly(
        {begin(7), inside(7, write_record(file, "1", "x")), inside(7, write_record(other, "1", "y")), end(7)});
    EXPECT_FALSE(waits());
    EXPECT_EQ(read(file, "1"), "x");
    EXPECT_EQ(read(other, "1"), "y");
    std::vector<BuiltRecord> records = {begin(7)};
    for (int i = 0; i < 1500; ++i) records.push_back(inside(7, write_record(file, "T" + std::to_string(i), "x")));
    records.push_back(end(7));
    apply_quietly(records);
    EXPECT_FALSE(waits());
    EXPECT_EQ(read(file, "T0"), "x");
    EXPECT_EQ(read(file, "T1499"), "x");
}

TEST_F(Batch, AFailedUpdateIsReportedByItselfAndAllOthersAreMade) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "1", "a"), write_record(file, std::string(70000, 'k'), "x"),
                   write_record(file, "2", "b"), delete_record(file, "none")});
    apply_waiting();
    EXPECT_EQ(reported(), "ERROR:Error number 22 writing to file '" + file + "'");
    EXPECT_EQ(read(file, "1"), "a");
    EXPECT_EQ(read(file, "2"), "b");
    EXPECT_EQ(context.errorCount, 1u);
    EXPECT_EQ(context.slot->outputRecords, 4u);
}

TEST_F(Batch, TheLimitOfErrorsEndsTheRunAtTheRecordThatExceedsIt) {
    const std::string file = make_file("ORDERS");
    context.maxErrors = 1;
    const std::string long_key(70000, 'k');
    apply_quietly({write_record(file, "1", "a"), write_record(file, long_key, "x"), write_record(file, "2", "b"),
                   write_record(file, long_key, "x"), write_record(file, "3", "c")});
    EXPECT_EQ(run([&] { apply_pending(dp); }), 4);
    EXPECT_EQ(read(file, "2"), "b");
    EXPECT_EQ(read(file, "3"), "(none)");
}

TEST_F(Batch, TheEndOfARunAppliesWhatWaits) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "1", "x")});
    EXPECT_EQ(run([&] { DupExit(dp, 0); }), 0);
    EXPECT_EQ(read(file, "1"), "x");
}

TEST_F(Batch, ErrorsFoundAtTheEndCanStillExceedTheLimit) {
    const std::string file = make_file("ORDERS");
    context.maxErrors = 0;
    context.initialised = 1;
    apply_quietly({write_record(file, std::string(70000, 'k'), "x")});
    EXPECT_EQ(run([&] { DupExit(dp, 0); }), 4);
    EXPECT_NE(said.find("Exit code is 4"), std::string::npos);
    EXPECT_EQ(said.find("Exit code is 0"), std::string::npos);
}

TEST_F(Batch, UpdatesOfAFileThatIsEvictedAreAppliedFirst) {
    std::vector<std::string> files;
    const auto bucket_of = [](const std::string &name) {
        return VediBaseHashUINT(name.data(), static_cast<std::uint32_t>(name.size()), 4) % CacheBuckets;
    };
    for (int number = 0; files.size() < 32; ++number) {
        const std::string name = "F" + std::to_string(number);
        if (files.empty() || bucket_of(path(name)) == bucket_of(files.front())) files.push_back(make_file(name));
    }
    std::vector<BuiltRecord> records;
    for (int round = 0; round < 3; ++round)
        for (const std::string &file : files) records.push_back(write_record(file, std::to_string(round), "x"));
    apply_quietly(records);
    apply_waiting();
    for (const std::string &file : files)
        for (const std::string key : {"0", "1", "2"}) EXPECT_EQ(read(file, key), "x") << file;
}

TEST_F(Batch, ASenderIsNotToldOfAnUpdateThatWaits) {
    const std::string file = make_file("ORDERS");
    in_.deviceType = Socket;
    in_.sendMilestone = 1;
    BuiltRecord checkpoint = checkpoint_record(1, ""), update = write_record(file, "1", "x");
    update.time = 2000001;
    checkpoint.time = 2000002;
    apply_quietly({update, checkpoint});
    EXPECT_TRUE(waits());
    EXPECT_EQ(context.slot->milestone, 0);
    apply_waiting();
    EXPECT_EQ(context.slot->milestone, 2000001);
}

TEST_F(Batch, WhatWaitsForTwoTenthsOfASecondIsApplied) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "first", "x")});
    usleep(200000);
    std::vector<BuiltRecord> records;
    for (int i = 0; i < 64; ++i) records.push_back(write_record(file, std::to_string(i), "x"));
    apply_quietly(records);
    EXPECT_EQ(read(file, "first"), "x");
}

TEST_F(Batch, AnEncipheredRecordKeepsItsOwnData) {
    const std::string file = make_file("ORDERS");
    const VAR plain("the data"), key(velda_builtin_key(dp, VELDA_KEY_JOURNAL_RECORD));
    VAR enciphered;
    VLibEENCRYPT_BBBBI(dp, &enciphered, &plain, &key, 3);
    BuiltRecord record = write_record(file, "1", enciphered.str());
    record.is_encrypted = true;
    apply_quietly({record, write_record(file, "2", "clear")});
    apply_waiting();
    EXPECT_EQ(read(file, "1"), "the data");
    EXPECT_EQ(read(file, "2"), "clear");
}

TEST_F(Batch, ARecordLargerThanABatchGoesThroughByItself) {
    const std::string file = make_file("ORDERS");
    const std::string large(std::size_t{17} << 20, 'x');
    apply_quietly({write_record(file, "1", "a"), write_record(file, "1", large), write_record(file, "2", "b")});
    apply_waiting();
    EXPECT_EQ(read(file, "1").size(), large.size());
    EXPECT_EQ(read(file, "2"), "b");
}

TEST_F(Batch, ARunWithBatchesEndsAsOneWithout) {
    std::mt19937 random(47);
    SCOPED_TRACE("seed 47");
    std::vector<std::string> files;
    for (int i = 0; i < 4; ++i)
        files.push_back(make_file("F" + std::to_string(i), i == 3 ? "UD" : "HL", "DURABILITY=LAZY"));
    std::map<std::pair<std::string, std::string>, std::string> model;
    std::vector<BuiltRecord> records;
    for (int i = 0; i < 5000; ++i) {
        const std::string &file = files[random() % files.size()];
        // Keys that share beginnings, of many lengths, also beyond what one page can hold.
        std::string key(random() % 12 == 0 ? 200 + random() % 900 : random() % 10, 'k');
        if (file == files[3]) key.resize(std::min<std::size_t>(key.size(), 20));
        key += std::to_string(random() % 30);
        const std::string data = "data " + std::to_string(i);
        if (random() % 4 == 0) {
            records.push_back(delete_record(file, key));
            model.erase({file, key});
        } else {
            records.push_back(write_record(file, key, data, VEDI_BINARY));
            model[{file, key}] = data;
        }
        if (random() % 500 == 0) {
            records.push_back(record_of(ClearFileType, "", file));
            std::erase_if(model, [&](const auto &entry) { return entry.first.first == file; });
        }
    }
    apply_quietly(records);
    apply_waiting();
    for (const auto &[place, data] : model) EXPECT_EQ(read(place.first, place.second), data);
    std::size_t count = 0;
    for (const std::string &file : files) {
        File opened;
        ASSERT_TRUE(opened.open(file));
        for (const VAR &key : opened.select()) count += model.contains({file, key.str()});
    }
    EXPECT_EQ(count, model.size());
}

}  // namespace
