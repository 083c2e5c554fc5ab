// The entries of the driver layer.
#include "runtime/store/vedi.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <fstream>

#include "runtime/memory/memory.h"
#include "runtime/process/context.h"
#include "runtime/process/process.h"
#include "runtime/store/control_block.h"
#include "tests/runtime/store/fixture.h"

namespace velda::store::test {
using namespace std::string_literals;

namespace {

class Vedi : public testing::Test {
  protected:
    void SetUp() override {
        before = std::filesystem::current_path();
        std::filesystem::current_path(scratch.path());
    }
    void TearDown() override { std::filesystem::current_path(before); }

    // A block full of bytes of no meaning, as malloc gives it, opened.
    VediControlBlock &open(const char *name) {
        std::memset(static_cast<void *>(&block), 0xA5, sizeof block);
        EXPECT_EQ(VediOpen(dp, &block, name, 0, 0), 0) << VediErrorText(dp);
        return block;
    }
    int create(const char *name, std::vector<const char *> words = {}) {
        words.push_back("");
        return VediCreateFileRaw(dp, name, "", error_text, 0, words.data(), -1);
    }
    int write(VediControlBlock &file, const std::string &key, const std::string &record, uint32_t flags = 0) {
        return VediWriteRecord(dp, &file, flags, key.data(), key.size(), record.data(), record.size(), 0);
    }
    std::string read(VediControlBlock &file, const std::string &key, uint32_t flags = 0) {
        char *buffer = nullptr;
        uint32_t buffer_size = 0, size = 0;
        const int rc = VediReadRecord(dp, &file, flags, key.data(), key.size(), &buffer, &buffer_size, &size);
        const std::string record = rc ? "(" + std::to_string(rc) + ")" : std::string(buffer, size);
        VELDAfree(dp, buffer, "test", 0);
        return record;
    }
    int remove(VediControlBlock &file, const std::string &key) {
        return VediDeleteRecord(dp, &file, 0, key.data(), key.size());
    }

    ScratchDirectory scratch;
    std::filesystem::path before;
    DP *const dp = velda_getdp();
    VediControlBlock block;
    char error_text[VEDI_ERROR_TEXT_BYTES] = "unset";
};

TEST_F(Vedi, a_control_block_is_312_bytes) { EXPECT_EQ(sizeof(VediControlBlock), 312U); }

TEST_F(Vedi, a_record_is_written_read_and_deleted) {
    ASSERT_EQ(create("F"), 0);
    EXPECT_STREQ(error_text, "");
    auto &file = open("F");
    EXPECT_EQ(write(file, "K", marks("a^b")), 0);
    EXPECT_EQ(read(file, "K"), marks("a^b"));
    EXPECT_EQ(remove(file, "K"), 0);
    EXPECT_EQ(remove(file, "K"), 2);
    EXPECT_EQ(read(file, "K"), "(2001)");
    EXPECT_EQ(VediClose(dp, &file, 0), 0);
}

VELDAUpdate update(const std::string &key, const std::string *data) {
    return {key.data(), static_cast<uint32_t>(key.size()), data ? static_cast<uint32_t>(data->size()) : 0,
            data ? data->data() : nullptr};
}

TEST_F(Vedi, a_batch_of_changes_is_made_in_order) {
    ASSERT_EQ(create("F"), 0);
    open("F");
    write(block, "2", "old");
    const std::string a = "a", b = "b", none, one = "1", two = "2", three = "3";
    const VELDAUpdate updates[] = {update(one, &a), update(one, &b), update(two, nullptr), update(three, &none)};
    EXPECT_EQ(velda_apply_updates(dp, &block, 0, updates, 4), 0);
    EXPECT_EQ(read(block, "1"), "b");
    EXPECT_EQ(read(block, "2"), "(2001)");
    EXPECT_EQ(read(block, "3"), "");
    VediClose(dp, &block, 0);
}

TEST_F(Vedi, a_batch_with_an_impossible_change_makes_none) {
    ASSERT_EQ(create("F"), 0);
    open("F");
    const std::string a = "a", one = "1", long_key(70000, 'k');
    const VELDAUpdate updates[] = {update(one, &a), update(long_key, &a)};
    EXPECT_EQ(velda_apply_updates(dp, &block, 0, updates, 2), EINVAL);
    EXPECT_EQ(read(block, "1"), "(2001)");
    VediClose(dp, &block, 0);
}

TEST_F(Vedi, hashed_files_make_a_batch_as_a_whole_and_directories_do_not) {
    ASSERT_EQ(create("F"), 0);
    ASSERT_EQ(create("D", {"TYPE=UD"}), 0);
    EXPECT_EQ(velda_applies_whole(&open("F")), 1);
    VediClose(dp, &block, 0);
    EXPECT_EQ(velda_applies_whole(&block), 0);
    EXPECT_EQ(velda_applies_whole(&open("D")), 0);
    VediClose(dp, &block, 0);
}

TEST_F(Vedi, a_path_is_moved_or_removed_whatever_it_names) {
    ASSERT_EQ(create("F"), 0);
    write(open("F"), "1", "x");
    VediClose(dp, &block, 0);
    std::ofstream("plain") << "text";
    EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "F", "G", 0), 0);
    EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "plain", "moved", 0), 0);
    EXPECT_EQ(read(open("G"), "1"), "x");
    VediClose(dp, &block, 0);
    EXPECT_TRUE(std::filesystem::exists("moved"));
    EXPECT_FALSE(std::filesystem::exists("F") || std::filesystem::exists("plain"));
    EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "G", "", 0), 0);
    EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "moved", nullptr, 0), 0);
    EXPECT_FALSE(std::filesystem::exists("G") || std::filesystem::exists("G-lock") || std::filesystem::exists("moved"));
}

TEST_F(Vedi, a_move_replaces_what_stands_at_its_target_but_no_other_kind) {
    ASSERT_EQ(create("F"), 0);
    ASSERT_EQ(create("G"), 0);
    ASSERT_EQ(create("D", {"TYPE=UD"}), 0);
    std::ofstream("plain") << "text";
    write(open("F"), "1", "x");
    VediClose(dp, &block, 0);
    EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "F", "G", 0), 0);
    EXPECT_EQ(read(open("G"), "1"), "x");
    VediClose(dp, &block, 0);
    EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "plain", "D", 0), EISDIR);
    EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "D", "plain", 0), ENOTDIR);
    EXPECT_TRUE(std::filesystem::exists("plain") && std::filesystem::exists("D"));
    EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "none", "x", 0), ENOENT);
    EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "none", "", 0), ENOENT);
}

TEST_F(Vedi, a_move_onto_itself_changes_nothing_whatever_the_path_is_written_like) {
    ASSERT_EQ(create("F"), 0);
    write(open("F"), "1", "x");
    VediClose(dp, &block, 0);
    std::ofstream("plain") << "text";
    for (const auto *const same : {"F", "./F"}) EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "F", same, 0), 0);
    EXPECT_EQ(VELDAMoveOrDeleteFile(dp, "plain", ".//plain", 0), 0);
    EXPECT_EQ(read(open("F"), "1"), "x");
    VediClose(dp, &block, 0);
    EXPECT_EQ(std::filesystem::file_size("plain"), 4u);
}

TEST_F(Vedi, open_takes_the_names_of_sections) {
    ASSERT_EQ(create("DICT F"), 0);
    ASSERT_EQ(create("F,OLD"), 0);
    EXPECT_TRUE(std::filesystem::exists("F]D"));
    EXPECT_TRUE(std::filesystem::exists("F]OLD"));
    for (const auto *name : {"DICT F", "F]D", "F,OLD", "F]OLD"}) {
        auto &file = open(name);
        EXPECT_EQ(content_of(file).name, name);
        VediClose(dp, &file, 0);
    }
}

TEST_F(Vedi, a_failed_open_tells_why) {
    EXPECT_EQ(VediOpen(dp, &block, "NONE", 0, 0), 2);
    EXPECT_EQ(errno, 2);
    EXPECT_EQ(dp->last_error, 2);
    EXPECT_EQ(VediErrorText(dp), "cannot open file 'NONE': No such file or directory"s);
    EXPECT_EQ(VediOpen(dp, &block, "", 0, 0), 22);
}

TEST_F(Vedi, a_block_that_is_not_open_is_refused) {
    std::memset(static_cast<void *>(&block), 0, sizeof block);
    EXPECT_EQ(VediClose(dp, &block, 0), 22);
    EXPECT_EQ(write(block, "K", "r"), 22);
    EXPECT_EQ(read(block, "K"), "(22)");
    EXPECT_EQ(VediClearFile(dp, &block), 22);
    EXPECT_EQ(VediErrorText(dp), "the file is not open"s);
    EXPECT_EQ(VediClose(dp, nullptr, 0), 22);
}

TEST_F(Vedi, a_read_keeps_a_buffer_that_is_large_enough_and_replaces_one_that_is_not) {
    ASSERT_EQ(create("F"), 0);
    auto &file = open("F");
    write(file, "small", "r");
    write(file, "large", std::string(1000, 'r'));
    uint32_t buffer_size = 16, size = 0;
    char *buffer = static_cast<char *>(VELDAmalloc(dp, buffer_size, "test", 0));
    char *const first = buffer;
    EXPECT_EQ(VediReadRecord(dp, &file, 0, "small", 5, &buffer, &buffer_size, &size), 0);
    EXPECT_EQ(buffer, first);
    EXPECT_EQ(buffer_size, 16U);
    EXPECT_STREQ(buffer, "r");
    EXPECT_EQ(VediReadRecord(dp, &file, 0, "none", 4, &buffer, &buffer_size, &size), VEDI_NO_RECORD);
    EXPECT_STREQ(buffer, "r");
    EXPECT_EQ(VediReadRecord(dp, &file, 0, "large", 5, &buffer, &buffer_size, &size), 0);
    EXPECT_EQ(size, 1000U);
    EXPECT_GE(buffer_size, 1001U);
    EXPECT_EQ(buffer[1000], '\0');
    VELDAfree(dp, buffer, "test", 0);
    VediClose(dp, &file, 0);
}

TEST_F(Vedi, a_selection_gives_every_key_once) {
    ASSERT_EQ(create("F"), 0);
    auto &file = open("F");
    for (const auto *key : {"a", "b", "c"}) write(file, key, "r");
    VediSelection *selection;
    ASSERT_EQ(VediSelect(dp, &file, &selection), 0);
    const char *key;
    uint32_t length;
    std::string seen;
    while (VediReadnext(dp, &file, selection, &key, &length) == 0) seen.append(key, length);
    EXPECT_EQ(seen, "abc");
    EXPECT_EQ(VediReadnext(dp, &file, selection, &key, &length), VEDI_NO_RECORD);
    EXPECT_EQ(VediSelectEnd(dp, &file, selection), 0);
    VediClose(dp, &file, 0);
}

TEST_F(Vedi, a_scan_hands_out_keys_and_records) {
    ASSERT_EQ(create("F"), 0);
    auto &file = open("F");
    write(file, "a", "one");
    write(file, "b", "two");
    for (const bool keys_only : {false, true}) {
        VediScan *scan;
        ASSERT_EQ(VediScanfileInit(dp, &file, keys_only ? VEDI_SCAN_KEYS_ONLY : 0, 0, &scan), 0);
        const char *key, *record;
        uint32_t key_length, record_length;
        std::string seen;
        while (VediScanfileRead(dp, scan, &key, &key_length, &record, &record_length) == 0) {
            seen.append(key, key_length).append("=");
            if (record) seen.append(record, record_length);
        }
        EXPECT_EQ(seen, keys_only ? "a=b=" : "a=oneb=two");
        EXPECT_EQ(VediScanfileEnd(dp, scan), 0);
    }
    VediClose(dp, &file, 0);
}

TEST_F(Vedi, control_records_are_kept_by_number) {
    ASSERT_EQ(create("F"), 0);
    auto &file = open("F");
    EXPECT_EQ(VediControlWrite(dp, &file, 3, "block", 5), 0);
    char *bytes = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(VediControlRead(dp, &file, 3, &bytes, &size), 0);
    EXPECT_EQ(std::string(bytes, size), "block");
    VELDAfree(dp, bytes, "test", 0);
    EXPECT_EQ(VediControlDelete(dp, &file, 3), 0);
    EXPECT_EQ(VediControlDelete(dp, &file, 3), 2);
    EXPECT_EQ(VediControlRead(dp, &file, 3, &bytes, &size), 2);
    VediClose(dp, &file, 0);
}

TEST_F(Vedi, command_21_changes_the_options) {
    ASSERT_EQ(create("D", {"TYPE=UD"}), 0);
    auto &file = open("D");
    EXPECT_EQ(file.flags & VEDI_FILE_NOT_JOURNALLED, 0U);
    const std::string words = marks("-L^-T");
    char reply[16];
    EXPECT_EQ(VediIOCTL(dp, &file, 21, words.data(), words.size(), reply, sizeof reply), 0);
    EXPECT_EQ(shown(reply), "-L^-T");
    EXPECT_NE(file.flags & VEDI_FILE_NOT_JOURNALLED, 0U);
    VediClose(dp, &file, 0);
    EXPECT_NE(open("D").flags & VEDI_FILE_NOT_JOURNALLED, 0U);
    EXPECT_FALSE(content_of(block).file->settings()->journalled);
    EXPECT_EQ(VediIOCTL(dp, &block, 21, "+L", 2, reply, 2), 0);
    EXPECT_STREQ(reply, "-");
    EXPECT_EQ(block.flags & VEDI_FILE_NOT_JOURNALLED, 0U);
    EXPECT_EQ(VediIOCTL(dp, &block, 21, "-X", 2, nullptr, 0), 22);
    EXPECT_EQ(VediIOCTL(dp, &block, 21, "TYPE=HL", 7, nullptr, 0), 22);
    EXPECT_EQ(VediIOCTL(dp, &block, 99, nullptr, 0, nullptr, 0), 22);
    EXPECT_EQ(VediErrorText(dp), "there is no driver command 99"s);
    VediClose(dp, &block, 0);
}

TEST_F(Vedi, a_plain_directory_becomes_a_file_by_command_21) {
    std::filesystem::create_directory("D");
    auto &file = open("D");
    EXPECT_EQ(VediIOCTL(dp, &file, 21, "-T", 2, nullptr, 0), 0);
    VediClose(dp, &file, 0);
    EXPECT_EQ(open("D").flags & VEDI_FILE_NOT_JOURNALLED, 0U);
    EXPECT_EQ(content_of(block).file->settings()->options, std::vector<std::string>{"-T"});
    VediClose(dp, &block, 0);
}

TEST_F(Vedi, create_takes_the_words_of_CREATE_FILE) {
    EXPECT_EQ(create("U", {"TYPE=UD", "1,1", "23,1", "PERMS=0700"}), 0);
    EXPECT_EQ(content_of(open("U")).file->type(), "UD");
    EXPECT_EQ(content_of(block).file->settings()->permissions, 0700);
    VediClose(dp, &block, 0);
    EXPECT_EQ(VediCreateFileRaw(dp, "L", "LOG=NO DURABILITY=LAZY", error_text, 0, nullptr, -1), 0);
    EXPECT_EQ(content_of(open("L")).file->settings()->durability, Durability::Lazy);
    EXPECT_NE(block.flags & VEDI_FILE_NOT_JOURNALLED, 0U);
    VediClose(dp, &block, 0);
    EXPECT_EQ(create("X", {"TYPE=NONE"}), 22);
    EXPECT_STREQ(error_text, "TYPE wants UD (directory) or HL (hashed), not 'NONE'");
    EXPECT_EQ(create("U"), 17);
}

TEST_F(Vedi, whole_files_are_copied_moved_and_deleted) {
    ASSERT_EQ(create("DICT F"), 0);
    write(open("DICT F"), "K", "r");
    VediClose(dp, &block, 0);
    EXPECT_EQ(VediFileOp(dp, VEDI_FILE_COPY, 4, "DICT F", "G", error_text), 0);
    EXPECT_EQ(VediFileOp(dp, VEDI_FILE_MOVE, 4, "G", "H", error_text), 0);
    EXPECT_EQ(read(open("H"), "K"), "r");
    VediClose(dp, &block, 0);
    EXPECT_EQ(VediFileOp(dp, VEDI_FILE_DELETE, 4, "DICT F]D", "", error_text), 0);
    EXPECT_FALSE(std::filesystem::exists("F]D"));
    EXPECT_EQ(VediFileOp(dp, VEDI_FILE_DELETE, 4, "DATA F", "", error_text), 2);
    EXPECT_NE(std::string(error_text).find("/F': No such file or directory"), std::string::npos);
    EXPECT_EQ(VediFileOp(dp, 9, 4, "H", "I", error_text), 22);
    EXPECT_EQ(VediFileOp(dp, VEDI_FILE_DELETE, 3, "H", "", error_text), 22);
}

TEST_F(Vedi, the_files_of_the_account_are_its_data_sections) {
    for (const auto *name : {"B", "DICT B", "A", "A,OLD"}) ASSERT_EQ(create(name), 0);
    ASSERT_EQ(create("C", {"TYPE=UD"}), 0);
    std::ofstream("text") << "no database file";
    std::string names;
    const auto note = [](DP *, void *context, VediControlBlock *file, const char *name) {
        EXPECT_TRUE(is_open(file));
        static_cast<std::string *>(context)->append(name).append(" ");
        return name[0] == 'X' ? 5 : 0;
    };
    EXPECT_EQ(VediGetAllFiles(dp, note, &names, VEDI_FILES_OF_ACCOUNT, 0), 0);
    EXPECT_EQ(names, "A B C ");
    names.clear();
    open("DICT B");
    EXPECT_EQ(VediGetAllFiles(dp, note, &names, VEDI_FILES_OPEN, 0), 0);
    EXPECT_EQ(names, scratch / "B]D" + " ");
    VediClose(dp, &block, 0);
    ASSERT_EQ(create("X"), 0);
    EXPECT_EQ(VediGetAllFiles(dp, note, &names, VEDI_FILES_OF_ACCOUNT, 0), 5);
    EXPECT_EQ(VediGetAllFiles(dp, note, &names, 7, 0), 22);
}

TEST_F(Vedi, the_hash_by_kind) {
    EXPECT_EQ(VediBaseHashUINT("Key", 3, VEDI_HASH_TEXT), VediBaseHashUINT("Key", 3, VEDI_HASH_TEXT));
    EXPECT_NE(VediBaseHashUINT("Key", 3, VEDI_HASH_TEXT), VediBaseHashUINT("KEY", 3, VEDI_HASH_TEXT));
    EXPECT_EQ(VediBaseHashUINT("Key", 3, VEDI_HASH_CASE_BLIND), VediBaseHashUINT("KEY", 3, VEDI_HASH_CASE_BLIND));
    EXPECT_NE(VediBaseHashUINT("Key", 3, VEDI_HASH_CASE_BLIND), VediBaseHashUINT("Kez", 3, VEDI_HASH_CASE_BLIND));
    std::set<uint32_t> buckets;
    for (int i = 0; i < 500; ++i) {
        const std::string text = "FILE" + std::to_string(i);
        buckets.insert(VediBaseHashUINT(text.data(), text.size(), VEDI_HASH_TEXT) % 97);
    }
    EXPECT_GT(buckets.size(), 90U);
}

TEST_F(Vedi, the_case_blind_compare) {
    EXPECT_EQ(VediBaseUmemcmp("aBc1", "AbC1", 4), 0);
    EXPECT_LT(VediBaseUmemcmp("a", "B", 1), 0);
    EXPECT_GT(VediBaseUmemcmp("c", "B", 1), 0);
    EXPECT_EQ(VediBaseUmemcmp("ax", "ay", 1), 0);
    EXPECT_NE(VediBaseUmemcmp("[", "{", 1), 0);
}

TEST_F(Vedi, a_plain_file_is_read_into_new_memory) {
    std::ofstream("text") << "some text";
    uint64_t size = 0;
    char *bytes = VediBaseReadMalloc(dp, "text", &size);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(size, 9U);
    EXPECT_STREQ(bytes, "some text");
    VELDAfree(dp, bytes, "test", 0);
    EXPECT_EQ(VediBaseReadMalloc(dp, "none", &size), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(VediBaseReadMalloc(dp, ".", &size), nullptr);
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(Vedi, the_disk_of_a_path) {
    uint64_t total = 0, free = 0;
    EXPECT_EQ(VediBaseCheckFileSizePath(dp, ".", &total, &free), 0);
    EXPECT_GT(total, 0U);
    EXPECT_LE(free, total);
    EXPECT_EQ(VediBaseCheckFileSizePath(dp, "none", &total, &free), 2);
}

TEST_F(Vedi, plain_files_as_POSIX_has_them) {
    const int file = VediWin32open("text", O_RDWR | O_CREAT, 0644);
    ASSERT_GE(file, 0);
    EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(VediWin32ftruncate(file, 100), 0);
    EXPECT_EQ(VediWin32lseek(file, 0, SEEK_END), 100);
    struct stat status;
    EXPECT_EQ(VediWin32truncate("text", 10), 0);
    EXPECT_EQ(VediWin32stat("text", &status), 0);
    EXPECT_EQ(status.st_size, 10);
    EXPECT_EQ(VediWin32fstat(file, &status), 0);
    EXPECT_EQ(VediWin32close(file), 0);
    EXPECT_EQ(VediWin32close(file), -1);
    EXPECT_EQ(VediWin32stat("none", &status), -1);
}

}  // namespace
}  // namespace velda::store::test
