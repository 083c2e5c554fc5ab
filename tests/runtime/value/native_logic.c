#include "tests/runtime/value/native_logic.h"

#include <string.h>

// A constant as modules lay it out: the head of a cell, then the length and the bytes with a zero byte.
#define CONSTANT(name, form, extra, precision, image, integer, string) \
    static const struct {                                              \
        uint16_t form_;                                                \
        uint8_t extra_, precision_;                                    \
        uint32_t reserved_;                                            \
        double image_;                                                 \
        int64_t integer_;                                              \
        uint16_t length_;                                              \
        char bytes_[sizeof(string) < 14 ? 14 : sizeof(string)];        \
    } name = {form, extra, precision, 0, image, integer, sizeof(string) - 1, string}

CONSTANT(text, 0x0800, 0x02, 0, 0.0, 0, "a text that runs on behind the cell");
CONSTANT(empty, 0x0800, 0x02, 0, 0.0, 0, "");
CONSTANT(three, 0x2801, 0x22, 4, 30000.0, 3, "3");
CONSTANT(two_hundred, 0x2801, 0x02, 4, 2000000.0, 200, "200");
CONSTANT(minus_one, 0x2801, 0x22, 4, -10000.0, -1, "-1");
CONSTANT(fraction, 0x2800, 0x22, 4, 12500.0, 0, "1.25");
CONSTANT(digits, 0x1800, 0x02, 4, 1234567890000.0, 0, "0123456789");
CONSTANT(thousandth, 0x1800, 0x02, 4, 10.0, 0, ".001");
CONSTANT(one, 0x1800, 0x02, 4, 10000.0, 0, "01");
CONSTANT(zeros, 0x1800, 0x02, 4, 0.0, 0, "00");
CONSTANT(point, 0x1800, 0x02, 4, 0.0, 0, ".");
CONSTANT(minus, 0x1800, 0x02, 4, -0.0, 0, "-");
CONSTANT(plus, 0x1800, 0x02, 4, 0.0, 0, "+");

static const void *const constants[] = {&text,       &empty, &three, &two_hundred, &minus_one, &fraction, &digits,
                                        &thousandth, &one,   &zeros, &point,       &minus,     &plus};

const VAR *native_constant(int index) {
    return index < (int)(sizeof constants / sizeof *constants) ? (const VAR *)constants[index] : NULL;
}

int native_fill(VAR *cell, int length) {
    const char *before = (cell->form & VELDA_FORM_OWNED) ? cell->text : NULL;
    char *bytes = velda_prepare_text(NULL, cell, length);
    memset(bytes, 'x', (size_t)length);
    return bytes == before;
}

int native_resize(VAR *cell, int length) {
    const char *before = (cell->form & VELDA_FORM_OWNED) ? cell->text : NULL;
    return velda_resize_text(NULL, cell, length) == before;
}

int native_truth(const VAR *cell) {
    if (cell->form & VELDA_MASK_HAS_IMAGE) return cell->image != 0.0;
    if (cell->form & VELDA_FORM_INTEGER) return cell->integer != 0;
    return -1;
}

int native_sum(int n) {
    VAR sum = {0}, number = {0};
    int i, result;
    for (i = 1; i <= n; ++i) {
        velda_store_integer(NULL, &number, i);
        VLibDMATHADD_BBBB(NULL, &sum, &sum, &number);
    }
    result = VLibBCONV_IB(NULL, &sum);
    VLibBStoreFreeVar_VB(NULL, &sum);
    return result;
}
