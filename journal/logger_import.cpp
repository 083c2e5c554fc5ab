// Adopting existing log files as a set.
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>

#include "journal/logger_admin.h"
#include "runtime/journal/log_format.h"

namespace velda::journal {

namespace {

using BlockHead = std::array<char, BlockHeader::Bytes>;

// What of the first block's LogSetInfo is adopted: times and counters, not the file table.
constexpr size_t AdoptedBytes = offsetof(LogSetInfo, files);
static_assert(AdoptedBytes == 296);

struct Import {
    DP *dp;
    int set;
    int count;
    const VAR &list;
    std::array<VRunFile *, VELDA_LOGGER_FILES> files = {};
    std::array<BlockHead, VELDA_LOGGER_FILES> heads = {};

    ~Import() {
        for (VRunFile *file : files) VRunFileIOClose(dp, file);
    }
    std::string name(int n) const { return path_to_keep(list(n)); }
};

bool has_marker(const BlockHead &head, std::string_view marker) {
    return std::memcmp(head.data(), marker.data(), ComparedBlockMarkerBytes) == 0;
}

int check_name(const Import &import, const std::string &name) {
    if (const int error = check_path_length(import.dp, name)) return error;
    if (!name.empty()) {
        const auto is_of_other_set = [&](int set, int) { return set != import.set; };
        if (const int error = check_no_duplicate(import.dp, name, is_of_other_set)) return error;
    }
    return check_absolute(import.dp, name);
}

int read_head(Import &import, int n, const std::string &name) {
    VRunFile *&file = import.files[static_cast<size_t>(n - 1)];
    file = VRunFileIOOpen(import.dp, name.c_str(), VELDA_OPEN_READ, 0);
    if (!file) {
        const int error = errno;
        tell(import.dp, "%s: Error! Unable to open file %s , errno number %d\n", name.c_str(), error);
        return error;
    }
    BlockHead &head = import.heads[static_cast<size_t>(n - 1)];
    const int error = VRunFileIORead(import.dp, file, 0, head.data(), head.size(), nullptr);
    if (error == 0) return 0;
    tell(import.dp, "%s: Error! Unable to read header of file %s\n", name.c_str());
    return error == ENODATA ? EINVAL : error;
}

int check_head(const Import &import, int n, const std::string &name) {
    const BlockHead &first = import.heads[0];
    const BlockHead &head = import.heads[static_cast<size_t>(n - 1)];
    if (n == 1) {
        if (has_marker(head, FirstBlockMarker)) return 0;
        tell(import.dp, "%s: Error! File %s doesn't appear to be the first logger file in the set\n", name.c_str());
        return EINVAL;
    }
    // A file that was named but never written begins with zero bytes.
    if (head[0] == 0) return 0;
    const bool is_block = has_marker(head, BlockMarker) || has_marker(head, FirstBlockMarker);
    if (is_block && std::memcmp(&head[BlockHeader::TimeFirst], &first[BlockHeader::TimeFirst], 8) == 0) return 0;
    tell(import.dp, "%s: Error! File %s doesn't appear to be a logger file\n", name.c_str());
    return EINVAL;
}

int check_files(Import &import) {
    for (int n = 1; n <= import.count; ++n) {
        const std::string name = import.name(n);
        if (const int error = check_name(import, name)) return error;
        if (const int error = read_head(import, n, name)) return error;
        if (const int error = check_head(import, n, name)) return error;
    }
    return 0;
}

int store_files(Import &import, LogSetInfo &info) {
    for (size_t n = 0; n < static_cast<size_t>(import.count); ++n) {
        VRunFileStatus status;
        if (const int error = VRunFileIOGetStatus(import.dp, import.files[n], &status)) {
            VELDAperror(import.dp, import.name(static_cast<int>(n) + 1).c_str());
            return error;
        }
        store_path(info.files[n].path, VRunFileIOGetFullPath(import.dp, import.files[n]));
        info.files[n].createdTime = vgetlong64(&import.heads[n][BlockHeader::TimeFirst]);
        info.files[n].maxSize = -1;
    }
    for (size_t n = static_cast<size_t>(import.count); n < VELDA_LOGGER_FILES; ++n) store_path(info.files[n].path, "");
    return 0;
}

int adopt_counters(Import &import, LogSetInfo &info) {
    char block[VELDA_LOGGER_BLOCK_BYTES];
    const int error = VRunFileIORead(import.dp, import.files[0], 0, block, sizeof block, nullptr);
    if (error == 0) {
        std::memcpy(&info, block + FirstBlockSetInfo, AdoptedBytes);
        // A journal that was never written itself can be read from now on.
        uint32_t &block_size = logger_context(import.dp).config->blockSize;
        if (block_size == 0) block_size = VELDA_LOGGER_BLOCK_BYTES;
        return 0;
    }
    tell(import.dp, "%s: Error! Unable to read header of file %s\n", import.name(1).c_str());
    return error == ENODATA ? EINVAL : error;
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDALoggerImportFile(DP *dp, int32_t set, int32_t count, const VAR *list) {
    if (!define_logger(dp)) return ENOENT;
    const ChangeLock lock(dp);
    if (const int error = check_set_number(dp, set)) return error;
    if (const int error = check_file_number(dp, count)) return error;
    if (const int error = check_not_current(dp, set)) return error;
    Import import{dp, set, count, *list};
    if (const int error = check_files(import)) return error;
    LogSetInfo &info = logger_context(dp).config->sets[set - 1];
    int error = store_files(import, info);
    if (error == 0) error = adopt_counters(import, info);
    LoggerSaveConfig(dp);
    if (error == 0) VediLoggerError(dp, 0, "%s: %d files imported to log set %d\n", command_name().c_str(), count, set);
    return error;
}
