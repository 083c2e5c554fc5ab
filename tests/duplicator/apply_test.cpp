// What each record type does to the database, and what it says when it cannot.
#include <sys/stat.h>

#include "journal/duplicator/dup_apply.h"
#include "tests/duplicator/replay_fixture.h"

namespace {

using namespace velda;
using namespace velda::journal;
using namespace velda::test;

using Apply = ReplayTest;

// --- writes and deletes ---

TEST_F(Apply, AWritePutsTheRecord) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "1", marks("a^b]c"))});
    EXPECT_EQ(shown(read(file, "1")), "a^b]c");
}

TEST_F(Apply, AWriteOfAnEmptyRecordMakesAnEmptyRecord) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "1", "")});
    EXPECT_EQ(read(file, "1"), "");
}

TEST_F(Apply, ADeleteRemovesTheRecord) {
    const std::string file = make_file("ORDERS");
    put(file, "1", "x");
    apply_quietly({delete_record(file, "1")});
    EXPECT_EQ(read(file, "1"), "(none)");
}

TEST_F(Apply, ADeleteOfAnAbsentRecordIsNoError) {
    const std::string file = make_file("ORDERS");
    apply_quietly({delete_record(file, "1")});
    EXPECT_EQ(context.errorCount, 0u);
}

TEST_F(Apply, WritesAndDeletesReachTheDictionary) {
    make_file("ORDERS");
    const std::string dictionary = make_file("ORDERS]D");
    apply_quietly({write_record(dictionary, "NAME", "A")});
    EXPECT_EQ(read(dictionary, "NAME"), "A");
}

TEST_F(Apply, AnEncipheredWriteIsDeciphered) {
    const std::string file = make_file("ORDERS");
    const VAR plain("the data"), key(velda_builtin_key(dp, VELDA_KEY_JOURNAL_RECORD));
    VAR enciphered;
    VLibEENCRYPT_BBBBI(dp, &enciphered, &plain, &key, 3);
    BuiltRecord record = write_record(file, "1", enciphered.str());
    record.is_encrypted = true;
    apply_quietly({record});
    EXPECT_EQ(read(file, "1"), "the data");
}

TEST_F(Apply, AnEncipheredWriteThatWasChangedIsReportedAndNotWritten) {
    const std::string file = make_file("ORDERS");
    BuiltRecord record = write_record(file, "1", "no cipher text at all");
    record.is_encrypted = true;
    apply(record);
    EXPECT_EQ(reported(), "ERROR:Error number 74 writing to file '" + file + "'");
    EXPECT_EQ(read(file, "1"), "(none)");
}

TEST_F(Apply, AWriteWithoutAFileNameIsReported) {
    apply(write_record("", "1", "x"));
    EXPECT_EQ(reported(), "ERROR:Error File Path empty for WRITE Record");
}

TEST_F(Apply, ADeleteWithoutAFileNameIsReported) {
    apply(delete_record("", "1"));
    EXPECT_EQ(reported(), "ERROR:Error File Path empty for DELETE Record");
}

TEST_F(Apply, AnUpdateOfAMissingFileIsReportedAsAFailedOpen) {
    apply(write_record(path("NOWHERE"), "1", "x"));
    EXPECT_EQ(reported(), "ERROR:Unable to open file '" + path("NOWHERE") + "' , error value 2");
    EXPECT_EQ(context.slot->outputErrors, 1u);
    EXPECT_EQ(context.slot->inputErrors, 0u);
}

TEST_F(Apply, AWriteThatTheFileRefusesIsReportedAndReplayGoesOn) {
    const std::string file = make_file("ORDERS");
    apply(write_record(file, std::string(70000, 'k'), "x"));
    EXPECT_EQ(reported(), "ERROR:Error number 22 writing to file '" + file + "'");
    apply_quietly({write_record(file, "1", "x")});
    EXPECT_EQ(read(file, "1"), "x");
}

TEST_F(Apply, UpdatesOfAReadOnlyFileAreReported) {
    const std::string file = make_file("ORDERS");
    put(file, "2", "stays");
    chmod(file.c_str(), 0444);
    const WithoutPrivileges without(system_.path());
    apply(write_record(file, "1", "x"));
    EXPECT_EQ(reported(), "ERROR:Error number 13 writing to file '" + file + "'");
    apply(delete_record(file, "2"));
    EXPECT_EQ(reported(), "ERROR:Error number 13 deleting record from file '" + file + "'");
    apply(record_of(ClearFileType, "", file));
    EXPECT_EQ(reported(), "ERROR:Error number 13 performing CLEARFILE on file '" + file + "'");
}

TEST_F(Apply, FlagsLoseBitFiveAndGainBitZeroAndTheValueIsHandedOn) {
    const std::string file = make_file("ORDERS");
    const auto decoded_of = [&](const BuiltRecord &record) {
        const std::string bytes = bytes_of(record);
        Replay replay{dp, context, {}, {}, {}, nullptr};
        EXPECT_TRUE(take_apart(reinterpret_cast<const unsigned char *>(bytes.data()), replay.record));
        DecodedUpdate decoded;
        decode_update(replay, decoded);
        return std::pair(decoded.update.flags, decoded.update.value);
    };
    EXPECT_EQ(decoded_of(write_record(file, "1", "x", 0x01020320, 77)), std::pair(0x01020301u, 77u));
    EXPECT_EQ(decoded_of(write_record(file, "1", "x", 0x1F)), std::pair(0x1Fu, 0u));
    EXPECT_EQ(decoded_of(delete_record(file, "1", 0x7FFFFFFE)), std::pair(0x7FFFFFDFu, 0u));
}

// --- whole files ---

TEST_F(Apply, AClearFileRemovesEveryRecord) {
    const std::string file = make_file("ORDERS");
    put(file, "1", "x");
    put(file, "2", "y");
    apply_quietly({record_of(ClearFileType, "", file)});
    EXPECT_EQ(read(file, "1"), "(none)");
    EXPECT_EQ(read(file, "2"), "(none)");
}

TEST_F(Apply, AClearFileWithoutAFileIsReported) {
    apply(record_of(ClearFileType));
    EXPECT_EQ(reported(), "ERROR:Assertion failed: fd != NULL");
}

TEST_F(Apply, ADeleteFileRemovesTheFile) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "1", "x"), record_of(DeleteFileType, "", file)});
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(Apply, ADeleteFileOfADictionaryLeavesTheData) {
    const std::string file = make_file("ORDERS");
    const std::string dictionary = make_file("ORDERS]D");
    apply_quietly({record_of(DeleteFileType, "", dictionary)});
    EXPECT_FALSE(std::filesystem::exists(dictionary));
    EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(Apply, AFailedDeleteFileShowsTheDriversText) {
    std::filesystem::create_directory(path("fixed"));
    const std::string file = make_file("fixed/ORDERS");
    chmod(path("fixed").c_str(), 0555);
    const WithoutPrivileges without(system_.path());
    apply(record_of(DeleteFileType, "", file));
    EXPECT_TRUE(std::regex_match(reported(), std::regex("ERROR:DELETE-FILE of file '.*/ORDERS' failed, error number "
                                                        "13Error code '.+;")))
        << reported();
}

TEST_F(Apply, ACreateFileMakesAFileOfItsType) {
    apply_quietly({create_file_record(path("NEW"), "UD", "", {})});
    EXPECT_TRUE(std::filesystem::is_directory(path("NEW")));
    apply_quietly({create_file_record(path("HASHED"), "HL", "", {"1,1"})});
    EXPECT_TRUE(std::filesystem::is_regular_file(path("HASHED")));
    EXPECT_EQ(read(path("HASHED"), "x"), "(none)");
}

TEST_F(Apply, ACreateFileHandsOverItsArgumentsAndItsText) {
    apply_quietly({create_file_record(path("NEW"), "HL", "LOG=NO", {"DURABILITY=LAZY"})});
    const VAR name(path("NEW"));
    File file;
    ASSERT_TRUE(file.open(name));
    EXPECT_EQ(file.status()(VELDA_STATUS_DURABILITY).str(), "lazy");
    EXPECT_EQ(file.status()(VELDA_STATUS_LOGGED).str(), "0");
}

TEST_F(Apply, TheTypeOfACreateFileGoesBeforeOneOfItsArguments) {
    apply_quietly({create_file_record(path("NEW"), "HL", "", {"TYPE=UD"})});
    EXPECT_TRUE(std::filesystem::is_regular_file(path("NEW")));
}

TEST_F(Apply, ACreateFileSetsTheOperationsInTheEnvironment) {
    BuiltRecord record = create_file_record(path("NEW"), "HL", "", {});
    const auto field = [](const std::string &text) { return int32(static_cast<std::int64_t>(text.size())) + text; };
    record.payload = field("HL") + field("") + field(int32(0)) + field("before") + field("after") + field("made") +
                     int32(0) + int32(1) + int32(2);
    apply_quietly({record});
    EXPECT_STREQ(VELDAgetenv(dp, "VEDI_PREFILEOP"), "before");
    EXPECT_STREQ(VELDAgetenv(dp, "VEDI_POSTFILEOP"), "after");
    EXPECT_STREQ(VELDAgetenv(dp, "VEDI_CREATEFILE"), "made");
}

TEST_F(Apply, ACreateFileThatSucceedsIsInTheSystemsLog) {
    apply_quietly({create_file_record(path("NEW"), "HL", "", {})});
    EXPECT_NE(content(path("log/system.log")).find("Dup: CreateFile, chown"), std::string::npos);
}

TEST_F(Apply, ACreateFileOfAnExistingFileShowsTheDriversText) {
    const std::string file = make_file("ORDERS");
    apply(create_file_record(file, "HL", "", {}));
    EXPECT_TRUE(reported().starts_with("ERROR:CREATE-FILE of '" + file + "' failed, error number 17Error code '"))
        << reported();
}

TEST_F(Apply, AMoveFileMovesADatabaseFile) {
    const std::string file = make_file("OLD");
    apply_quietly({write_record(file, "1", "x"), move_record(file, path("NEW"))});
    EXPECT_EQ(read(path("NEW"), "1"), "x");
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(Apply, AMoveFileReplacesWhatStandsAtTheTarget) {
    const std::string file = make_file("OLD"), target = make_file("NEW");
    put(file, "1", "from old");
    put(target, "2", "goes");
    apply_quietly({move_record(file, target)});
    EXPECT_EQ(read(target, "1"), "from old");
    EXPECT_EQ(read(target, "2"), "(none)");
}

TEST_F(Apply, AMoveFileMovesAPlainFile) {
    std::ofstream(path("plain")) << "text";
    apply_quietly({move_record(path("plain"), path("moved"))});
    EXPECT_EQ(content(path("moved")), "text");
    EXPECT_FALSE(std::filesystem::exists(path("plain")));
}

TEST_F(Apply, AFailedMoveFileIsReported) {
    apply(move_record(path("none"), path("moved")));
    EXPECT_EQ(reported(),
              "ERROR:MOVEFILE of file '" + path("none") + "' to '" + path("moved") + "' failed, error number 2");
}

TEST_F(Apply, UpdatesAfterAMoveGoToTheFileOfTheirName) {
    const std::string old = path("OLD"), moved = path("NEW");
    make_file("OLD");
    apply_quietly({write_record(old, "1", "first"), move_record(old, moved), create_file_record(old, "HL", "", {}),
                   write_record(old, "1", "second"), write_record(moved, "2", "third")});
    EXPECT_EQ(read(moved, "1"), "first");
    EXPECT_EQ(read(moved, "2"), "third");
    EXPECT_EQ(read(old, "1"), "second");
}

TEST_F(Apply, ARemoveFileRemovesAPlainOrADatabaseFile) {
    std::ofstream(path("plain")) << "text";
    const std::string file = make_file("ORDERS");
    apply_quietly({text_record(RemoveFileType, path("plain")), text_record(RemoveFileType, file)});
    EXPECT_FALSE(std::filesystem::exists(path("plain")));
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(Apply, AFailedRemoveFileIsReported) {
    apply(text_record(RemoveFileType, path("none")));
    EXPECT_EQ(reported(), "ERROR:REMOVEFILE of file '" + path("none") + "' failed, error number 2");
}

// --- modes, directories, flat files ---

TEST_F(Apply, AModeRecordChangesTheFilesSettings) {
    const std::string file = make_file("ORDERS");
    apply_quietly({text_record(ChmodType, "-L", file)});
    File opened;
    ASSERT_TRUE(opened.open(file));
    EXPECT_EQ(opened.status()(VELDA_STATUS_LOGGED).str(), "0");
}

TEST_F(Apply, AModeRecordWithoutAFileIsReported) {
    apply(text_record(ChmodType, "-L"));
    EXPECT_EQ(reported(), "ERROR:Error File Path empty for VCHMOD Record");
}

TEST_F(Apply, AFailedModeRecordIsReported) {
    const std::string file = make_file("ORDERS");
    apply(text_record(ChmodType, "NONSENSE", file));
    EXPECT_EQ(reported(), "ERROR:VCHMOD of file '" + file + "' failed, error number 22");
}

TEST_F(Apply, AMakeDirectoryRecordMakesTheDirectoryWithItsMode) {
    apply_quietly({mkdir_record(path("made"), 0, 0, 0750)});
    struct stat status {};
    ASSERT_EQ(stat(path("made").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0750u);
}

TEST_F(Apply, AFailedMakeDirectoryIsReported) {
    apply(mkdir_record(path("none/made")));
    EXPECT_EQ(reported(), "ERROR:MKDIR of file '" + path("none/made") + "' failed, error number -2");
}

TEST_F(Apply, AFlatFileIsWrittenWithItsMode) {
    std::ofstream(path("flat")) << "a longer text that was there before";
    apply_quietly({flat_file_record(path("flat"), "new text"), flat_file_record(path("other"), "x", 0, 0, 0600)});
    EXPECT_EQ(content(path("flat")), "new text");
    struct stat status {};
    ASSERT_EQ(stat(path("other").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(Apply, AFlatFileThatCannotBeMadeIsReportedWithErrorMinusOne) {
    apply(flat_file_record(path("none/flat"), "x"));
    EXPECT_EQ(reported(), "ERROR:FLATFILE: Cannot create  file '" + path("none/flat") + "' failed, error number -1");
}

TEST_F(Apply, AFlatFileThatFindsNoRoomIsReportedWithErrorMinusOne) {
    std::filesystem::create_symlink("/dev/full", path("full"));
    apply(flat_file_record(path("full"), "x"));
    EXPECT_EQ(reported(), "ERROR:FLATFILE: Error writing to file '" + path("full") + "' failed, error number -1");
}

// An empty second path would be taken for an order to remove the first.
TEST_F(Apply, AnEmptyPathIsReportedAndNothingIsTouched) {
    const std::string file = make_file("ORDERS");
    for (const BuiltRecord &record :
         {move_record(file, ""), move_record("", file), text_record(RemoveFileType, ""), mkdir_record(""),
          flat_file_record("", "x"), move_record(file, std::string("\0/x", 3))}) {
        apply(record);
        EXPECT_EQ(reported(), "ERROR:The name '' is empty and is refused") << record.type;
    }
    EXPECT_EQ(read(file, "1"), "(none)");
}

TEST_F(Apply, WholeFileRecordsWithoutAFileNameFailAndTouchNothing) {
    make_file("ORDERS");
    apply(record_of(DeleteFileType));
    EXPECT_TRUE(reported().starts_with("ERROR:DELETE-FILE of file '' failed, error number ")) << reported();
    apply(create_file_record("", "HL", "", {}));
    EXPECT_TRUE(reported().starts_with("ERROR:CREATE-FILE of '' failed, error number ")) << reported();
}

TEST_F(Apply, AMoveWhosePathsHaveOneNameHereLeavesTheFileAlone) {
    const std::string file = make_file("ORDERS");
    put(file, "1", "x");
    out_.renames = {{"/one", system_.path()}, {"/two", system_.path()}};
    apply_quietly({move_record("/one/ORDERS", "/two/ORDERS")});
    EXPECT_EQ(read(file, "1"), "x");
}

// --- what is not applied ---

TEST_F(Apply, IndexAndTriggerRecordsAreWarnedOfAndNoErrors) {
    const std::string file = make_file("ORDERS");
    const struct {
        int type;
        const char *word;
    } cases[] = {{CreateIndexType, "CREATE-INDEX"},
                 {DeleteIndexType, "DELETE-INDEX"},
                 {RebuildIndexType, "DELETE-INDEX"},
                 {CreateTriggerType, "CREATE-TRIGGER"},
                 {DeleteTriggerType, "DELETE-TRIGGER"}};
    for (const auto &[type, word] : cases) {
        apply(text_record(type, "x^NAME BY %s AGAIN", file));
        EXPECT_EQ(reported(), std::string("WARNING:{") + word + " NAME BY " + file +
                                  " AGAIN} is not currently supported by vlogdup.");
        apply(text_record(type, "x^NAME %s"));
        EXPECT_EQ(reported(),
                  std::string("WARNING:The ") + word + " transaction is not currently supported by vlogdup.");
    }
    EXPECT_EQ(context.errorCount, 0u);
    EXPECT_EQ(context.slot->outputErrors, 0u);
}

TEST_F(Apply, AnIndexTextFromOutsideIsNoFormat) {
    const std::string file = make_file("ORDERS");
    apply(text_record(CreateIndexType, "x^%n %s %s %d", file));
    EXPECT_EQ(reported(), "WARNING:{CREATE-INDEX %n " + file + " %s %d} is not currently supported by vlogdup.");
}

TEST_F(Apply, AnUnknownTypeIsAnError) {
    for (const int type : {0, 16, 17, 24, 255}) {
        apply(record_of(type));
        EXPECT_EQ(reported(), "ERROR:The record has an illegal type in the header of value " + std::to_string(type));
    }
    EXPECT_EQ(context.errorCount, 5u);
}

TEST_F(Apply, EndFlushAndCheckpointRecordsChangeNothing) {
    apply_quietly({record_of(EofType), record_of(FlushType), checkpoint_record(1, "a")});
    EXPECT_EQ(context.errorCount, 0u);
}

// --- counting ---

TEST_F(Apply, EveryAppliedRecordIsCountedWithItsSize) {
    const std::string file = make_file("ORDERS");
    std::size_t bytes = 0;
    for (const BuiltRecord &record : {write_record(file, "1", "x"), delete_record(file, "1"),
                                      record_of(ClearFileType, "", file), record_of(EofType), record_of(99)}) {
        const std::string made = bytes_of(record);
        bytes += made.size();
        apply_bytes(made);
    }
    EXPECT_EQ(context.slot->outputRecords, 5u);
    EXPECT_EQ(context.slot->outputBytes, bytes);
}

TEST_F(Apply, ARecordWhoseFileCannotBeOpenedIsNotCounted) {
    apply(write_record(path("NOWHERE"), "1", "x"));
    EXPECT_EQ(context.slot->outputRecords, 0u);
}

TEST_F(Apply, TheStatusTextIsTheWordOfTheOperation) {
    const std::string file = make_file("ORDERS");
    const auto status_after = [&](const BuiltRecord &record) {
        set_status_text(dp, "READING");
        apply(record);
        return std::string(context.slot->statusText);
    };
    EXPECT_EQ(status_after(write_record(file, "1", "x")), "READING");  // an update leaves it alone
    EXPECT_EQ(status_after(checkpoint_record(1, "")), "WRITING");
    EXPECT_EQ(status_after(record_of(ClearFileType, "", file)), "CLEAR-FILE");
    EXPECT_EQ(status_after(create_file_record(path("NEW"), "HL", "", {})), "CREATE-FILE");
    EXPECT_EQ(status_after(move_record(path("NEW"), path("MOVED"))), "MOVEFILE");
    EXPECT_EQ(status_after(text_record(RemoveFileType, path("MOVED"))), "REMOVEFILE");
    EXPECT_EQ(status_after(record_of(DeleteFileType, "", file)), "DELETE-FILE");
}

// --- records that lie ---

TEST_F(Apply, APayloadShorterThanItsLengthsSayIsReportedAndNothingIsRead) {
    const std::string file = make_file("ORDERS");
    for (const int type :
         {WriteType, DeleteType, CreateFileType, MoveFileType, RemoveFileType, ChmodType, MkdirType, FlatFileType}) {
        apply(record_of(type, type == DeleteType ? "" : int32(0x7FFFFFF0) + int32(-1), file, "k"));
        EXPECT_EQ(reported(), "ERROR:The record of type " + std::to_string(type) +
                                  " is damaged: a length in it points beyond its end");
    }
    EXPECT_EQ(read(file, "k"), "(none)");
}

TEST_F(Apply, AStringsAreaLargerThanItsRecordIsReported) {
    const std::string file = make_file("ORDERS");
    BuiltRecord record = write_record(file, "1", "x");
    for (const std::int64_t lie : {std::int64_t{1} << 20, std::int64_t{0xFFFFFFFF}}) {
        record.told_strings_size = lie;
        apply(record);
        EXPECT_EQ(reported(), "ERROR:The record of type 2 is damaged: a length in it points beyond its end");
    }
    record.told_strings_size = -1;
    record.told_record_size = 50;
    apply(record);
    EXPECT_EQ(reported(), "ERROR:The record of type 2 is damaged: a length in it points beyond its end");
}

}  // namespace
