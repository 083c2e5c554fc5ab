// The cell: forms, constants, ownership, buffers, copies and moves.
#include <climits>
#include <cmath>

#include "runtime/base/handle.h"
#include "runtime/value/buffer.h"
#include "tests/runtime/value/fixture.h"
#include "tests/runtime/value/native_logic.h"

using namespace velda;

namespace {

const std::string Long = "a string that is too long to lie inside of a cell";

// A file as cells see it, which counts its end.
struct TestFile : Handle {
    explicit TestFile(int &ended) : ended(ended) { operations = &Operations; }
    static void destroy(Handle *handle) {
        auto *const file = static_cast<TestFile *>(handle);
        ++file->ended;
        delete file;
    }
    static std::string_view text(const Handle *) { return {}; }
    static constexpr HandleOperations Operations = {destroy, text};
    int &ended;
};

VAR open_file(int &ended) {
    VAR cell;
    cell.form = VELDA_FORM_FILE;
    cell.text = reinterpret_cast<char *>(new TestFile(ended));
    return cell;
}

struct TestList : Handle {
    TestList() { operations = &Operations; }
    static void destroy(Handle *handle) { delete static_cast<TestList *>(handle); }
    static std::string_view text(const Handle *) { return "k1\xFEk2 and a longer key"; }
    static constexpr HandleOperations Operations = {destroy, text};
};

}  // namespace

TEST(Constant, EveryFormOfTheTableReadsAsItsText) {
    const char *const texts[] = {"a text that runs on behind the cell",
                                 "",
                                 "3",
                                 "200",
                                 "-1",
                                 "1.25",
                                 "0123456789",
                                 ".001",
                                 "01",
                                 "00",
                                 ".",
                                 "-",
                                 "+"};
    int index = 0;
    for (const char *text : texts) {
        const VAR *const constant = native_constant(index++);
        ASSERT_NE(constant, nullptr);
        EXPECT_EQ(constant->view(), text);
        EXPECT_EQ(VLibELEN_IB(nullptr, constant), static_cast<int>(std::string_view(text).size()));
        EXPECT_STREQ(VLibBCONV_SFB(nullptr, constant), text);
        EXPECT_TRUE(VAR(*constant) == *constant);
        EXPECT_EQ(VAR(*constant).view(), text);
    }
    EXPECT_EQ(native_constant(index), nullptr);
}

TEST(Constant, AVariableOfTheSameTextTakesTheSameNumber) {
    for (int index = 0; const VAR *constant = native_constant(index); ++index) {
        const VAR variable(constant->view());
        SCOPED_TRACE(constant->str());
        EXPECT_EQ(variable.is_numeric(), constant->is_numeric());
        EXPECT_EQ(variable.form & 0x3001, constant->form & 0x3001);
        EXPECT_EQ(variable.precision, constant->precision);
        if (!constant->is_numeric()) continue;
        EXPECT_EQ(variable.image, constant->image);
        EXPECT_EQ(std::signbit(variable.image), std::signbit(constant->image));
        EXPECT_EQ(variable.integer, constant->integer);
    }
}

TEST(Constant, CanBeTheSourceOfEveryKindOfRead) {
    for (int index = 0; const VAR *constant = native_constant(index); ++index) {
        VAR target;
        VLibDMATHADD_BBBB(nullptr, &target, constant, constant);
        EXPECT_EQ(target, constant->to_double() * 2);
        VLibBSTORE_BBB(nullptr, &target, constant);
        EXPECT_EQ(target.view(), constant->view());
        EXPECT_EQ(target.formExtra & VELDA_EXTRA_CONSTANT, 0);
        EXPECT_EQ(truth(*constant), truth(constant->view()));
        EXPECT_EQ((*constant)(1), constant->view());
    }
}

TEST(Cell, APlainIntegerHasExactlyThatForm) {
    VAR cell = Long;
    cell = 5;
    EXPECT_EQ(cell.form, VELDA_FORM_INTEGER);
    EXPECT_EQ(cell.integer, 5);
    EXPECT_EQ(cell.view(), "5");
    cell = -7;
    EXPECT_EQ(cell.form, VELDA_FORM_INTEGER);
    EXPECT_EQ(cell.view(), "-7");
}

TEST(Cell, ANumberIsGivenItsTextBesideItself) {
    const VAR number = 200;
    EXPECT_EQ(number.form & VELDA_MASK_HAS_STRING, 0);
    VLibCONV_VB(nullptr, &number);
    EXPECT_EQ(number.form, 0x2801);
    EXPECT_EQ(number.image, 2000000.0);
    EXPECT_EQ(number.integer, 200);
    EXPECT_EQ(number.view(), "200");
    const VAR longer = std::int64_t{-1234567890123456789};
    EXPECT_EQ(longer.view(), "-1234567890123456789");
    EXPECT_EQ(longer.form, 0x2005);
    const VAR unassigned;
    VLibCONV_VB(nullptr, &unassigned);
    EXPECT_NE(unassigned.form & VELDA_MASK_HAS_STRING, 0);
    EXPECT_EQ(unassigned.view(), "");
}

TEST(Cell, NativeLogicTestsNumbersByTheirFields) {
    EXPECT_EQ(native_truth(native_constant(2)), 1);
    EXPECT_EQ(native_truth(native_constant(9)), 0);
    const VAR zero = 0, half = 0.5, text = "0";
    EXPECT_EQ(native_truth(&zero), 0);
    EXPECT_EQ(native_truth(&half), 1);
    EXPECT_EQ(native_truth(&text), -1);
    (void)text.is_numeric();
    EXPECT_EQ(native_truth(&text), 0);
    EXPECT_EQ(native_sum(1000), 500500);
}

TEST(Cell, CopiesAreDeepAndMovesLeaveAnUnassignedCell) {
    VAR first = Long;
    VAR copy = first;
    EXPECT_NE(copy.text, first.text);
    first(1) = "changed";
    EXPECT_EQ(copy.view(), Long);
    const char *const bytes = copy.text;
    VAR moved = std::move(copy);
    EXPECT_EQ(moved.text, bytes);
    EXPECT_EQ(copy.form, 0);
    EXPECT_EQ(copy.view(), "");
    first = std::move(moved);
    EXPECT_EQ(first.text, bytes);
    first = first;
    EXPECT_EQ(first.view(), Long);
}

TEST(Cell, OnlyTextThatReadsBackAsItselfIsCanonical) {
    for (const char *text : {"0", "5", "-5", "0.5", "-0.5", "1.25", "900719925474.0992"}) {
        const VAR cell = text;
        ASSERT_TRUE(cell.is_numeric()) << text;
        EXPECT_EQ(cell.form & VELDA_MASK_HAS_IMAGE, VELDA_FORM_CANONICAL) << text;
        EXPECT_EQ((cell.form & VELDA_FORM_INTEGER) != 0, cell.view().find('.') == std::string_view::npos) << text;
    }
    for (const char *text : {"01", "00", "-0", "+5", "+.5", ".5", ".50", "-.5", "1.50", "5.", "0.0", ".", "-", "+",
                             "1.00001", "900719925474.0993", "12345678901234567890"}) {
        const VAR cell = text;
        ASSERT_TRUE(cell.is_numeric()) << text;
        EXPECT_EQ(cell.form & VELDA_MASK_HAS_IMAGE, VELDA_FORM_NONCANONICAL) << text;
        EXPECT_EQ(cell.form & VELDA_FORM_INTEGER, 0) << text;
        EXPECT_EQ(cell.view(), text);
    }
}

TEST(Cell, ACopyKeepsTheNumber) {
    const VAR number = "01";
    ASSERT_TRUE(number.is_numeric());
    const VAR copy = number;
    EXPECT_EQ(copy.form & VELDA_MASK_HAS_IMAGE, VELDA_FORM_NONCANONICAL);
    EXPECT_EQ(copy.image, 10000.0);
    EXPECT_EQ(copy.view(), "01");
}

TEST(Cell, AChangedStringForgetsItsNumber) {
    for (const std::string &text : {std::string("12"), std::string("12345678901234567890")}) {
        VAR cell = text;
        ASSERT_TRUE(cell.is_numeric());
        append_text(cell, "x");
        EXPECT_FALSE(cell.is_numeric());
        cell = text;
        ASSERT_TRUE(cell.is_numeric());
        VLibGCONVERTF_BBBBB(nullptr, &cell, &cell, Argument("2"), Argument("y"));
        EXPECT_FALSE(cell.is_numeric());
    }
}

TEST(Cell, AnyByteMayOccur) {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
    VAR cell = bytes;
    EXPECT_EQ(cell.view(), bytes);
    const VAR key = std::string_view("\0", 1);
    EXPECT_EQ(key.size(), 1u);
    EXPECT_FALSE(key == "");
    EXPECT_EQ(key, chr(0));
}

TEST(Buffer, BoundsStandAheadOfTheBytes) {
    VAR cell = Long;
    ASSERT_EQ(cell.form, VELDA_FORM_OWNED);
    EXPECT_LT(velda_lower_bound(&cell), 0);
    EXPECT_GE(velda_upper_bound(&cell), static_cast<int>(Long.size()));
}

TEST(Buffer, ALengthWithinTheBoundsKeepsTheBuffer) {
    VAR cell = Long;
    const int upper = velda_upper_bound(&cell);
    EXPECT_TRUE(native_resize(&cell, 10));
    EXPECT_EQ(cell.view(), Long.substr(0, 10));
    EXPECT_TRUE(native_resize(&cell, 0));
    EXPECT_EQ(cell.view(), "");
    EXPECT_TRUE(native_fill(&cell, upper)) << "the preparing form includes the bound";
    EXPECT_EQ(cell.view(), std::string(static_cast<std::size_t>(upper), 'x'));
    EXPECT_FALSE(native_fill(&cell, upper + 1));
    EXPECT_EQ(cell.view(), std::string(static_cast<std::size_t>(upper) + 1, 'x'));
}

TEST(Buffer, TheKeepingFormCallsTheRuntimeAtTheBound) {
    VAR cell = Long;
    const int upper = velda_upper_bound(&cell);
    native_resize(&cell, upper);
    EXPECT_EQ(cell.length, static_cast<std::uint32_t>(upper));
    EXPECT_EQ(cell.view().substr(0, Long.size()), Long);
    native_resize(&cell, 100000);
    EXPECT_EQ(cell.view().substr(0, Long.size()), Long);
    EXPECT_EQ(cell.view().substr(Long.size() + 100, 5), std::string_view("\0\0\0\0\0", 5));
}

TEST(Buffer, AChangedLengthDropsNumberAndDerivedData) {
    VAR cell = marks("123456789012345678^b^c");
    EXPECT_EQ(cell(3), "c");
    ASSERT_TRUE(cell.form & VELDA_FORM_DERIVED);
    native_resize(&cell, 18);
    EXPECT_EQ(cell.form, VELDA_FORM_OWNED);
    EXPECT_EQ(cell(3), "");
    EXPECT_TRUE(cell.is_numeric());
    cell.formExtra = VELDA_EXTRA_LENGTH_STABLE;
    native_resize(&cell, 5);
    EXPECT_EQ(cell.form, VELDA_FORM_OWNED);
    EXPECT_EQ(cell.formExtra, 0);
    EXPECT_EQ(cell.to_integer(), 12345);
}

TEST(Buffer, EveryFormCanBeResizedAndPrepared) {
    int ended = 0;
    VAR cells[] = {VAR(), VAR(12), VAR(1.5), VAR("short"), VAR(Long), open_file(ended)};
    const char *const kept[] = {"", "12", "1.5", "sho", "a s", ""};
    for (std::size_t i = 0; i < std::size(cells); ++i) {
        VAR copy = cells[i];
        native_resize(&cells[i], 3);
        EXPECT_EQ(cells[i].form, VELDA_FORM_OWNED);
        EXPECT_EQ(cells[i].view(), (std::string(kept[i]) + std::string(3, '\0')).substr(0, 3));
        native_fill(&copy, 20);
        EXPECT_EQ(copy.form, VELDA_FORM_OWNED);
        EXPECT_EQ(copy.view(), std::string(20, 'x'));
    }
    EXPECT_EQ(ended, 1);
}

TEST(Buffer, PreparedFromBytes) {
    VAR cell = 5;
    VLibBStoreString_VBIS(nullptr, &cell, 3, "abcdef");
    EXPECT_EQ(cell.form, VELDA_FORM_OWNED);
    EXPECT_EQ(cell.view(), "abc");
    VLibBStoreString_VBIS(nullptr, &cell, 2, cell.text + 1);
    EXPECT_EQ(cell.view(), "bc");
}

TEST(Buffer, GrowsByAConstantFactor) {
    VAR cell;
    int moves = 0;
    const char *before = nullptr;
    for (int i = 0; i < 1000000; ++i) {
        append_text(cell, 'x');
        moves += cell.text != before;
        before = cell.text;
    }
    EXPECT_EQ(cell.length, 1000000u);
    EXPECT_LT(moves, 60);
}

TEST(Buffer, MemoryThatIsExhaustedEndsTheProcessWithAMessage) {
    VAR array = "a";
    EXPECT_EXIT(array(INT_MAX, INT_MAX, INT_MAX) = "b", testing::ExitedWithCode(VELDA_EXIT_MEMORY),
                "velda: a string of 6442450940 bytes is longer than a value can hold \\(4294967295 bytes\\)");
    EXPECT_EXIT(str(std::string(100, 'x'), INT_MAX), testing::ExitedWithCode(VELDA_EXIT_MEMORY),
                "velda: a string of 214748364700 bytes is longer");
}

TEST(FileHandle, StaysOpenUntilTheLastCellIsOverwritten) {
    int ended = 0;
    VAR file = open_file(ended);
    EXPECT_TRUE(file.is_file());
    VAR second = file;
    EXPECT_TRUE(second.is_file());
    EXPECT_EQ(second.text, file.text);
    file = "";
    EXPECT_EQ(ended, 0);
    second = 0;
    EXPECT_EQ(ended, 1);
    {
        const VAR third = open_file(ended);
        VAR moved = std::move(const_cast<VAR &>(third));
        EXPECT_EQ(ended, 1);
    }
    EXPECT_EQ(ended, 2);
}

TEST(FileHandle, ReadsAsTheEmptyString) {
    int ended = 0;
    const VAR file = open_file(ended);
    EXPECT_EQ(file.view(), "");
    EXPECT_EQ(file.to_integer(), 0);
    EXPECT_FALSE(file.is_numeric());
    EXPECT_FALSE(file);
    EXPECT_EQ(file.form, VELDA_FORM_FILE) << "reading does not change it";
}

TEST(SelectList, ReadsAsItsKeys) {
    VAR list;
    list.form = VELDA_FORM_LIST;
    list.text = reinterpret_cast<char *>(static_cast<Handle *>(new TestList));
    EXPECT_EQ(list(2), "k2 and a longer key");
    EXPECT_FALSE(list.is_numeric());
    VAR copy = list;
    EXPECT_EQ(copy.form, VELDA_FORM_LIST);
    VAR taken = std::move(copy);
    EXPECT_EQ(dcount(taken, AM), 2);
    taken(3) = "k3";
    EXPECT_EQ(shown(taken.view()), "k1^k2 and a longer key^k3");
    EXPECT_EQ(dcount(list, AM), 2);
}

TEST(Matrix, CellsByIndexFromOne) {
    VAR matrix;
    velda_make_matrix(&matrix, 3);
    EXPECT_EQ(velda_matrix_size(&matrix), 3);
    *VLibBARRAY_BB(nullptr, &matrix, 1) = "first";
    *VLibBARRAY_BB(nullptr, &matrix, 3) = Long;
    EXPECT_EQ(VLibBARRAY_BB(nullptr, &matrix, 2)->form, 0);
    EXPECT_EQ(*VLibBARRAY_BB(nullptr, &matrix, 3), Long);
    EXPECT_EQ(VLibBARRAY_BB(nullptr, &matrix, 0), nullptr);
    EXPECT_EQ(VLibBARRAY_BB(nullptr, &matrix, 4), nullptr);
    VAR copy = matrix;
    *VLibBARRAY_BB(nullptr, &copy, 1) = "other";
    EXPECT_EQ(*VLibBARRAY_BB(nullptr, &matrix, 1), "first");
    VLibBMATAB_VBB(nullptr, &matrix, VLibBARRAY_BB(nullptr, &matrix, 3));
    EXPECT_EQ(*VLibBARRAY_BB(nullptr, &matrix, 1), Long);
    EXPECT_EQ(*VLibBARRAY_BB(nullptr, &copy, 1), "other");
    matrix = 5;
    EXPECT_EQ(velda_matrix_size(&matrix), 0);
    EXPECT_EQ(VLibBARRAY_BB(nullptr, &matrix, 1), nullptr);
}

TEST(Store, EveryKindOfValue) {
    VAR target = Long;
    EXPECT_EQ(VLibBSTORE_BBI(nullptr, &target, -5), &target);
    EXPECT_EQ(target.view(), "-5");
    VLibBSTORE_VBI(nullptr, &target, 7);
    EXPECT_EQ(target.view(), "7");
    VLibBSTORE_VBS(nullptr, &target, "text");
    EXPECT_EQ(target.view(), "text");
    const VAR value = Long;
    EXPECT_EQ(VLibBSTORE_BBB(nullptr, &target, &value), &target);
    EXPECT_EQ(target.view(), Long);
    VLibBSTORE_BBB(nullptr, &target, Argument(target(1).view().substr(2, 30)));
    EXPECT_EQ(target.view(), Long.substr(2, 30));
}

TEST(Store, AViewIntoTheCellItselfMayBeAssigned) {
    VAR cell = Long;
    cell = cell.view().substr(5);
    EXPECT_EQ(cell.view(), Long.substr(5));
    cell = "inside";
    cell = cell.view().substr(2);
    EXPECT_EQ(cell.view(), "side");
    append_text(cell, cell.view(), cell.view());
    EXPECT_EQ(cell.view(), "sidesideside");
}
