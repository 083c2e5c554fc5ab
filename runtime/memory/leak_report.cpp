#include "runtime/memory/leak_report.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

namespace velda {
namespace {

pid_t reporting_process = 0;

// At the end of the process that asked for the report; a forked child's copy of it says nothing about the child.
void print_report() {
    if (getpid() != reporting_process) return;
    const std::string text = leak_report->text();
    const char *target = std::getenv("VELDA_LEAK_REPORT");
    if (target && std::strchr(target, '/')) {
        if (std::FILE *file = std::fopen(target, "w")) {
            std::fputs(text.c_str(), file);
            std::fclose(file);
            return;
        }
        std::perror(target);
    }
    std::fputs(text.c_str(), stderr);
}

// Lives until the process is gone: blocks are freed as late as in the destructors of static objects.
LeakReport *make_report() {
    const char *wanted = std::getenv("VELDA_LEAK_REPORT");
    if (!wanted || !*wanted) return nullptr;
    reporting_process = getpid();
    std::atexit(print_report);
    return new LeakReport;
}

}  // namespace

LeakReport *const leak_report = make_report();

void LeakReport::add(void *block, std::size_t size, const char *module, int line) {
    const std::lock_guard guard(mutex_);
    blocks_[block] = {size, module, line};
}

void LeakReport::remove(void *block) {
    const std::lock_guard guard(mutex_);
    blocks_.erase(block);
}

void *LeakReport::reallocate(void *block, std::size_t size, const char *module, int line) {
    const std::lock_guard guard(mutex_);
    void *moved = std::realloc(block, size);
    if (moved || size == 0) blocks_.erase(block);  // size 0 frees
    if (moved) blocks_[moved] = {size, module, line};
    return moved;
}

std::string LeakReport::text() const {
    struct Total {
        std::size_t blocks = 0;
        std::size_t bytes = 0;
    };
    std::map<std::pair<std::string, int>, Total> places;
    const std::lock_guard guard(mutex_);
    for (const auto &[address, block] : blocks_) {
        Total &total = places[{block.module, block.line}];
        ++total.blocks;
        total.bytes += block.size;
    }
    std::string lines;
    for (const auto &[place, total] : places) {
        lines += place.first + ":" + std::to_string(place.second) + ": " + std::to_string(total.blocks) + " blocks, " +
                 std::to_string(total.bytes) + " bytes\n";
    }
    return lines;
}

}  // namespace velda
