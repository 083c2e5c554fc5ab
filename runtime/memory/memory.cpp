#include "runtime/memory/memory.h"

#include <cstdlib>
#include <cstring>

#include "runtime/memory/leak_report.h"

using velda::leak_report;

namespace {

void *allocated(void *block, std::size_t size, const char *module, int line) {
    if (leak_report && block) leak_report->add(block, size, module, line);
    return block;
}

}  // namespace

void *VELDAmalloc(DP *, size_t size, const char *module, int line) {
    return allocated(std::malloc(size), size, module, line);
}

void *VELDAcalloc(DP *, size_t count, size_t size, const char *module, int line) {
    return allocated(std::calloc(count, size), count * size, module, line);
}

void *VELDArealloc(DP *, void *block, size_t size, const char *module, int line) {
    if (!leak_report) return std::realloc(block, size);
    return leak_report->reallocate(block, size, module, line);
}

void VELDAfree(DP *, void *block, const char *, int) {
    if (leak_report && block) leak_report->remove(block);
    std::free(block);
}

void VELDAfreezero(DP *dp, void *block, const char *module, int line) {
    void **pointer = static_cast<void **>(block);
    VELDAfree(dp, *pointer, module, line);
    *pointer = nullptr;
}

char *VELDAstrdup(DP *dp, const char *text, const char *module, int line) {
    const std::size_t size = std::strlen(text) + 1;
    void *copy = VELDAmalloc(dp, size, module, line);
    return copy ? static_cast<char *>(std::memcpy(copy, text, size)) : nullptr;
}

void *VELDAmalloc_readrecord(DP *dp, size_t size, const char *module, int line) {
    char *buffer = static_cast<char *>(VELDAmalloc(dp, size + 1, module, line));
    if (buffer) buffer[size] = '\0';
    return buffer;
}
