#include <thread>

#include "tests/runtime/process/command_fixture.h"

using velda::test::CommandTest;

VBC_SUBROUTINE(TestAdd, result, one, other) { result = VAR(one.to_integer() + other.to_integer()); }

VBC_SUBROUTINE(TestNoArguments) {}

VBC_SUBROUTINE(TestContextInside, is_current) { is_current = VAR(velda_getdp() == dp ? 1 : 0); }

VBC_SUBROUTINE(TestReturnsOnEmptyStack, ended) {
    int32_t point = 0;
    ended = VAR(velda_return(velda_gosub_stack(dp), &point) == 0 ? 1 : 0);
}

VBC_SUBROUTINE(TestGosubThenCall, depth_after) {
    VELDAGosubStack *stack = velda_gosub_stack(dp);
    velda_gosub(dp, stack, 10);
    VAR callees_was_empty;
    VBC_TestReturnsOnEmptyStack(dp, "V", &callees_was_empty);
    EXPECT_EQ(callees_was_empty.to_integer(), 1);
    depth_after = VAR(velda_gosub_stack(dp)->top);
}

VBC_SUBROUTINE(TestDeepGosub, sum) {
    VELDAGosubStack *stack = velda_gosub_stack(dp);
    for (int32_t i = 1; i <= 2000; ++i) velda_gosub(dp, stack, i);
    int64_t total = 0;
    for (int32_t point; velda_return(stack, &point);) total += point;
    sum = VAR(total);
}

VBC_SUBROUTINE(TestEndlessGosub) {
    for (VELDAGosubStack *stack = velda_gosub_stack(dp);;) velda_gosub(dp, stack, 1);
}

VBC_SUBROUTINE(TestEndlessCall, depth) {
    VAR below(depth.to_integer() + 1);
    VBC_TestEndlessCall(dp, "V", &below);
}

namespace {

class Subroutines : public CommandTest {};

}  // namespace

TEST_F(Subroutines, ArgumentsAreReadAndWrittenInPlace) {
    VAR result, one(2), other(3);
    VBC_TestAdd(dp, "VVV", &result, &one, &other);
    EXPECT_EQ(result.to_integer(), 5);
}

TEST_F(Subroutines, AMatrixCountsAsOneArgument) {
    VAR result, one(2), other(3);
    VBC_TestAdd(dp, "VAV", &result, &one, &other);
    EXPECT_EQ(result.to_integer(), 5);
}

TEST_F(Subroutines, AWrongNumberOfArgumentsEndsTheCommandWithTheName) {
    VAR cell;
    int code = 0;
    const std::string output = printed_by([&] { VBC_TestAdd(dp, "VV", &cell, &cell, &cell); }, &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(output, "Subroutine 'TestAdd' takes 3 arguments and was called with 2\n");
}

TEST_F(Subroutines, NoArgumentsAreNoLetters) {
    EXPECT_EQ(run([&] { VBC_TestNoArguments(dp, ""); }), 0);
    EXPECT_EQ(run([&] { VBC_TestNoArguments(dp, "V"); }), 1);
}

TEST_F(Subroutines, TheContextOfACallIsTheThreadsCurrentOneInside) {
    DP *other = velda_new_context();
    VAR is_current;
    VBC_TestContextInside(other, "V", &is_current);
    EXPECT_EQ(is_current.to_integer(), 1);
    EXPECT_EQ(velda_getdp(), dp);
    velda_free_context(other);
}

TEST_F(Subroutines, AReturnWithNoGosubEndsTheSubroutine) {
    VAR ended;
    VBC_TestReturnsOnEmptyStack(dp, "V", &ended);
    EXPECT_EQ(ended.to_integer(), 1);
}

TEST_F(Subroutines, EachCallHasItsOwnReturnStack) {
    VAR depth_after;
    VBC_TestGosubThenCall(dp, "V", &depth_after);
    EXPECT_EQ(depth_after.to_integer(), 1);
}

TEST_F(Subroutines, TheReturnStackStartsWithRoomFor512) { EXPECT_EQ(velda_gosub_stack(dp)->limit, 512); }

TEST_F(Subroutines, AFullReturnStackIsEnlargedAndKeepsItsPoints) {
    VAR sum;
    VBC_TestDeepGosub(dp, "V", &sum);
    EXPECT_EQ(sum.to_integer(), 2000 * 2001 / 2);
}

TEST_F(Subroutines, AReturnStackAtItsLimitEndsTheCommand) {
    int code = 0;
    const std::string output = printed_by([&] { VBC_TestEndlessGosub(dp, ""); }, &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(output, "More than 65536 GOSUBs without RETURN\n");
}

TEST_F(Subroutines, CallsWithoutEndEndTheCommand) {
    int code = 0;
    VAR depth(0);
    const std::string output = printed_by([&] { VBC_TestEndlessCall(dp, "V", &depth); }, &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(output, "Subroutine 'TestEndlessCall' is called too deep: out of stack\n");
    std::thread([] {
        DP *own = velda_getdp();
        std::string ignored;
        const velda::CaptureOutput capture(own, ignored);
        std::function<void()> body = [own] {
            VAR start(0);
            VBC_TestEndlessCall(own, "V", &start);
        };
        EXPECT_EQ(velda_run(own, "DEEP", velda::test::call_body, &body), 1);
    }).join();
}
