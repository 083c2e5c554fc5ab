// Copies in batches: what the caller sees is what single statements would give.
#include <cerrno>
#include <chrono>
#include <future>
#include <thread>

#include "runtime/file/facade.h"
#include "tests/runtime/file/fixture.h"

namespace velda::test {
namespace {

class Bulk : public FileTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(create("DATA " + path("FROM") + " DURABILITY=LAZY"), "");
        ASSERT_EQ(create("DATA " + path("TO") + " DURABILITY=LAZY"), "");
        ASSERT_TRUE(from.open(path("FROM")));
        ASSERT_TRUE(to.open(path("TO")));
    }
    static std::string content(const FileWords &of, const char *key) {
        const auto record = of.read(key);
        return record ? record->str() : "none";
    }

    File from, to;
};

TEST_F(Bulk, RecordsArriveInTheTargetAfterFlushOrAtTheEnd) {
    {
        BulkCopy copy(from, to);
        copy.write("A", "1");
        copy.flush();
        EXPECT_EQ(content(to, "A"), "1");
        copy.write("B", "2");
    }
    EXPECT_EQ(content(to, "B"), "2");
}

TEST_F(Bulk, ManyRecordsAreCopiedWhole) {
    constexpr int Count = 5000;
    for (int i = 0; i < Count; ++i) from.write(i, "record " + std::to_string(i));
    {
        BulkCopy copy(from, to);
        VAR record;
        for (const VAR &key : from.select()) {
            ASSERT_TRUE(copy.read(record, key));
            copy.write(key, record);
        }
    }
    EXPECT_EQ(to.status()(VELDA_STATUS_RECORDS).to_integer(), Count);
    for (int i = 0; i < Count; i += 97) EXPECT_EQ(to.read(i)->str(), "record " + std::to_string(i));
}

// What another session is told when it asks for the record's lock without waiting: 2 when this one holds it.
int lock_result(const FileWords &file, const char *key) {
    const ScratchSession other;
    VAR record, name = key;
    return VLibFNEWREAD_IIBBBIB(other, VELDA_READ_LOCK_NOWAIT, &file.cell(), &record, &name, 0, nullptr);
}

TEST_F(Bulk, ARecordThatMovesIsLockedFromItsReadToItsRemoval) {
    from.write("A", "1");
    BulkCopy copy(from, to, BulkCopy::Source::Moves);
    VAR record;
    ASSERT_TRUE(copy.read(record, "A"));
    EXPECT_EQ(lock_result(from, "A"), 2);
    copy.write("A", record);
    copy.remove_source("A");
    EXPECT_EQ(lock_result(from, "A"), 2);
    copy.flush();
    EXPECT_EQ(lock_result(from, "A"), 0);
}

TEST_F(Bulk, ARecordThatStaysAfterAllIsFreeAtTheNextRead) {
    from.write("A", "1");
    from.write("B", "2");
    BulkCopy copy(from, to, BulkCopy::Source::Moves);
    VAR record;
    ASSERT_TRUE(copy.read(record, "A"));
    ASSERT_TRUE(copy.read(record, "B"));
    EXPECT_EQ(lock_result(from, "A"), 1);
    EXPECT_EQ(lock_result(from, "B"), 2);
}

TEST_F(Bulk, AMoveWaitsForTheLockAndTakesTheUpdateMadeUnderIt) {
    from.write("A", "old");
    std::promise<void> locked;
    std::thread holder([&] {
        const ScratchSession session;
        File file;
        ASSERT_TRUE(file.open(path("FROM")));
        VAR record;
        const VAR key = "A";
        ASSERT_EQ(VLibFNEWREAD_IIBBBIB(session, VELDA_READ_LOCK, &file.cell(), &record, &key, 0, nullptr), 1);
        locked.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        file.write("A", "new");
    });
    locked.get_future().wait();
    {
        BulkCopy copy(from, to, BulkCopy::Source::Moves);
        VAR record;
        EXPECT_TRUE(copy.read(record, "A"));
        copy.write("A", record);
        copy.remove_source("A");
    }
    holder.join();
    EXPECT_EQ(content(to, "A"), "new");
    EXPECT_EQ(content(from, "A"), "none");
}

TEST_F(Bulk, ARecordThatWaitsExistsInTheTarget) {
    BulkCopy copy(from, to);
    EXPECT_FALSE(copy.target_has("A"));
    copy.write("A", "1");
    EXPECT_TRUE(copy.target_has("A"));
    to.write("B", "old");
    EXPECT_TRUE(copy.target_has("B"));
}

TEST_F(Bulk, ARecordThatMovesLeavesTheSource) {
    from.write("A", "1");
    {
        BulkCopy copy(from, to);
        copy.write("A", "1");
        copy.remove_source("A");
    }
    EXPECT_EQ(content(from, "A"), "none");
    EXPECT_EQ(content(to, "A"), "1");
}

TEST_F(Bulk, WithinOneFileTheOrderOfTheStatementsHolds) {
    from.write("A", "1");
    {
        File same;
        same.open(path("FROM"));
        BulkCopy copy(from, same);
        VAR record;
        ASSERT_TRUE(copy.read(record, "A"));
        copy.write("B", record);
        copy.remove_source("A");
        EXPECT_FALSE(copy.read(record, "A")) << "it waits to be removed";
        EXPECT_TRUE(copy.read(record, "B")) << "it waits to be written";
    }
    EXPECT_EQ(content(from, "A"), "none");
    EXPECT_EQ(content(from, "B"), "1");
}

TEST_F(Bulk, AnImpossibleKeyStopsAndWhatCameBeforeIsThere) {
    const std::string message = message_of_stop([&] {
        BulkCopy copy(from, to);
        copy.write("A", "1");
        copy.write("", "2");
        copy.flush();
    });
    EXPECT_EQ(message, "Cannot write record '' of file '" + path("TO") + "': the key is empty");
    EXPECT_EQ(content(to, "A"), "1");
}

TEST_F(Bulk, ACellThatHoldsNoFileStops) {
    EXPECT_EQ(message_of_stop([&] { BulkCopy(from, File()); }),
              "Cannot write record '' of file '': the variable holds no open file");
}

TEST_F(Bulk, AWriteReleasesTheLockOfItsRecord) {
    (void)to.read_locked("A");
    {
        BulkCopy copy(from, to);
        copy.write("A", "1");
    }
    const ScratchSession other;
    EXPECT_FALSE(to.try_read_locked("A").busy());
}

TEST_F(Bulk, ACheckCountsTheRecordsOfASoundFile) {
    for (int i = 0; i < 10; ++i) to.write(i, "record");
    VAR records, findings("before"), message;
    const VAR name(path("TO")), missing(path("missing"));
    EXPECT_EQ(velda_check_file(dp, &name, &records, &findings, &message), 1);
    EXPECT_EQ(records.to_integer(), 10);
    EXPECT_EQ(findings.view(), "");
    EXPECT_EQ(velda_check_file(dp, &missing, &records, &findings, &message), 0);
    EXPECT_EQ(shown(message.view()).substr(0, 12 + path("missing").size()), "FILE_CHECK]" + path("missing") + "]");
    EXPECT_EQ(dp->last_error, ENOENT);
}

}  // namespace
}  // namespace velda::test
