// atomic_file.h - whole files read and replaced, relative to an open directory. Results are error numbers, 0 for
// success.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

#include "runtime/store/driver.h"

namespace velda::store {

// Reads a plain file. ENOENT when there is none or when it is something else (a directory, a pipe); EFBIG when it is
// larger than a record may be.
int read_whole_file(int directory, const std::string &name, RecordBuffer &into);

struct ReplaceOptions {
    mode_t mode = 0666;     // of a new file, before the process mask
    bool keep_mode = true;  // an existing file's mode and owner go over to the new one
    bool durable = true;    // on disk when the call returns
    // Called once the new content is safe beside the old, before it takes the old one's place: an error number stops it.
    const std::function<int()> *before_it_counts = nullptr;
};

// Gives `name` this content: a reader sees the old content or the new one, also after the death of this process.
int replace_file(int directory, const std::string &name, std::string_view content, const ReplaceOptions &options);

// A name for a temporary file or directory that no other process uses.
std::string temporary_name();

// Writes a new file; on failure nothing is left.
int write_new_file(int directory, const std::string &name, std::string_view content, const ReplaceOptions &options);

}  // namespace velda::store
