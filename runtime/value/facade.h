// facade.h - the dialect's words for C++: what the logic is written in. Inline over the entries of value.h, whose rules
// hold (nothing fails; positions count from 1, 0 is the whole, -1 appends).
//
//   for (int i = 1; i <= dcount(record(JobList), VM); ++i) if (record(JobList, i) == wanted) ...
//   if (auto at = locate(job, queue, JobList)) queue.remove(JobList, *at);
//   line = cat(name, VM, 100, VM, field(path, "/", 2));
//
// Parameters of type Argument take cells, elements, text and numbers without a copy. Words that give text give a new
// VAR.
#ifndef VELDA_RUNTIME_VALUE_FACADE_H
#define VELDA_RUNTIME_VALUE_FACADE_H

#include <compare>
#include <concepts>
#include <type_traits>

#include "runtime/vdefc.h"

namespace velda {

// --- Dynamic arrays ---
// The outcome of a LOCATE: true when found. `*at` and `at.position` are the position found or, when it was not, where
// the element belongs (with an order) or one beyond the last.
struct Located {
    bool found;
    int position;

    explicit operator bool() const { return found; }
    int operator*() const { return position; }
};

// Where an element equals `wanted`: among the attributes, the values of attribute a, or the sub-values of value v of
// it. Orders: "AL", "AR", "DL", "DR"; the array is then taken as sorted.
inline Located locate(const Argument &wanted, const Argument &array, int a = 0, int v = 0, const Argument &order = "",
                      int start = 1) {
    VAR position;
    const int found = VLibELOCATE_IBBBIIIIB(nullptr, &position, wanted, array, a, v, 0, start, order);
    return {found != 0, static_cast<int>(position.to_integer())};
}

// The outcome of a FIND: true when found, and where; zeros otherwise.
struct Found {
    bool found = false;
    int attribute = 0;
    int value = 0;
    int sub_value = 0;

    explicit operator bool() const { return found; }
};

namespace detail {
template <class Entry>
Found find_by(Entry entry, const Argument &wanted, const Argument &array, int occurrence) {
    VAR a, v, s;
    if (!entry(nullptr, wanted, array, occurrence, &a, &v, &s)) return {};
    return {true, static_cast<int>(a.to_integer()), static_cast<int>(v.to_integer()), static_cast<int>(s.to_integer())};
}
template <class Entry>
VAR give(Entry entry, const Argument &source) {
    VAR result;
    entry(nullptr, &result, source);
    return result;
}
template <class Entry>
VAR give(Entry entry, const Argument &left, const Argument &right) {
    VAR result;
    entry(nullptr, &result, left, right);
    return result;
}
}  // namespace detail

// The occurrence-th element of any level that equals, or contains, `wanted`.
inline Found find(const Argument &wanted, const Argument &array, int occurrence = 1) {
    return detail::find_by(VLibEFIND_IBBIBBB, wanted, array, occurrence);
}
inline Found findstr(const Argument &wanted, const Argument &array, int occurrence = 1) {
    return detail::find_by(VLibEFINDSTR_IBBIBBB, wanted, array, occurrence);
}

// A copy of an element of something that is no variable; of a variable `x(a, v, s)` reads it in place.
inline VAR extract(const Argument &array, int a, int v = 0, int s = 0) {
    VAR result;
    VLibEEXTRACT_BBBIII(nullptr, &result, array, a, v, s);
    return result;
}

inline int dcount(const Argument &text, const Argument &delimiter) { return VLibEDCOUNT_IBB(nullptr, text, delimiter); }
inline int count(const Argument &text, const Argument &part) { return VLibECOUNT_IBB(nullptr, text, part); }
inline VAR raise(const Argument &array) { return detail::give(VLibERAISE_BBB, array); }
inline VAR lower(const Argument &array) { return detail::give(VLibELOWER_BBB, array); }
inline VAR sort(const Argument &array) { return detail::give(VLibESORT_BBB, array); }  // attributes, ascending
inline VAR sum(const Argument &array) { return detail::give(VLibESUM_BBB, array); }    // of all numeric elements

// --- Text ---

inline int len(const Argument &text) { return VLibELEN_IB(nullptr, text); }
// Byte position of the occurrence-th occurrence of `part`; 0 when there is none.
inline int index(const Argument &text, const Argument &part, int occurrence = 1) {
    return VLibEINDEX_IBBI(nullptr, text, part, occurrence);
}
// `number` fields from field `first` on. With a `dp` it leaves COL1 and COL2 (VLibEFIELD_COL_II).
inline VAR field(DP *dp, const Argument &text, const Argument &delimiter, int first, int number = 1) {
    VAR result;
    VLibEGROUP_BBBBII(dp, &result, text, delimiter, first, number);
    return result;
}
inline VAR field(const Argument &text, const Argument &delimiter, int first, int number = 1) {
    return field(nullptr, text, delimiter, first, number);
}
// x[start,length]
inline VAR substring(const Argument &text, int start, int length) {
    VAR result;
    VLibESUBSTR_BBBII(nullptr, &result, text, start, length);
    return result;
}

// a:b:c...
template <class... Parts>
VAR cat(const Parts &...parts) {
    VAR result;
    VLibEMCAT_BBI(nullptr, &result, static_cast<int>(sizeof...(Parts)), static_cast<const VAR *>(Argument(parts))...);
    return result;
}
// x = x:a:b... in place: in constant time per byte, however long x is. A part may be x itself.
template <class... Parts>
VAR &append_text(VAR &target, const Parts &...parts) {
    VLibEMCAT_BBI(nullptr, &target, static_cast<int>(sizeof...(Parts)) + 1, static_cast<const VAR *>(&target),
                  static_cast<const VAR *>(Argument(parts))...);
    return target;
}

namespace detail {
inline VAR trim(int code, const Argument &text, const VAR *character, const VAR *type) {
    VAR result;
    VLibETRIM_BIBBBB(nullptr, code, &result, text, character, type);
    return result;
}
}  // namespace detail

// Without blanks at both ends, and with one in the place of several inside.
inline VAR trim(const Argument &text) { return detail::trim(VELDA_TRIM_REDUNDANT, text, nullptr, nullptr); }
// By type: "L" leading, "T" trailing, "B" both, "A" all, "R" leading, trailing and redundant.
inline VAR trim(const Argument &text, const Argument &character, const Argument &type = "R") {
    return detail::trim(VELDA_TRIM_BY_TYPE, text, character, type);
}
inline VAR trim_front(const Argument &text) { return detail::trim(VELDA_TRIM_LEADING, text, nullptr, nullptr); }
inline VAR trim_back(const Argument &text) { return detail::trim(VELDA_TRIM_TRAILING, text, nullptr, nullptr); }

inline VAR change(const Argument &text, const Argument &old_text, const Argument &new_text, int occurrences = -1,
                  int start = 1) {
    VAR result;
    VLibGSWAPF_BBBBBII(nullptr, &result, text, old_text, new_text, occurrences, start);
    return result;
}
// Byte by byte; a byte of `from` without a partner in `to` is removed.
inline VAR convert(const Argument &text, const Argument &from, const Argument &to) {
    VAR result;
    VLibGCONVERTF_BBBBB(nullptr, &result, text, from, to);
    return result;
}
// In place: the whole, or the element at the position.
inline void change_in(VAR &array, const Argument &old_text, const Argument &new_text, int a = 0, int v = 0, int s = 0) {
    VLibGCHANGETO_VBIIIBB(nullptr, &array, a, v, s, old_text, new_text);
}
inline void convert_in(VAR &array, const Argument &from, const Argument &to, int a = 0, int v = 0, int s = 0) {
    VLibGCONVERTTO_VBIIIBB(nullptr, &array, a, v, s, from, to);
}

inline VAR upcase(const Argument &text) { return detail::give(VLibGUPCASE_BBB, text); }
inline VAR downcase(const Argument &text) { return detail::give(VLibGDOWNCASE_BBB, text); }
inline VAR control(const Argument &text) { return detail::give(VLibECONTROLCHAR_BBB, text); }  // CTRL(x)
inline VAR str(const Argument &text, int times) {
    VAR result;
    VLibESTR_BBBI(nullptr, &result, text, times);
    return result;
}
inline VAR space(int times) {
    VAR result;
    VLibESPACE_BBI(nullptr, &result, times);
    return result;
}
inline VAR chr(int byte) {
    VAR result;
    VLibECHAR_BBI(nullptr, &result, byte);
    return result;
}
inline int seq(const Argument &text) { return VLibGSEQ_IB(nullptr, text); }

// --- Tests ---

inline bool matches(const Argument &text, const Argument &pattern) {
    return VLibEMATCHES_IBB(nullptr, text, pattern) != 0;
}
inline bool is_alpha(const Argument &text) { return VLibEALPHA_IB(nullptr, text) != 0; }
inline bool is_num(const Argument &text) { return VLibDNUM_IB(nullptr, text) != 0; }
inline bool is_type(const Argument &character, int type) { return VLibEISTYPE_IBI(nullptr, character, type) != 0; }
inline bool truth(const Argument &value) { return VLibBCONVCOND_IB(nullptr, value) != 0; }

// --- Numbers ---

inline VAR abs(const Argument &number) { return detail::give(VLibDABS_BBB, number); }
inline VAR integer_part(const Argument &number) { return detail::give(VLibBINT_BBB, number); }
inline VAR random_below(const Argument &limit) { return detail::give(VLibDRND_BBB, limit); }
inline VAR mod(const Argument &left, const Argument &right) { return detail::give(VLibDMOD_BBBB, left, right); }
inline int to_int(const Argument &number) { return VLibBCONV_IB(nullptr, number); }

// String arithmetic, without a limit on size; the quotient is an integer.
namespace detail {
inline VAR string_arithmetic(const Argument &left, const Argument &right, int operation) {
    VAR result;
    VLibDSMATH_BBBBII(nullptr, &result, left, right, operation, 0);
    return result;
}
}  // namespace detail
inline VAR string_add(const Argument &left, const Argument &right) {
    return detail::string_arithmetic(left, right, VELDA_SMATH_ADD);
}
inline VAR string_subtract(const Argument &left, const Argument &right) {
    return detail::string_arithmetic(left, right, VELDA_SMATH_SUBTRACT);
}
inline VAR string_multiply(const Argument &left, const Argument &right) {
    return detail::string_arithmetic(left, right, VELDA_SMATH_MULTIPLY);
}
inline VAR string_divide(const Argument &left, const Argument &right) {
    return detail::string_arithmetic(left, right, VELDA_SMATH_DIVIDE);
}
inline VAR string_modulo(const Argument &left, const Argument &right) {
    return detail::string_arithmetic(left, right, VELDA_SMATH_MODULO);
}

// --- Operators ---

namespace detail {

template <class T>
concept Cell = std::same_as<std::remove_cvref_t<T>, VAR>;
template <class T>
concept View = std::derived_from<std::remove_cvref_t<T>, ConstElement>;
template <class T>
concept Plain = !Cell<T> && !View<T> && std::constructible_from<Argument, const T &>;
// Operators stand where their operands' types are declared: with a VAR in the global namespace, else in this one.
template <class L, class R>
concept WithCell = (Cell<L> && (Cell<R> || View<R> || Plain<R>)) || (Cell<R> && (View<L> || Plain<L>));
template <class L, class R>
concept WithView = (View<L> && (View<R> || Plain<R>)) || (View<R> && Plain<L>);

// The common case without a call: both are plain integers. An order of integers is that of their difference from zero.
template <int operation, class L, class R>
bool compare(const L &left, const R &right) {
    const Argument l(left), r(right);
    const VAR &a = *l, &b = *r;
    if (a.form == VELDA_FORM_INTEGER && b.form == VELDA_FORM_INTEGER) {
        if constexpr (operation == VELDA_EQUAL) return a.integer == b.integer;
        if constexpr (operation == VELDA_NOT_EQUAL) return a.integer != b.integer;
        if constexpr (operation == VELDA_LESS) return a.integer < b.integer;
        if constexpr (operation == VELDA_LESS_EQUAL) return a.integer <= b.integer;
        if constexpr (operation == VELDA_GREATER) return a.integer > b.integer;
        if constexpr (operation == VELDA_GREATER_EQUAL) return a.integer >= b.integer;
    }
    return VLibDCOMPARE_IBBI(nullptr, &a, &b, operation) != 0;
}

}  // namespace detail

// Comparison by the dialect's rule: by value when both sides are numeric, otherwise as bytes. Arithmetic on the numeric
// values. Both take cells, elements, text and numbers, with a cell or an element on at least one side.
#define VELDA_OPERATORS(With)                                                                                        \
    template <class L, class R>                                                                                      \
    requires velda::detail::With<L, R>                                                                               \
    bool operator==(const L &left, const R &right) { return velda::detail::compare<VELDA_EQUAL>(left, right); }      \
    template <class L, class R>                                                                                      \
    requires velda::detail::With<L, R>                                                                               \
    bool operator!=(const L &left, const R &right) { return velda::detail::compare<VELDA_NOT_EQUAL>(left, right); }  \
    template <class L, class R>                                                                                      \
    requires velda::detail::With<L, R>                                                                               \
    bool operator<(const L &left, const R &right) { return velda::detail::compare<VELDA_LESS>(left, right); }        \
    template <class L, class R>                                                                                      \
    requires velda::detail::With<L, R>                                                                               \
    bool operator<=(const L &left, const R &right) { return velda::detail::compare<VELDA_LESS_EQUAL>(left, right); } \
    template <class L, class R>                                                                                      \
    requires velda::detail::With<L, R>                                                                               \
    bool operator>(const L &left, const R &right) { return velda::detail::compare<VELDA_GREATER>(left, right); }     \
    template <class L, class R>                                                                                      \
    requires velda::detail::With<L, R>                                                                               \
    bool operator>=(const L &left, const R &right) {                                                                 \
        return velda::detail::compare<VELDA_GREATER_EQUAL>(left, right);                                             \
    }                                                                                                                \
    template <class L, class R>                                                                                      \
    requires velda::detail::With<L, R> VAR operator+(const L &left, const R &right) {                                \
        return velda::detail::give(VLibDMATHADD_BBBB, left, right);                                                  \
    }                                                                                                                \
    template <class L, class R>                                                                                      \
    requires velda::detail::With<L, R> VAR operator-(const L &left, const R &right) {                                \
        return velda::detail::give(VLibDMATHSUB_BBBB, left, right);                                                  \
    }                                                                                                                \
    template <class L, class R>                                                                                      \
    requires velda::detail::With<L, R> VAR operator*(const L &left, const R &right) {                                \
        return velda::detail::give(VLibDMATHMUL_BBBB, left, right);                                                  \
    }                                                                                                                \
    template <class L, class R>                                                                                      \
    requires velda::detail::With<L, R> VAR operator/(const L &left, const R &right) {                                \
        return velda::detail::give(VLibDMATHDIV_BBBB, left, right);                                                  \
    }

VELDA_OPERATORS(WithView)

}  // namespace velda

VELDA_OPERATORS(WithCell)
#undef VELDA_OPERATORS

inline VAR operator-(const VAR &number) { return velda::detail::give(VLibDNEG_BBB, number); }

#endif
