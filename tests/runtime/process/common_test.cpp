#include "tests/runtime/process/command_fixture.h"

using velda::CommonBlock;
using velda::test::CommandTest;

VBC_SUBROUTINE(TestWriteCommon, cell) {
    CommonBlock block("TestCalled", 3);
    block[2] = cell;
}

VBC_SUBROUTINE(TestCommonInExecute) {
    CommonBlock block("TestExecuted", 2);
    EXPECT_EQ(block[0].view(), "");
    block[0] = "of the executed command";
}

namespace {

class Commons : public CommandTest {};

}  // namespace

TEST_F(Commons, ANewBlocksCellsAreEmpty) {
    CommonBlock block("TestNew", 100);
    for (const VAR &cell : block) {
        EXPECT_EQ(cell.view(), "");
        EXPECT_EQ(cell.to_integer(), 0);
    }
}

TEST_F(Commons, TwoModulesThatAttachABlockSeeTheSameCells) {
    VAR *one = nullptr;
    VAR *other = nullptr;
    int word = 0;
    VLibCAttachCommon_VSSVI(dp, "VELDA_dUtil", &one, 100, &word);
    VELDAUtil(dp, 1);
    VLibCAttachCommon_VSSVI(dp, "VELDA_dUtil", &other, 100, nullptr);
    EXPECT_EQ(one, other);
    EXPECT_EQ(word, static_cast<int>(dp->serial));
}

TEST_F(Commons, NamesThatDifferInCaseAreTwoBlocks) {
    CommonBlock one("VELDA_dUtil", 100);
    CommonBlock other("VELDA_dUTIL", 100);
    one[0] = "x";
    EXPECT_EQ(other[0].view(), "");
    one[0] = "";
}

TEST_F(Commons, TheCallerSeesWhatACalledSubroutineWrote) {
    CommonBlock block("TestCalled", 3);
    VAR value("from below");
    velda::call("TestWriteCommon", value);
    block.reload();
    EXPECT_EQ(block[2].view(), "from below");
}

TEST_F(Commons, CellsLiveAsLongAsTheProcess) {
    run([] { CommonBlock("TestLasting", 2)[1] = "kept"; });
    run([] { EXPECT_EQ(CommonBlock("TestLasting", 2)[1].view(), "kept"); });
    EXPECT_EQ(CommonBlock("TestLasting", 2)[1].view(), "kept");
}

TEST_F(Commons, ACommandWithinACommandHasItsOwn) {
    run([&] {
        CommonBlock block("TestExecuted", 2);
        block[0] = "of the caller";
        run([&] { VBC_TestCommonInExecute(dp, ""); });
        EXPECT_EQ(block[0].view(), "of the caller");
        block[0] = "";
    });
}

TEST_F(Commons, EachContextHasItsOwn) {
    CommonBlock("TestContexts", 1)[0] = "mine";
    DP *other = velda_new_context();
    VAR *base = nullptr;
    VLibCAttachCommon_VSSVI(other, "TestContexts", &base, 1, nullptr);
    EXPECT_EQ(base[0].view(), "");
    velda_free_context(other);
}

TEST_F(Commons, AttachingWithAnotherSizeEndsTheCommand) {
    CommonBlock block("TestSize", 8);
    int code = 0;
    const std::string output = printed_by([] { CommonBlock("TestSize", 9); }, &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(output, "Common 'TestSize' of 9 cells is already attached with 8 cells\n");
}

TEST_F(Commons, ReloadingWithAnotherSizeEndsTheCommand) {
    CommonBlock block("TestReload", 8);
    VAR *base = nullptr;
    EXPECT_EQ(run([&] { VLibCReloadCommon_VSSVI(dp, "TestReload", &base, 7, nullptr); }), 1);
}

TEST_F(Commons, ABlockHasAtLeastOneCell) {
    EXPECT_EQ(run([] { CommonBlock("TestNoCells", 0); }), 1);
    EXPECT_EQ(run([] { CommonBlock("TestNoCells", -3); }), 1);
    EXPECT_EQ(run([] { CommonBlock("TestNoCells", 1); }), 0);
}
