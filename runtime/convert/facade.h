// facade.h - the dialect's words for dates, conversions and formats.
#pragma once

#include "runtime/convert/convert.h"
#include "runtime/process/process.h"

namespace velda {

// OCONV(value, code): from the stored form to the one that people read. A bad code gives the byte 0xFF.
inline VAR oconv(const Argument &value, const Argument &code) {
    VAR result;
    VLibGConvRun2(velda_getdp(), nullptr, &result, value, code, VELDA_CONVERT_OUTPUT, 0);
    return result;
}

// ICONV(value, code): from the form that people write to the stored one; "" when the value does not suit the code.
inline VAR iconv_value(const Argument &value, const Argument &code) {
    VAR result;
    VLibGConvRun2(velda_getdp(), nullptr, &result, value, code, VELDA_CONVERT_INPUT, 0);
    return result;
}

// FMT(value, mask): "L#5", "R#3", "R%4" and the other masks of VLibGFORMAT_BBBBB.
inline VAR format(const Argument &value, const Argument &mask) {
    VAR result;
    VLibGFORMAT_BBBBB(velda_getdp(), &result, value, mask, nullptr);
    return result;
}

// DTX(number, base): the number in base 2 to 36.
inline VAR to_base(const Argument &number, const Argument &base) {
    VAR result;
    VLibGDTX_BBBB(velda_getdp(), &result, number, base);
    return result;
}

// DATE(): today's day number.
inline int today() { return VLibGInternalLocalDate(velda_getdp()); }

// TIME(): seconds since midnight.
inline int time_of_day() { return VLibGInternalLocalTime(velda_getdp()); }

// TIMEDATE(): "14:05:09 21 NOV 2026".
inline VAR timedate() {
    VAR result;
    VLibGTIMEDATE_BB(velda_getdp(), &result);
    return result;
}

}  // namespace velda
