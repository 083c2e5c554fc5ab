// Streams of blocks from a file, and envelopes in them: whatever the bytes are, a record that is given out is whole, and
// no more memory is taken than there are bytes.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/silence.h"
#include "journal/duplicator/device_stream.h"
#include "journal/duplicator/duplicator.h"
#include "journal/journal.h"
#include "tests/support/journal_builder.h"

namespace {

using namespace velda::journal;

constexpr std::int32_t BlockBytes = 128;
constexpr std::int64_t Stamp = 1'700'000'000;

void require(bool holds) {
    if (!holds) std::abort();
}

// What an input's bytes choose: pieces of streams that make sense, with its own bytes between them.
std::string content_of(DP *dp, std::string_view bytes) {
    static const LogSelect sender;
    std::string content;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        velda::test::BuiltRecord record = velda::test::write_record("F", "k", std::string(bytes.substr(at, 20)));
        record.time = Stamp;
        switch (static_cast<unsigned char>(bytes[at]) % 16) {
            case 0:
                content += velda::test::record_bytes(record, 1, 0, 0);
                break;
            case 1:
                content += sealed(dp, sender, velda::test::record_bytes(record, 1, 0, 0));
                break;
            case 2:
                content += velda::test::record_bytes(record, 1, 0, 0).substr(0, 48);
                break;
            case 3:
                content += sealed(dp, sender, bytes.substr(at)).substr(0, 24);
                break;
            case 4:
                content += RecordMarker;
                break;
            case 5:
                content += EncryptedMarker;
                break;
            default:
                content += bytes[at];
        }
    }
    return content;
}

// The content in blocks with their headers, unless the input is to be taken as it is.
std::string stream_of(DP *dp, std::string_view bytes) {
    if (bytes.empty() || bytes[0] % 4 == 0) return std::string(bytes.substr(bytes.empty() ? 0 : 1));
    const std::string content = content_of(dp, bytes.substr(1));
    constexpr std::size_t Room = BlockBytes - BlockHeader::Bytes;
    std::string stream;
    for (std::size_t at = 0; at < content.size(); at += Room) {
        std::string block(BlockMarker);
        block += velda::test::int64(Stamp) + velda::test::int32(0) + velda::test::int32(BlockBytes) +
                 velda::test::int32(0) + content.substr(at, Room);
        block.resize(BlockBytes, '\0');
        stream += block;
    }
    return stream;
}

void work(DP *dp, std::string_view bytes) {
    static const int memory = memfd_create("stream", 0);
    const std::string stream = stream_of(dp, bytes);
    require(ftruncate(memory, 0) == 0 &&
            pwrite(memory, stream.data(), stream.size(), 0) == static_cast<ssize_t>(stream.size()));
    VELDALoggerGetDefinition(dp);
    LoggerContext &context = logger_context(dp);
    map_logger(dp, context);
    auto select = std::make_unique<LogSelect>();
    select->deviceType = Serial;
    select->blockSize = BlockBytes;
    select->devices = {"/proc/self/fd/" + std::to_string(memory)};
    for (std::size_t records = 0; const unsigned char *const record = LoggerReadDevice(dp, select.get(), nullptr);) {
        require(++records <= stream.size());
        const auto size = static_cast<std::size_t>(vgetint32(record + RecordHeader::RecordSize));
        require(is_record_header(record) && size <= stream.size() && is_whole(record, size));
    }
    require(static_cast<std::size_t>(context.recordCapacity) < 3 * stream.size() + 100000);
    if (select->fd > 2) VediWin32close(select->fd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const Silence silence(true);
    std::string_view bytes(reinterpret_cast<const char *>(data), size);
    velda_run(
        velda_getdp(), "FUZZ", [](DP *dp, void *argument) { work(dp, *static_cast<std::string_view *>(argument)); },
        &bytes);
    return 0;
}
