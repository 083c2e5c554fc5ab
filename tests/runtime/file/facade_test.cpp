// The facade's words for files, records and lists.
#include "runtime/file/facade.h"

#include <set>

#include "tests/runtime/file/fixture.h"

namespace velda::test {
namespace {

class Facade : public FileTest {
  protected:
    void SetUp() override {
        ASSERT_FALSE(create_file("DATA " + path("F")));
        ASSERT_TRUE(orders.open(path("F")));
    }
    // What another session finds when it asks for the lock.
    bool locked_for_others(const char *key) const {
        const ScratchSession other;
        File same;
        same.open(path("F"));
        return same.try_read_locked(key).busy();
    }

    File orders;
};

TEST_F(Facade, AFileThatIsNotThereDoesNotOpen) {
    File missing;
    EXPECT_FALSE(missing.open(path("missing")));
    EXPECT_FALSE(missing.is_open());
    EXPECT_FALSE(orders.open(path("F"), true)) << "there is no dictionary";
    EXPECT_TRUE(orders.is_open());
}

TEST_F(Facade, RecordsAreWrittenReadAndRemoved) {
    orders.write("K", marks("a^b"));
    const auto order = orders.read("K");
    ASSERT_TRUE(order);
    EXPECT_EQ((*order)(2).view(), "b");
    EXPECT_TRUE(orders.exists("K"));
    EXPECT_EQ(orders.read_attribute("K", 2).view(), "b");
    orders.write_attribute("K", 2, 7);
    VAR record;
    EXPECT_TRUE(orders.read(record, "K"));
    EXPECT_EQ(shown(record.view()), "a^7");
    orders.remove("K");
    EXPECT_FALSE(orders.read("K"));
    EXPECT_FALSE(orders.exists("K"));
    EXPECT_FALSE(orders.read(record, "K"));
    EXPECT_EQ(record.view(), "");
}

TEST_F(Facade, ALockedRecordIsWrittenBackWithOrWithoutItsLock) {
    orders.write("K", marks("a^b"));
    auto order = orders.read_locked("K");
    ASSERT_TRUE(order);
    order.record(2) = "changed";
    order.write_keeping_lock();
    EXPECT_TRUE(locked_for_others("K"));
    order.write();
    EXPECT_FALSE(locked_for_others("K"));
    EXPECT_EQ(shown(orders.read("K")->view()), "a^changed");
}

TEST_F(Facade, ALockedReadOfAMissingRecordIsFalseAndHoldsTheLock) {
    auto order = orders.read_locked("K");
    EXPECT_FALSE(order);
    EXPECT_FALSE(order.busy());
    EXPECT_TRUE(locked_for_others("K"));
    order.release();
    EXPECT_FALSE(locked_for_others("K"));
}

TEST_F(Facade, ABusyRecordNamesThePortThatHoldsIt) {
    const auto order = orders.read_locked("K");
    const ScratchSession other;
    File same;
    same.open(path("F"));
    const auto busy = same.try_read_locked("K");
    EXPECT_FALSE(busy);
    EXPECT_TRUE(busy.busy());
    EXPECT_GE(busy.holder_port(), 0);
    EXPECT_EQ(order.holder_port(), -1);
}

TEST_F(Facade, RemoveThroughALockedRecordEndsTheLock) {
    orders.write("K", "a");
    auto order = orders.read_locked("K");
    order.remove();
    EXPECT_FALSE(orders.exists("K"));
    EXPECT_FALSE(locked_for_others("K"));
}

TEST_F(Facade, LocksAreReleasedOneByOneOrAllOfTheFile) {
    (void)orders.read_locked("K");
    (void)orders.read_locked("L");
    orders.release("K");
    EXPECT_FALSE(locked_for_others("K"));
    EXPECT_TRUE(locked_for_others("L"));
    orders.release_all();
    EXPECT_FALSE(locked_for_others("L"));
}

TEST_F(Facade, ALoopOverASelectSeesEveryKey) {
    for (const char *key : {"A", "B", "C"}) orders.write(key, "record");
    std::set<std::string> keys;
    for (const VAR &key : orders.select()) keys.insert(key.str());
    EXPECT_EQ(keys, (std::set<std::string>{"A", "B", "C"}));
}

TEST_F(Facade, ListsComeFromArraysAndGoToTheNextCommand) {
    SelectList list(marks("a^b"));
    VAR key;
    EXPECT_TRUE(list.next(key));
    EXPECT_EQ(key.view(), "a");
    list.make_default();
    EXPECT_EQ(default_list_length(), 1);
    SelectList taken = SelectList::take_default();
    EXPECT_EQ(default_list_length(), 0);
    EXPECT_TRUE(taken.next(key));
    EXPECT_EQ(key.view(), "b");
    EXPECT_FALSE(taken.next(key));
    EXPECT_EQ(key.view(), "");
    EXPECT_FALSE(SelectList::take_default().next(key));
    EXPECT_FALSE(list.get_saved("NONE"));
}

TEST_F(Facade, ACopyOfAFileSharesItAndClosingOneLeavesTheOther) {
    File copy = orders;
    EXPECT_EQ(copy.cell().text, orders.cell().text);
    orders.close();
    EXPECT_FALSE(orders.is_open());
    copy.write("K", "a");
    EXPECT_TRUE(copy.exists("K"));
    orders = copy;
    EXPECT_TRUE(orders.exists("K"));
}

TEST_F(Facade, WordsWorkOnACellThatLiesElsewhere) {
    VAR common_cell;
    FileWords words(common_cell);
    EXPECT_TRUE(words.open(path("F")));
    EXPECT_TRUE(common_cell.is_file());
    words.write("K", "a");
    EXPECT_TRUE(orders.exists("K"));
}

TEST_F(Facade, ClearRemovesAllAndStatusTells) {
    orders.write("K", "a");
    EXPECT_EQ(orders.status()(VELDA_STATUS_RECORDS).view(), "1");
    orders.clear();
    EXPECT_EQ(orders.status()(VELDA_STATUS_RECORDS).view(), "0");
    EXPECT_EQ(orders.full_path().str(), path("F"));
    EXPECT_TRUE(orders.set_mode("RB,WB"));
    EXPECT_FALSE(orders.set_mode("XX"));
}

TEST_F(Facade, TryWriteGivesTheCodeOfAFailure) {
    EXPECT_EQ(orders.try_write("K", "a"), 0);
    EXPECT_EQ(orders.try_write("", "a"), 22);
}

TEST_F(Facade, FilesAreMadeAndDeletedWithAMessageOnFailure) {
    EXPECT_FALSE(create_file(path("G")));
    const auto twice = create_file(path("G"));
    ASSERT_TRUE(twice);
    EXPECT_EQ(shown(twice->view()).substr(0, 12), "FILE_CREATE]");
    EXPECT_FALSE(delete_file(path("G")));
    EXPECT_TRUE(delete_file(path("G")));
    EXPECT_EQ(directory_entry(path("G")).view(), "");
    EXPECT_NE(directory_entry(path("F")).view(), "");
    EXPECT_NE(unique_key().str(), unique_key().str());
}

}  // namespace
}  // namespace velda::test
