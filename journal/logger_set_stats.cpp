// The report of a lone log file, from its first block.
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "journal/journal.h"
#include "journal/logger_context.h"
#include "runtime/journal/log_format.h"

namespace velda::journal {

namespace {

constexpr int NotASet = 1;

struct FirstBlock {
    char bytes[VELDA_LOGGER_BLOCK_BYTES];
};

// A file that ends too early has no error number of the system.
int read_first_block(DP *dp, VRunFile *file, FirstBlock &block) {
    const int error = VRunFileIORead(dp, file, 0, block.bytes, sizeof block.bytes, nullptr);
    return error == ENODATA ? EINVAL : error;
}

void store_set_report(DP *dp, VAR *result, const LogSetInfo &set, uint32_t block_size) {
    LoggerStoreField(dp, result, 1, 0, "%" PRId64, set.timeFirst);
    LoggerStoreField(dp, result, 2, 0, "%" PRId64, set.timeLast == 0 ? present_time() : set.timeLast);
    LoggerStoreField(dp, result, 3, 0, "%d", named_files(set));
    LoggerStoreField(dp, result, 4, 0, "%" PRId64, set.recordCount);
    LoggerStoreField(dp, result, 5, 0, "%.0lf", set_size_bytes(set, block_size));
    int value = 0;
    for (const LogFileEntry &file : set.files)
        if (is_named(file))
            LoggerStoreField(dp, result, 6, ++value, "%s", logger_text(file.path, sizeof file.path).c_str());
    LoggerStoreField(dp, result, 7, 0, "%ld", static_cast<long>(static_cast<int32_t>(set.fileOffset)));
    LoggerStoreField(dp, result, 8, 0, "%s", logger_text(set.archiveLocation, sizeof set.archiveLocation).c_str());
}

int report_file(DP *dp, VRunFile *file, uint32_t block_size, VAR *result) {
    FirstBlock block;
    if (const int error = read_first_block(dp, file, block)) return error;
    if (std::memcmp(block.bytes, FirstBlockMarker.data(), ComparedBlockMarkerBytes) != 0) return NotASet;
    LogSetInfo set;
    std::memcpy(&set, block.bytes + FirstBlockSetInfo, sizeof set);
    store_set_report(dp, result, set, block_size);
    return 0;
}

}  // namespace
}  // namespace velda::journal

using namespace velda::journal;

int VELDAGetSetStats(DP *dp, const VAR *file_name, VAR *result) {
    const std::string path = file_name->str();
    LoggerContext &context = logger_context(dp);
    result->clear();
    if (!map_logger(dp, context)) {
        LoggerStoreField(dp, result, 1, 0, "-1");
        LoggerStoreField(dp, result, 2, 0, "Error number %d reading the logger configuration", errno);
        return NotASet;
    }
    VRunFile *const file = VRunFileIOOpen(dp, path.c_str(), VELDA_OPEN_READ, 0);
    if (!file) {
        if (errno != ENOENT) VELDAfprintf(dp, stderr, "Warning: "), VELDAperror(dp, path.c_str());
        return NotASet;
    }
    const int error = report_file(dp, file, context.config->blockSize, result);
    VRunFileIOClose(dp, file);
    return error;
}
