// The searching loops: the portable and the fast ones give what the obvious loop gives, at every length and place, and
// read nothing behind the end.
#include <sys/mman.h>

#include <cstring>

#include "runtime/value/scan.h"
#include "tests/runtime/value/fixture.h"
#include "tests/runtime/value/random.h"

using namespace velda;

namespace {

constexpr std::size_t PageSize = 4096;

// Memory whose last byte is followed by a page that must not be touched.
class GuardedMemory {
  public:
    GuardedMemory() {
        pages_ = static_cast<char *>(
            mmap(nullptr, 2 * PageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(pages_ + PageSize, PageSize, PROT_NONE);
    }
    ~GuardedMemory() { munmap(pages_, 2 * PageSize); }
    GuardedMemory(const GuardedMemory &) = delete;
    GuardedMemory &operator=(const GuardedMemory &) = delete;

    // The text, ending at the guard.
    std::string_view hold(std::string_view text) {
        char *const begin = pages_ + PageSize - text.size();
        std::memcpy(begin, text.data(), text.size());
        return {begin, text.size()};
    }

  private:
    char *pages_;
};

class Scan : public testing::TestWithParam<bool> {
  protected:
    void SetUp() override {
        if (GetParam() && !fast_kernels()) GTEST_SKIP() << "this processor has only the portable loops";
    }
    const ScanKernels &kernels() const { return GetParam() ? *fast_kernels() : PortableKernels; }

    test::Random random;
    GuardedMemory memory;
};

std::string with_marks(test::Random &random, int longest) { return random.text(longest, "ab\xFE\xFD\xFC\xFF\xFB"); }

bool is_at(std::string_view text, std::size_t at, const Needle &needle) {
    if (needle.kind == Needle::Plain) return text.substr(at, needle.text.size()) == needle.text;
    const auto is_mark = [&](char byte) {
        return needle.kind == Needle::Element ? byte == needle.mark : byte == AM || byte == VM || byte == SVM;
    };
    const std::size_t behind = at + 1 + needle.text.size();
    return is_mark(text[at]) && text.substr(at + 1, needle.text.size()) == needle.text && behind <= text.size() &&
           (behind == text.size() || is_mark(text[behind]));
}

}  // namespace

TEST_P(Scan, CountsEveryByte) {
    for (int round = 0; round < 2000; ++round) {
        const std::string_view text = memory.hold(with_marks(random, round % 10 ? 200 : 4000));
        std::size_t expected = 0;
        for (char byte : text) expected += byte == AM;
        ASSERT_EQ(kernels().count_byte(text.data(), text.data() + text.size(), AM), expected);
    }
}

TEST_P(Scan, CountsMoreThanEightBitsHold) {
    const std::string text(300000, AM);
    EXPECT_EQ(kernels().count_byte(text.data(), text.data() + text.size(), AM), text.size());
}

TEST_P(Scan, GoesOverSoManyBytes) {
    for (int round = 0; round < 5000; ++round) {
        const std::string_view text = memory.hold(with_marks(random, round % 10 ? 300 : 2000));
        const auto wanted = static_cast<std::size_t>(random.number(1, 60));
        std::size_t lacking = wanted, at = 0;
        for (; at < text.size(); ++at)
            if (text[at] == VM && --lacking == 0) break;
        std::size_t left = wanted;
        const char *const found = kernels().skip_bytes(text.data(), text.data() + text.size(), VM, left);
        ASSERT_EQ(left, lacking);
        ASSERT_EQ(found - text.data(), static_cast<std::ptrdiff_t>(at));
    }
}

TEST_P(Scan, FindsTheFirstPlace) {
    int hits = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string_view text = memory.hold(with_marks(random, round % 4 ? 200 : 1500));
        std::string wanted = random.text(random.one_in(3) ? 6 : 2, "ab\xFE");
        const auto kind = static_cast<Needle::Kind>(random.number(0, 2));
        if (kind == Needle::Plain && wanted.empty()) wanted = "b";
        const Needle needle = {kind, wanted, random.one_in(2) ? AM : VM};
        std::size_t expected = 0;
        while (expected < text.size() && !is_at(text, expected, needle)) ++expected;
        const char *const found = kernels().find(text.data(), text.data() + text.size(), needle);
        ASSERT_EQ(found - text.data(), static_cast<std::ptrdiff_t>(expected)) << shown(wanted) << " in " << shown(text);
        hits += expected < text.size();
        if (kind != Needle::Element) continue;
        std::size_t marks = 0, expected_marks = 0;
        ASSERT_EQ(kernels().find_counting(text.data(), text.data() + text.size(), needle, marks), found);
        for (std::size_t at = 0; at < expected; ++at) expected_marks += text[at] == needle.mark;
        ASSERT_EQ(marks, expected_marks);
    }
    EXPECT_GT(hits, 1000);
}

TEST_P(Scan, FindsLongTexts) {
    for (int round = 0; round < 500; ++round) {
        std::string text = random.text(1500, "ab");
        const std::string wanted = random.text(90, "ab") + "c";
        const auto place = static_cast<std::size_t>(random.number(0, static_cast<long long>(text.size())));
        text.insert(place, wanted);
        const std::string_view held = memory.hold(text);
        const char *const found = kernels().find(held.data(), held.data() + held.size(), {Needle::Plain, wanted});
        ASSERT_EQ(found - held.data(), static_cast<std::ptrdiff_t>(held.find(wanted)));
    }
}

TEST_P(Scan, ReplacesInPlaceAndElsewhere) {
    for (int round = 0; round < 2000; ++round) {
        const std::string text = with_marks(random, 300);
        std::string expected = text;
        for (char &byte : expected)
            if (byte == AM) byte = 'x';
        std::string copy(text.size(), '?');
        kernels().replace_byte(text.data(), text.data() + text.size(), copy.data(), AM, 'x');
        ASSERT_EQ(copy, expected);
        copy = text;
        kernels().replace_byte(copy.data(), copy.data() + copy.size(), copy.data(), AM, 'x');
        ASSERT_EQ(copy, expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Loops, Scan, testing::Bool(), [](const auto &run) { return run.param ? "Fast" : "Portable"; });
