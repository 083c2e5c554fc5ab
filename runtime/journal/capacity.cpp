#include "runtime/journal/capacity.h"

#include <sys/statvfs.h>

#include <algorithm>

#include "runtime/journal/set_file.h"

namespace velda::journal {

namespace {

// Of a file that only the disk limits; 0 when the disk cannot be asked.
double percent_of_disk(const LogFileEntry &entry) {
    struct statvfs disk;
    if (statvfs(path_of(entry).c_str(), &disk) < 0 || disk.f_blocks == 0) return 0;
    return 100.0 * static_cast<double>(disk.f_blocks - disk.f_bfree) / static_cast<double>(disk.f_blocks);
}

// Of the fullest file.
double percent_used(const LogSetInfo &set) {
    double most = 0;
    for (const LogFileEntry &entry : set.files) {
        if (entry.path[0] == 0) continue;
        const double used = entry.maxSize > 0 ? 100.0 * static_cast<double>(set.fileOffset + VELDA_LOGGER_BLOCK_BYTES) /
                                                    static_cast<double>(entry.maxSize)
                                              : percent_of_disk(entry);
        most = std::max(most, used);
    }
    return most;
}

bool has_limit(const LogSetInfo &set) {
    return std::any_of(std::begin(set.files), std::end(set.files),
                       [](const LogFileEntry &entry) { return entry.path[0] != 0 && entry.maxSize > 0; });
}

}  // namespace

std::optional<int> capacity_warning(const VELDALoggerConfig &config, const LogSetInfo &set, SpaceWarning &warned,
                                    std::int64_t now, bool is_new_row) {
    const bool is_fresh = warned.use != set.timeFirst;
    if (is_fresh) warned = {set.timeFirst, 0, 0, 0, 0};
    if (now == warned.looked_at && !(is_new_row && has_limit(set))) return std::nullopt;
    warned.looked_at = now;
    const auto percent = static_cast<std::uint32_t>(percent_used(set));
    if (percent < config.warnInitialPercent) return std::nullopt;
    const bool is_due = warned.time == 0 || percent >= warned.percent + config.warnStepPercent ||
                        now >= warned.time + config.warnStepSeconds;
    if (!is_due) return std::nullopt;
    warned.time = now;
    warned.percent = percent;
    return static_cast<int>(percent);
}

}  // namespace velda::journal
