// search.cpp - LOCATE, FIND and FINDSTR: elements by their contents.
#include <algorithm>
#include <string_view>

#include "runtime/value/buffer.h"
#include "runtime/value/compare.h"
#include "runtime/value/dynamic_array.h"
#include "runtime/value/number.h"
#include "runtime/value/scan.h"

namespace velda {

namespace {

// Walks the elements between two marks of a level; the empty text has none.
class Elements {
  public:
    Elements(std::string_view text, char mark) : text_(text), mark_(mark), done_(text.empty()) { find_end(); }

    bool done() const { return done_; }
    std::string_view current() const { return text_.substr(begin_, end_ - begin_); }
    void next() {
        done_ = end_ == text_.size();
        begin_ = end_ + 1;
        find_end();
    }

  private:
    void find_end() {
        if (!done_)
            end_ = static_cast<std::size_t>(find_byte(text_.data() + begin_, text_.data() + text_.size(), mark_) -
                                            text_.data());
    }

    std::string_view text_;
    char mark_;
    bool done_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

int compare_left_justified(std::string_view left, std::string_view right) { return compare_bytes(left, right); }

// As if the shorter text had blanks in front.
int compare_padded(std::string_view left, std::string_view right) {
    if (left.size() > right.size()) return -compare_padded(right, left);
    const std::size_t excess = right.size() - left.size();
    for (char byte : right.substr(0, excess))
        if (byte != ' ') return static_cast<unsigned char>(byte) > ' ' ? -1 : 1;
    return compare_bytes(left, right.substr(excess));
}

int compare_right_justified(std::string_view left, std::string_view right) {
    const Argument l(left), r(right);
    if (is_numeric(*l) && is_numeric(*r)) return compare_values(*l, *r);
    return compare_padded(left, right);
}

struct Order {
    std::string_view name;
    int (*compare)(std::string_view, std::string_view);
    int direction;
};

constexpr Order Orders[] = {
    {"AL", compare_left_justified, 1},
    {"AR", compare_right_justified, 1},
    {"DL", compare_left_justified, -1},
    {"DR", compare_right_justified, -1},
};

const Order *find_order(const VAR *name) {
    if (!name) return nullptr;
    for (const Order &order : Orders)
        if (text_of(*name) == order.name) return &order;
    return nullptr;
}

struct Location {
    bool found;
    std::size_t position;
};

Location locate_in_order(std::string_view list, char mark, std::string_view wanted, std::size_t start,
                         const Order &order) {
    std::size_t position = 1;
    Elements elements(list, mark);
    for (; !elements.done() && position < start; elements.next()) ++position;
    for (; !elements.done(); elements.next(), ++position) {
        if (elements.current() == wanted) return {true, position};
        if (order.compare(elements.current(), wanted) * order.direction > 0) break;
    }
    return {false, position};
}

std::size_t element_count(std::string_view list, char mark) { return list.empty() ? 0 : count_byte(list, mark) + 1; }

Location locate(std::string_view list, char mark, std::string_view wanted, std::size_t start) {
    std::size_t before = 0;  // elements that the search leaves out
    if (start > 1 && !list.empty()) {
        std::size_t lacking = start - 1;
        const char *const end = list.data() + list.size();
        const char *const last = skip_bytes(list.data(), end, mark, lacking);
        before = start - 1 - lacking;
        if (lacking > 0) return {false, before + 2};
        list.remove_prefix(static_cast<std::size_t>(last - list.data()) + 1);
        // What is left of a list is one element at least, empty though it may be.
        if (list.empty()) return {wanted.empty(), before + (wanted.empty() ? 1 : 2)};
    }
    std::size_t count = 0;
    const bool can_be_there = wanted.find(mark) == std::string_view::npos;
    if (!can_be_there) return {false, before + element_count(list, mark) + 1};
    const std::size_t position = find_element(list, wanted, mark, count);
    return position ? Location{true, before + position} : Location{false, before + count + 1};
}

bool holds_marks(std::string_view text) { return std::any_of(text.begin(), text.end(), is_level_mark); }

// The element that holds the byte at `at`.
Range element_around(std::string_view array, std::size_t at) {
    Range range = {at, at};
    while (range.begin > 0 && !is_level_mark(array[range.begin - 1])) --range.begin;
    while (range.end < array.size() && !is_level_mark(array[range.end])) ++range.end;
    return range;
}

void store_count(VAR *target, std::size_t count) {
    if (target) velda_store_integer(nullptr, target, static_cast<std::int64_t>(count));
}

std::string_view behind_last(std::string_view text, char mark) {
    return text.substr(begin_of_last(text, 0, text.size(), mark));
}

// Tells the position of an element by the marks before it.
void store_position(std::string_view before, VAR *attribute, VAR *value, VAR *sub_value) {
    const std::string_view in_attribute = behind_last(before, AM);
    const std::string_view in_value = behind_last(in_attribute, VM);
    const std::size_t a = count_byte(before, AM) + 1;
    const std::size_t v = count_byte(in_attribute, VM) + 1;
    const std::size_t s = count_byte(in_value, SVM) + 1;
    store_count(attribute, a);
    store_count(value, v);
    store_count(sub_value, s);
}

}  // namespace

}  // namespace velda

using namespace velda;

int VLibELOCATE_IBBBIIIIB(DP *, VAR *position, const VAR *wanted, const VAR *array, int a, int v, int, int start,
                          const VAR *order_name) {
    const Position parent(a, v, 0);
    const char mark = LevelMarks[static_cast<std::size_t>(parent.depth)];
    const std::string_view list = element_of(*array, a, v, 0);
    const std::size_t first = start < 1 ? 1 : static_cast<std::size_t>(start);
    const Order *const order = find_order(order_name);
    const Location location = order ? locate_in_order(list, mark, text_of(*wanted), first, *order)
                                    : locate(list, mark, text_of(*wanted), first);
    store_count(position, location.position);
    return location.found;
}

int VLibEFIND_IBBIBBB(DP *, const VAR *wanted, const VAR *array, int occurrence, VAR *attribute, VAR *value,
                      VAR *sub_value) {
    const std::string_view text = text_of(*array);
    const std::string_view element = text_of(*wanted);
    if (holds_marks(element)) return 0;
    std::size_t at = find_any_element(text, element, 0);
    for (; at != std::string_view::npos && occurrence > 1; --occurrence) {
        const std::size_t behind = at + element.size() + 1;
        at = behind > text.size() ? std::string_view::npos : find_any_element(text, element, behind);
    }
    if (at == std::string_view::npos) return 0;
    store_position(text.substr(0, at), attribute, value, sub_value);
    return 1;
}

int VLibEFINDSTR_IBBIBBB(DP *, const VAR *wanted, const VAR *array, int occurrence, VAR *attribute, VAR *value,
                         VAR *sub_value) {
    const std::string_view text = text_of(*array);
    const std::string_view part = text_of(*wanted);
    if (holds_marks(part)) return 0;
    std::size_t at = find_text(text, part);
    for (; at != std::string_view::npos && occurrence > 1; --occurrence)
        at = find_text(text, part, element_around(text, at).end);
    if (at == std::string_view::npos) return 0;
    store_position(text.substr(0, element_around(text, at).begin), attribute, value, sub_value);
    return 1;
}
