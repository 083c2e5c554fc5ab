// journal_copy.h - a copied file in the journal: made, with every record. Private to the store.
#pragma once

#include <string>

#include "runtime/store/journalling.h"

namespace velda::store {

// Journals the making of `to` with the settings of `copy`, which is about to take that name, and one WRITE for each of
// its records. Nothing when the file is not journalled.
Result<void> journal_copy(OpenFile &copy, const std::string &to);

}  // namespace velda::store
