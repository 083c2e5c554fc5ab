#include "runtime/memory/memory.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "runtime/memory/leak_report.h"
#include "tests/support/scratch.h"

namespace {

// What another process of this program leaves behind when it is asked for a leak report.
std::string report_of(const char *helper, const std::string &target = "") {
    const velda::test::ScratchDirectory scratch;
    const std::string command = "VELDA_LEAK_REPORT=" + (target.empty() ? "1" : target) + " /proc/" +
                                std::to_string(getpid()) + "/exe --helper " + helper + " 2>" + (scratch / "errors");
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::stringstream text;
    text << std::ifstream(scratch / "errors").rdbuf();
    return text.str();
}

int leak(bool all_freed) {
    char *one = static_cast<char *>(VELDAmalloc(nullptr, 10, "module.b", 20));
    char *two = static_cast<char *>(VELDAcalloc(nullptr, 4, 5, "module.b", 20));
    char *three = VELDAstrdup(nullptr, "seven..", "module.a", 7);
    char *four = static_cast<char *>(VELDAmalloc(nullptr, 1, "module.c", 1));
    four = static_cast<char *>(VELDArealloc(nullptr, four, 100, "module.c", 2));
    void *five = VELDAmalloc(nullptr, 5, "module.c", 3);
    VELDAfreezero(nullptr, &five, "module.c", 4);
    if (all_freed)
        for (char *block : {one, two, three, four}) VELDAfree(nullptr, block, "module.c", 5);
    return 0;
}

}  // namespace

int main(int count, char **arguments) {
    if (count > 2 && std::string_view(arguments[1]) == "--helper")
        return leak(std::string_view(arguments[2]) == "free-all");
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}

TEST(Memory, BlocksCanBeMadeGrownAndFreed) {
    char *block = static_cast<char *>(VELDAmalloc(nullptr, 4, "test", __LINE__));
    std::memcpy(block, "abc", 4);
    block = static_cast<char *>(VELDArealloc(nullptr, block, 100000, "test", __LINE__));
    EXPECT_STREQ(block, "abc");
    VELDAfree(nullptr, block, "test", __LINE__);
    VELDAfree(nullptr, nullptr, "test", __LINE__);
}
TEST(Memory, ReallocOfNullAllocates) {
    void *block = VELDArealloc(nullptr, nullptr, 10, "test", __LINE__);
    EXPECT_NE(block, nullptr);
    VELDAfree(nullptr, block, "test", __LINE__);
}
TEST(Memory, CallocGivesZeroBytes) {
    char *block = static_cast<char *>(VELDAcalloc(nullptr, 10, 10, "test", __LINE__));
    EXPECT_EQ(std::string(block, 100), std::string(100, '\0'));
    VELDAfree(nullptr, block, "test", __LINE__);
}
TEST(Memory, FreezeroClearsThePointer) {
    void *block = VELDAmalloc(nullptr, 10, "test", __LINE__);
    VELDAfreezero(nullptr, &block, "test", __LINE__);
    EXPECT_EQ(block, nullptr);
    VELDAfreezero(nullptr, &block, "test", __LINE__);
}
TEST(Memory, StrdupCopiesTheText) {
    char *copy = VELDAstrdup(nullptr, "some text", "test", __LINE__);
    EXPECT_STREQ(copy, "some text");
    VELDAfree(nullptr, copy, "test", __LINE__);
}
TEST(Memory, ARecordBufferHasAZeroByteBehindTheRecord) {
    char *buffer = static_cast<char *>(VELDAmalloc_readrecord(nullptr, 3, "test", __LINE__));
    std::memcpy(buffer, "abc", 3);
    EXPECT_STREQ(buffer, "abc");
    VELDAfree(nullptr, buffer, "test", __LINE__);
}
TEST(Memory, TooMuchGivesNull) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer's allocator ends the process instead";
#endif
    // Of a size that no allocator can give, hidden from the compiler's own check.
    volatile std::size_t too_much = SIZE_MAX / 2;
    EXPECT_EQ(VELDAmalloc(nullptr, too_much, "test", __LINE__), nullptr);
}

TEST(LeakReport, IsOffUnlessAskedFor) { EXPECT_EQ(velda::leak_report, nullptr); }
TEST(LeakReport, ListsOutstandingBlocksByModuleAndLine) {
    EXPECT_EQ(report_of("leak"),
              "module.a:7: 1 blocks, 8 bytes\n"
              "module.b:20: 2 blocks, 30 bytes\n"
              "module.c:2: 1 blocks, 100 bytes\n");
}
TEST(LeakReport, IsEmptyWhenAllWasFreed) { EXPECT_EQ(report_of("free-all"), ""); }
TEST(LeakReport, GoesToTheFileThatTheVariableNames) {
    const velda::test::ScratchDirectory scratch;
    EXPECT_EQ(report_of("leak", scratch / "report"), "");
    std::string first;
    std::getline(std::ifstream(scratch / "report"), first);
    EXPECT_EQ(first, "module.a:7: 1 blocks, 8 bytes");
}
