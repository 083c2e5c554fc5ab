#include "runtime/value/compare.h"

#include <cmath>

#include "runtime/value/buffer.h"
#include "runtime/value/number.h"

namespace velda {

namespace {

template <class T>
bool holds(const T &left, const T &right, int operation) {
    switch (operation) {
        case VELDA_EQUAL:
            return left == right;
        case VELDA_NOT_EQUAL:
            return left != right;
        case VELDA_LESS:
            return left < right;
        case VELDA_LESS_EQUAL:
            return left <= right;
        case VELDA_GREATER:
            return left > right;
        case VELDA_GREATER_EQUAL:
            return left >= right;
    }
    return false;
}

bool is_not_a_number(const VAR &cell) { return (cell.form & VELDA_MASK_HAS_IMAGE) && std::isnan(cell.image); }

bool have_same_images(const VAR &left, const VAR &right) {
    return (left.form & right.form & VELDA_FORM_IMAGE) && left.precision == right.precision;
}

}  // namespace

int compare_bytes(std::string_view left, std::string_view right) {
    const int order = left.compare(right);
    return (order > 0) - (order < 0);
}

int compare_values(const VAR &left, const VAR &right) {
    if (left.form & right.form & VELDA_FORM_INTEGER)
        return (left.integer > right.integer) - (left.integer < right.integer);
    if (is_numeric(left) && is_numeric(right)) return compare_numbers(number_of(left), number_of(right));
    return compare_bytes(text_of(left), text_of(right));
}

}  // namespace velda

using namespace velda;

int VLibDCOMPARE_IBBI(DP *, const VAR *left, const VAR *right, int operation) {
    if (have_same_images(*left, *right)) return holds(left->image, right->image, operation);
    if (is_not_a_number(*left) || is_not_a_number(*right)) return operation == VELDA_NOT_EQUAL;
    return holds(compare_values(*left, *right), 0, operation);
}
