// native_logic.h - logic in C that holds cells and works on their fields, for tests of what it sees. C and C++.
#ifndef VELDA_TESTS_RUNTIME_VALUE_NATIVE_LOGIC_H
#define VELDA_TESTS_RUNTIME_VALUE_NATIVE_LOGIC_H

#include "runtime/value/value.h"

#ifdef __cplusplus
extern "C" {
#endif

// The constants of the module's read-only table, by index; null behind the last.
const VAR *native_constant(int index);

// Makes the cell a string of `length` bytes 'x' in the way of native logic; true when it stayed in its buffer.
int native_fill(VAR *cell, int length);
// Changes the length of the cell's string in the way of native logic; true when it stayed in its buffer.
int native_resize(VAR *cell, int length);
// Truth by the fields of the cell alone, -1 when the runtime has to decide.
int native_truth(const VAR *cell);
// Stores integers into a cell of its own and reads them back through the runtime; the sum of 1 to n.
int native_sum(int n);

#ifdef __cplusplus
}
#endif

#endif
