// cell.h - the members of VAR and the views of its elements; part of vdefc.h, which includes it.
#ifndef VELDA_RUNTIME_VALUE_CELL_H
#define VELDA_RUNTIME_VALUE_CELL_H

#include <cstring>

#include "runtime/value/value.h"

namespace velda {

// An element read in place: x(a, v, s) of a const cell. It is a position, not a copy: it shows what the array holds
// when it is read, and is used before the array goes away. Keep a VAR or a std::string, not the view.
class ConstElement {
  public:
    ConstElement(const VAR &array, int a, int v, int s) : array_(&array), a_(a), v_(v), s_(s) {}

    // The element's bytes inside the array, valid until it changes.
    std::string_view view() const {
        std::size_t length;
        const char *bytes = velda_element(array_, a_, v_, s_, &length);
        return {bytes, length};
    }
    operator std::string_view() const { return view(); }
    std::string str() const { return std::string(view()); }
    uint32_t size() const { return static_cast<uint32_t>(view().size()); }
    bool empty() const { return view().empty(); }
    bool is_numeric() const;
    int64_t to_integer() const;
    double to_double() const;
    explicit operator bool() const;  // the dialect's truth
    VAR substring(int start, int length) const;

  protected:
    const VAR *array_;
    int a_, v_, s_;
};

// A source of an operation: any cell, element, text or number, without a copy of its bytes. Parameters of the facade's
// words have this type; nobody keeps one.
class Argument {
  public:
    Argument(const VAR &cell) : cell_(&cell) {}
    Argument(const ConstElement &element) : Argument(element.view()) {}
    Argument(std::string_view text) : own_() {
        cell_ = &own_;
        own_.form = VELDA_FORM_INDIRECT;
        own_.text = const_cast<char *>(text.data());
        own_.length = static_cast<uint32_t>(text.size());
    }
    Argument(const char *text) : Argument(std::string_view(text)) {}
    Argument(const std::string &text) : Argument(std::string_view(text)) {}
    Argument(char byte) : own_(byte) { cell_ = &own_; }
    Argument(double number) : own_(number) { cell_ = &own_; }
    template <std::integral T>
    Argument(T number) : own_(number) {
        cell_ = &own_;
    }
    ~Argument() {
        // A text elsewhere leaves nothing to release.
        if (cell_ == &own_ && !(own_.form & VELDA_FORM_INDIRECT)) own_.~VAR();
    }
    Argument(const Argument &) = delete;
    Argument &operator=(const Argument &) = delete;

    const VAR &operator*() const { return *cell_; }
    operator const VAR *() const { return cell_; }

  private:
    union {
        VAR own_;  // alive when `cell_` addresses it
    };
    const VAR *cell_;
};

// An element that can be written: x(a, v, s) of a variable. `x(a) = y` replaces, padding as needed.
class Element : public ConstElement {
  public:
    Element(VAR &array, int a, int v, int s) : ConstElement(array, a, v, s) {}
    Element(const Element &) = default;

    Element &operator=(const Argument &value) {
        VLibECOMPLEX_STORE_VBIIIIIIB(nullptr, const_cast<VAR *>(array_), a_, v_, s_, 0, 0, 0, value);
        return *this;
    }
    Element &operator=(const Element &value) { return *this = Argument(value); }
    Element &operator+=(const Argument &number);  // arithmetic
    Element &operator-=(const Argument &number);
    Element &operator++() { return *this += 1; }
    Element &operator--() { return *this -= 1; }
};

}  // namespace velda

inline VAR::VAR(const VAR &other) {
    if (other.form & (VELDA_MASK_RELEASE | VELDA_FORM_CONSTANT))
        velda_copy_construct(this, &other);
    else
        std::memcpy(static_cast<void *>(this), &other, sizeof(VAR));
}

inline VAR::VAR(VAR &&other) noexcept {
    // A text outside the cell may die before the cell does.
    if ((other.form & VELDA_FORM_INDIRECT) && other.form != VELDA_FORM_LIST) {
        velda_copy_construct(this, &other);
        return;
    }
    std::memcpy(static_cast<void *>(this), &other, sizeof(VAR));
    other.form = 0;
}

inline VAR &VAR::operator=(const VAR &other) {
    VLibBSTORE_BBB(nullptr, this, &other);
    return *this;
}

inline VAR &VAR::operator=(VAR &&other) noexcept {
    if (this == &other) return *this;
    if ((other.form & VELDA_FORM_INDIRECT) && other.form != VELDA_FORM_LIST) return *this = other;
    if (form & VELDA_MASK_RELEASE) VLibBStoreFreeVar_VB(nullptr, this);
    std::memcpy(static_cast<void *>(this), &other, sizeof(VAR));
    other.form = 0;
    return *this;
}

inline VAR::~VAR() {
    if (form & VELDA_MASK_RELEASE) VLibBStoreFreeVar_VB(nullptr, this);
}

inline VAR::VAR(double number) : VAR() { velda_store_float(this, number); }
inline VAR::VAR(std::string_view string) : VAR() { velda_store_text(this, string.data(), string.size()); }
inline VAR::VAR(const velda::Element &element) : VAR(element.view()) {}
inline VAR::VAR(const velda::ConstElement &element) : VAR(element.view()) {}

inline VAR &VAR::operator=(std::string_view string) {
    velda_store_text(this, string.data(), string.size());
    return *this;
}
inline VAR &VAR::operator=(const velda::Element &element) { return *this = element.view(); }
inline VAR &VAR::operator=(const velda::ConstElement &element) { return *this = element.view(); }
inline VAR &VAR::operator=(double number) {
    velda_store_float(this, number);
    return *this;
}
inline void VAR::store_integer(int64_t number) { velda_store_integer(nullptr, this, number); }
inline void VAR::clear() { *this = std::string_view(); }

inline std::string_view VAR::view() const {
    if (form & VELDA_FORM_OWNED) return {text, length};
    std::size_t bytes_length;
    const char *bytes = velda_text(this, &bytes_length);
    return {bytes, bytes_length};
}
inline bool VAR::is_numeric() const { return VLibDNUM_IB(nullptr, this) != 0; }
inline int64_t VAR::to_integer() const { return (form & VELDA_FORM_INTEGER) ? integer : velda_to_integer(this); }
inline double VAR::to_double() const { return VLibBCONV_FB(nullptr, this); }
inline VAR::operator bool() const {
    if (form & VELDA_MASK_HAS_IMAGE) return image != 0.0;
    if (form & VELDA_FORM_INTEGER) return integer != 0;
    return VLibBCONVCOND_IB(nullptr, this) != 0;
}

inline velda::Element VAR::operator()(int a, int v, int s) { return {*this, a, v, s}; }
inline velda::ConstElement VAR::operator()(int a, int v, int s) const { return {*this, a, v, s}; }
inline VAR &VAR::append(const VAR &value) {
    VLibECOMPLEX_STORE_VBIIIIIIB(nullptr, this, -1, 0, 0, 0, 0, 0, &value);
    return *this;
}
inline VAR &VAR::insert(const VAR &value, int a, int v, int s) {
    return *VLibEINSERT_BBBBIII(nullptr, this, this, &value, a, v, s);
}
inline VAR &VAR::remove(int a, int v, int s) { return *VLibEDELETE_BBBIII(nullptr, this, this, a, v, s); }
inline VAR &VAR::operator+=(const VAR &number) { return *VLibDMATHADD_BBBB(nullptr, this, this, &number); }
inline VAR &VAR::operator-=(const VAR &number) { return *VLibDMATHSUB_BBBB(nullptr, this, this, &number); }
inline VAR &VAR::operator++() { return *VLibDPREI_BB(nullptr, this); }
inline VAR &VAR::operator--() {
    VLibDPOSTD_VB(nullptr, this);
    return *this;
}
inline VAR VAR::substring(int start, int bytes) const {
    VAR result;
    VLibESUBSTR_BBBII(nullptr, &result, this, start, bytes);
    return result;
}

namespace velda {

inline bool ConstElement::is_numeric() const { return VLibDNUM_IB(nullptr, Argument(*this)) != 0; }
inline int64_t ConstElement::to_integer() const { return velda_to_integer(Argument(*this)); }
inline double ConstElement::to_double() const { return VLibBCONV_FB(nullptr, Argument(*this)); }
inline ConstElement::operator bool() const { return VLibBCONVCOND_IB(nullptr, Argument(*this)) != 0; }
inline VAR ConstElement::substring(int start, int length) const { return (*Argument(*this)).substring(start, length); }
inline Element &Element::operator+=(const Argument &number) {
    VAR sum;
    return *this = *VLibDMATHADD_BBBB(nullptr, &sum, Argument(*this), number);
}
inline Element &Element::operator-=(const Argument &number) {
    VAR difference;
    return *this = *VLibDMATHSUB_BBBB(nullptr, &difference, Argument(*this), number);
}

}  // namespace velda

#endif
