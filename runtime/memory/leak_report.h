// leak_report.h - remembers which blocks of native logic are not freed yet, and by whom they were made. Private to the
// runtime.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <unordered_map>

namespace velda {

class LeakReport {
  public:
    void add(void *block, std::size_t size, const char *module, int line);
    void remove(void *block);
    // realloc(3), remembered: no other thread can be given the old address before it is forgotten.
    void *reallocate(void *block, std::size_t size, const char *module, int line);

    // What is outstanding, one line for each place in the order of their names: "MODULE:LINE: 2 blocks, 30 bytes".
    std::string text() const;

  private:
    struct Block {
        std::size_t size;
        const char *module;
        int line;
    };
    mutable std::mutex mutex_;
    std::unordered_map<void *, Block> blocks_;
};

// The report of this process, null when none was asked for.
extern LeakReport *const leak_report;

}  // namespace velda
