// value.h - operations on value cells and dynamic arrays: the entries, for C and C++.
//
// Rules that hold for every entry here:
// - `dp` may be null, except where an entry says otherwise: a value belongs to nobody.
// - A source is read as text or as a number, as the operation needs, whatever the cell holds. A source that may be left
//   out is a null address. Reading can give the source cell a text or a numeric value that it did not have yet; its
//   meaning stays.
// - The target may be any cell, also one of the sources: all sources are read before it changes. What it owned is
//   released. An entry that returns a cell returns its target.
// - Nothing fails. A position beyond the data is "" on reading and padding on writing; what is not there is 0.
// - A string holds at most 4,294,967,295 bytes. More than that, or exhausted memory, ends the process with a message on
//   standard error and exit code VELDA_EXIT_MEMORY.
//
// Positions in a dynamic array count from 1: attribute `a`, value `v` in it, sub-value `s` in that.
// - 0 means the whole of the level above; 0 above a position that is not 0 counts as 1: (3,0,2) is (3,1,2).
// - -1 is one beyond the last; every other negative position counts as -1. So reading it gives "" and writing appends.
// The empty string has no attributes, an empty attribute no values, an empty value no sub-values.
#include "runtime/vdefc.h"  // before the guard: the cell's members need what follows, whichever header comes first

#ifndef VELDA_RUNTIME_VALUE_VALUE_H
#define VELDA_RUNTIME_VALUE_VALUE_H

#define VELDA_EXIT_MEMORY 12  // exit code of a process whose memory is exhausted

#ifdef __cplusplus
extern "C" {
#endif

// --- The cell ---
// Address and length of a cell's text; a number is given its text first. The bytes belong to the cell and are valid
// until it changes. A length above INT_MAX is told as INT_MAX. No zero byte need follow them.
VELDA_EXPORT const char *VLibEADDR_SB(DP *dp, const VAR *cell);
VELDA_EXPORT int VLibELEN_IB(DP *dp, const VAR *cell);
// LEN: the same number of bytes.
VELDA_EXPORT int VLibELENC_IB(DP *dp, const VAR *cell);
// Both at once, and the length in full.
VELDA_EXPORT const char *velda_text(const VAR *cell, size_t *length);

// Gives a cell that has no string form its text; an unassigned cell becomes "".
VELDA_EXPORT void VLibCONV_VB(DP *dp, const VAR *cell);
// Releases what the cell holds: its buffer, its share of an open file (which is closed with the last cell that holds
// it) or select list, its matrix. The form is left for the caller to overwrite.
VELDA_EXPORT void VLibBStoreFreeVar_VB(DP *dp, VAR *cell);
// Makes the cell's text `length` bytes long in a buffer that the cell owns: what it held is kept or cut, new bytes are
// 0.
VELDA_EXPORT void VLibBStoreResize_VBI(DP *dp, VAR *cell, int length);
// Makes the cell a string of `length` bytes in a buffer that it owns, copied from `bytes`; with a null `bytes` the
// caller fills it through cell->text.
VELDA_EXPORT void VLibBStoreString_VBIS(DP *dp, VAR *cell, int length, const char *bytes);
// With selector 0: drops the data that are kept with the string, which must not outlive a change of its bytes. With any
// other selector it folds the cell to upper case in place.
VELDA_EXPORT void VLibGUPCASE_INTERNAL(DP *dp, VAR *cell, int selector);

// Assignment. A copy of an open file shares it; a copy of a matrix copies its cells.
VELDA_EXPORT VAR *VLibBSTORE_BBB(DP *dp, VAR *target, const VAR *value);
VELDA_EXPORT void VLibBSTORE_VBI(DP *dp, VAR *target, int value);
VELDA_EXPORT VAR *VLibBSTORE_BBI(DP *dp, VAR *target, int value);
VELDA_EXPORT void VLibBSTORE_VBS(DP *dp, VAR *target, const char *text);
// Text of any bytes; they may lie in the target itself.
VELDA_EXPORT void velda_store_text(VAR *target, const char *bytes, size_t length);
// A number with at most 4 decimals; more are rounded off, halves away from zero.
VELDA_EXPORT void velda_store_float(VAR *target, double value);
// `target` is taken as raw memory: it is overwritten without a release.
VELDA_EXPORT void velda_copy_construct(VAR *target, const VAR *value);

// --- Numbers ---
// Numeric is a text of an optional sign, digits, an optional "." and digits; all but one byte may be missing, so ".",
// "-" and "+" are numeric and 0. "" is not numeric. A value has any size; an arithmetic result has at most 4 decimals
// (more are rounded, halves away from zero) and is otherwise exact. A text that is not numeric counts as 0.

VELDA_EXPORT int VLibDNUM_IB(DP *dp, const VAR *value);       // NUM: 1 when numeric
VELDA_EXPORT int VLibBCONVCOND_IB(DP *dp, const VAR *value);  // 1 when true: a number not 0, other text but ""
// The integer part; beyond the range of the result its nearest end.
VELDA_EXPORT int VLibBCONV_IB(DP *dp, const VAR *value);
VELDA_EXPORT int64_t velda_to_integer(const VAR *value);
VELDA_EXPORT double VLibBCONV_FB(DP *dp, const VAR *value);
// The text with a zero byte behind it, valid until the cell changes. (The F in the name stands for no argument.)
VELDA_EXPORT const char *VLibBCONV_SFB(DP *dp, const VAR *value);

// Division by zero gives 0 and a message through velda_set_fault_reporter.
VELDA_EXPORT VAR *VLibDMATHADD_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right);
VELDA_EXPORT VAR *VLibDMATHSUB_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right);
VELDA_EXPORT VAR *VLibDMATHMUL_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right);
VELDA_EXPORT VAR *VLibDMATHDIV_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right);
// The remainder has the sign of `left`.
VELDA_EXPORT VAR *VLibDMOD_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right);
VELDA_EXPORT VAR *VLibDNEG_BBB(DP *dp, VAR *target, const VAR *value);
VELDA_EXPORT VAR *VLibDABS_BBB(DP *dp, VAR *target, const VAR *value);
VELDA_EXPORT VAR *VLibBINT_BBB(DP *dp, VAR *target, const VAR *value);  // decimals cut off
// A random integer from 0 to the operand's integer part less 1; 0 for an operand below 1.
VELDA_EXPORT VAR *VLibDRND_BBB(DP *dp, VAR *target, const VAR *value);

// The variable changes by 1; the target of the BBB forms takes the value from before.
VELDA_EXPORT void VLibDPOSTI_VB(DP *dp, VAR *variable);
VELDA_EXPORT void VLibDPOSTD_VB(DP *dp, VAR *variable);
VELDA_EXPORT VAR *VLibDPOSTI_BBB(DP *dp, VAR *target, VAR *variable);
VELDA_EXPORT VAR *VLibDPOSTD_BBB(DP *dp, VAR *target, VAR *variable);
VELDA_EXPORT VAR *VLibDPREI_BB(DP *dp, VAR *variable);

// String arithmetic: exact, without a limit on size or decimals, and the result is always a string. `decimals` is the
// number of decimals of a quotient, the rest being cut off: 0 gives the integer quotient. The remainder belongs to the
// integer quotient and has the sign of `left`.
enum {
    VELDA_SMATH_ADD = 0,
    VELDA_SMATH_SUBTRACT = 1,
    VELDA_SMATH_MULTIPLY = 2,
    VELDA_SMATH_DIVIDE = 3,
    VELDA_SMATH_MODULO = 4
};
VELDA_EXPORT VAR *VLibDSMATH_BBBBII(DP *dp, VAR *target, const VAR *left, const VAR *right, int operation,
                                    int decimals);

// Where the message of an arithmetic fault goes: standard error until a reporter is set. Null sets that again.
typedef void (*velda_fault_reporter)(DP *dp, const char *message);
VELDA_EXPORT void velda_set_fault_reporter(velda_fault_reporter reporter);

// --- Comparison ---

enum {
    VELDA_EQUAL = 0,
    VELDA_NOT_EQUAL = 1,
    VELDA_LESS = 2,
    VELDA_LESS_EQUAL = 3,
    VELDA_GREATER = 4,
    VELDA_GREATER_EQUAL = 5
};
// 1 when the comparison holds. Two numeric operands compare by value, whatever their size; anything else as byte
// strings. An image that is not a number is unequal to everything.
VELDA_EXPORT int VLibDCOMPARE_IBBI(DP *dp, const VAR *left, const VAR *right, int operation);

// --- Elements ---

// x<a,v,s>: the element as a string, "" past the end.
VELDA_EXPORT VAR *VLibEEXTRACT_BBBIII(DP *dp, VAR *target, const VAR *source, int a, int v, int s);
// The same in place: address and length of the element's bytes inside `source`, valid until it changes.
VELDA_EXPORT const char *velda_element(const VAR *source, int a, int v, int s, size_t *length);
// x<a,v,s> = y. Pads with the marks that are needed. Callers pass 0 for the arguments named `unused` and for `mode`:
// the dialect's other stores into an element are not part of this runtime.
VELDA_EXPORT void VLibECOMPLEX_STORE_VBIIIIIIB(DP *dp, VAR *variable, int a, int v, int s, int mode, int unused,
                                               int unused2, const VAR *value);
VELDA_EXPORT void VLibECOMPLEX_STORE_VBIIIBIIIB(DP *dp, VAR *variable, int a, int v, int s, const VAR *unused, int mode,
                                                int unused2, int unused3, const VAR *value);
// A new element before the position; beyond the end or at -1 it is appended at that level, while the levels above are
// padded as a store pads them.
VELDA_EXPORT VAR *VLibEINSERT_BBBBIII(DP *dp, VAR *target, const VAR *source, const VAR *value, int a, int v, int s);
// Without the element and one adjoining mark. Beyond the end, and at (0,0,0), nothing changes.
VELDA_EXPORT VAR *VLibEDELETE_BBBIII(DP *dp, VAR *target, const VAR *source, int a, int v, int s);

// LOCATE: among the attributes (a and v 0), the values of attribute a (v 0), or the sub-values of value v of it; `s` is
// not used. The search begins at element `start`, 0 meaning 1. 1 when an element equals `wanted` byte by byte;
// `position` takes its number. Otherwise `position` is one beyond the last element or, with an order, where `wanted`
// belongs. Orders: "AL" and "DL" ascending and descending as text; "AR" and "DR" right-justified: numbers by value,
// other text as if padded with blanks on the left. A null or empty order is none, and so is any other text.
VELDA_EXPORT int VLibELOCATE_IBBBIIIIB(DP *dp, VAR *position, const VAR *wanted, const VAR *array, int a, int v, int s,
                                       int start, const VAR *order);
// FIND, FINDSTR: the occurrence-th element that equals, or contains, `wanted`. An element here is what stands between
// two neighbouring marks of any level, so a text that holds marks is in none, and the empty array has none. 1 and its
// position when found; else 0 and the variables stay. Variables may be null. FINDSTR of "" finds nothing.
VELDA_EXPORT int VLibEFIND_IBBIBBB(DP *dp, const VAR *wanted, const VAR *array, int occurrence, VAR *attribute,
                                   VAR *value, VAR *sub_value);
VELDA_EXPORT int VLibEFINDSTR_IBBIBBB(DP *dp, const VAR *wanted, const VAR *array, int occurrence, VAR *attribute,
                                      VAR *value, VAR *sub_value);

// 0 for "", else the number of delimiters plus 1. The whole delimiter counts as one; an empty one never occurs.
VELDA_EXPORT int VLibEDCOUNT_IBB(DP *dp, const VAR *string, const VAR *delimiter);
// Occurrences that do not overlap; 0 for an empty substring.
VELDA_EXPORT int VLibECOUNT_IBB(DP *dp, const VAR *string, const VAR *substring);
// Byte position of the occurrence-th occurrence (below 1 counts as 1), counted as by COUNT; 0 when there is none.
VELDA_EXPORT int VLibEINDEX_IBBI(DP *dp, const VAR *string, const VAR *substring, int occurrence);
// `count` fields from field `first` on, with the delimiters between them; each below 1 counts as 1. With a `dp` it
// leaves COL1 and COL2: the positions of the delimiters around the result, 0 at the start, length plus 1 at the end,
// and both 0 when there is no such field.
VELDA_EXPORT VAR *VLibEGROUP_BBBBII(DP *dp, VAR *target, const VAR *string, const VAR *delimiter, int first, int count);
// COL1 (which 1) or COL2 (which 2) of this context's last FIELD. Needs a dp.
VELDA_EXPORT int VLibEFIELD_COL_II(DP *dp, int which);

// Marks one level up (VM to AM, SVM to VM, TM to SVM, 0xFA to TM) or down; AM is not raised, 0xFA not lowered.
VELDA_EXPORT VAR *VLibERAISE_BBB(DP *dp, VAR *target, const VAR *source);
VELDA_EXPORT VAR *VLibELOWER_BBB(DP *dp, VAR *target, const VAR *source);
// Attributes in ascending order of their bytes.
VELDA_EXPORT VAR *VLibESORT_BBB(DP *dp, VAR *target, const VAR *source);
// Sum of all numeric elements of all levels.
VELDA_EXPORT VAR *VLibESUM_BBB(DP *dp, VAR *target, const VAR *source);

// --- Text ---

// x[start,length]. A negative start counts from the end, -1 being the last byte, and stops at the first byte; 0 counts
// as
// 1. A negative length is the end position counted from the end, -1 being the last byte.
VELDA_EXPORT VAR *VLibESUBSTR_BBBII(DP *dp, VAR *target, const VAR *string, int start, int length);
// Concatenation. With the target as the first part it appends in place, in constant time per byte.
VELDA_EXPORT VAR *VLibECAT_BBBB(DP *dp, VAR *target, const VAR *left, const VAR *right);
VELDA_EXPORT VAR *VLibEMCAT_BBI(DP *dp, VAR *target, int count, ...);  // count parts: const VAR *
VELDA_EXPORT void velda_append_text(VAR *target, const char *bytes, size_t length);

// TRIM. The code is a sum of bits; with VELDA_TRIM_BY_TYPE the type decides: "L", "T", "B" both ends, "A" all
// occurrences, "R" (also for a null or empty type) both ends and inner runs reduced to one; any other type changes
// nothing. The character is the first byte of `character`, a blank when that is null or empty.
enum { VELDA_TRIM_LEADING = 17, VELDA_TRIM_TRAILING = 18, VELDA_TRIM_REDUNDANT = 23, VELDA_TRIM_BY_TYPE = 288 };
VELDA_EXPORT VAR *VLibETRIM_BIBBBB(DP *dp, int code, VAR *target, const VAR *source, const VAR *character,
                                   const VAR *type);
// CHANGE: replaces `occurrences` occurrences (below 1: all) from the start-th on (below 1: the first). An empty `old`
// changes nothing.
VELDA_EXPORT VAR *VLibGSWAPF_BBBBBII(DP *dp, VAR *target, const VAR *source, const VAR *old_text, const VAR *new_text,
                                     int occurrences, int start);
// CONVERT: each byte of `from` becomes the byte at the same place of `to` or, where `to` is shorter, is removed. The
// first place of a byte in `from` counts.
VELDA_EXPORT VAR *VLibGCONVERTF_BBBBB(DP *dp, VAR *target, const VAR *source, const VAR *from, const VAR *to);
// Both in place, on the element at the position; (0,0,0) is the whole. An element that is not there stays absent.
VELDA_EXPORT void VLibGCHANGETO_VBIIIBB(DP *dp, VAR *variable, int a, int v, int s, const VAR *old_text,
                                        const VAR *new_text);
VELDA_EXPORT void VLibGCONVERTTO_VBIIIBB(DP *dp, VAR *variable, int a, int v, int s, const VAR *from, const VAR *to);
// The letters A to Z; no other byte changes.
VELDA_EXPORT VAR *VLibGUPCASE_BBB(DP *dp, VAR *target, const VAR *source);
VELDA_EXPORT VAR *VLibGDOWNCASE_BBB(DP *dp, VAR *target, const VAR *source);
// `count` copies; none below 1.
VELDA_EXPORT VAR *VLibESTR_BBBI(DP *dp, VAR *target, const VAR *string, int count);
VELDA_EXPORT VAR *VLibESPACE_BBI(DP *dp, VAR *target, int count);
VELDA_EXPORT VAR *VLibECHAR_BBI(DP *dp, VAR *target, int byte);  // the low 8 bits of `byte`
VELDA_EXPORT int VLibGSEQ_IB(DP *dp, const VAR *string);         // 0 for ""
// CTRL(x), byte by byte: letters of either case and @ [ ] ^ _ give their control character, "?" gives 127, "\" and "~"
// give 28; every other byte stays.
VELDA_EXPORT VAR *VLibECONTROLCHAR_BBB(DP *dp, VAR *target, const VAR *source);

// --- Tests ---

VELDA_EXPORT int VLibEALPHA_IB(DP *dp, const VAR *string);  // 1 when all bytes are letters A-Z, a-z; "" is not
enum {
    VELDA_IS_ALPHANUMERIC = 1,
    VELDA_IS_CONTROL = 3,
    VELDA_IS_DIGIT = 4,
    VELDA_IS_PRINTABLE = 7,
    VELDA_IS_SPACE = 9,
    VELDA_IS_UPPER = 10
};
// 1 when the first byte is of the ASCII class; 0 for "" and for an unknown class.
VELDA_EXPORT int VLibEISTYPE_IBI(DP *dp, const VAR *character, int type);
// MATCHES: a pattern is a sequence of elements: a count and a class (N digit, A letter, X any byte, C letter or digit),
// count 0 meaning any number; a literal in double or single quotes; any other byte stands for itself. Alternatives are
// separated by VM. The whole string must match.
VELDA_EXPORT int VLibEMATCHES_IBB(DP *dp, const VAR *string, const VAR *pattern);

// --- Bits ---

// Sets the bit register of the context to the integer part of `value`, which the target takes too. Needs a dp.
VELDA_EXPORT VAR *VLibEBITLOAD_BBB(DP *dp, VAR *target, const VAR *value);
// 1 when bit n of the bit register is set: 0 is the lowest, 63 the highest. Needs a dp.
VELDA_EXPORT int VLibEBITCHECK_II(DP *dp, int bit);
enum { VELDA_BIT_AND = 1, VELDA_BIT_OR = 2 };
// Bit arithmetic on the integer parts, as 64-bit integers; an unknown operator gives the value.
VELDA_EXPORT VAR *VLibEBITFUNC_BBBBI(DP *dp, VAR *target, const VAR *value, const VAR *mask, int operation);

// --- Matrices ---

// Makes the cell a matrix of `count` unassigned cells.
VELDA_EXPORT void velda_make_matrix(VAR *matrix, int count);
VELDA_EXPORT int velda_matrix_size(const VAR *matrix);  // 0 when it is no matrix
// All cells of the matrix take the value.
VELDA_EXPORT void VLibBMATAB_VBB(DP *dp, VAR *matrix, const VAR *value);
// The cell at an index counted from 1; null outside the matrix. It belongs to the matrix.
VELDA_EXPORT VAR *VLibBARRAY_BB(DP *dp, VAR *matrix, int index);

// --- What native logic does without a call ---
// Stores an integer.
static inline void velda_store_integer(DP *dp, VAR *cell, int64_t value) {
    if (cell->form != VELDA_FORM_INTEGER) {
        if (cell->form & VELDA_MASK_RELEASE) VLibBStoreFreeVar_VB(dp, cell);
        cell->form = VELDA_FORM_INTEGER;
    }
    cell->integer = value;
}

// The bounds on the length that an owned buffer takes without being reallocated, directly ahead of its bytes.
static inline int32_t velda_lower_bound(const VAR *cell) { return ((const int32_t *)(const void *)cell->text)[-2]; }
static inline int32_t velda_upper_bound(const VAR *cell) { return ((const int32_t *)(const void *)cell->text)[-1]; }

// The part that both ways of changing a length share: the bytes of the owned string count `length` from now on.
static inline void velda_take_length(DP *dp, VAR *cell, int length) {
    cell->length = (uint32_t)length;
    if (cell->form & VELDA_FORM_DERIVED) VLibGUPCASE_INTERNAL(dp, cell, 0);
    cell->form = VELDA_FORM_OWNED;
    cell->formExtra = (uint8_t)(cell->formExtra & ~VELDA_EXTRA_LENGTH_STABLE);
}

// Changes the length of a string and keeps its contents; returns the address of the bytes, which the caller may change.
static inline char *velda_resize_text(DP *dp, VAR *cell, int length) {
    if ((cell->form & VELDA_FORM_OWNED) && velda_lower_bound(cell) < length && length < velda_upper_bound(cell))
        velda_take_length(dp, cell, length);
    else
        VLibBStoreResize_VBI(dp, cell, length);
    return cell->text;
}

// Makes the cell a string of that length whose bytes the caller then fills; returns their address.
static inline char *velda_prepare_text(DP *dp, VAR *cell, int length) {
    if ((cell->form & VELDA_FORM_OWNED) && velda_lower_bound(cell) <= length && length <= velda_upper_bound(cell))
        velda_take_length(dp, cell, length);
    else
        VLibBStoreString_VBIS(dp, cell, length, NULL);
    return cell->text;
}

#ifdef __cplusplus
}
#endif

#endif
