// fields.cpp - a text and its delimiters: COUNT, DCOUNT, INDEX, FIELD.
#include <algorithm>
#include <string_view>

#include "runtime/process/context.h"
#include "runtime/value/buffer.h"
#include "runtime/value/scan.h"

namespace velda {

namespace {

// COL1 and COL2 of the last FIELD.
struct FieldColumns {
    int before = 0;
    int behind = 0;
};

int saturated(std::size_t number) { return number > INT32_MAX ? INT32_MAX : static_cast<int>(number); }

std::size_t count_text(std::string_view text, std::string_view wanted) {
    if (wanted.size() == 1) return count_byte(text, wanted.front());
    std::size_t count = 0;
    for (std::size_t at = 0; (at = find_text(text, wanted, at)) != std::string_view::npos; at += wanted.size()) ++count;
    return count;
}

// Where occurrence number `occurrence` (at least 1) at or behind `from` begins; npos when there is none.
std::size_t find_occurrence(std::string_view text, std::string_view wanted, std::size_t occurrence, std::size_t from) {
    if (wanted.size() == 1) {
        if (from > text.size()) return std::string_view::npos;
        const char *const found = skip_bytes(text.data() + from, text.data() + text.size(), wanted.front(), occurrence);
        return occurrence == 0 ? static_cast<std::size_t>(found - text.data()) : std::string_view::npos;
    }
    std::size_t at = find_text(text, wanted, from);
    for (; at != std::string_view::npos && occurrence > 1; --occurrence)
        at = find_text(text, wanted, at + wanted.size());
    return at;
}

struct Fields {
    bool present;
    std::size_t begin;
    std::size_t end;
};

Fields find_fields(std::string_view text, std::string_view delimiter, std::size_t first, std::size_t count) {
    std::size_t begin = 0;
    if (first > 1) {
        const std::size_t before = find_occurrence(text, delimiter, first - 1, 0);
        if (before == std::string_view::npos) return {false, 0, 0};
        begin = before + delimiter.size();
    }
    return {true, begin, std::min(find_occurrence(text, delimiter, count, begin), text.size())};
}

std::size_t at_least_one(int number) { return number < 1 ? 1 : static_cast<std::size_t>(number); }

}  // namespace

}  // namespace velda

using namespace velda;

int VLibECOUNT_IBB(DP *, const VAR *string, const VAR *substring) {
    return saturated(count_text(text_of(*string), text_of(*substring)));
}

int VLibEDCOUNT_IBB(DP *, const VAR *string, const VAR *delimiter) {
    const std::string_view text = text_of(*string);
    return text.empty() ? 0 : saturated(count_text(text, text_of(*delimiter)) + 1);
}

int VLibEINDEX_IBBI(DP *, const VAR *string, const VAR *substring, int occurrence) {
    const std::size_t at = find_occurrence(text_of(*string), text_of(*substring), at_least_one(occurrence), 0);
    return at == std::string_view::npos ? 0 : saturated(at + 1);
}

VAR *VLibEGROUP_BBBBII(DP *dp, VAR *target, const VAR *string, const VAR *delimiter, int first, int count) {
    const std::string_view text = text_of(*string);
    const std::string_view mark = text_of(*delimiter);
    const Fields fields = find_fields(text, mark, at_least_one(first), at_least_one(count));
    if (dp) {
        FieldColumns &columns = dp->state<FieldColumns>();
        columns.before = fields.present && fields.begin > 0 ? saturated(fields.begin + 1 - mark.size()) : 0;
        columns.behind = fields.present ? saturated(fields.end + 1) : 0;
    }
    store_text(*target, text.substr(fields.begin, fields.end - fields.begin));
    return target;
}

int VLibEFIELD_COL_II(DP *dp, int which) {
    const FieldColumns &columns = dp->state<FieldColumns>();
    return which == 1 ? columns.before : which == 2 ? columns.behind : 0;
}
