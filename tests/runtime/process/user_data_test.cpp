#include <algorithm>
#include <thread>

#include "tests/runtime/process/command_fixture.h"

using velda::test::CommandTest;

namespace {

int initialised = 0;
int finalised = 0;

void fill_with_seven(DP *, void *block) {
    ++initialised;
    *static_cast<int *>(block) = 7;
}

void count_end(DP *, void *block) { finalised += *static_cast<int *>(block); }

class UserData : public CommandTest {};

}  // namespace

TEST_F(UserData, IsZeroFilledOnFirstUse) {
    int key = 0;
    const char *block = static_cast<const char *>(VLibCreateUserData(dp, "test.zero", 100, &key, nullptr));
    EXPECT_EQ(std::count(block, block + 100, '\0'), 100);
    EXPECT_NE(key, 0);
}

TEST_F(UserData, IsTheSameBlockAtTheNextCall) {
    int key = 0;
    void *block = VLibCreateUserData(dp, "test.same", 8, &key, nullptr);
    EXPECT_EQ(VLibCreateUserData(dp, "test.same", 8, &key, nullptr), block);
}

TEST_F(UserData, TheInitialiserRunsOnceAThread) {
    int key = 0;
    initialised = 0;
    EXPECT_EQ(*static_cast<int *>(VLibCreateUserData(dp, "test.init", 4, &key, fill_with_seven)), 7);
    VLibCreateUserData(dp, "test.init", 4, &key, fill_with_seven);
    EXPECT_EQ(initialised, 1);
    std::thread([&key] { VLibCreateUserData(velda_getdp(), "test.init", 4, &key, fill_with_seven); }).join();
    EXPECT_EQ(initialised, 2);
}

TEST_F(UserData, ModulesOfOneNameShareABlock) {
    int one = 0, other = 0;
    void *block = VLibCreateUserData(dp, "test.shared", 8, &one, nullptr);
    EXPECT_EQ(VLibCreateUserData(dp, "test.shared", 8, &other, nullptr), block);
    EXPECT_EQ(one, other);
}

TEST_F(UserData, EachThreadHasItsOwnBlock) {
    int key = 0;
    void *block = VLibCreateUserData(dp, "test.thread", 8, &key, nullptr);
    std::thread([&] { EXPECT_NE(VLibCreateUserData(velda_getdp(), "test.thread", 8, &key, nullptr), block); }).join();
}

TEST_F(UserData, TheFinaliserRunsWithTheContextsEnd) {
    finalised = 0;
    std::thread([] {
        int key = 0;
        VLibCreateUserDataEx(velda_getdp(), "test.final", 4, &key, fill_with_seven, count_end);
        EXPECT_EQ(finalised, 0);
    }).join();
    EXPECT_EQ(finalised, 7);
}

TEST_F(UserData, AnotherSizeEndsTheCommand) {
    int key = 0;
    VLibCreateUserData(dp, "test.size", 8, &key, nullptr);
    int code = 0;
    const std::string output = printed_by([&] { VLibCreateUserData(dp, "test.size", 16, &key, nullptr); }, &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(output, "Private data of module 'test.size', 16 bytes, already has 8 bytes\n");
}

TEST_F(UserData, TheProcessBlockIsOneForAllThreads) {
    VELDAProcessData *block = VLibGetProcessData(dp);
    std::thread([block] { EXPECT_EQ(VLibGetProcessData(velda_getdp()), block); }).join();
    EXPECT_EQ(block->vdls_active, 0);
}
