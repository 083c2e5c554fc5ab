// Private per-thread blocks of native modules, and the block of the process.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/process/context.h"
#include "runtime/process/process.h"
#include "runtime/process/stop.h"

namespace {

// Modules by name, for all contexts; a module's key is its place here, from 1.
class ModuleKeys {
  public:
    int key_of(const char *module) {
        const std::lock_guard guard(mutex_);
        for (std::size_t i = 0; i < names_.size(); ++i)
            if (names_[i] == module) return static_cast<int>(i) + 1;
        names_.emplace_back(module);
        return static_cast<int>(names_.size());
    }

  private:
    std::mutex mutex_;
    std::vector<std::string> names_;
};

ModuleKeys &module_keys() {
    static ModuleKeys keys;
    return keys;
}

struct Block {
    void *content = nullptr;
    int size_bytes = 0;
    void (*finaliser)(DP *, void *) = nullptr;
};

struct UserData {
    explicit UserData(DP &dp) : dp(dp) {}
    UserData(const UserData &) = delete;
    UserData &operator=(const UserData &) = delete;
    ~UserData() {
        for (auto block = blocks.rbegin(); block != blocks.rend(); ++block) {
            if (!block->content) continue;
            if (block->finaliser) block->finaliser(&dp, block->content);
            std::free(block->content);
        }
    }

    DP &dp;
    std::vector<Block> blocks;  // by key less 1
};

}  // namespace

void *VLibCreateUserData(DP *dp, const char *module, int size, int *key, void (*initialiser)(DP *, void *)) {
    return VLibCreateUserDataEx(dp, module, size, key, initialiser, nullptr);
}

void *VLibCreateUserDataEx(DP *dp, const char *module, int size, int *key, void (*initialiser)(DP *, void *),
                           void (*finaliser)(DP *, void *)) {
    std::atomic_ref<int> key_word(*key);
    int module_key = key_word.load();
    if (module_key == 0) key_word = module_key = module_keys().key_of(module);
    const auto place = static_cast<std::size_t>(module_key) - 1;

    auto &blocks = dp->state<UserData>().blocks;
    if (blocks.size() <= place) blocks.resize(place + 1);
    if (!blocks[place].content) {
        void *content = std::calloc(1, static_cast<std::size_t>(size));
        if (!content) velda::fail_command(dp, ENOMEM, std::string("OUT_OF_MEMORY") + velda::VM + module);
        blocks[place] = {content, size, finaliser};
        if (initialiser) initialiser(dp, content);
        return content;
    }
    if (blocks[place].size_bytes != size) {
        velda::fail_command(dp, EINVAL,
                            std::string("USER_DATA_SIZE") + velda::VM + module + velda::VM + std::to_string(size) +
                                velda::VM + std::to_string(blocks[place].size_bytes));
    }
    return blocks[place].content;
}

VELDAProcessData *VLibGetProcessData(DP *) {
    static VELDAProcessData process_data;
    return &process_data;
}
