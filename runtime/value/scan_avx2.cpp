// scan_avx2.cpp - the loops of scan.h, 32 bytes at a step.
//
// A search looks at three bytes of the needle at once: where all three stand in the text at their distances the place
// is compared as a whole. The bytes behind the last whole step are left to the portable loop.
#include "runtime/value/scan.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include <cstdint>

#define VELDA_AVX2 __attribute__((target("avx2,bmi,popcnt")))

namespace velda {

namespace {

constexpr std::ptrdiff_t Step = 32;
constexpr std::ptrdiff_t LongStep = 4 * Step;

VELDA_AVX2 inline __m256i load(const char *at) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(at)); }

VELDA_AVX2 inline std::uint32_t mask_of(__m256i bytes) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(bytes));
}

VELDA_AVX2 inline std::uint64_t joined(__m256i low, __m256i high) {
    return mask_of(low) | static_cast<std::uint64_t>(mask_of(high)) << 32;
}

// Four steps at once, each by name: kept in an array they would go through memory.
struct FourSteps {
    __m256i a, b, c, d;
};

VELDA_AVX2 inline FourSteps equal_bytes(const char *at, __m256i byte) {
    return {_mm256_cmpeq_epi8(load(at), byte), _mm256_cmpeq_epi8(load(at + Step), byte),
            _mm256_cmpeq_epi8(load(at + 2 * Step), byte), _mm256_cmpeq_epi8(load(at + 3 * Step), byte)};
}

// How many bytes of each column are set, from 0 to 4.
VELDA_AVX2 inline __m256i set_bytes(const FourSteps &steps) {
    const __m256i negative = _mm256_add_epi8(_mm256_add_epi8(steps.a, steps.b), _mm256_add_epi8(steps.c, steps.d));
    return _mm256_sub_epi8(_mm256_setzero_si256(), negative);
}

// Counts set bytes, in four parts of 64 bits.
class ByteCounter {
  public:
    VELDA_AVX2 inline void add(const FourSteps &steps) {
        parts_ = _mm256_add_epi64(parts_, _mm256_sad_epu8(set_bytes(steps), _mm256_setzero_si256()));
    }
    VELDA_AVX2 inline std::size_t total() const {
        return static_cast<std::size_t>(_mm256_extract_epi64(parts_, 0) + _mm256_extract_epi64(parts_, 1) +
                                        _mm256_extract_epi64(parts_, 2) + _mm256_extract_epi64(parts_, 3));
    }

  private:
    __m256i parts_ = {};
};

VELDA_AVX2 std::size_t count_byte_by_steps(const char *begin, const char *end, char byte) {
    const __m256i wanted = _mm256_set1_epi8(byte);
    ByteCounter counter;
    for (; end - begin >= LongStep; begin += LongStep) counter.add(equal_bytes(begin, wanted));
    std::size_t count = counter.total();
    for (; end - begin >= Step; begin += Step)
        count += static_cast<std::size_t>(_mm_popcnt_u32(mask_of(_mm256_cmpeq_epi8(load(begin), wanted))));
    return count + PortableKernels.count_byte(begin, end, byte);
}

VELDA_AVX2 const char *skip_bytes_by_steps(const char *begin, const char *end, char byte, std::size_t &wanted) {
    const __m256i pattern = _mm256_set1_epi8(byte);
    for (; end - begin >= LongStep; begin += LongStep) {
        const FourSteps equal = equal_bytes(begin, pattern);
        const auto count = static_cast<std::size_t>(_mm_popcnt_u64(joined(equal.a, equal.b)) +
                                                    _mm_popcnt_u64(joined(equal.c, equal.d)));
        if (count >= wanted) break;
        wanted -= count;
    }
    for (; end - begin >= Step; begin += Step) {
        std::uint32_t mask = mask_of(_mm256_cmpeq_epi8(load(begin), pattern));
        const auto count = static_cast<std::size_t>(_mm_popcnt_u32(mask));
        if (count >= wanted) {
            for (; wanted > 1; --wanted) mask &= mask - 1;
            wanted = 0;
            return begin + _tzcnt_u32(mask);
        }
        wanted -= count;
    }
    return PortableKernels.skip_bytes(begin, end, byte, wanted);
}

// Three bytes of a needle and their distances from its beginning.
struct Probes {
    __m256i first, middle, last;
    std::ptrdiff_t middle_at, last_at;
};

VELDA_AVX2 Probes probes_of(const Needle &needle) {
    const std::string_view text = needle.text;
    const auto size = static_cast<std::ptrdiff_t>(text.size());
    if (needle.kind == Needle::Plain)
        return {_mm256_set1_epi8(text.front()), _mm256_set1_epi8(text[text.size() / 2]), _mm256_set1_epi8(text.back()),
                size / 2, size - 1};
    // The mark that is found and the last two bytes of the text, for keys often begin alike. An empty text is found by
    // the mark alone, which any byte follows.
    const __m256i mark = _mm256_set1_epi8(needle.mark);
    if (text.empty()) return {mark, mark, mark, 0, 0};
    const __m256i last = _mm256_set1_epi8(text.back());
    if (size == 1) return {mark, last, last, 1, 1};
    return {mark, _mm256_set1_epi8(text[text.size() - 2]), last, size - 1, size};
}

// All bytes that are AM, VM or SVM: those whose distance from SVM, without a sign, is at most 2.
VELDA_AVX2 inline __m256i level_marks(__m256i bytes) {
    const __m256i distance = _mm256_sub_epi8(bytes, _mm256_set1_epi8(SVM));
    return _mm256_cmpeq_epi8(_mm256_min_epu8(distance, _mm256_set1_epi8(AM - SVM)), distance);
}

template <Needle::Kind kind>
VELDA_AVX2 inline bool is_whole(const char *at, const char *end, const Needle &needle) {
    if (kind == Needle::Plain) return std::memcmp(at, needle.text.data(), needle.text.size()) == 0;
    if (!needle.text.empty() && std::memcmp(at + 1, needle.text.data(), needle.text.size()) != 0) return false;
    const char *const behind = at + 1 + needle.text.size();
    return behind == end || (kind == Needle::AnyElement ? is_level_mark(*behind) : *behind == needle.mark);
}

template <Needle::Kind kind>
VELDA_AVX2 inline __m256i first_bytes(const char *at, const Probes &probes) {
    return kind == Needle::AnyElement ? level_marks(load(at)) : _mm256_cmpeq_epi8(load(at), probes.first);
}

// Of the places `first`, those where the other two bytes stand too, which are the same for `is_short`.
template <bool is_short>
VELDA_AVX2 inline __m256i likely_places(const char *at, __m256i first, const Probes &probes) {
    const __m256i last = _mm256_cmpeq_epi8(load(at + probes.last_at), probes.last);
    if (is_short) return _mm256_and_si256(first, last);
    const __m256i middle = _mm256_cmpeq_epi8(load(at + probes.middle_at), probes.middle);
    return _mm256_and_si256(first, _mm256_and_si256(middle, last));
}

template <Needle::Kind kind>
VELDA_AVX2 inline const char *first_whole(const char *at, std::uint64_t mask, const char *end, const Needle &needle) {
    for (; mask; mask &= mask - 1)
        if (const char *const place = at + _tzcnt_u64(mask); is_whole<kind>(place, end, needle)) return place;
    return nullptr;
}

// With `counting`, counts the needle's mark on the way.
template <Needle::Kind kind, bool counting, bool is_short>
VELDA_AVX2 const char *find_by_steps(const char *begin, const char *end, const Needle &needle, std::size_t *marks) {
    const Probes probes = probes_of(needle);
    const std::ptrdiff_t reach = LongStep + probes.last_at;
    ByteCounter counter;
    const char *found = nullptr;
    for (; end - begin >= reach; begin += LongStep) {
        const FourSteps first = {first_bytes<kind>(begin, probes), first_bytes<kind>(begin + Step, probes),
                                 first_bytes<kind>(begin + 2 * Step, probes),
                                 first_bytes<kind>(begin + 3 * Step, probes)};
        const FourSteps likely = {likely_places<is_short>(begin, first.a, probes),
                                  likely_places<is_short>(begin + Step, first.b, probes),
                                  likely_places<is_short>(begin + 2 * Step, first.c, probes),
                                  likely_places<is_short>(begin + 3 * Step, first.d, probes)};
        const __m256i any = _mm256_or_si256(_mm256_or_si256(likely.a, likely.b), _mm256_or_si256(likely.c, likely.d));
        if (!_mm256_testz_si256(any, any)) {
            found = first_whole<kind>(begin, joined(likely.a, likely.b), end, needle);
            if (!found) found = first_whole<kind>(begin + 2 * Step, joined(likely.c, likely.d), end, needle);
            if (found) break;
        }
        if (counting) counter.add(first);
    }
    if (!found) found = PortableKernels.find(begin, end, needle);
    if (counting) *marks += counter.total() + count_byte_by_steps(begin, found, needle.mark);
    return found;
}

// An empty element is any mark with another behind it or the end: no byte of its own to look at.
template <Needle::Kind kind>
VELDA_AVX2 const char *find_empty_by_steps(const char *begin, const char *end, const Needle &needle) {
    const Probes probes = probes_of(needle);
    for (; end - begin >= 2 * Step + 1; begin += 2 * Step) {
        const __m256i low = _mm256_and_si256(first_bytes<kind>(begin, probes), first_bytes<kind>(begin + 1, probes));
        const __m256i high =
            _mm256_and_si256(first_bytes<kind>(begin + Step, probes), first_bytes<kind>(begin + Step + 1, probes));
        if (const std::uint64_t mask = joined(low, high)) return begin + _tzcnt_u64(mask);
    }
    return PortableKernels.find(begin, end, needle);
}

template <Needle::Kind kind, bool counting = false>
VELDA_AVX2 const char *find_text_by_steps(const char *begin, const char *end, const Needle &needle,
                                          std::size_t *marks = nullptr) {
    if (needle.text.size() == 1) return find_by_steps<kind, counting, true>(begin, end, needle, marks);
    return find_by_steps<kind, counting, false>(begin, end, needle, marks);
}

VELDA_AVX2 const char *find_by_kind(const char *begin, const char *end, const Needle &needle) {
    switch (needle.kind) {
        case Needle::Plain:
            return find_text_by_steps<Needle::Plain>(begin, end, needle);
        case Needle::Element:
            if (needle.text.empty()) return find_empty_by_steps<Needle::Element>(begin, end, needle);
            return find_text_by_steps<Needle::Element>(begin, end, needle);
        case Needle::AnyElement:
            if (needle.text.empty()) return find_empty_by_steps<Needle::AnyElement>(begin, end, needle);
            return find_text_by_steps<Needle::AnyElement>(begin, end, needle);
    }
    return end;
}

VELDA_AVX2 const char *find_counting_by_steps(const char *begin, const char *end, const Needle &needle,
                                              std::size_t &marks) {
    if (!needle.text.empty()) return find_text_by_steps<Needle::Element, true>(begin, end, needle, &marks);
    const char *const found = find_empty_by_steps<Needle::Element>(begin, end, needle);
    marks += count_byte_by_steps(begin, found, needle.mark);
    return found;
}

VELDA_AVX2 inline void replace_step(const char *from, char *to, __m256i equal, __m256i with) {
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(to), _mm256_blendv_epi8(load(from), with, equal));
}

VELDA_AVX2 void replace_byte_by_steps(const char *begin, const char *end, char *target, char byte, char with) {
    const __m256i old_bytes = _mm256_set1_epi8(byte);
    const __m256i new_bytes = _mm256_set1_epi8(with);
    const bool in_place = begin == target;
    for (; end - begin >= LongStep; begin += LongStep, target += LongStep) {
        const FourSteps equal = equal_bytes(begin, old_bytes);
        const __m256i any = _mm256_or_si256(_mm256_or_si256(equal.a, equal.b), _mm256_or_si256(equal.c, equal.d));
        if (in_place && _mm256_testz_si256(any, any)) continue;  // memory that stays is not written
        replace_step(begin, target, equal.a, new_bytes);
        replace_step(begin + Step, target + Step, equal.b, new_bytes);
        replace_step(begin + 2 * Step, target + 2 * Step, equal.c, new_bytes);
        replace_step(begin + 3 * Step, target + 3 * Step, equal.d, new_bytes);
    }
    PortableKernels.replace_byte(begin, end, target, byte, with);
}

constexpr ScanKernels Avx2Kernels = {count_byte_by_steps, skip_bytes_by_steps, find_by_kind, find_counting_by_steps,
                                     replace_byte_by_steps};

}  // namespace

const ScanKernels *fast_kernels() {
    __builtin_cpu_init();
    const bool runs =
        __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("popcnt");
    return runs ? &Avx2Kernels : nullptr;
}

}  // namespace velda

#else

const velda::ScanKernels *velda::fast_kernels() { return nullptr; }

#endif
