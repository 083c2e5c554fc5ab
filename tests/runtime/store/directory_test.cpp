// The directory driver: names, contents, what else may lie in a directory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <random>

#include "runtime/store/directory_control.h"
#include "runtime/store/directory_name.h"
#include "tests/runtime/store/fixture.h"

namespace velda::store::test {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

// --- names ---

struct NameOfKey {
    std::string key;
    std::string name;
};

class DirectoryNames : public testing::TestWithParam<NameOfKey> {};

TEST_P(DirectoryNames, are_coded_and_decoded) {
    EXPECT_EQ(encode_name(GetParam().key), GetParam().name);
    EXPECT_EQ(decode_name(GetParam().name), GetParam().key);
}

INSTANTIATE_TEST_SUITE_P(PlainKeysAreTheirNames, DirectoryNames,
                         testing::Values(NameOfKey{"ORDERS", "ORDERS"}, NameOfKey{".vedrc", ".vedrc"},
                                         NameOfKey{".velda_options", ".velda_options"}, NameOfKey{"a b*c", "a b*c"},
                                         NameOfKey{"50%", "50%"}, NameOfKey{"a%41b", "a%41b"}, NameOfKey{"%2e", "%2e"},
                                         NameOfKey{"%2f", "%2f"}, NameOfKey{"%25", "%25"}, NameOfKey{"a%2Eb", "a%2Eb"},
                                         NameOfKey{"%2Eb", "%2Eb"}, NameOfKey{"...", "..."}, NameOfKey{"_", "_"},
                                         NameOfKey{"a%_", "a%_"}, NameOfKey{"%", "%"}, NameOfKey{"%%", "%%"},
                                         NameOfKey{"x\xFEy\xFDz\n", "x\xFEy\xFDz\n"}, NameOfKey{"a\\b", "a\\b"}));
INSTANTIATE_TEST_SUITE_P(OtherKeysAreCoded, DirectoryNames,
                         testing::Values(NameOfKey{"", "%_"}, NameOfKey{".", "%2E"}, NameOfKey{"..", "%2E."},
                                         NameOfKey{"a/b", "a%2Fb"}, NameOfKey{"/", "%2F"}, NameOfKey{"\0"s, "%00"},
                                         NameOfKey{"%/", "%%2F"}, NameOfKey{".velda-control", "%2Evelda-control"},
                                         NameOfKey{".velda-/", "%2Evelda-%2F"}));
INSTANTIATE_TEST_SUITE_P(KeysThatLookCodedAreToldApart, DirectoryNames,
                         testing::Values(NameOfKey{"%_", "%25_"}, NameOfKey{"%25_", "%2525_"},
                                         NameOfKey{"%2E", "%252E"}, NameOfKey{"%2E.", "%252E."},
                                         NameOfKey{"%2Evelda-x", "%252Evelda-x"}, NameOfKey{"a%2Fb", "a%252Fb"},
                                         NameOfKey{"a%252Fb", "a%25252Fb"}, NameOfKey{"%00", "%2500"},
                                         NameOfKey{"%25/", "%25%2F"}, NameOfKey{"%252F/%00", "%25252F%2F%2500"}));

TEST(DirectoryName, the_stores_own_hidden_files_are_no_records) {
    for (const auto *name : {".velda-control", ".velda-new-1-r1", ".velda-long-0000000000000000-0", ".", ".."})
        EXPECT_EQ(decode_name(name), std::nullopt) << name;
}

std::string random_text(std::mt19937 &random, std::string_view letters, std::size_t longest) {
    std::string text(random() % longest, ' ');
    for (auto &byte : text) byte = letters[random() % letters.size()];
    return text;
}

TEST(DirectoryName, every_key_has_a_name_of_its_own) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int i = 0; i < 200000; ++i) {
        const std::string key = random_text(random, "%%25FE0_./\0a"sv, 12);
        const std::string name = encode_name(key);
        EXPECT_EQ(name.find_first_of("/\0"sv), name.npos);
        EXPECT_EQ(decode_name(name), key) << name;
    }
}

TEST(DirectoryName, every_file_of_another_program_can_be_read_by_its_key) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int i = 0; i < 200000; ++i) {
        const std::string name = random_text(random, "%%25FE0_.a", 12);
        if (name.empty() || name == "." || name == "..") continue;
        EXPECT_EQ(encode_name(*decode_name(name)), name);
    }
}

// --- contents ---

class Directory : public testing::Test {
  protected:
    void SetUp() override { ASSERT_OK(create_file(path, "UD", sync())); }
    std::string content(const std::string &name) const {
        std::ifstream file(path + "/" + name, std::ios::binary);
        return file ? std::string{std::istreambuf_iterator<char>(file), {}} : "(none)";
    }
    void put(const std::string &name, const std::string &content) const {
        std::ofstream(path + "/" + name, std::ios::binary) << content;
    }
    ScratchDirectory scratch;
    const std::string path = scratch / "D";
};

TEST_F(Directory, a_record_is_a_text_file_with_a_line_for_each_attribute) {
    const TestFile file(path);
    file.write("K", marks("one^two]2^three"));
    EXPECT_EQ(content("K"),
              "one\ntwo\xFD"
              "2\nthree\n");
}

TEST_F(Directory, a_text_file_reads_the_same_with_or_without_its_last_line_feed) {
    const TestFile file(path);
    put("with", "one\ntwo\n");
    put("without", "one\ntwo");
    EXPECT_EQ(shown(file.read("with")), "one^two");
    EXPECT_EQ(shown(file.read("without")), "one^two");
}

TEST_F(Directory, empty_attributes_at_the_end_are_kept) {
    const TestFile file(path);
    for (const auto *record : {"", "^", "a^", "a^^", "^a"}) {
        file.write("K", marks(record));
        EXPECT_EQ(shown(file.read("K")), record);
    }
}

TEST_F(Directory, a_line_feed_in_an_attribute_is_no_line_end) {
    const TestFile file(path);
    file.write("K", "a\nb" + marks("^c"));
    EXPECT_EQ(content("K"),
              "a\xFE"
              "b\nc\n");
    EXPECT_EQ(file.read("K"), "a\nb" + marks("^c"));
}

TEST_F(Directory, binary_mode_keeps_every_byte) {
    const TestFile file(path);
    file.write("K", marks("a^b\n"), TransferMode::Binary);
    EXPECT_EQ(content("K"),
              "a\xFE"
              "b\n");
    EXPECT_EQ(file.read("K", TransferMode::Binary), marks("a^b\n"));
    EXPECT_EQ(file.items(TransferMode::Binary)["K"], marks("a^b\n"));
}

TEST_F(Directory, text_mode_is_the_default) {
    const TestFile file(path);
    file.write("K", marks("a^b"), TransferMode::Text);
    EXPECT_EQ(file.read("K", TransferMode::Default), marks("a^b"));
    EXPECT_EQ(content("K"), "a\nb\n");
}

TEST_F(Directory, records_come_back_from_it_to_a_hashed_file_byte_by_byte) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const TestFile hashed = TestFile::create(scratch / "H", "HL", lazy()),
                   back = TestFile::create(scratch / "B", "HL", lazy());
    const TestFile file = TestFile::create(scratch / "L", "UD", lazy());
    for (int i = 0; i < 200; ++i)
        hashed.write("K" + std::to_string(i), random_text(random,
                                                          "\n\xFE\xFD"
                                                          "ab\r\0"sv,
                                                          10));
    for (const auto &[key, record] : hashed.items()) file.write(key, record);
    for (const auto &[key, record] : file.items()) back.write(key, record);
    EXPECT_EQ(back.items(), hashed.items());
}

// --- what else lies in a directory ---

TEST_F(Directory, any_directory_opens_as_a_file) {
    const std::string plain = scratch / "plain";
    std::filesystem::create_directory(plain);
    std::ofstream(plain + "/.vedrc") << "set a=b\nset c\n";
    const TestFile file(plain);
    EXPECT_EQ(shown(file.read(".vedrc")), "set a=b^set c");
    EXPECT_EQ(file.keys(), std::set<std::string>{".vedrc"});
    EXPECT_EQ(*file->settings(), FileSettings{});
    file.write("K", "r");
    EXPECT_FALSE(std::filesystem::exists(plain + "/.velda-control"));
}

TEST_F(Directory, the_current_directory_opens_as_a_point) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(path);
    const TestFile here(".");
    EXPECT_EQ(here->path(), path);
    EXPECT_EQ(here.shared(), TestFile(path).shared());
    std::filesystem::current_path(scratch.path());
    const TestFile there(".");
    EXPECT_EQ(there->path(), scratch.path());
    EXPECT_EQ(there.keys(), std::set<std::string>());
    std::filesystem::current_path(before);
}

TEST_F(Directory, a_sub_directory_is_no_record) {
    const TestFile file(path);
    std::filesystem::create_directory(path + "/sub");
    EXPECT_EQ(file.read("sub"), "(none)");
    EXPECT_FALSE(*file->exists("sub"));
    EXPECT_FALSE(file.remove("sub"));
    EXPECT_TRUE(file.keys().empty());
    const auto written = file->write("sub", "r", TransferMode::Default);
    ASSERT_FALSE(written.ok());
    EXPECT_EQ(written.error().message, "cannot write record '" + path + "/sub': Is a directory");
    EXPECT_OK(file->clear());
    EXPECT_TRUE(std::filesystem::exists(path + "/sub"));
}

TEST_F(Directory, a_pipe_is_no_record_and_nobody_waits_for_it) {
    const TestFile file(path);
    ASSERT_EQ(mkfifo((path + "/pipe").c_str(), 0666), 0);
    EXPECT_EQ(file.read("pipe"), "(none)");
    EXPECT_FALSE(*file->exists("pipe"));
    EXPECT_TRUE(file.keys().empty());
    EXPECT_EQ(file->write("pipe", "r", TransferMode::Default).error().number, EINVAL);
    EXPECT_FALSE(file.remove("pipe"));
}

TEST_F(Directory, a_link_to_a_file_is_a_record_and_is_written_through) {
    const TestFile file(path);
    std::ofstream(scratch / "elsewhere") << "old\n";
    std::filesystem::create_symlink("../elsewhere", path + "/link");
    EXPECT_EQ(file.read("link"), "old");
    EXPECT_EQ(file.keys(), std::set<std::string>{"link"});
    file.write("link", "new");
    EXPECT_TRUE(std::filesystem::is_symlink(path + "/link"));
    EXPECT_EQ(content("../elsewhere"), "new\n");
    EXPECT_TRUE(file.remove("link"));
    EXPECT_EQ(content("../elsewhere"), "new\n");
}

TEST_F(Directory, a_link_to_a_directory_or_to_nothing_is_no_record) {
    const TestFile file(path);
    std::filesystem::create_symlink("..", path + "/up");
    std::filesystem::create_symlink("nowhere", path + "/dangling");
    std::filesystem::create_symlink("loop", path + "/loop");
    for (const auto *key : {"up", "dangling", "loop"}) EXPECT_EQ(file.read(key), "(none)") << key;
    EXPECT_TRUE(file.keys().empty());
    file.write("dangling", "r");
    EXPECT_EQ(content("dangling"), "r\n");  // the link itself is replaced
    EXPECT_FALSE(std::filesystem::is_symlink(path + "/dangling"));
    EXPECT_FALSE(file->write("up", "r", TransferMode::Default).ok());
}

TEST_F(Directory, a_rewritten_file_keeps_its_mode) {
    const TestFile file(path);
    put("script", "#!/bin/sh\n");
    chmod((path + "/script").c_str(), 0750);
    file.write("script", "#!/bin/sh");
    struct stat status;
    ASSERT_EQ(stat((path + "/script").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0750U);
}

TEST_F(Directory, a_reader_sees_the_old_record_or_the_new_one) {
    const TestFile file(path);
    file.write("K", std::string(100000, 'a'));
    fflush(nullptr);
    const pid_t writer = fork();
    if (writer == 0) {
        for (int i = 0;; ++i) file.write("K", std::string(100000 + i % 1000, static_cast<char>('a' + i % 26)));
    }
    for (int i = 0; i < 200; ++i) {
        const std::string record = file.read("K");
        ASSERT_GE(record.size(), 100000U);
        EXPECT_EQ(record.find_first_not_of(record[0]), record.npos);
    }
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
}

pid_t gone_process() {
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    return child;
}

TEST_F(Directory, what_a_killed_writer_left_is_no_record_and_a_check_removes_it) {
    const TestFile file(path);
    const std::string left = ".velda-new-" + std::to_string(gone_process()) + "-r1";
    put(left, "half a rec");
    put(".velda-new-" + std::to_string(getpid()) + "-r1", "being written");
    EXPECT_TRUE(file.keys().empty());
    EXPECT_TRUE(findings_of(path).empty());
    EXPECT_EQ(content(left), "(none)");
    EXPECT_EQ(content(".velda-new-" + std::to_string(getpid()) + "-r1"), "being written");
}

TEST_F(Directory, a_long_key_lies_in_a_hidden_directory_with_its_key) {
    const TestFile file(path);
    const std::string key(300, 'k');
    file.write(key, "r");
    const std::string place = long_name_family(key) + "0";
    EXPECT_EQ(content(place + "/key"), key);
    EXPECT_EQ(content(place + "/record"), "r\n");
    EXPECT_TRUE(file.remove(key));
    EXPECT_FALSE(std::filesystem::exists(path + "/" + place));
}

TEST_F(Directory, a_key_whose_codes_make_the_name_too_long_works) {
    const TestFile file(path);
    const std::string key(100, '/');
    file.write(key, "r");
    EXPECT_EQ(file.read(key), "r");
    EXPECT_EQ(file.keys(), std::set<std::string>{key});
}

TEST_F(Directory, with_a_sub_directory_it_is_not_removed) {
    const TestFile file(path);
    file.write("K", "r");
    std::filesystem::create_directory(path + "/sub");
    const auto removed = destroy_file(path);
    ASSERT_FALSE(removed.ok());
    EXPECT_EQ(removed.error().number, ENOTEMPTY);
    EXPECT_EQ(removed.error().message, "cannot remove file '" + path + "': it contains the directory 'sub'");
    EXPECT_EQ(file.read("K"), "r");
}

TEST_F(Directory, the_control_file_is_read_back_or_refused) {
    ControlBlocks blocks;
    EXPECT_FALSE(parse_control_blocks("", blocks));
    EXPECT_FALSE(parse_control_blocks("VELDAUD1\1", blocks));
    EXPECT_FALSE(parse_control_blocks("VELDAUD1\1\0\0\0\5\0\0\0ab"s, blocks));
    EXPECT_FALSE(parse_control_blocks("VELDAUD1\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFFk", blocks));
    EXPECT_TRUE(parse_control_blocks("VELDAUD1\1\0\0\0\2\0\0\0kab"s, blocks));
    EXPECT_EQ(blocks, (ControlBlocks{{"k", "ab"}}));
}

}  // namespace
}  // namespace velda::store::test
