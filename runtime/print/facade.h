// facade.h - print units as words: print, print_line, printer_on, heading. They act on the calling thread's session.
#pragma once

#include "runtime/print/print.h"
#include "runtime/process/process.h"

namespace velda {

namespace detail {
inline void print_item(DP *dp, int unit, const VAR &item) { VLibFPRINT_VIB(dp, unit, &item); }
}  // namespace detail

// PRINT ON unit a, b, c: with no new line behind.
template <class... Items>
void print_on([[maybe_unused]] int unit, const Items &...items) {
    [[maybe_unused]] DP *const dp = velda_getdp();
    (detail::print_item(dp, unit, items), ...);
}

// The same with a new line behind; with no item a new line alone.
template <class... Items>
void print_line_on(int unit, const Items &...items) {
    print_on(unit, items...);
    VLibFPRINTCR_VI(velda_getdp(), unit);
}

// PRINT, on unit 0.
template <class... Items>
void print(const Items &...items) {
    print_on(0, items...);
}

template <class... Items>
void print_line(const Items &...items) {
    print_line_on(0, items...);
}

inline void printer_on(int unit = 0) { VLibFPRINTER_VII(velda_getdp(), unit, VELDA_PRINTER_ON); }
inline void printer_off(int unit = 0) { VLibFPRINTER_VII(velda_getdp(), unit, VELDA_PRINTER_OFF); }
// Ends the print jobs of all units.
inline void printer_close() { VLibFPRINTER_VII(velda_getdp(), VELDA_ALL_UNITS, VELDA_PRINTER_CLOSE); }

inline void heading(const VAR &text, int unit = 0) {
    VLibFHEADING_FOOTING_VIIB(velda_getdp(), unit, VELDA_HEADING, &text);
}
inline void footing(const VAR &text, int unit = 0) {
    VLibFHEADING_FOOTING_VIIB(velda_getdp(), unit, VELDA_FOOTING, &text);
}
// PAGE: the next output begins a new page.
inline void new_page(int unit = 0) { VLibFPAGE_VI(velda_getdp(), unit); }

}  // namespace velda
