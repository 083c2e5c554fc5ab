// buffer.h - where the bytes of a cell's string lie, and how they change. Private to the runtime.
//
// A string of a variable lies inside the cell when it is short (VELDA_FORM_CONSTANT), otherwise in a buffer of the heap
// (VELDA_FORM_OWNED) with a header ahead of its bytes. A string that is built step by step grows its buffer by half.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

// Ahead of the bytes of an owned string. The two bounds stand directly before the bytes, where native logic reads them.
struct BufferHeader {
    // Derived data, valid with VELDA_FORM_DERIVED: the attribute that was read last, its first byte and the byte behind
    // it, and the value in it that was read last. They make reading one position after another linear.
    std::uint32_t attribute;
    std::uint32_t attribute_begin;
    std::uint32_t attribute_end;
    std::uint32_t value;
    std::uint32_t value_begin;
    std::uint32_t capacity;    // bytes that fit, apart from a closing zero byte that always fits behind them
    std::int32_t lower_bound;  // below every length: buffers are kept, not shrunk
    std::int32_t upper_bound;  // `capacity`, as far as it can be told in 31 bits
};
static_assert(sizeof(BufferHeader) == 32, "the bytes behind the header keep the heap's alignment");
static_assert(offsetof(BufferHeader, lower_bound) == 24 && offsetof(BufferHeader, upper_bound) == 28);

inline constexpr std::size_t MaximumLength = 0xFFFFFFFF;

inline BufferHeader &header_of(const VAR &cell) { return reinterpret_cast<BufferHeader *>(cell.text)[-1]; }

// Ends the process: memory is exhausted, or a string of `length` bytes is longer than a cell holds.
[[noreturn]] void end_for_memory(std::size_t length);

std::string_view text_elsewhere(const VAR &cell);

// The text of a cell of any kind; a number is given its text first.
inline std::string_view text_of(const VAR &cell) {
    return (cell.form & VELDA_FORM_OWNED) ? std::string_view(cell.text, cell.length) : text_elsewhere(cell);
}

// Makes the cell an owned string that begins with the first `kept` bytes of its text and has room for `capacity` bytes.
// Its length is then `kept`, numbers and derived data are dropped. Returns the bytes.
char *own_text(VAR &cell, std::size_t kept, std::size_t capacity);

// The same with room to grow: as it is called for one string again and again, each byte is moved a constant number of
// times.
char *own_growing_text(VAR &cell, std::size_t kept, std::size_t capacity);

// Makes the cell a string of `length` bytes, which the caller fills; what it held is lost. The bytes lie where the form
// wants them, so the caller uses the address returned. `length` bytes and a zero byte fit.
char *new_text(VAR &cell, std::size_t length);

// Makes the cell the string `text`, which may lie in the cell itself.
void store_text(VAR &cell, std::string_view text);

// Makes the cell the string `text`, which may lie in the cell itself, and returns its bytes for changing them in place.
char *editable_copy(VAR &cell, std::string_view text);

// Cuts the cell's string, which has just been stored, after `length` bytes.
void shorten_text(VAR &cell, std::size_t length);

// The cell's form for a string that changed in place: numbers and derived data are dropped.
inline void forget_number(VAR &cell) {
    cell.form &= VELDA_FORM_OWNED | VELDA_FORM_CONSTANT;
    cell.formExtra = 0;
}

// Makes room for `added` bytes in place of the `removed` bytes of the cell's text from `begin` on; returns the room,
// which the caller fills. The cell becomes an owned string that grows generously.
char *open_gap(VAR &cell, std::size_t begin, std::size_t removed, std::size_t added);

// Makes room for `added` bytes behind the cell's text, which the caller fills.
inline char *extend_text(VAR &cell, std::size_t added) {
    if (!(cell.form & VELDA_FORM_OWNED) || cell.length + added > header_of(cell).capacity)
        return open_gap(cell, text_of(cell).size(), 0, added);
    char *const room = cell.text + cell.length;
    cell.length += static_cast<std::uint32_t>(added);
    forget_number(cell);
    return room;
}

// Puts `text`, which may lie in the cell itself, behind its text.
void append_to(VAR &cell, std::string_view text);

// True when the bytes of `text` may change or move as the cell changes.
bool lies_in(std::string_view text, const VAR &cell);

// memcpy that may be given nothing from nowhere.
inline char *copy_bytes(char *target, std::string_view bytes) {
    if (!bytes.empty()) std::memcpy(target, bytes.data(), bytes.size());
    return target + bytes.size();
}

// Frees what the cell holds; its form is left for the caller to overwrite.
void release_cell(VAR &cell);
// Copies `value` into raw memory.
void copy_construct(VAR &target, const VAR &value);

// A string that is built apart from its target, which may be one of the sources, and then given to it.
class TextBuilder {
  public:
    explicit TextBuilder(std::size_t expected) { own_text(cell_, 0, expected); }

    void append(std::string_view bytes) { copy_bytes(extend(bytes.size()), bytes); }
    void append(char byte) { *extend(1) = byte; }
    // Room for `length` more bytes, counted as written.
    char *extend(std::size_t length) { return extend_text(cell_, length); }
    void move_into(VAR &target);

  private:
    VAR cell_;
};

}  // namespace velda
