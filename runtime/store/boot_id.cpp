#include "runtime/store/boot_id.h"

#include <atomic>
#include <fstream>

#include "runtime/store/hash.h"

namespace velda::store {
namespace {

std::atomic<std::uint64_t> known_boot{0};

std::uint64_t read_boot(const std::string &path) {
    std::string text;
    std::getline(std::ifstream(path), text);
    const std::uint64_t boot = hash_bytes(text);
    return boot ? boot : 1;
}

}  // namespace

std::uint64_t current_boot() {
    std::uint64_t boot = known_boot.load(std::memory_order_relaxed);
    if (boot == 0) {
        boot = read_boot("/proc/sys/kernel/random/boot_id");
        known_boot.store(boot, std::memory_order_relaxed);
    }
    return boot;
}

void set_boot_id_path(const std::string &path) { known_boot.store(read_boot(path), std::memory_order_relaxed); }

}  // namespace velda::store
