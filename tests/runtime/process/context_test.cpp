#include "runtime/process/context.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <thread>

#include "tests/runtime/process/command_fixture.h"

using velda::test::status_of_child;

namespace {

std::vector<std::string> *ended = nullptr;

struct FirstState {
    ~FirstState() {
        if (ended) ended->push_back("first");
    }
};
struct SecondState {
    ~SecondState() {
        if (ended) ended->push_back("second");
    }
};
struct OwnerState {
    explicit OwnerState(DP &dp) : owner(&dp) {}
    DP *owner;
};

}  // namespace

TEST(Context, AThreadGetsTheSameContextEachTime) { EXPECT_EQ(velda_getdp(), velda_getdp()); }

TEST(Context, EachThreadHasItsOwn) {
    DP *other = nullptr;
    std::thread([&] { other = velda_getdp(); }).join();
    EXPECT_NE(other, velda_getdp());
}

TEST(Context, NocreateGivesNullUntilTheFirstUse) {
    std::thread([] {
        EXPECT_EQ(velda_getdp_nocreate(), nullptr);
        DP *dp = velda_getdp();
        EXPECT_EQ(velda_getdp_nocreate(), dp);
    }).join();
}

TEST(Context, EndsWithItsThread) {
    std::vector<std::string> log;
    ended = &log;
    std::thread([] { velda_getdp()->state<FirstState>(); }).join();
    ended = nullptr;
    EXPECT_EQ(log, std::vector<std::string>{"first"});
}

TEST(Context, StatesEndInTheReverseOrderOfTheirFirstUse) {
    std::vector<std::string> log;
    ended = &log;
    DP *dp = velda_new_context();
    dp->state<FirstState>();
    dp->state<SecondState>();
    velda_free_context(dp);
    ended = nullptr;
    EXPECT_EQ(log, (std::vector<std::string>{"second", "first"}));
}

TEST(Context, AStateThatTakesTheContextIsGivenIt) {
    DP *dp = velda_getdp();
    EXPECT_EQ(dp->state<OwnerState>().owner, dp);
}

TEST(Context, ANewContextIsNotTheCurrentOne) {
    DP *before = velda_getdp();
    DP *made = velda_new_context();
    EXPECT_NE(made, before);
    EXPECT_EQ(velda_getdp(), before);
    velda_free_context(made);
}

TEST(Context, CanBeMadeCurrentAndPutBack) {
    DP *before = velda_getdp();
    DP *made = velda_new_context();
    EXPECT_EQ(velda_set_context(made), before);
    EXPECT_EQ(velda_getdp(), made);
    EXPECT_EQ(velda_set_context(before), made);
    velda_free_context(made);
    EXPECT_EQ(velda_getdp(), before);
}

TEST(Context, SerialsAreNeverUsedAgain) {
    DP *first = velda_new_context();
    const auto serial = first->serial;
    velda_free_context(first);
    DP *second = velda_new_context();
    EXPECT_GT(second->serial, serial);
    velda_free_context(second);
}

TEST(Context, AForkedChildMakesItsOwn) {
    DP *parents = velda_getdp();
    const int status = status_of_child([parents] {
        if (velda_getdp_nocreate() != nullptr) _exit(1);
        DP *own = velda_getdp();
        if (own == parents || own->process != getpid()) _exit(2);
    });
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(Context, AForkedChildThatExitsLeavesTheParentsStatesAlone) {
    std::thread([] {
        velda_getdp()->state<FirstState>();
        const pid_t child = fork();
        if (child == 0) {
            std::vector<std::string> log;
            ended = &log;
            velda_getdp();
            velda_free_context(velda_getdp());
            _exit(static_cast<int>(log.size()));
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(WEXITSTATUS(status), 0);
    }).join();
}
