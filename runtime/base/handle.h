// handle.h - what a cell addresses when it holds neither a number nor a string of its own: an open file (form exactly
// VELDA_FORM_FILE) or a select list (form exactly VELDA_FORM_LIST). Private to the runtime.
//
// Cells that are copied from one another share the thing: it counts them and ends with the last one. The value layer
// knows handles only by these few functions, so it needs no header of the families that make them.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "runtime/vdefc.h"

namespace velda {

struct Handle;

struct HandleOperations {
    // Ends the thing and frees its memory; called when no cell addresses it any more.
    void (*destroy)(Handle *handle);
    // The text that the cell reads as: "" for a file, the keys not yet read for a list. Valid until the list moves on.
    std::string_view (*text)(const Handle *handle);
};

// The first bytes of a file's control block and of a select list: a cell's `text` points here.
struct Handle {
    const HandleOperations *operations = nullptr;
    std::atomic<std::uint32_t> references{1};  // cells that address it
};

inline bool is_handle(const VAR &cell) { return cell.form == VELDA_FORM_FILE || cell.form == VELDA_FORM_LIST; }

inline Handle *handle_of(const VAR &cell) { return reinterpret_cast<Handle *>(cell.text); }

inline std::string_view handle_text(const VAR &cell) { return handle_of(cell)->operations->text(handle_of(cell)); }

// One more cell addresses the thing: the copy of a handle cell takes `form` and `text` and calls this.
inline void share_handle(const VAR &cell) { handle_of(cell)->references.fetch_add(1, std::memory_order_relaxed); }

// One cell less: called by the release of a handle cell, which then overwrites its form.
inline void drop_handle(const VAR &cell)
{
    Handle *const handle = handle_of(cell);
    if (handle->references.fetch_sub(1, std::memory_order_acq_rel) == 1) handle->operations->destroy(handle);
}

}  // namespace velda
