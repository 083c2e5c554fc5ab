// What a session finds in its files while it is in a transaction: reads, walks, copies and the driver layer.
#include <cerrno>
#include <map>
#include <set>

#include "tests/runtime/transaction/session_fixture.h"

namespace velda::test {

class TransactionViewTest : public TransactionTest {
  protected:
    using Keys = std::multiset<std::string>;

    static Keys rest_of(Session &session, VAR &list) {
        Keys keys;
        VAR key;
        while (VLibFREADNEXT_IBBBBB(session.dp(), &key, nullptr, nullptr, &list, nullptr) == 1) keys.insert(key.str());
        return keys;
    }
    static VAR selected(Session &session) {
        VAR list;
        EXPECT_EQ(VLibFSELECT_IBBB(session.dp(), &session.file, &list, nullptr), 1);
        return list;
    }
    static Keys walk(Session &session) {
        VAR list = selected(session);
        return rest_of(session, list);
    }
    VediControlBlock *block_of(const VAR &file) { return reinterpret_cast<VediControlBlock *>(file.text); }
};

TEST_F(TransactionViewTest, AWalkFindsWhatTheSessionWroteAndNotWhatItRemoved) {
    for (const char *key : {"a", "b", "c"}) two.write(key, "old");
    ASSERT_TRUE(one.begin());
    one.write("new", "x");
    one.write("a", "x");
    one.remove("b");
    EXPECT_EQ(walk(one), (Keys{"a", "c", "new"}));
    EXPECT_EQ(walk(two), (Keys{"a", "b", "c"}));
}

TEST_F(TransactionViewTest, AWalkThatWritesEachOfItsRecordsSeesEachOnce) {
    for (int i = 0; i < 1000; ++i) two.write("k" + std::to_string(i), "old");
    ASSERT_TRUE(one.begin());
    one.write("k5", "x");
    one.write("extra", "x");
    VAR list = selected(one);
    Keys seen;
    VAR key;
    while (VLibFREADNEXT_IBBBBB(one.dp(), &key, nullptr, nullptr, &list, nullptr) == 1) {
        seen.insert(key.str());
        one.write(key.str(), "rewritten");
    }
    EXPECT_EQ(seen.size(), 1001u);
    EXPECT_EQ(std::set<std::string>(seen.begin(), seen.end()).size(), 1001u);
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read("k999"), "rewritten");
}

TEST_F(TransactionViewTest, AWalkOutlivesTheCommitAndTheAbort) {
    for (const bool commits : {true, false}) {
        for (const char *key : {"a", "b", "c"}) two.write(key, "old");
        two.remove("new");
        ASSERT_TRUE(one.begin());
        one.write("new", "x");
        one.remove("b");
        VAR list = selected(one);
        ASSERT_TRUE(commits ? one.commit() : one.abort());
        EXPECT_EQ(rest_of(one, list), commits ? (Keys{"a", "c", "new"}) : (Keys{"a", "b", "c"}));
    }
}

TEST_F(TransactionViewTest, ACopyInBulkTakesAndLeavesRecordsOfTheTransaction) {
    VAR b;
    one.open_file(path("B"), b);
    two.write("stored", "1");
    ASSERT_TRUE(one.begin());
    one.write("held", "2");
    VELDABulkCopy *const copy = velda_bulk_copy_begin(one.dp(), &one.file, &b, 0);
    VAR list = selected(one), key, record;
    while (velda_bulk_copy_next(copy, &list, &key, &record) == VELDA_BULK_COPY_RECORD) {
        velda_bulk_copy_write(copy, &key, &record);
        velda_bulk_copy_remove(copy, &key);
    }
    velda_bulk_copy_end(copy);
    EXPECT_EQ(one.read_from(b, "held"), "2");
    EXPECT_EQ(one.read("stored"), "(none)");
    VAR b_of_two;
    two.open_file(path("B"), b_of_two);
    EXPECT_EQ(two.read_from(b_of_two, "held"), "(none)");
    EXPECT_EQ(two.read("stored"), "1");
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read_from(b_of_two, "held"), "2");
    EXPECT_EQ(two.read_from(b_of_two, "stored"), "1");
    EXPECT_EQ(walk(two), Keys{});
}

TEST_F(TransactionViewTest, TheTargetOfACopyHasTheRecordsOfTheTransaction) {
    VAR b;
    one.open_file(path("B"), b);
    ASSERT_TRUE(one.begin());
    one.write_to(b, "held", "2");
    VELDABulkCopy *const copy = velda_bulk_copy_begin(one.dp(), &one.file, &b, 0);
    const VAR held("held"), other("other");
    EXPECT_EQ(velda_bulk_copy_target_has(copy, &held), 1);
    EXPECT_EQ(velda_bulk_copy_target_has(copy, &other), 0);
    velda_bulk_copy_end(copy);
}

TEST_F(TransactionViewTest, TheDriverLayerIsInTheTransactionToo) {
    two.write("old", "before");
    VediControlBlock file;
    ASSERT_EQ(VediOpen(one.dp(), &file, path("A").c_str(), 0, 0), 0);
    ASSERT_TRUE(one.begin());
    ASSERT_EQ(VediWriteRecord(one.dp(), &file, 0, "new", 3, "x", 1, 0), 0);
    ASSERT_EQ(VediDeleteRecord(one.dp(), &file, 0, "old", 3), 0);
    EXPECT_EQ(VediDeleteRecord(one.dp(), &file, 0, "old", 3), ENOENT);
    EXPECT_EQ(VediDeleteRecord(one.dp(), &file, 0, "none", 4), ENOENT);
    EXPECT_EQ(VediClearFile(one.dp(), &file), EBUSY);
    char *buffer = nullptr;
    uint32_t size = 0, length = 0;
    EXPECT_EQ(VediReadRecord(one.dp(), &file, 0, "new", 3, &buffer, &size, &length), 0);
    EXPECT_EQ(std::string(buffer, length), "x");
    EXPECT_EQ(VediReadRecord(one.dp(), &file, 0, "old", 3, &buffer, &size, &length), VEDI_NO_RECORD);
    VELDAfree(one.dp(), buffer, "test", __LINE__);
    EXPECT_EQ(two.read("new"), "(none)");
    EXPECT_EQ(two.read_locked("new"), 2);
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read("new"), "x");
    EXPECT_EQ(two.read("old"), "(none)");
    VediClose(one.dp(), &file, 0);
}

TEST_F(TransactionViewTest, ARecordOfADirectoryReadsInEachModeAsItWouldFromTheFile) {
    // Records written in one mode and read in another, in a transaction and after it.
    for (const char *written : {"WT", "WB"}) {
        for (const char *read : {"RT", "RB"}) {
            for (const char *visible : {"", "a", "a^b", "a^", "^", "a\nb", "a\n"}) {
                VAR d, words, command(int{VELDA_IOCTL_MODE});
                one.open_file(path("D"), d);
                VLibFIOCTL_IBBB(one.dp(), &d, &command, &(words = written));
                VLibFIOCTL_IBBB(one.dp(), &d, &command, &(words = read));
                ASSERT_TRUE(one.begin());
                one.write_to(d, "k", visible);
                const std::string held = one.read_from(d, "k");
                ASSERT_TRUE(one.commit());
                EXPECT_EQ(held, one.read_from(d, "k")) << written << " " << read << " '" << visible << "'";
            }
        }
    }
}

TEST_F(TransactionViewTest, AFileThatIsOpenedTwiceIsOneFile) {
    VAR again;
    one.open_file(path("A"), again);
    ASSERT_TRUE(one.begin());
    one.write("k", "x");
    EXPECT_EQ(one.read_from(again, "k"), "x");
    again = "";
    one.file = "";
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read("k"), "x");
}

TEST_F(TransactionViewTest, ClearfileIsRefusedAndNothingIsCleared) {
    two.write("k", "x");
    ASSERT_TRUE(one.begin());
    EXPECT_EQ(VLibFNEWCLEARFILE_IIBB(one.dp(), VELDA_REPORT_ERRORS, &one.file, &one.setting), 3);
    EXPECT_EQ(one.setting.to_integer(), EBUSY);
    ASSERT_TRUE(one.commit());
    EXPECT_EQ(two.read("k"), "x");
}

TEST_F(TransactionViewTest, MoreThanTheLimitIsRefusedAndTheTransactionStaysAsItWas) {
    const VAR large(std::string(100 << 20, 'x'));
    const auto write = [&](const char *key) {
        const VAR name(key);
        return VLibFNEWWRITE_IIBBBIB(one.dp(), VELDA_REPORT_ERRORS, &one.file, &large, &name, 0, &one.setting);
    };
    ASSERT_TRUE(one.begin());
    EXPECT_EQ(write("a"), 1);
    EXPECT_EQ(write("b"), 1);
    EXPECT_EQ(write("c"), 3);
    EXPECT_EQ(one.setting.to_integer(), EFBIG);
    EXPECT_EQ(write("a"), 1) << "in place of what is held of the record";
    one.write("a", "small");
    EXPECT_EQ(write("c"), 1);
    ASSERT_TRUE(one.abort());
    EXPECT_EQ(walk(two), Keys{});
}

TEST_F(TransactionViewTest, ARemovedFileFailsTheCommitAndTheOthersAreUntouched) {
    VAR b;
    one.open_file(path("B"), b);
    ASSERT_TRUE(one.begin());
    one.write("k", "x");
    one.write_to(b, "k", "x");
    VAR message;
    const VAR name(path("B"));
    ASSERT_EQ(velda_delete_file(two.dp(), &name, &message), 1) << message.str();
    EXPECT_FALSE(one.commit());
    EXPECT_EQ(one.dp()->last_error, ENOENT);
    EXPECT_NE(one.error().find(path("B")), std::string::npos) << one.error();
    EXPECT_EQ(two.read("k"), "(none)");
    EXPECT_EQ(two.read_locked("k"), 0) << "its locks are released";
}

}  // namespace velda::test
