// convert.h - dates, times, conversions, format masks and the byte order of files, for C and C++.
//
// Internal date: a day number; 31 December 1967 is day 0, 1 January 1970 is day 732, days before are negative.
// Internal time: seconds since midnight. "Local" is the time zone of the C library, so TZ is honoured.
//
// Every call takes the context first. A returned VAR * is the target cell. A source may be the target as well.
#ifndef VELDA_RUNTIME_CONVERT_H
#define VELDA_RUNTIME_CONVERT_H

#include <stdint.h>

#include "runtime/vdefc.h"

struct tm;

// Direction of a conversion.
enum {
    VELDA_CONVERT_INPUT = 0,  // from what people write to what the system stores (ICONV)
    VELDA_CONVERT_OUTPUT = 1  // from what the system stores to what people read (OCONV)
};

// What a conversion or a format reports.
enum {
    VELDA_CONVERSION_DONE = 0,
    VELDA_CONVERSION_BAD_VALUE = 1,  // the value does not suit the code
    VELDA_CONVERSION_BAD_CODE = 2    // the system has no such code or mask
};

#ifdef __cplusplus
extern "C" {
#endif

// --- the clock -----------------------------------------------------------------------------------------------------

// Today's local day number.
VELDA_EXPORT int VLibGInternalLocalDate(DP *dp);

// Seconds since local midnight, 0 to 86399.
VELDA_EXPORT int VLibGInternalLocalTime(DP *dp);

// Local time at `utc_seconds` after 1 January 1970 UTC, counted from the midnight that began that UTC day. Where the
// local day differs from the UTC day the result is therefore below 0 or above 86399, and the difference between the
// result and the UTC time of day is always the zone's offset.
VELDA_EXPORT int VLibGInternalLocalTimeFromUTCt(DP *dp, int64_t utc_seconds);

// Splits seconds since 1 January 1970 UTC into the local day number and the seconds since local midnight. A result
// address may be null.
VELDA_EXPORT void VELDAConvertUnixTimeToVELDA(DP *dp, int64_t utc_seconds, int *day, int *seconds);

// The local time and date as text, "14:05:09 21 NOV 2026".
VELDA_EXPORT VAR *VLibGTIMEDATE_BB(DP *dp, VAR *target);

// Seconds since 1 January 1970 UTC with four decimals, as a number.
VELDA_EXPORT VAR *VLibGTIMESTAMP_BB(DP *dp, VAR *target);

// The broken-down time as "Sat Nov 21 14:05:09 2026" and a line feed. The text belongs to the context and stays until
// the next call. Fields outside their range give "" rather than rubbish.
VELDA_EXPORT const char *VELDAAscTime(DP *dp, const struct tm *time);

// --- conversions ---------------------------------------------------------------------------------------------------

// Runs `conversion` on `source` and stores the result in `target`.
//
// `conversion` is one code or several separated by value marks, run from left to right, each on the result of the one
// before; "" changes nothing. runtime/convert/README.md lists the codes. `direction` is one of VELDA_CONVERT_. `store`
// addresses a null pointer that the call fills with the compiled code, so that running the same code again compiles
// nothing; null lets the session keep it. `flags` is 0.
//
// Returns one of VELDA_CONVERSION_. A bad code stores the single byte 0xFF. A value that does not suit its code is
// stored unchanged on output, and as "" on input.
VELDA_EXPORT int VLibGConvRun2(DP *dp, void **store, VAR *target, const VAR *source, const VAR *conversion,
                               int direction, int flags);

// Releases what VLibGConvRun2 left in `*store`, and clears it. A null store and a null in it are allowed.
VELDA_EXPORT void VLibGConvCCBFree(DP *dp, void **store);

// Writes the integer part of `number` in `base`, 2 to 36, with the digits 0-9 and A-Z and a leading "-" when negative.
// A null or empty base is 16. Stores "" when `number` is not numeric or the base is out of range.
VELDA_EXPORT VAR *VLibGDTX_BBBB(DP *dp, VAR *target, const VAR *number, const VAR *base);

// Turns EBCDIC text (code page 037) into ASCII; characters that ASCII lacks become its Latin-1 bytes.
VELDA_EXPORT VAR *VLibGASCII_BBB(DP *dp, VAR *target, const VAR *source);

// Formats `source` by a mask such as "L#5" (left in 5 columns), "R#3" (right), "R%4" (right, zeros in front), "R2,$#12"
// or "T#40" (words folded into lines of 40 columns, divided by TM). Text longer than the columns is cut: R keeps its
// end, the others its beginning. runtime/convert/README.md has the grammar.
//
// `status` receives one of VELDA_CONVERSION_, and may be null: a mask outside the grammar leaves the text unchanged and
// reports BAD_CODE; a numeric mask on text that is no number only lays the text out and reports BAD_VALUE.
VELDA_EXPORT VAR *VLibGFORMAT_BBBBB(DP *dp, VAR *target, const VAR *source, const VAR *mask, VAR *status);

// --- byte order of files -------------------------------------------------------------------------------------------
//
// Integers in files and on the wire stand with their most significant byte first, at any alignment.
VELDA_EXPORT int32_t vgetint32(const void *buffer);
VELDA_EXPORT void vputint32(void *buffer, int32_t value);
VELDA_EXPORT int64_t vgetlong64(const void *buffer);
VELDA_EXPORT void vputlong64(void *buffer, int64_t value);

#ifdef __cplusplus
}
#endif

#endif
