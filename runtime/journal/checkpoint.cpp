#include "runtime/journal/checkpoint.h"

#include "runtime/convert/convert.h"
#include "runtime/journal/under_way.h"

namespace velda::journal {

namespace {

constexpr std::int64_t SecondsPerMinute = 60;

// A number inside of an array must not hold a mark: each such byte is taken down to the one below the marks.
std::string number_without_marks(std::int64_t number) {
    constexpr unsigned char BelowMarks = 0xFA;
    std::string bytes(8, '\0');
    vputlong64(bytes.data(), number);
    for (char &byte : bytes)
        if (static_cast<unsigned char>(byte) > BelowMarks) byte = static_cast<char>(BelowMarks);
    return bytes;
}

}  // namespace

bool is_checkpoint_due(VELDALoggerConfig &config, const LogSetInfo &set, std::int64_t now) {
    const std::int64_t before = config.lastCheckpoint > 0 ? config.lastCheckpoint : set.timeFirst;
    if (config.checkpointMinutes < 1 || now < before + config.checkpointMinutes * SecondsPerMinute) return false;
    return !is_transaction_under_way(writer_state(config));
}

std::string checkpoint_body(const LogSetInfo &set, std::int64_t now, std::int32_t before) {
    constexpr char AttributeMark = '\xFE';
    std::string body(CheckpointStrings);
    std::string count(8, '\0');
    vputlong64(count.data(), set.recordCount);
    body += count + "CHECKPOINT" + AttributeMark + number_without_marks(now) + AttributeMark +
            number_without_marks(before > 0 ? before : 0);
    return body;
}

}  // namespace velda::journal
