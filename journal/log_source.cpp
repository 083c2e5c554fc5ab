// Which files a scan reads, and what is known of them.
#include <cerrno>
#include <cstring>

#include "journal/log_blocks.h"

namespace velda::journal {

namespace {

using FirstBlock = std::vector<unsigned char>;

Error no_journal_file(const std::string &path, const char *reason) {
    return {EINVAL, "journal file '" + path + "': " + reason};
}

Result<FirstBlock> read_block(DP *dp, const std::string &path, std::int64_t offset) {
    VRunFile *const file = VRunFileIOOpen(dp, path.c_str(), VELDA_OPEN_READ, 0);
    if (!file) return file_error(errno, "cannot open journal file", path);
    FirstBlock block(VELDA_LOGGER_BLOCK_BYTES);
    const int error = VRunFileIORead(dp, file, offset, block.data(), block.size(), nullptr);
    VRunFileIOClose(dp, file);
    if (error == ENODATA) return no_journal_file(path, "it is too short");
    if (error != 0) return file_error(error, "cannot read journal file", path);
    return block;
}

bool has_marker(const FirstBlock &block, std::string_view marker) {
    return std::memcmp(block.data(), marker.data(), ComparedBlockMarkerBytes) == 0;
}

std::int64_t stamp_of(const FirstBlock &block) { return vgetlong64(block.data() + BlockHeader::TimeFirst); }

void take_description(const LogSetInfo &set, LogSource &source) {
    source.time_first = set.timeFirst;
    source.time_last = set.timeLast;
    source.records = set.recordCount;
}

LogSetInfo description_of(const FirstBlock &block) {
    LogSetInfo set;
    std::memcpy(&set, block.data() + FirstBlockSetInfo, sizeof set);
    return set;
}

// The stamp of the first block that has one, where the set's first block is damaged.
Result<std::int64_t> stamp_of_any(DP *dp, const LogSource &source) {
    constexpr std::int64_t BlocksToTry = 8;
    for (std::int64_t row = 0; row < BlocksToTry; ++row)
        for (const std::string &path : source.paths) {
            const auto block = read_block(dp, path, row * source.block_size);
            if (!block && block.error().number != EINVAL) return block.error();
            if (block && (has_marker(*block, BlockMarker) || has_marker(*block, FirstBlockMarker)))
                return stamp_of(*block);
        }
    return no_journal_file(source.paths[0], "it has no block of a journal");
}

}  // namespace

Result<LogSource> source_of_set(DP *dp, int set) {
    LoggerContext &context = logger_context(dp);
    if (!map_logger(dp, context)) return Error{errno, velda_logger_error(dp)};
    const VELDALoggerConfig &config = *context.config;
    VediLoggerMisc(dp, VELDA_LOGGER_REFRESH);
    LogSource source;
    source.set = set;
    const LogSetInfo &info = logger_set(config, set);
    for (const LogFileEntry &entry : info.files)
        if (is_named(entry)) source.paths.push_back(logger_text(entry.path, sizeof entry.path));
    if (source.paths.empty()) return Error{ENOENT, "set " + std::to_string(set) + " has no files"};
    take_description(info, source);
    source.block_size = config.blockSize;
    source.is_written = config.status == VELDA_LOGGER_ACTIVE && config.currentSet == static_cast<std::uint32_t>(set);
    return source;
}

Result<LogSource> source_of_files(DP *dp, const std::vector<std::string> &paths) {
    LogSource source;
    source.paths = paths;
    source.block_size = VELDA_LOGGER_BLOCK_BYTES;
    const auto first = read_block(dp, paths[0], 0);
    if (!first && first.error().number != EINVAL) return first.error();
    const bool begins_set = first && has_marker(*first, FirstBlockMarker);
    if (begins_set) {
        const LogSetInfo set = description_of(*first);
        take_description(set, source);
        source.is_member = paths.size() == 1 && named_files(set) > 1;
    } else {
        source.is_member = paths.size() == 1;
    }
    if (begins_set && source.time_first == stamp_of(*first)) return source;
    const auto stamp = begins_set ? Result<std::int64_t>(stamp_of(*first)) : stamp_of_any(dp, source);
    if (!stamp) return stamp.error();
    source.time_first = *stamp;
    source.time_last = 0;
    source.records = -1;
    return source;
}

}  // namespace velda::journal
