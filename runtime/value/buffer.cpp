#include "runtime/value/buffer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "runtime/base/handle.h"
#include "runtime/value/matrix.h"
#include "runtime/value/number.h"

namespace velda {

namespace {

constexpr std::size_t AllocationUnit = 16;

// Bytes that fit a buffer asked for `length` bytes: the header, the bytes and a zero byte fill whole units.
constexpr std::size_t rounded_capacity(std::size_t length) {
    const std::size_t whole =
        (sizeof(BufferHeader) + length + 1 + AllocationUnit - 1) / AllocationUnit * AllocationUnit;
    const std::size_t capacity = whole - sizeof(BufferHeader) - 1;
    return capacity > MaximumLength ? MaximumLength : capacity;
}

// Allocates, or reallocates the buffer whose bytes are `text`.
char *allocate(char *text, std::size_t length) {
    if (length > MaximumLength) end_for_memory(length);
    const std::size_t capacity = rounded_capacity(length);
    void *const old = text ? text - sizeof(BufferHeader) : nullptr;
    auto *const header = static_cast<BufferHeader *>(std::realloc(old, sizeof(BufferHeader) + capacity + 1));
    if (!header) end_for_memory(length);
    header->capacity = static_cast<std::uint32_t>(capacity);
    header->lower_bound = -1;
    header->upper_bound = capacity > INT32_MAX ? INT32_MAX : static_cast<std::int32_t>(capacity);
    return reinterpret_cast<char *>(header + 1);
}

char *inside_bytes(const VAR &cell) {
    return const_cast<char *>(reinterpret_cast<const char *>(&cell)) + VELDA_INSIDE_OFFSET;
}

std::size_t inside_length(const VAR &cell) {
    std::uint16_t length;
    std::memcpy(&length, inside_bytes(cell) - sizeof length, sizeof length);
    return length;
}

void set_inside_length(const VAR &cell, std::size_t length) {
    const std::uint16_t stored = static_cast<std::uint16_t>(length);
    std::memcpy(inside_bytes(cell) - sizeof stored, &stored, sizeof stored);
    inside_bytes(cell)[length] = 0;
}

bool is_owned(const VAR &cell) { return cell.form & VELDA_FORM_OWNED; }

// Puts a number's canonical text beside the number.
void give_number_text(const VAR &cell) {
    char digits[MaximumNumberText];
    const std::string_view text = format_number(cell, digits);
    std::uint16_t form = VELDA_FORM_CANONICAL | (cell.form & (VELDA_FORM_INTEGER | VELDA_FORM_IMAGE));
    if (!(form & VELDA_FORM_IMAGE)) {
        cell.image = static_cast<double>(cell.integer) * VELDA_SCALE;
        cell.precision = VELDA_PRECISION;
    }
    if (text.size() <= VELDA_INSIDE_LENGTH) {
        std::memcpy(inside_bytes(cell), text.data(), text.size());
        set_inside_length(cell, text.size());
        form |= VELDA_FORM_CONSTANT;
    } else {
        cell.text = allocate(nullptr, text.size());
        std::memcpy(cell.text, text.data(), text.size());
        cell.length = static_cast<std::uint32_t>(text.size());
        form |= VELDA_FORM_OWNED;
    }
    cell.form = form;
    cell.formExtra = 0;
}

}  // namespace

void end_for_memory(std::size_t length) {
    if (length > MaximumLength)
        std::fprintf(stderr, "velda: a string of %zu bytes is longer than a value can hold (%zu bytes)\n", length,
                     MaximumLength);
    else
        std::fprintf(stderr, "velda: memory is exhausted: no room for a string of %zu bytes\n", length);
    std::_Exit(VELDA_EXIT_MEMORY);
}

std::string_view text_elsewhere(const VAR &cell) {
    if (cell.form & VELDA_FORM_CONSTANT) return {inside_bytes(cell), inside_length(cell)};
    if (cell.form == VELDA_FORM_LIST) return handle_text(cell);
    if (cell.form & VELDA_FORM_INDIRECT) return {cell.text, cell.length};
    if (cell.form & (VELDA_FORM_INTEGER | VELDA_FORM_IMAGE)) {
        give_number_text(cell);
        return text_of(cell);
    }
    return {};
}

char *own_text(VAR &cell, std::size_t kept, std::size_t capacity) {
    if (is_owned(cell)) {
        if (header_of(cell).capacity < capacity) cell.text = allocate(cell.text, capacity);
    } else {
        char *const text = allocate(nullptr, capacity);
        copy_bytes(text, text_of(cell).substr(0, kept));
        release_cell(cell);
        cell.text = text;
    }
    cell.length = static_cast<std::uint32_t>(kept);
    cell.form = VELDA_FORM_OWNED;
    cell.formExtra = 0;
    cell.precision = 0;
    return cell.text;
}

char *own_growing_text(VAR &cell, std::size_t kept, std::size_t capacity) {
    if (is_owned(cell) && header_of(cell).capacity >= capacity) return own_text(cell, kept, capacity);
    return own_text(cell, kept, std::max(capacity, std::min(capacity + capacity / 2, MaximumLength)));
}

char *new_text(VAR &cell, std::size_t length) {
    if (is_owned(cell)) {
        if (header_of(cell).capacity >= length) {
            cell.length = static_cast<std::uint32_t>(length);
            forget_number(cell);
            return cell.text;
        }
        release_cell(cell);
        cell.form = 0;
    }
    if (length > VELDA_INSIDE_LENGTH) {
        own_text(cell, 0, length);
        cell.length = static_cast<std::uint32_t>(length);
        return cell.text;
    }
    release_cell(cell);
    cell.form = VELDA_FORM_CONSTANT;
    cell.formExtra = 0;
    cell.precision = 0;
    set_inside_length(cell, length);
    return inside_bytes(cell);
}

void store_text(VAR &cell, std::string_view text) {
    if (text.size() <= VELDA_INSIDE_LENGTH) {
        // Read before the cell changes: the text may lie in it.
        char copy[VELDA_INSIDE_LENGTH];
        copy_bytes(copy, text);
        copy_bytes(new_text(cell, text.size()), {copy, text.size()});
        return;
    }
    if (is_owned(cell) && text.size() <= header_of(cell).capacity) {
        if (text.data() != cell.text) std::memmove(cell.text, text.data(), text.size());
        cell.length = static_cast<std::uint32_t>(text.size());
        forget_number(cell);
        return;
    }
    // A text that is longer than the buffer lies elsewhere, but a list may hold it.
    VAR result;
    std::memcpy(own_text(result, 0, text.size()), text.data(), text.size());
    result.length = static_cast<std::uint32_t>(text.size());
    cell = std::move(result);
}

char *editable_copy(VAR &cell, std::string_view text) {
    store_text(cell, text);
    return is_owned(cell) ? cell.text : inside_bytes(cell);
}

void shorten_text(VAR &cell, std::size_t length) {
    if (is_owned(cell))
        cell.length = static_cast<std::uint32_t>(length);
    else
        set_inside_length(cell, length);
}

bool lies_in(std::string_view text, const VAR &cell) {
    const std::string_view own = text_of(cell);
    return !text.empty() && text.data() >= own.data() && text.data() < own.data() + own.size();
}

char *open_gap(VAR &cell, std::size_t begin, std::size_t removed, std::size_t added) {
    const std::size_t before = text_of(cell).size();
    const std::size_t tail = before - begin - removed;
    char *const text = own_growing_text(cell, before, begin + added + tail);
    if (tail > 0 && added != removed) std::memmove(text + begin + added, text + begin + removed, tail);
    cell.length = static_cast<std::uint32_t>(begin + added + tail);
    return text + begin;
}

void append_to(VAR &cell, std::string_view text) {
    if (lies_in(text, cell))
        append_to(cell, std::string(text));
    else
        copy_bytes(extend_text(cell, text.size()), text);
}

void release_cell(VAR &cell) {
    if (is_owned(cell))
        std::free(&header_of(cell));
    else if (is_handle(cell))
        drop_handle(cell);
    else if (cell.form == VELDA_FORM_MATRIX)
        free_matrix(cell);
}

void copy_construct(VAR &target, const VAR &value) {
    std::memcpy(static_cast<void *>(&target), static_cast<const void *>(&value), sizeof(VAR));
    if (is_handle(value)) {
        share_handle(value);
    } else if (value.form == VELDA_FORM_MATRIX) {
        copy_matrix(target, value);
    } else if (value.form & (VELDA_FORM_OWNED | VELDA_FORM_CONSTANT | VELDA_FORM_INDIRECT)) {
        const std::string_view text = text_of(value);
        target.form = 0;
        store_text(target, text);
        target.form |= value.form & (VELDA_FORM_INTEGER | VELDA_MASK_HAS_IMAGE);
        target.precision = value.precision;
    }
}

void TextBuilder::move_into(VAR &target) {
    if (cell_.length <= VELDA_INSIDE_LENGTH)
        store_text(target, {cell_.text, cell_.length});
    else
        target = std::move(cell_);
}

}  // namespace velda

using namespace velda;

const char *VLibEADDR_SB(DP *, const VAR *cell) { return text_of(*cell).data(); }

int VLibELEN_IB(DP *, const VAR *cell) {
    const std::size_t length = text_of(*cell).size();
    return length > INT32_MAX ? INT32_MAX : static_cast<int>(length);
}

int VLibELENC_IB(DP *dp, const VAR *cell) { return VLibELEN_IB(dp, cell); }

const char *velda_text(const VAR *cell, size_t *length) {
    const std::string_view text = text_of(*cell);
    *length = text.size();
    return text.data();
}

void VLibCONV_VB(DP *, const VAR *cell) {
    if (cell->form == 0) store_text(const_cast<VAR &>(*cell), {});
    text_of(*cell);
}

void VLibBStoreFreeVar_VB(DP *, VAR *cell) { release_cell(*cell); }

void VLibBStoreResize_VBI(DP *, VAR *cell, int length) {
    const std::size_t wanted = length < 0 ? 0 : static_cast<std::size_t>(length);
    const std::size_t before = text_of(*cell).size();
    char *const text = own_growing_text(*cell, before < wanted ? before : wanted, wanted);
    if (before < wanted) std::memset(text + before, 0, wanted - before);
    cell->length = static_cast<std::uint32_t>(wanted);
}

void VLibBStoreString_VBIS(DP *, VAR *cell, int length, const char *bytes) {
    const std::size_t wanted = length < 0 ? 0 : static_cast<std::size_t>(length);
    if (bytes) store_text(*cell, {bytes, wanted});
    own_text(*cell, bytes ? wanted : 0, wanted);
    cell->length = static_cast<std::uint32_t>(wanted);
}

VAR *VLibBSTORE_BBB(DP *, VAR *target, const VAR *value) {
    if (target == value) return target;
    if (value->form & VELDA_FORM_OWNED) {
        // Into the target's own buffer where there is one: cells are often filled again and again.
        const std::uint16_t number = value->form & (VELDA_FORM_INTEGER | VELDA_MASK_HAS_IMAGE);
        store_text(*target, {value->text, value->length});
        target->form |= number;
        target->image = value->image;
        target->integer = value->integer;
        target->precision = value->precision;
        return target;
    }
    VAR copy(*value);
    *target = std::move(copy);
    return target;
}

void VLibBSTORE_VBI(DP *dp, VAR *target, int value) { velda_store_integer(dp, target, value); }

VAR *VLibBSTORE_BBI(DP *dp, VAR *target, int value) {
    velda_store_integer(dp, target, value);
    return target;
}

void VLibBSTORE_VBS(DP *, VAR *target, const char *text) { store_text(*target, text); }

void velda_store_text(VAR *target, const char *bytes, size_t length) { store_text(*target, {bytes, length}); }

void velda_append_text(VAR *target, const char *bytes, size_t length) { append_to(*target, {bytes, length}); }

void velda_copy_construct(VAR *target, const VAR *value) { copy_construct(*target, *value); }
