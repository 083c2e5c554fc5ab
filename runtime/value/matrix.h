// matrix.h - the cells of a matrix. Private to the runtime.
#pragma once

#include "runtime/vdefc.h"

namespace velda {

// Frees the cells that a cell of form VELDA_FORM_MATRIX addresses.
void free_matrix(VAR &matrix);
// Gives `target`, raw memory, cells of its own with the values of those of `source`.
void copy_matrix(VAR &target, const VAR &source);

}  // namespace velda
