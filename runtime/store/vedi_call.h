// vedi_call.h - how the entries of the driver layer turn results into numbers. Private to the store.
#pragma once

#include <string_view>

#include "runtime/base/result.h"
#include "runtime/store/control_block.h"
#include "runtime/store/vedi.h"

namespace velda::store {

// Leaves the error as errno, SYSTEM(0) and VediErrorText; its number.
int fail_call(DP *dp, const Error &error);

// Runs `body(content)` on an open block; it returns an Error or nothing, as a Result<void>.
template <class Body>
int call_on(DP *dp, VediControlBlock *file, Body &&body) {
    if (!is_open(file)) return fail_call(dp, {22, "the file is not open"});
    const Result<void> result = body(content_of(*file));
    return result ? 0 : fail_call(dp, result.error());
}

inline std::string_view bytes_of(const char *bytes, uint32_t length) {
    return bytes ? std::string_view(bytes, length) : std::string_view();
}

}  // namespace velda::store
