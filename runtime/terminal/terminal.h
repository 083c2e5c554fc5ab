// terminal.h - the terminal of a session: CRT output, INPUT, single keys, prompt, echo, break key, cursor and size.
//
// Output goes through the session's output, which an EXECUTE with CAPTURING may have turned into a string. Bytes pass
// unchanged in both directions. Input comes from standard input: a terminal, which is read key by key with the editing
// done here, or a pipe or file, which is read line by line without echo.
//
// The end of the input is no error and no hang: the read fails at once and leaves "". A command that asks for a line more
// than 20 times in a row after the end is stopped with the message END_OF_INPUT.
//
// A terminal that is not one (no TERM, an unknown TERM) has no sequences: cursor movements are "", keys have no names,
// and the size is COLUMNS by LINES or else 80 by 24.
#ifndef VELDA_RUNTIME_TERMINAL_H
#define VELDA_RUNTIME_TERMINAL_H

#include <stdio.h>

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// --- CRT -------------------------------------------------------------------------------------------------------------

// Bracket one CRT statement: what it wrote is on the screen when the statement ends.
VELDA_EXPORT void VLibFCRTBEGIN(DP *dp);
VELDA_EXPORT void VLibFCRTEND(DP *dp);

// An item; an item and a new line; a new line alone.
VELDA_EXPORT void VLibFCRT_VB(DP *dp, const VAR *value);
VELDA_EXPORT void VLibFCRTN_VB(DP *dp, const VAR *value);
VELDA_EXPORT void VLibFCRTCR(DP *dp);

// Prints a system message on a line of its own: a key and its parameters divided by VM (or AM), or plain text. The
// second cell is null.
VELDA_EXPORT void VLibFPRINTERR_VBB(DP *dp, const VAR *message, const VAR *reserved);

// Shows a message on the last line of the screen and leaves the cursor where it is; it goes when the next INPUT is
// answered. Without such a terminal it is a line of output.
VELDA_EXPORT void VLibFINPUTERR_VB(DP *dp, const VAR *message);

// --- input -----------------------------------------------------------------------------------------------------------

// Bits of the flags of VLibFINPUT_IBBBBBIII. A plain INPUT has neither.
enum {
    VELDA_INPUT_NO_PROMPT = 4,  // the prompt string is not shown
    VELDA_INPUT_NO_NEWLINE = 8  // the cursor stays behind the reply
};

// Lengths of VLibFINPUT_IBBBBBIII that are no number of bytes.
enum {
    VELDA_INPUT_ANY_LENGTH = -2,
    VELDA_INPUT_ONE_KEY = 0  // a single key is the whole reply, Return not awaited; Return itself replies ""
};

// INPUT: reads a line into `target`. Stacked data comes first, and is shown as if it had been typed unless echo is off.
// `length` is the greatest number of bytes: on a terminal the reply is complete with the last of them; of a stacked
// line, or a line from a pipe or file, what exceeds it is dropped. `timeout` is in tenths of a second between two keys,
// 0 for none. The four cells in the middle are null. 1 when a line was read; 0 on timeout, with what was typed so far
// in `target`, and at the end of the input, with "". Keys on a terminal: the user's own erase, kill, word erase and
// literal-next keys, backspace and delete, control X (kill), and the user's end-of-input key, which on an empty line
// ends the input and behind text completes it.
VELDA_EXPORT int VLibFINPUT_IBBBBBIII(DP *dp, VAR *target, const VAR *reserved1, const VAR *reserved2,
                                      const VAR *reserved3, const VAR *reserved4, int length, int flags, int timeout);

// Reads one key, past stacked data and without echo, into `target` as its byte number. `timeout` is in tenths of a
// second, 0 waits without limit. 1 when a key came, 0 on timeout, -1 when none can come (end of the input) or when an
// interrupt or a message arrived meanwhile; `target` is then unchanged.
VELDA_EXPORT int VLibFIN_IBI(DP *dp, VAR *target, int timeout);

// The same, and -1 whenever an interrupt or a message arrived during the call, even if a key came too.
VELDA_EXPORT int VELDAWindowsInchar(DP *dp, VAR *target, int timeout);

// Reads a line of at most `size` - 1 bytes, zero-ended, into `buffer`, past stacked data, without prompt and echo. On a
// terminal each byte of `ends` ends it as well as Return (null: Return alone). The number of bytes, or -1 at the end of
// the input.
VELDA_EXPORT int VRunFStringIn(DP *dp, char *buffer, int size, const char *ends);

// PROMPT: the text that INPUT shows, "?" when a command starts. SYSTEM(3026) reads it.
VELDA_EXPORT void VLibFPROMPT_VB(DP *dp, const VAR *text);

// ECHO: whether INPUT shows what is typed; `state` 0.0 off, else on. The first number is 0. SYSTEM(3024) reads it.
VELDA_EXPORT void VLibFECHO_VIF(DP *dp, int reserved, double state);

// Disables (0.0) or enables (else) the break key. Disabled, the keys that interrupt arrive as keys like any other.
VELDA_EXPORT void VLibFBREAKKEY_VF(DP *dp, double state);

// --- the screen ------------------------------------------------------------------------------------------------------

// @(column,row), both counted from 0: `target` becomes the sequence that moves the cursor there. Row -1 stays in the
// row. A negative column is a screen function, whatever the row: -1 clear screen, -2 home, -3 clear to end of screen,
// -4 clear to end of line, -5 and -6 blink on and off, -7 and -8 protect, -9 left, -10 up, -11 and -12 half bright, -13
// and -14 reverse, -15 and -16 underline, -17 and -18 slave printer, -19 right, -20 down, -21 and -22 insert and delete
// a character, -23 and -24 insert and delete a line. Gives `target`; it is "" where the terminal cannot, and when
// standard output is a file or a pipe.
VELDA_EXPORT VAR *VLibFCURSOR_BBII(DP *dp, VAR *target, int column, int row);

// Writes `length` bytes to the terminal as they are, past a capture. The last number is 0. Gives 0, or the error
// number.
VELDA_EXPORT int VRunFTerminalWrite(DP *dp, const char *text, int length, int reserved);

// The text of the terminal's string capability with this number in terminfo's own order (0 is back_tab); null when it
// has none. Valid as long as the process.
VELDA_EXPORT const char *VRunFTerminfo(DP *dp, int number);

// Size of the screen: 2 its columns, 3 its lines, as the SYSTEM numbers. 0 for other selectors.
VELDA_EXPORT int VELDAGetOutputSize(DP *dp, int selector);

// 1 when output is shown on a terminal now, 0 when it goes to a file, a pipe or a capture, where nobody reads page by page.
VELDA_EXPORT int velda_output_is_terminal(DP *dp);

// Stores the name of this terminal's device, such as "/dev/pts/3", and gives 1; "" and 0 when there is none.
VELDA_EXPORT int VELDAGetTTYName(DP *dp, VAR *target);

// --- formatted output of native logic --------------------------------------------------------------------------------

// As printf and fprintf; what is meant for `stdout` goes through the session's output, in step with CRT. The number of
// bytes, or below 0.
VELDA_EXPORT int VELDAprintf(DP *dp, const char *format, ...) __attribute__((format(printf, 2, 3)));
VELDA_EXPORT int VELDAfprintf(DP *dp, FILE *stream, const char *format, ...) __attribute__((format(printf, 3, 4)));

// As VELDAprintf, and shown at once: progress of long work.
VELDA_EXPORT int VELDAjprintf(DP *dp, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Sends what was written so far. 0, or EOF.
VELDA_EXPORT int VELDAfflush(DP *dp, FILE *stream);

// Writes `text`, ": " and the text of the present error number to standard error.
VELDA_EXPORT void VELDAperror(DP *dp, const char *text);

#ifdef __cplusplus
}
#endif

#endif
