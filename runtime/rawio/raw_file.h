// raw_file.h - an open raw file, as the files of this family share it. Private to the family.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "runtime/base/result.h"
#include "runtime/rawio/rawio.h"
#include "runtime/store/driver.h"

namespace velda::rawio {

// A frame that is handed out, and how often. Plain blocks are found by their offset; link records stand for themselves.
struct HeldFrame : VRunFrame {
    std::string content;
    unsigned holders = 1;
    bool is_record = false;

    // After each change of `content`.
    void show_content();
};

}  // namespace velda::rawio

struct VRunFile {
    VRunFile(int fd, std::string path, velda::store::FileIdentity identity);
    ~VRunFile();
    VRunFile(const VRunFile &) = delete;
    VRunFile &operator=(const VRunFile &) = delete;

    // The number of bytes moved; fewer than asked for only at the end of the file, or in *done on an error.
    velda::Result<std::size_t> read_at(std::int64_t offset, char *buffer, std::size_t count) const;
    velda::Result<void> write_at(std::int64_t offset, std::string_view bytes, std::size_t *done = nullptr) const;
    velda::Result<std::int64_t> size_bytes() const;

    const int fd;
    const std::string path;
    const velda::store::FileIdentity identity;

    // GetLine: where in the file `ahead` begins, what of it has been given out, and the line given out last.
    std::int64_t line_offset = 0;
    std::string ahead;
    std::size_t ahead_used = 0;
    std::string line;

    // Linked files.
    std::uint32_t block_size = 0;
    std::map<const VRunFrame *, std::unique_ptr<velda::rawio::HeldFrame>> frames;
};

namespace velda::rawio {

// The result of an entry: 0, or the error's number, which errno takes.
int result_of(const Result<void> &result);
int result_of(const Error &error);

}  // namespace velda::rawio
