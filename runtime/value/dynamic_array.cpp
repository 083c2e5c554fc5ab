// dynamic_array.cpp - extract, replace, insert and delete by position.
//
// The road of a position: Position makes it definite, find_place walks level by level, each operation then splices the
// text at that place. The attribute and value found last are remembered ahead of the owned bytes (BufferHeader), so
// that reading or writing one position after another passes over each byte once.
#include "runtime/value/dynamic_array.h"

#include <string>

#include "runtime/value/scan.h"

namespace velda {

Position::Position(int a, int v, int s) : numbers{a, v, s}, depth(s != 0 ? 3 : v != 0 ? 2 : a != 0 ? 1 : 0) {
    for (int &number : numbers) number = number < 0 ? Append : number == 0 ? 1 : number;
}

namespace {

// An element of a level with its number; `missing` counts the marks that lack from it, the last one, to the wanted one.
struct Step {
    Range range;
    std::size_t number;
    std::size_t missing;
};

// Element `wanted` of the level that ends at `end`, walking from the beginning of element `number`.
Step walk(std::string_view text, std::size_t begin, std::size_t end, char mark, std::size_t number,
          std::size_t wanted) {
    const char *const base = text.data();
    std::size_t lacking = wanted - number;
    if (lacking > 0) {
        const char *const found = skip_bytes(base + begin, base + end, mark, lacking);
        if (lacking == 0) {
            begin = static_cast<std::size_t>(found - base) + 1;
        } else {
            begin = begin_of_last(text, begin, end, mark);
            return {{begin, end}, wanted - lacking, lacking};
        }
    }
    return {{begin, static_cast<std::size_t>(find_byte(base + begin, base + end, mark) - base)}, wanted, 0};
}

// Goes back from the beginning of attribute `number` to that of attribute `wanted`.
std::size_t walk_back(std::string_view text, std::size_t begin, std::size_t number, std::size_t wanted) {
    for (; number > wanted; --number) begin = begin_of_last(text, 0, begin - 1, AM);
    return begin;
}

Step walk_to_attribute(const VAR &array, std::string_view text, std::size_t wanted) {
    if (!(array.form & VELDA_FORM_DERIVED)) return walk(text, 0, text.size(), AM, 1, wanted);
    const BufferHeader &last = header_of(array);
    const Range range = {last.attribute_begin, last.attribute_end};
    if (wanted < last.attribute) {
        if (wanted < last.attribute / 2) return walk(text, 0, text.size(), AM, 1, wanted);
        return walk(text, walk_back(text, range.begin, last.attribute, wanted), text.size(), AM, wanted, wanted);
    }
    if (wanted == last.attribute || range.end == text.size()) return {range, last.attribute, wanted - last.attribute};
    return walk(text, range.end + 1, text.size(), AM, last.attribute + std::size_t{1}, wanted);
}

void remember_attribute(const VAR &array, const Step &attribute) {
    if (!(array.form & VELDA_FORM_OWNED)) return;
    BufferHeader &last = header_of(array);
    if ((array.form & VELDA_FORM_DERIVED) && last.attribute == attribute.number) return;
    last.attribute = static_cast<std::uint32_t>(attribute.number);
    last.attribute_begin = static_cast<std::uint32_t>(attribute.range.begin);
    last.attribute_end = static_cast<std::uint32_t>(attribute.range.end);
    last.value = 1;
    last.value_begin = last.attribute_begin;
    array.form |= VELDA_FORM_DERIVED;
}

Step find_attribute(const VAR &array, std::string_view text, std::size_t wanted) {
    const Step attribute = walk_to_attribute(array, text, wanted);
    remember_attribute(array, attribute);
    return attribute;
}

// The attribute has been found just before, so it is the one that is remembered.
Step find_value(const VAR &array, std::string_view text, Range attribute, std::size_t wanted) {
    if (!(array.form & VELDA_FORM_DERIVED)) return walk(text, attribute.begin, attribute.end, VM, 1, wanted);
    BufferHeader &last = header_of(array);
    const bool goes_on = wanted >= last.value;
    const Step value =
        walk(text, goes_on ? last.value_begin : attribute.begin, attribute.end, VM, goes_on ? last.value : 1, wanted);
    last.value = static_cast<std::uint32_t>(value.number);
    last.value_begin = static_cast<std::uint32_t>(value.range.begin);
    return value;
}

Step find_in_level(const VAR &array, std::string_view text, Range parent, int level, std::size_t wanted) {
    if (level == 0) return find_attribute(array, text, wanted);
    if (level == 1) return find_value(array, text, parent, wanted);
    return walk(text, parent.begin, parent.end, SVM, 1, wanted);
}

std::size_t sum(const std::array<std::size_t, Levels> &padding) { return padding[0] + padding[1] + padding[2]; }

char *write_padding(char *at, const std::array<std::size_t, Levels> &padding) {
    for (int level = 0; level < Levels; ++level) {
        std::memset(at, LevelMarks[level], padding[level]);
        at += padding[level];
    }
    return at;
}

// A change of the array's bytes: `replaced` goes; the marks that lack, `before`, the value and `behind` take its place.
struct Change {
    Range replaced;
    std::array<std::size_t, Levels> padding{};
    std::string_view before;
    std::string_view value;
    std::string_view behind;
    bool within_attribute = false;  // no attribute begins or ends by it, unless the value brings a mark

    std::size_t added() const { return sum(padding) + before.size() + value.size() + behind.size(); }
    bool opens_attribute() const { return padding[0] > 0 || (!before.empty() && before.front() == AM); }
};

// What was remembered before the change is still known when the change lies behind it or inside it.
void keep_remembered(VAR &array, const Change &change) {
    BufferHeader &last = header_of(array);
    const std::size_t begin = change.replaced.begin;
    const bool lies_behind = begin > last.attribute_end || (begin == last.attribute_end && change.opens_attribute());
    if (!lies_behind) {
        if (!change.within_attribute || begin < last.attribute_begin || change.opens_attribute()) return;
        if (change.value.find(AM) != std::string_view::npos) return;
        last.attribute_end += static_cast<std::uint32_t>(change.added() - (change.replaced.end - begin));
        if (last.value_begin > begin) {
            last.value = 1;
            last.value_begin = last.attribute_begin;
        }
    }
    array.form |= VELDA_FORM_DERIVED;
}

void apply(VAR &array, Change change) {
    std::string copy;
    if (lies_in(change.value, array)) change.value = copy = change.value;
    const bool was_remembered = array.form & VELDA_FORM_DERIVED;
    char *at = open_gap(array, change.replaced.begin, change.replaced.end - change.replaced.begin, change.added());
    at = copy_bytes(write_padding(at, change.padding), change.before);
    copy_bytes(copy_bytes(at, change.value), change.behind);
    if (was_remembered) keep_remembered(array, change);
}

// x<-1> = value: no place is searched, and what was remembered stays true.
void append_attribute(VAR &array, std::string_view value) {
    if (text_of(array).empty()) return store_text(array, value);
    if (lies_in(value, array)) return append_attribute(array, std::string(value));
    const std::uint16_t remembered = array.form & VELDA_FORM_DERIVED;
    char *const room = extend_text(array, value.size() + 1);
    *room = AM;
    copy_bytes(room + 1, value);
    array.form |= remembered;
}

void insert_element(VAR &array, const Position &position, std::string_view value) {
    const Place place = find_place(array, position);
    const std::size_t level = static_cast<std::size_t>(position.depth) - 1;
    const std::string_view mark(&LevelMarks[level], 1);
    Change change;
    change.value = value;
    change.within_attribute = level > 0;
    if (place.present && !place.parent.empty()) {
        change.replaced = {place.element.begin, place.element.begin};
        change.behind = mark;
    } else {
        change.replaced = {place.parent.end, place.parent.end};
        change.padding = place.padding;
        change.padding[level] = 0;
        if (!place.parent.empty()) change.before = mark;
    }
    apply(array, change);
}

void delete_element(VAR &array, const Position &position) {
    const Place place = find_place(array, position);
    if (!place.present) return;
    Change change;
    change.replaced = place.element;
    change.within_attribute = position.depth > 1;
    if (change.replaced.end < place.parent.end)
        ++change.replaced.end;
    else if (change.replaced.begin > place.parent.begin)
        --change.replaced.begin;
    if (!change.replaced.empty()) apply(array, change);
}

}  // namespace

Place find_place(const VAR &array, const Position &position) {
    const std::string_view text = text_of(array);
    Place place;
    place.element = {0, text.size()};
    for (int level = 0; level < position.depth; ++level) {
        const int number = position.numbers[static_cast<std::size_t>(level)];
        std::size_t &padding = place.padding[static_cast<std::size_t>(level)];
        place.parent = place.element;
        if (number == Position::Append) {
            padding = place.parent.empty() ? 0 : 1;
            place.present = false;
        } else if (place.present) {
            const Step found = find_in_level(array, text, place.parent, level, static_cast<std::size_t>(number));
            padding = found.missing;
            place.present = found.missing == 0;
            place.element = found.range;
        } else {
            padding = static_cast<std::size_t>(number) - 1;
        }
        if (!place.present) place.element = {place.parent.end, place.parent.end};
    }
    return place;
}

std::string_view element_of(const VAR &array, int a, int v, int s) {
    if (a < 0 || v < 0 || s < 0) return {};
    if (a > 0 && v == 0 && s == 0) {
        const std::string_view text = text_of(array);
        const Step attribute = find_attribute(array, text, static_cast<std::size_t>(a));
        return attribute.missing ? std::string_view() : attribute.range.of(text);
    }
    return find_place(array, Position(a, v, s)).element.of(text_of(array));
}

void replace_element(VAR &array, const Position &position, std::string_view value) {
    if (position.depth == 1 && position.numbers[0] == Position::Append) return append_attribute(array, value);
    const Place place = find_place(array, position);
    Change change;
    change.replaced = place.element;
    change.padding = place.padding;
    change.value = value;
    change.within_attribute = true;
    apply(array, change);
}

}  // namespace velda

using namespace velda;

VAR *VLibEEXTRACT_BBBIII(DP *, VAR *target, const VAR *source, int a, int v, int s) {
    store_text(*target, element_of(*source, a, v, s));
    return target;
}

const char *velda_element(const VAR *source, int a, int v, int s, size_t *length) {
    const std::string_view element = element_of(*source, a, v, s);
    *length = element.size();
    return element.data();
}

void VLibECOMPLEX_STORE_VBIIIIIIB(DP *dp, VAR *variable, int a, int v, int s, int, int, int, const VAR *value) {
    const Position position(a, v, s);
    if (position.depth == 0)
        VLibBSTORE_BBB(dp, variable, value);
    else
        replace_element(*variable, position, text_of(*value));
}

void VLibECOMPLEX_STORE_VBIIIBIIIB(DP *dp, VAR *variable, int a, int v, int s, const VAR *, int mode, int, int,
                                   const VAR *value) {
    VLibECOMPLEX_STORE_VBIIIIIIB(dp, variable, a, v, s, mode, 0, 0, value);
}

VAR *VLibEINSERT_BBBBIII(DP *dp, VAR *target, const VAR *source, const VAR *value, int a, int v, int s) {
    if (target != source && lies_in(text_of(*value), *target)) {
        const VAR kept(*value);
        return VLibEINSERT_BBBBIII(dp, target, source, &kept, a, v, s);
    }
    VLibBSTORE_BBB(dp, target, source);
    insert_element(*target, Position(a == 0 ? 1 : a, v, s), text_of(*value));
    return target;
}

VAR *VLibEDELETE_BBBIII(DP *dp, VAR *target, const VAR *source, int a, int v, int s) {
    VLibBSTORE_BBB(dp, target, source);
    const Position position(a, v, s);
    if (position.depth > 0) delete_element(*target, position);
    return target;
}
