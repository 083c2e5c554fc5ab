// session_block.h - a module's block in a session's context, remembered by the thread that asked for it last: the road of
// a record asks many times. Private to the subsystem.
#pragma once

#include <atomic>
#include <cstdint>
#include <new>

#include "runtime/vutil.h"

namespace velda::journal {

// `Close` gives back what a block holds beside its memory, when the context is destroyed.
template <class Block, void (*Close)(DP *, Block &)>
class SessionBlock {
  public:
    // The block, made at its first use.
    static Block &of(DP *dp, const char *module) {
        thread_local Remembered last;
        // Another context may come to lie where one that was destroyed lay.
        const std::uint64_t destroyed = destroyed_.load(std::memory_order_relaxed);
        if (last.dp != dp || last.destroyed != destroyed) last = {dp, find(dp, module), destroyed};
        return *last.block;
    }

  private:
    struct Remembered {
        DP *dp = nullptr;
        Block *block = nullptr;
        std::uint64_t destroyed = 0;  // contexts that were destroyed until then
    };

    static Block *find(DP *dp, const char *module) {
        static int key = 0;
        return static_cast<Block *>(VLibCreateUserDataEx(dp, module, sizeof(Block), &key, make, destroy));
    }
    static void make(DP *, void *block) { new (block) Block; }
    static void destroy(DP *dp, void *block) {
        destroyed_.fetch_add(1, std::memory_order_relaxed);
        Close(dp, *static_cast<Block *>(block));
        static_cast<Block *>(block)->~Block();
    }

    static inline std::atomic<std::uint64_t> destroyed_ = 0;
};

}  // namespace velda::journal
