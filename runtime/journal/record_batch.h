// record_batch.h - records under construction, which are appended together. Private to the folder.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/journal/writer.h"

namespace velda::journal {

// One batch of a thread at a time: its buffers are kept from one to the next, so that a record costs no allocation.
class RecordBatch {
  public:
    RecordBatch(DP *dp, Configuration &configuration);
    RecordBatch(const RecordBatch &) = delete;
    RecordBatch &operator=(const RecordBatch &) = delete;

    // Begins a record with its strings. Error 22 for a name or key that a record cannot hold.
    Result<void> begin(std::string_view file_name, std::string_view key);
    // Adds to its payload.
    void add_number(std::uint32_t number);
    void add_long(std::int64_t number);
    void add_bytes(std::string_view bytes) { kept_.bytes.append(bytes); }
    // Ends a WRITE with the lengths and the data of its record, which are enciphered when the configuration asks for it.
    Result<void> end_write(std::string_view record);
    // Ends another one. The data stands behind what was added and must stay where it is until append().
    void end(RecordType type, std::string_view data = {}, std::uint8_t flags = 0);

    Result<void> append();

  private:
    struct Buffers {
        std::string bytes;  // bodies, one behind the other
        std::vector<std::size_t> ends;
        std::vector<NewRecord> records;
        std::deque<std::string> enciphered;  // data
    };
    static Buffers &buffers();

    DP *const dp_;
    Configuration &configuration_;
    Buffers &kept_;
    std::size_t begin_ = 0;
    std::uint32_t strings_size_ = 0;
};

}  // namespace velda::journal
