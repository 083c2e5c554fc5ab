// vdefc.h - the value cell and its constants, for C and C++.
//
// Everything in the system is a VAR: a number, a string, an open file, a whole record. The layout is fixed, so that a C
// program can hold a cell and native logic can test its form without a call. In C++ a VAR is also a value type: it owns
// its string, copies deeply, and frees on destruction. See docs/architecture.md, "The value cell".
#ifndef VELDA_RUNTIME_VDEFC_H
#define VELDA_RUNTIME_VDEFC_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#include <concepts>
#include <string>
#include <string_view>
#endif

#define VELDA_EXPORT __attribute__((visibility("default")))

// A number that is read as text gets that text, and a string that is tested gets its numeric value, also in a cell that
// the reader holds as const: those fields are mutable in C++.
#ifdef __cplusplus
#define VELDA_MUTABLE mutable
#else
#define VELDA_MUTABLE
#endif

// The context of one session: first argument of every runtime call and every export. Opaque outside the runtime.
typedef struct DP DP;

// Form flags of VAR::form, and masks over it.
enum {
    VELDA_FORM_INTEGER = 0x0001,       // `integer` is valid; a form of exactly this value is a plain integer
    VELDA_FORM_IMAGE = 0x0002,         // `image` is valid: the cell is a number
    VELDA_FORM_OWNED = 0x0004,         // the string lies in a buffer that the cell owns; `text` and `length` are valid
    VELDA_FORM_FILE = 0x0010,          // exactly this value: an open file, `text` addresses its control block
    VELDA_FORM_MATRIX = 0x0040,        // exactly this value: a matrix, `text` addresses its cells, `length` counts them
    VELDA_FORM_DERIVED = 0x0400,       // derived data is kept with the string; drop it before the string changes
    VELDA_FORM_CONSTANT = 0x0800,      // the string lies inside the cell: a constant, or a short string of a variable
    VELDA_FORM_NONCANONICAL = 0x1000,  // the string has an image, but is not that number's canonical text
    VELDA_FORM_CANONICAL = 0x2000,     // the string has an image and is that number's canonical text
    VELDA_FORM_INDIRECT = 0x4000,      // the string is reached only through VLibEADDR_SB and VLibELEN_IB
    VELDA_FORM_LIST = 0x4020,          // exactly this value: a select list, `text` addresses it

    VELDA_MASK_INDIRECT_STRING = 0x4800,  // any bit: length and address come from VLibELEN_IB and VLibEADDR_SB
    VELDA_MASK_RELEASE = 0xC07C,          // any bit: VLibBStoreFreeVar_VB before the form is overwritten
    VELDA_MASK_HAS_STRING = 0x0804,       // no bit: no string form yet, VLibCONV_VB gives one
    VELDA_MASK_HAS_IMAGE = 0x3002         // any bit: `image` can be tested directly
};

// Flags of VAR::formExtra.
enum {
    VELDA_EXTRA_CONSTANT = 0x02,          // set in every constant
    VELDA_EXTRA_NUMERIC_CONSTANT = 0x20,  // set in canonical numeric constants
    VELDA_EXTRA_LENGTH_STABLE = 0x40      // cleared whenever a string's length is changed in place
};

#define VELDA_PRECISION 4    // decimals of an image
#define VELDA_SCALE 10000.0  // 10 to the power VELDA_PRECISION

// A string inside the cell (VELDA_FORM_CONSTANT): a 16-bit length where `text` stands, then the bytes and a zero byte.
// A constant may run on behind the cell; a variable holds at most VELDA_INSIDE_LENGTH bytes in this form.
#define VELDA_INSIDE_OFFSET 26
#define VELDA_INSIDE_LENGTH 13

#ifdef __cplusplus
struct VAR;
namespace velda {
class Element;
class ConstElement;
}  // namespace velda
#endif

struct VAR {
    VELDA_MUTABLE uint16_t form;      // VELDA_FORM_ flags; 0 is an unassigned cell: "" as text, 0 as a number
    VELDA_MUTABLE uint8_t formExtra;  // VELDA_EXTRA_ flags
    VELDA_MUTABLE uint8_t precision;  // decimal places of `image`
    uint32_t reserved;
    VELDA_MUTABLE double image;     // numeric value times 10 to the power `precision`
    VELDA_MUTABLE int64_t integer;  // numeric value as an integer
    VELDA_MUTABLE char *text;       // first byte of the string; in a file handle the control block
    VELDA_MUTABLE uint32_t length;  // bytes of the string
    uint32_t reserved2;

#ifdef __cplusplus
    // --- value semantics ---
    constexpr VAR() noexcept
        : form(0),
          formExtra(0),
          precision(0),
          reserved(0),
          image(0),
          integer(0),
          text(nullptr),
          length(0),
          reserved2(0) {}
    VAR(const VAR &other);
    VAR(VAR &&other) noexcept;
    VAR &operator=(const VAR &other);
    VAR &operator=(VAR &&other) noexcept;
    ~VAR();
    template <std::integral T>
    VAR(T number) : VAR() {
        store_integer(static_cast<int64_t>(number));
    }
    VAR(char byte) : VAR(std::string_view(&byte, 1)) {}
    VAR(double number);
    VAR(std::string_view string);
    VAR(const char *string) : VAR(std::string_view(string)) {}
    VAR(const std::string &string) : VAR(std::string_view(string)) {}
    VAR(const velda::Element &element);
    VAR(const velda::ConstElement &element);
    // Assignment of text that lies in this very cell is allowed: `x = x(2)`.
    VAR &operator=(const velda::Element &element);
    VAR &operator=(const velda::ConstElement &element);
    VAR &operator=(std::string_view string);
    VAR &operator=(const char *string) { return *this = std::string_view(string); }
    VAR &operator=(const std::string &string) { return *this = std::string_view(string); }
    VAR &operator=(char byte) { return *this = std::string_view(&byte, 1); }
    VAR &operator=(double number);
    template <std::integral T>
    VAR &operator=(T number) {
        store_integer(static_cast<int64_t>(number));
        return *this;
    }

    // --- reading ---
    // The cell's text; a number is given its canonical text first. Valid until the cell changes.
    std::string_view view() const;
    std::string str() const { return std::string(view()); }
    uint32_t size() const { return static_cast<uint32_t>(view().size()); }
    bool empty() const { return view().empty(); }
    bool is_file() const { return form == VELDA_FORM_FILE; }
    bool is_numeric() const;         // "" is not numeric
    int64_t to_integer() const;      // integer part of the numeric value; 0 when not numeric
    double to_double() const;        // numeric value; 0 when not numeric
    explicit operator bool() const;  // the dialect's truth

    // --- elements: x(a), x(a, v), x(a, v, s) are x<a>, x<a,v>, x<a,v,s> ---
    velda::Element operator()(int a, int v = 0, int s = 0);
    velda::ConstElement operator()(int a, int v = 0, int s = 0) const;
    VAR &append(const VAR &value);                               // x<-1> = value
    VAR &insert(const VAR &value, int a, int v = 0, int s = 0);  // INSERT before the position; -1 appends
    VAR &remove(int a, int v = 0, int s = 0);                    // DELETE of the element
    VAR &operator+=(const VAR &number);  // arithmetic, not concatenation: velda::append_text joins text
    VAR &operator-=(const VAR &number);
    VAR &operator++();
    VAR &operator--();

    // The dialect's x[start,length]; see VLibESUBSTR_BBBII for negative values.
    VAR substring(int start, int length) const;

    void clear();  // becomes ""
  private:
    void store_integer(int64_t number);
#endif
};
#ifndef __cplusplus
typedef struct VAR VAR;
#endif

#ifdef __cplusplus

static_assert(offsetof(VAR, form) == 0 && offsetof(VAR, formExtra) == 2 && offsetof(VAR, precision) == 3);
static_assert(offsetof(VAR, image) == 8 && offsetof(VAR, integer) == 16 && offsetof(VAR, text) == 24);
static_assert(offsetof(VAR, length) == 32);
static_assert(sizeof(VAR) == 40);

namespace velda {
// The marks that divide a dynamic array, and the two that the system uses privately.
inline constexpr char SegmentMark = '\xFF';
inline constexpr char AM = '\xFE';
inline constexpr char VM = '\xFD';
inline constexpr char SVM = '\xFC';
inline constexpr char TM = '\xFB';
}  // namespace velda
#else
#define VELDA_AM 0xFE
#define VELDA_VM 0xFD
#define VELDA_SVM 0xFC
#define VELDA_TM 0xFB
#endif

#ifdef __cplusplus
#include "runtime/value/cell.h"
#endif

#endif
