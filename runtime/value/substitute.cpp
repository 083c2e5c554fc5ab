// substitute.cpp - bytes and texts replaced by others: CHANGE, CONVERT, case, marks raised and lowered, TRIM.
#include <algorithm>
#include <array>
#include <numeric>
#include <string>
#include <string_view>

#include "runtime/value/buffer.h"
#include "runtime/value/classes.h"
#include "runtime/value/dynamic_array.h"
#include "runtime/value/scan.h"

namespace velda {

namespace {

// What becomes of each byte: another byte, or nothing.
class ByteMap {
  public:
    ByteMap() { std::iota(replacement_.begin(), replacement_.end(), 0); }

    static ByteMap converting(std::string_view from, std::string_view to) {
        ByteMap map;
        for (std::size_t i = from.size(); i-- > 0;) {  // backwards: the first place of a byte counts
            map.replacement_[index(from[i])] = i < to.size() ? static_cast<unsigned char>(to[i]) : 0;
            map.removed_[index(from[i])] = i >= to.size();
        }
        return map;
    }
    template <class Function>
    static ByteMap applying(Function function) {
        ByteMap map;
        for (int byte = 0; byte < 256; ++byte)
            map.replacement_[static_cast<std::size_t>(byte)] =
                static_cast<unsigned char>(function(static_cast<char>(byte)));
        return map;
    }

    // Maps the bytes in place; returns how many are left.
    std::size_t apply(char *bytes, std::size_t length) const {
        if (std::find(removed_.begin(), removed_.end(), true) == removed_.end()) {
            for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>(replacement_[index(bytes[i])]);
            return length;
        }
        std::size_t left = 0;
        for (std::size_t i = 0; i < length; ++i) {
            const char byte = bytes[i];
            bytes[left] = static_cast<char>(replacement_[index(byte)]);
            left += !removed_[index(byte)];
        }
        return left;
    }

  private:
    static std::size_t index(char byte) { return static_cast<unsigned char>(byte); }

    std::array<unsigned char, 256> replacement_;
    std::array<bool, 256> removed_{};
};

VAR *map_text(VAR *target, const VAR *source, const ByteMap &map) {
    const std::string_view text = text_of(*source);
    const std::size_t length = text.size();
    shorten_text(*target, map.apply(editable_copy(*target, text), length));
    return target;
}

char raised(char byte) {
    const bool rises = byte >= static_cast<char>(0xFA) && byte < AM;
    return rises ? static_cast<char>(byte + 1) : byte;
}

char lowered(char byte) {
    const bool falls = byte > static_cast<char>(0xFA) && byte <= AM;
    return falls ? static_cast<char>(byte - 1) : byte;
}

// CHANGE of every `byte` to another: no byte moves.
void change_bytes(VAR &target, std::string_view text, char byte, char with) {
    const bool is_elsewhere = !lies_in(text, target);
    char *const bytes = is_elsewhere ? new_text(target, text.size()) : editable_copy(target, text);
    const char *const begin = is_elsewhere ? text.data() : bytes;
    scan_kernels().replace_byte(begin, begin + text.size(), bytes, byte, with);
}

// CHANGE. Where nothing is replaced the text is copied in one piece.
void change_text(VAR &target, std::string_view text, std::string_view old_text, std::string_view new_text,
                 int occurrences, int start) {
    const bool changes_all = occurrences < 1 && start <= 1;
    std::size_t at = find_text(text, old_text);
    for (; at != std::string_view::npos && start > 1; --start) at = find_text(text, old_text, at + old_text.size());
    if (at == std::string_view::npos) return store_text(target, text);
    if (old_text.size() == 1 && new_text.size() == 1 && changes_all)
        return change_bytes(target, text, old_text.front(), new_text.front());
    TextBuilder builder(text.size());
    std::size_t copied = 0;
    for (int left = occurrences; at != std::string_view::npos; at = find_text(text, old_text, copied)) {
        builder.append(text.substr(copied, at - copied));
        builder.append(new_text);
        copied = at + old_text.size();
        if (left > 0 && --left == 0) break;
    }
    builder.append(text.substr(copied));
    builder.move_into(target);
}

// Changes an element in place; one that is absent stays so.
template <class Operation>
void change_element(VAR &array, int a, int v, int s, Operation operation) {
    if (a < 0 || v < 0 || s < 0) return;
    const Position position(a, v, s);
    if (position.depth == 0) return operation(array);
    const Place place = find_place(array, position);
    if (!place.present) return;
    VAR element(place.element.of(text_of(array)));
    operation(element);
    replace_element(array, position, text_of(element));
}

enum TrimBits { TrimLeading = 1, TrimTrailing = 2, TrimInner = 4, TrimAll = 8 };

struct TrimType {
    std::string_view name;
    int bits;
};

constexpr TrimType TrimTypes[] = {
    {"L", TrimLeading},
    {"T", TrimTrailing},
    {"B", TrimLeading | TrimTrailing},
    {"A", TrimAll},
    {"R", TrimLeading | TrimTrailing | TrimInner},
    {"", TrimLeading | TrimTrailing | TrimInner},
};

int trim_bits(int code, const VAR *type) {
    if (code != VELDA_TRIM_BY_TYPE) return code & (TrimLeading | TrimTrailing | TrimInner);
    const std::string_view name = type ? text_of(*type) : std::string_view();
    for (const TrimType &trim_type : TrimTypes)
        if (trim_type.name == name) return trim_type.bits;
    return 0;
}

std::string_view trim_ends(std::string_view text, char byte, int bits) {
    if (bits & TrimLeading) text.remove_prefix(std::min(text.find_first_not_of(byte), text.size()));
    if (bits & TrimTrailing) text.remove_suffix(text.size() - (text.find_last_not_of(byte) + 1));
    return text;
}

// Each run of the byte shrinks to one; returns how many bytes are left.
std::size_t shrink_inner_runs(char *bytes, std::size_t length, char byte) {
    char *const end =
        std::unique(bytes, bytes + length, [byte](char left, char right) { return left == byte && right == byte; });
    return static_cast<std::size_t>(end - bytes);
}

}  // namespace

}  // namespace velda

using namespace velda;

VAR *VLibGSWAPF_BBBBBII(DP *, VAR *target, const VAR *source, const VAR *old_text, const VAR *new_text, int occurrences,
                        int start) {
    change_text(*target, text_of(*source), text_of(*old_text), text_of(*new_text), occurrences, start);
    return target;
}

VAR *VLibGCONVERTF_BBBBB(DP *, VAR *target, const VAR *source, const VAR *from, const VAR *to) {
    return map_text(target, source, ByteMap::converting(text_of(*from), text_of(*to)));
}

void VLibGCHANGETO_VBIIIBB(DP *, VAR *variable, int a, int v, int s, const VAR *old_text, const VAR *new_text) {
    change_element(*variable, a, v, s, [&](VAR &element) {
        change_text(element, text_of(element), text_of(*old_text), text_of(*new_text), -1, 1);
    });
}

void VLibGCONVERTTO_VBIIIBB(DP *, VAR *variable, int a, int v, int s, const VAR *from, const VAR *to) {
    const ByteMap map = ByteMap::converting(text_of(*from), text_of(*to));
    change_element(*variable, a, v, s, [&](VAR &element) { map_text(&element, &element, map); });
}

VAR *VLibGUPCASE_BBB(DP *, VAR *target, const VAR *source) {
    static const ByteMap map = ByteMap::applying(to_upper);
    return map_text(target, source, map);
}

VAR *VLibGDOWNCASE_BBB(DP *, VAR *target, const VAR *source) {
    static const ByteMap map = ByteMap::applying(to_lower);
    return map_text(target, source, map);
}

void VLibGUPCASE_INTERNAL(DP *dp, VAR *cell, int selector) {
    if (selector == 0)
        cell->form &= static_cast<std::uint16_t>(~VELDA_FORM_DERIVED);
    else
        VLibGUPCASE_BBB(dp, cell, cell);
}

VAR *VLibERAISE_BBB(DP *, VAR *target, const VAR *source) {
    static const ByteMap map = ByteMap::applying(raised);
    return map_text(target, source, map);
}

VAR *VLibELOWER_BBB(DP *, VAR *target, const VAR *source) {
    static const ByteMap map = ByteMap::applying(lowered);
    return map_text(target, source, map);
}

VAR *VLibETRIM_BIBBBB(DP *, int code, VAR *target, const VAR *source, const VAR *character, const VAR *type) {
    const std::string_view characters = character ? text_of(*character) : std::string_view();
    const char byte = characters.empty() || code != VELDA_TRIM_BY_TYPE ? ' ' : characters.front();
    const int bits = trim_bits(code, type);
    if (bits & TrimAll) return map_text(target, source, ByteMap::converting({&byte, 1}, {}));
    const std::string_view text = trim_ends(text_of(*source), byte, bits);
    const std::size_t length = text.size();
    char *const bytes = editable_copy(*target, text);
    if (bits & TrimInner) shorten_text(*target, shrink_inner_runs(bytes, length, byte));
    return target;
}
