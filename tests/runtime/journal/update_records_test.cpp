// What updates leave in the journal.
#include <atomic>
#include <thread>

#include "runtime/store/vedi.h"
#include "tests/runtime/journal/writer_fixture.h"

using namespace velda::test;

namespace {

class UpdateRecords : public WriterTest {
  protected:
    using Lines = std::vector<std::string>;
};

}  // namespace

TEST_F(UpdateRecords, AWriteIsInTheJournalWithFileKeyAndData) {
    make_set(1, 1);
    make_file("F");
    activate();
    VAR file = opened("F");
    write(file, "K", "a^b");
    const auto found = records();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].type, 2);
    EXPECT_EQ(found[0].strings, (Lines{path("F"), "K", "", "", "", "", "", ""}));
    EXPECT_EQ(found[0].payload, int32(0) + int32(0) + int32(3) +
                                    "a\xFE"
                                    "b");
    EXPECT_EQ(found[0].pid, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(found[0].port, VELDAGetPortNumber(dp));
    EXPECT_EQ(found[0].set, 1);
    EXPECT_GE(found[0].time, config->sets[0].timeFirst);
    EXPECT_EQ(read(file, "K"), "a^b");
}

TEST_F(UpdateRecords, ADeleteIsInTheJournalAndOneOfNoRecordIsNot) {
    make_set(1, 1);
    activate();
    make_file("F");
    VAR file = opened("F");
    write(file, "K", "a");
    remove(file, "K");
    remove(file, "nothing");
    EXPECT_EQ(summary(), (Lines{"CREATEFILE F", "WRITE F K", "DELETE F K"}));
    EXPECT_EQ(records()[2].payload, int32(0));
}

TEST_F(UpdateRecords, ManyRecordsOverThreeFilesStandInTheirOrder) {
    make_set(1, 3);
    make_file("F");
    activate();
    VAR file = opened("F");
    for (int n = 0; n < 500; ++n) write(file, n, std::string(static_cast<std::size_t>(n * 7 % 900), 'x'));
    write(file, "large", std::string(100000, 'y'));
    write(file, "last", "z");
    const auto found = records();
    ASSERT_EQ(found.size(), 502u);
    for (int n = 0; n < 500; ++n) EXPECT_EQ(found[n].strings[1], std::to_string(n));
    EXPECT_EQ(found[500].payload.size(), 100012u);
    EXPECT_EQ(found[501].strings[1], "last");
}

TEST_F(UpdateRecords, TheFirstBlockTellsOfTheSetAsTheConfigurationDoes) {
    make_set(1, 2);
    make_file("F");
    activate();
    VAR file = opened("F");
    for (int n = 0; n < 40; ++n) {
        write(file, n, std::string(300, 'x'));
        const std::string block = content(set_path(1, 0)).substr(0, 4096);
        ASSERT_EQ(std::memcmp(block.data() + 16, &config->sets[0], sizeof(LogSetInfo)), 0) << n;
        ASSERT_EQ(block.substr(3640, 20), std::string(20, '\0'));
    }
    EXPECT_GT(config->sets[0].fileOffset, 0);
}

TEST_F(UpdateRecords, TheDescriptionTellsHowFarTheSetIsWritten) {
    make_set(1, 2);
    make_file("F");
    activate();
    VAR file = opened("F");
    const LogSetInfo &set = config->sets[0];
    for (int n = 1; n <= 40; ++n) {
        write(file, n, std::string(300, 'x'));
        const Walked last = records().back();
        // The end of the last record, in bytes of all blocks in front of it.
        std::int64_t end = (last.offset / 4096 * 2 + last.file) * 4096 + last.offset % 4096;
        for (std::size_t left = last.bytes.size(); left > 0;) {
            const std::size_t part = std::min<std::size_t>(left, 4096 - static_cast<std::size_t>(end) % 4096);
            end += static_cast<std::int64_t>(part);
            left -= part;
            if (left > 0) end += 28;
        }
        EXPECT_EQ(set.fileOffset * 2 + (set.currentFile - 1) * std::int64_t{4096} + set.blockPosition, end) << n;
        EXPECT_EQ(set.recordCount, n);
        EXPECT_EQ(set.timeLast, last.time);
    }
}

TEST_F(UpdateRecords, BlocksThatTheStreamHasNotReachedAreBlank) {
    make_set(1, 3);
    make_file("F");
    activate();
    VAR file = opened("F");
    write(file, "K", "a");
    for (const int n : {1, 2}) {
        const std::string bytes = content(set_path(1, n));
        EXPECT_EQ(bytes, std::string(bytes.size(), '\0')) << n;
    }
}

TEST_F(UpdateRecords, ClearfileIsOneRecord) {
    make_set(1, 1);
    activate();
    make_file("F");
    VAR file = opened("F");
    write(file, "K", "a");
    VLibFNEWCLEARFILE_IIBB(dp, 0, &file, nullptr);
    EXPECT_EQ(summary(), (Lines{"CREATEFILE F", "WRITE F K", "CLEARFILE F"}));
}

// --- files of directories -------------------------------------------------------------------------------------------

TEST_F(UpdateRecords, UpdatesOfADirectoryFileCarryTheRecordAndItsMode) {
    make_set(1, 1);
    activate();
    make_file("D", "TYPE=UD");
    VAR file = opened("D");
    write(file, "K", "a^b");
    const VAR mode("WB"), command(9);
    VAR words = mode;
    ASSERT_EQ(VLibFIOCTL_IBBB(dp, &file, &command, &words), 1);
    write(file, "B", "c^d");
    remove(file, "K");
    remove(file, "nothing");
    VLibFNEWCLEARFILE_IIBB(dp, 0, &file, nullptr);
    EXPECT_EQ(summary(), (Lines{"CREATEFILE D", "WRITE D K", "WRITE D B", "DELETE D K", "CLEARFILE D"}));
    EXPECT_EQ(records()[1].payload, int32(0) + int32(0) + int32(3) +
                                        "a\xFE"
                                        "b");
    EXPECT_EQ(records()[2].payload, int32(0x100) + int32(0) + int32(3) +
                                        "c\xFE"
                                        "d");
}

TEST_F(UpdateRecords, ALongKeyOfADirectoryFileIsJournalled) {
    make_set(1, 1);
    activate();
    make_file("D", "TYPE=UD");
    VAR file = opened("D");
    const VAR key(std::string(3000, 'k'));
    write(file, key, "a");
    write(file, key, "b");
    remove(file, key);
    const auto found = records();
    ASSERT_EQ(found.size(), 4u);
    EXPECT_EQ(found[2].strings[1], std::string(3000, 'k'));
    EXPECT_EQ(found[3].type, 3);
}

// --- what stays out -------------------------------------------------------------------------------------------------

TEST_F(UpdateRecords, FilesWithLogNoStayOutWhateverIsDoneWithThem) {
    make_set(1, 1);
    activate();
    for (const char *type : {"TYPE=HL", "TYPE=UD"}) {
        make_file("F", std::string("LOG=NO ") + type);
        VAR file = opened("F");
        write(file, "K", "a");
        remove(file, "K");
        VLibFNEWCLEARFILE_IIBB(dp, 0, &file, nullptr);
        file = "";
        const VAR operands("DATA\xFE" + path("F"));
        EXPECT_EQ(velda_delete_file(dp, &operands, nullptr), 1);
    }
    EXPECT_EQ(summary(), Lines{});
}

TEST_F(UpdateRecords, AChangeOfTheSettingIsSeenByOtherHandles) {
    make_set(1, 1);
    make_file("F");
    VAR file = opened("F");
    activate();
    VediControlBlock block;
    ASSERT_EQ(VediOpen(dp, &block, path("F").c_str(), 0, 0), 0);
    ASSERT_EQ(VediIOCTL(dp, &block, 21, "-L", 2, nullptr, 0), 0);
    write(file, "K", "a");
    ASSERT_EQ(VediIOCTL(dp, &block, 21, "+L", 2, nullptr, 0), 0);
    write(file, "K", "b");
    VediClose(dp, &block, 0);
    EXPECT_EQ(summary(), (Lines{"VCHMOD F", "WRITE F K"}));
    EXPECT_EQ(records()[0].payload, int32(2) + "-L");
}

TEST_F(UpdateRecords, ACellThatIsNotLoggedAndASessionThatReplaysStayOut) {
    make_set(1, 1);
    make_file("F");
    activate();
    VAR file = opened("F"), other = opened("F");
    VELDACatalogSetFileNotLogged(dp, &file);
    write(file, "K", "a");
    write(other, "L", "b");
    velda_logger_set_replay(dp, 1);
    write(other, "M", "c");
    velda_logger_set_replay(dp, 0);
    write(other, "N", "d");
    EXPECT_EQ(summary(), (Lines{"WRITE F L", "WRITE F N"}));
}

TEST_F(UpdateRecords, AnInactiveJournalTakesNothing) {
    make_set(1, 1);
    make_file("F");
    VAR file = opened("F");
    write(file, "K", "a");
    config->currentSet = 1;
    write(file, "K", "b");
    EXPECT_EQ(summary(), Lines{});
}

TEST_F(UpdateRecords, AKeyWithAMarkIsRefusedAndNothingIsChanged) {
    make_set(1, 1);
    activate();
    make_file("F");
    VAR file = opened("F");
    VAR code;
    EXPECT_EQ(write(file, marks("a^b"), "x", &code), 3);
    EXPECT_EQ(code.to_integer(), 22);
    EXPECT_EQ(read(file, marks("a^b")), "(none)");
    EXPECT_EQ(summary(), (Lines{"CREATEFILE F"}));
}

// --- the driver layer, batches --------------------------------------------------------------------------------------

TEST_F(UpdateRecords, WritesOfTheDriverLayerCarryFlagsAndValue) {
    make_set(1, 1);
    make_file("F");
    activate();
    VediControlBlock block;
    ASSERT_EQ(VediOpen(dp, &block, path("F").c_str(), 0, 0), 0);
    EXPECT_EQ(VediWriteRecord(dp, &block, 0x11, "K", 1, "data", 4, 77), 0);
    EXPECT_EQ(VediDeleteRecord(dp, &block, 0x40, "K", 1), 0);
    EXPECT_EQ(VediClearFile(dp, &block), 0);
    VediClose(dp, &block, 0);
    ASSERT_EQ(summary(), (Lines{"WRITE F K", "DELETE F K", "CLEARFILE F"}));
    EXPECT_EQ(records()[0].payload, int32(0x11) + int32(77) + int32(4) + "data");
    EXPECT_EQ(records()[1].payload, int32(0x40));
}

TEST_F(UpdateRecords, ABulkCopyIsInTheJournal) {
    make_set(1, 2);
    make_file("F");
    make_file("T");
    VAR from = opened("F"), to = opened("T");
    for (int n = 0; n < 3; ++n) write(from, n, "r" + std::to_string(n));
    activate();
    VELDABulkCopy *const copy = velda_bulk_copy_begin(dp, &from, &to, 0);
    for (int n = 0; n < 3; ++n) {
        const VAR key(n), record("r" + std::to_string(n));
        velda_bulk_copy_write(copy, &key, &record);
    }
    velda_bulk_copy_end(copy);
    EXPECT_EQ(summary(), (Lines{"WRITE T 0", "WRITE T 1", "WRITE T 2"}));
}

// --- whole files ----------------------------------------------------------------------------------------------------

TEST_F(UpdateRecords, CreatingAndDeletingAFileIsInTheJournal) {
    make_set(1, 1);
    activate();
    make_file("F", "TYPE=HL DURABILITY=LAZY PERMS=0640");
    const VAR operands("DATA\xFE" + path("F"));
    ASSERT_EQ(velda_delete_file(dp, &operands, nullptr), 1);
    EXPECT_EQ(summary(), (Lines{"CREATEFILE F", "DELETEFILE F"}));
    const auto field = [](const std::string &text) { return int32(static_cast<int>(text.size())) + text; };
    EXPECT_EQ(records()[0].payload, field("HL") + field("") +
                                        field(int32(2) + field("DURABILITY=LAZY") + field("PERMS=0640")) + field("") +
                                        field("") + field("") + int32(0) + int32(0) + int32(0));
    EXPECT_EQ(records()[1].payload, "");
}

TEST_F(UpdateRecords, AMovedFileIsOneRecordWithBothPathsAndNoFileName) {
    make_set(1, 1);
    for (const char *type : {"TYPE=HL", "TYPE=UD"}) make_file(type + 5, type);
    activate();
    for (const std::string name : {"HL", "UD"})
        ASSERT_EQ(VediFileOp(dp, VEDI_FILE_MOVE, 4, path(name).c_str(), path(name + "2").c_str(), nullptr), 0);
    const auto found = records();
    ASSERT_EQ(found.size(), 2u);
    for (std::size_t n = 0; n < 2; ++n) {
        const std::string from = path(n == 0 ? "HL" : "UD"), to = from + "2";
        EXPECT_EQ(found[n].type, 11);
        EXPECT_EQ(found[n].strings[0], "");
        EXPECT_EQ(found[n].payload, int32(static_cast<int>(from.size())) + int32(static_cast<int>(to.size())) + from +
                                        std::string(1, '\0') + to + std::string(1, '\0'));
    }
}

TEST_F(UpdateRecords, ACopiedFileIsMadeAndFilledInTheJournal) {
    make_set(1, 1);
    for (const char *type : {"TYPE=HL", "TYPE=UD"}) {
        make_file(type + 5, type);
        VAR file = opened(type + 5);
        write(file, "K", "a^b");
    }
    activate();
    for (const std::string name : {"HL", "UD"})
        ASSERT_EQ(VediFileOp(dp, VEDI_FILE_COPY, 4, path(name).c_str(), path(name + "2").c_str(), nullptr), 0);
    EXPECT_EQ(summary(), (Lines{"CREATEFILE HL2", "WRITE HL2 K", "CREATEFILE UD2", "WRITE UD2 K"}));
    VAR copy = opened("HL2");
    EXPECT_EQ(read(copy, "K"), "a^b");
    EXPECT_FALSE(std::filesystem::exists(path("HL2-lock-lock")));
}

// --- plain files and texts ------------------------------------------------------------------------------------------

TEST_F(UpdateRecords, ADirectoryThatIsMadeIsInTheJournalWithOwnerAndMode) {
    make_set(1, 1);
    activate();
    std::filesystem::create_directory(path("made"));
    std::filesystem::permissions(path("made"), std::filesystem::perms(0750));
    ASSERT_EQ(VediLoggerMisc(dp, 13, path("made").c_str()), 0);
    const auto found = records();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].type, 14);
    EXPECT_EQ(found[0].strings[0], "");
    EXPECT_EQ(found[0].payload, int32(static_cast<int>(path("made").size())) + int32(getuid()) + int32(getgid()) +
                                    int32(0750) + path("made"));
}

TEST_F(UpdateRecords, AFlatFileIsInTheJournalWithItsContent) {
    make_set(1, 1);
    activate();
    std::ofstream(path("flat")) << "content";
    std::filesystem::permissions(path("flat"), std::filesystem::perms(0600));
    ASSERT_EQ(VediLoggerFlatFile(dp, path("flat").c_str()), 0);
    const auto found = records();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].type, 15);
    EXPECT_EQ(found[0].payload, int32(static_cast<int>(path("flat").size())) + int32(getuid()) + int32(getgid()) +
                                    int32(0600) + int32(7) + path("flat") + std::string(1, '\0') + "content");
    EXPECT_EQ(VediLoggerFlatFile(dp, path("none").c_str()), 2);
}

TEST_F(UpdateRecords, MovedAndRemovedPathsIndexesAndTriggersAreTexts) {
    make_set(1, 1);
    activate();
    ASSERT_EQ(velda_logger_move_file(dp, "/a", "/b"), 0);
    ASSERT_EQ(velda_logger_remove_file(dp, "/c"), 0);
    for (int what = VELDA_LOGGER_CREATE_INDEX; what <= VELDA_LOGGER_DELETE_TRIGGER; ++what)
        ASSERT_EQ(velda_logger_text(dp, what, "/F", "CREATE^CREATE-INDEX %s BY A"), 0);
    EXPECT_EQ(velda_logger_text(dp, 5, "/F", ""), 22);
    EXPECT_EQ(summary(), (Lines{"MOVEFILE", "REMOVEFILE", "CREATEINDEX F", "DELETEINDEX F", "REBUILDINDEX F",
                                "CREATETRIGGER F", "DELETETRIGGER F"}));
    EXPECT_EQ(records()[0].payload, int32(2) + int32(2) + "/a" + std::string(1, '\0') + "/b" + std::string(1, '\0'));
    EXPECT_EQ(records()[1].payload, int32(2) + "/c");
    EXPECT_EQ(records()[2].payload, int32(27) + "CREATE^CREATE-INDEX %s BY A");
}

// --- transactions ---------------------------------------------------------------------------------------------------

TEST_F(UpdateRecords, TheUpdatesOfATransactionStandBetweenItsRecordsAndCarryItsFlag) {
    make_set(1, 1);
    make_file("F");
    activate();
    VAR file = opened("F");
    const VAR text(marks("order 7^more"));
    ASSERT_EQ(velda_logger_transaction_start(dp, &text, 0), 0);
    write(file, "K", "a");
    ASSERT_EQ(velda_logger_transaction_end(dp, nullptr), 0);
    write(file, "L", "b");
    ASSERT_EQ(velda_logger_transaction_start(dp, nullptr, 0), 0);
    EXPECT_EQ(velda_logger_transaction_start(dp, nullptr, 0), 1);
    ASSERT_EQ(velda_logger_transaction_abort(dp, nullptr), 0);
    EXPECT_EQ(velda_logger_transaction_end(dp, nullptr), 1);
    EXPECT_EQ(summary(), (Lines{"TRANSTART order 7", "WRITE F K", "TRANSEND", "WRITE F L", "TRANSTART", "TRANSABORT"}));
    const auto found = records();
    std::vector<int> flags;  // 2: a device is flushed behind the record
    for (const Walked &record : found) flags.push_back(record.flags);
    EXPECT_EQ(flags, (std::vector<int>{1, 1, 3, 0, 1, 3}));
    for (const std::size_t n : {0u, 2u, 4u, 5u}) EXPECT_EQ(found[n].payload.size(), 17u);
}

TEST_F(UpdateRecords, AForkedChildDoesNotWaitForATransactionOfItsParentsSessions) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer takes a child's thread for one of its parent's";
#endif
    make_set(1, 1);
    activate();
    std::atomic<bool> is_begun{false}, may_end{false};
    std::thread other([&] {
        EXPECT_EQ(velda_logger_transaction_start(velda_getdp(), nullptr, 0), 0);
        is_begun = true;
        while (!may_end) std::this_thread::yield();
        EXPECT_EQ(velda_logger_transaction_end(velda_getdp(), nullptr), 0);
    });
    while (!is_begun) std::this_thread::yield();
    EXPECT_EQ(in_child([] {
                  alarm(10);
                  if (velda_logger_transaction_start(velda_getdp(), nullptr, 0) != 0) return 1;
                  return velda_logger_transaction_end(velda_getdp(), nullptr);
              }),
              0);
    may_end = true;
    other.join();
    EXPECT_EQ(summary(), (Lines{"TRANSTART", "TRANSTART", "TRANSEND", "TRANSEND"}));
}
