// print.h - PRINT, PRINTER, HEADING and FOOTING on print units.
//
// A print unit is a number; unit 0 is the one of a plain PRINT. Each has a switch: its output goes to the terminal, as
// CRT does, or to the printer. With a heading or a footing the output is cut into pages: of the screen's size on the
// terminal, where a key is awaited between pages (Q or control X ends the command, N goes on without further pauses),
// and of 132 columns by 66 lines on the printer, or as VELDAPRINTWIDTH and VELDAPRINTDEPTH say, with a form feed
// between pages. Without either, text passes unchanged.
//
// Output for the printer gathers in a print job, which begins with the first output and is handed over when it is
// closed or when the command ends. It becomes the file print/PORT-UNIT-NUMBER.prn of the global directory, or is the
// input of the shell command that VELDAPRINTER names. A job that cannot be written ends the command with a message.
#ifndef VELDA_RUNTIME_PRINT_H
#define VELDA_RUNTIME_PRINT_H

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// An item; an item and a new line; a new line alone.
VELDA_EXPORT void VLibFPRINT_VIB(DP *dp, int unit, const VAR *value);
VELDA_EXPORT void VLibFPRINTN_VIB(DP *dp, int unit, const VAR *value);
VELDA_EXPORT void VLibFPRINTCR_VI(DP *dp, int unit);

// States of VLibFPRINTER_VII, and the unit that stands for all that are in use.
enum {
    VELDA_PRINTER_OFF = 0,     // to the terminal; an open print job stays open
    VELDA_PRINTER_ON = 1,      // to the printer
    VELDA_PRINTER_CLOSE = -1,  // ends the print job; the switch stays
    VELDA_PRINTER_RESET = -2,  // ends the print job and switches to the terminal, without heading and footing
    VELDA_ALL_UNITS = -2
};

// Switches a unit, or ends its print job.
VELDA_EXPORT void VLibFPRINTER_VII(DP *dp, int unit, int state);

// Selectors of VLibFHEADING_FOOTING_VIIB.
enum { VELDA_HEADING = 0, VELDA_FOOTING = 1 };

// HEADING and FOOTING: the text of the pages that begin from now on; "" for none. Letters between single quotes in it
// are options: P page number (PP, or P and digits, right-justified), D date, T time and date, L new line (as an
// attribute mark in the text), C centres the line, N no pause between pages. Two single quotes are one.
VELDA_EXPORT void VLibFHEADING_FOOTING_VIIB(DP *dp, int unit, int selector, const VAR *text);

// PAGE: the next output of the unit begins a new page.
VELDA_EXPORT void VLibFPAGE_VI(DP *dp, int unit);

#ifdef __cplusplus
}
#endif

#endif
