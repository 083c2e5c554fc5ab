#include "runtime/value/matrix.h"

#include <algorithm>
#include <new>

#include "runtime/value/buffer.h"

namespace velda {

namespace {

VAR *cells_of(const VAR &matrix) { return reinterpret_cast<VAR *>(matrix.text); }

void attach_cells(VAR &matrix, std::size_t count) {
    VAR *const cells = new (std::nothrow) VAR[count];
    if (!cells) end_for_memory(count * sizeof(VAR));
    matrix.text = reinterpret_cast<char *>(cells);
    matrix.length = static_cast<std::uint32_t>(count);
    matrix.form = VELDA_FORM_MATRIX;
    matrix.formExtra = 0;
}

}  // namespace

void free_matrix(VAR &matrix) { delete[] cells_of(matrix); }

void copy_matrix(VAR &target, const VAR &source) {
    attach_cells(target, source.length);
    std::copy_n(cells_of(source), source.length, cells_of(target));
}

}  // namespace velda

using namespace velda;

void velda_make_matrix(VAR *matrix, int count) {
    release_cell(*matrix);
    attach_cells(*matrix, count < 0 ? 0 : static_cast<std::size_t>(count));
}

int velda_matrix_size(const VAR *matrix) {
    return matrix->form == VELDA_FORM_MATRIX ? static_cast<int>(matrix->length) : 0;
}

void VLibBMATAB_VBB(DP *, VAR *matrix, const VAR *value) {
    const VAR copy(*value);  // the value may be a cell of the matrix
    std::fill_n(cells_of(*matrix), velda_matrix_size(matrix), copy);
}

VAR *VLibBARRAY_BB(DP *, VAR *matrix, int index) {
    return index < 1 || index > velda_matrix_size(matrix) ? nullptr : cells_of(*matrix) + (index - 1);
}
