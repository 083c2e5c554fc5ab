#include "runtime/config/message.h"

#include <gtest/gtest.h>
#include <fstream>
#include <set>

#include "runtime/config/text_file.h"
#include "tests/support/marks.h"
#include "tests/support/scratch.h"

using velda::expand_message;
using velda::format_message;

namespace {

class Messages : public testing::Test {
  protected:
    std::string formatted(const std::string &message) { return format_message(nullptr, marks(message)); }

    // Makes a message file of its own the system's.
    void use_file(const std::string &content) {
        std::ofstream(release_ / "messages") << content;
        setenv("VBCRELEASEDIR", release_.path().c_str(), 1);
    }

    velda::test::ScratchSystem system;

  private:
    velda::test::ScratchDirectory release_;
};

}  // namespace

TEST_F(Messages, AKeyGivesItsText) { EXPECT_EQ(formatted("200"), "File name expected"); }
TEST_F(Messages, ParametersTakeTheirPlaces) { EXPECT_EQ(formatted("201]ORDERS"), "Cannot open file 'ORDERS'"); }
TEST_F(Messages, AParameterThatIsNotGivenIsEmpty) { EXPECT_EQ(formatted("201"), "Cannot open file ''"); }
TEST_F(Messages, AttributeMarksDivideToo) {
    use_file("TAPE_READ error %1 on channel %2\n");
    EXPECT_EQ(formatted("TAPE_READ^5^0"), "error 5 on channel 0");
    EXPECT_EQ(formatted("TAPE_READ ^5^0"), "error 5 on channel 0");
}
TEST_F(Messages, AnUnknownKeyGivesKeyAndParameters) {
    EXPECT_EQ(formatted("NO_SUCH_KEY]a]b c"), "NO_SUCH_KEY a b c");
    EXPECT_EQ(formatted("a plain text"), "a plain text");
    EXPECT_EQ(formatted(""), "");
}
TEST_F(Messages, KeysAreComparedExactly) { EXPECT_EQ(formatted("copy_done]5"), "copy_done 5"); }
TEST_F(Messages, TheKeysOfTheRuntimeHaveTexts) {
    for (const char *key : {"200", "201", "202", "203", "COPY_TO", "COPY_DONE", "SUBROUTINE_CALL_FAIL",
                            "SUBROUTINE_ARGUMENTS", "COMMON_SIZE", "GOSUB_STACK_FULL", "USER_DATA_SIZE",
                            "OUT_OF_MEMORY", "COMMAND_UNKNOWN", "COMMAND_START", "INTERRUPTED", "INTERNAL_ERROR"})
        EXPECT_NE(formatted(key), key);
}
TEST_F(Messages, EachKeyOfTheSystemsFileStandsOnce) {
    const auto content = velda::read_text_file(VELDA_SOURCE_DIR "/share/messages");
    ASSERT_TRUE(content.ok());
    std::set<std::string> keys;
    velda::for_each_line(*content, [&](std::string_view line) {
        if (line.empty() || line[0] == '#') return;
        EXPECT_TRUE(keys.emplace(line.substr(0, line.find(' '))).second) << line;
    });
    EXPECT_GT(keys.size(), 10u);
}

TEST(MessageText, PlacesOfParametersExpand) {
    struct Case {
        const char *text, *parameters, *expanded;
    };
    for (const Case &row :
         {Case{"%2 before %1", "a]b", "b before a"}, Case{"%1%1", "x", "xx"}, Case{"100%% of %1", "y", "100% of y"},
          Case{"all: %*", "a]b]c", "all: a b c"}, Case{"one\\ntwo", "", "one\ntwo"}, Case{"%9", "a]b", ""},
          Case{"50% off %", "a", "50% off %"}, Case{"%0", "a", "%0"}, Case{"%1", "%1", "%1"}, Case{"a\\", "", "a\\"}})
        EXPECT_EQ(expand_message(row.text, marks(row.parameters)), row.expanded) << row.text;
}

TEST_F(Messages, CommentsAndEmptyLinesAreSkippedAndTheLastTextHolds) {
    use_file("# comment text\n\nK first\nK   second text \r\nLONE\n");
    EXPECT_EQ(formatted("K"), "second text ");
    EXPECT_EQ(formatted("LONE"), "");
    EXPECT_EQ(formatted("#"), "#");
}
TEST_F(Messages, AnotherReleaseDirectoryHasItsOwnTexts) {
    EXPECT_EQ(formatted("200"), "File name expected");
    use_file("200 the site's own text\n");
    EXPECT_EQ(formatted("200"), "the site's own text");
    setenv("VBCRELEASEDIR", VELDA_SOURCE_DIR "/share", 1);
    EXPECT_EQ(formatted("200"), "File name expected");
}
TEST_F(Messages, AMissingFileIsToldOnceAndKeysAreShown) {
    setenv("VBCRELEASEDIR", "/no/such/release", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(formatted("201]F"), "201 F");
    EXPECT_EQ(formatted("203"), "203");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cannot open file '/no/such/release/messages': No such file or directory; messages show their keys and "
              "parameters only\n");
}
TEST_F(Messages, AFileThatCannotBeReadIsTold) {
    velda::test::ScratchDirectory release;
    std::filesystem::create_directory(release / "messages");
    setenv("VBCRELEASEDIR", release.path().c_str(), 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(formatted("203"), "203");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Is a directory"), std::string::npos);
}
