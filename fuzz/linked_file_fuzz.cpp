// Linked files whose bytes were changed: every record is read whole or refused, and new ones can be made or are refused.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "runtime/rawio/rawio.h"

namespace {

constexpr std::uint32_t BlockSize = 256;

void require(bool holds) {
    if (!holds) std::abort();
}

class MemoryFile {
  public:
    explicit MemoryFile(const std::string &image) : descriptor_(memfd_create("linked", 0)) {
        require(write(descriptor_, image.data(), image.size()) == static_cast<ssize_t>(image.size()));
        file = VRunFileIOOpen(nullptr, ("/proc/self/fd/" + std::to_string(descriptor_)).c_str(), O_RDWR, 0);
        require(file && VRunFileIOEnableLink(nullptr, file, BlockSize) == 0);
    }
    ~MemoryFile() {
        VRunFileIOClose(nullptr, file);
        close(descriptor_);
    }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    std::int64_t size() const {
        VRunFileStatus status;
        require(VRunFileIOGetStatus(nullptr, file, &status) == 0);
        return status.size_bytes;
    }
    std::string image() const {
        std::string bytes(static_cast<std::size_t>(size()), '\0');
        require(VRunFileIORead(nullptr, file, 0, bytes.data(), bytes.size(), nullptr) == 0);
        return bytes;
    }

    VRunFile *file;

  private:
    int descriptor_;
};

// A file with records of several lengths and some free blocks.
std::string sound_image() {
    MemoryFile made("");
    VRunFrame *frames[4];
    for (std::uint32_t i = 0; i < 4; ++i) require(VRunFileIONewLink(nullptr, made.file, 1 + i * 300, &frames[i]) == 0);
    require(VRunFileIOLinkResize(nullptr, made.file, frames[2], 0) == 0);
    for (VRunFrame *const frame : frames) VRunFileIOLinkRelease(nullptr, made.file, frame);
    return made.image();
}

// Each three bytes of the input change one byte of the image.
std::string changed(std::string image, const std::uint8_t *data, std::size_t size) {
    for (std::size_t at = 0; at + 3 <= size; at += 3)
        image[(data[at] * 256u + data[at + 1]) % image.size()] = static_cast<char>(data[at + 2]);
    return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const std::string sound = sound_image();
    const MemoryFile damaged(changed(sound, data, size));
    const std::int64_t bytes = damaged.size();
    for (std::int64_t offset = 0; offset < bytes; offset += BlockSize) {
        VRunFrame *frame = nullptr;
        if (VRunFileIOLinkRead(nullptr, damaged.file, offset, &frame) == 0) {
            require(frame->length < bytes);
            (void)VRunFileIOLinkResize(nullptr, damaged.file, frame, (frame->length + 700) % 1000);
            require(VRunFileIOLinkRelease(nullptr, damaged.file, frame) == 0);
        }
    }
    VRunFrame *made = nullptr;
    if (VRunFileIONewLink(nullptr, damaged.file, 500, &made) == 0) VRunFileIOLinkRelease(nullptr, damaged.file, made);
    require(damaged.size() < bytes + 100 * BlockSize);
    return 0;
}
