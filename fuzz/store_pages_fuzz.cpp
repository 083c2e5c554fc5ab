// The page walk over damaged files: the input is a list of changes to a good file, each 4 bytes of place and 1 of content.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "runtime/store/driver.h"
#include "runtime/store/page_walk.h"

namespace {

using namespace velda::store;

// A file with branch, leaf and overflow pages, long keys and a free list.
std::string good_file() {
    std::string name = (std::filesystem::temp_directory_path() / "store-fuzz-XXXXXX").string();
    if (!mkdtemp(name.data())) std::abort();
    const std::string path = name + "/F";
    if (!create_file(path, "HL", {})) std::abort();
    {
        auto file = open_file(path);
        if (!file) std::abort();
        for (int i = 0; i < 120; ++i)
            if (!(*file)->write("K" + std::to_string(i), std::string(i * 3, 'r'), TransferMode::Default)) std::abort();
        (void)(*file)->write("big", std::string(9000, 'b'), TransferMode::Default);
        (void)(*file)->write(std::string(600, 'k'), "long", TransferMode::Default);
        (void)(*file)->remove("K7");
    }
    std::ifstream stream(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    std::filesystem::remove_all(name);
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string good = good_file();
    static const int descriptor = memfd_create("pages", MFD_CLOEXEC);
    constexpr size_t ChangeBytes = 5;
    std::string bytes = good;
    for (; size >= ChangeBytes; data += ChangeBytes, size -= ChangeBytes) {
        std::uint32_t place;
        std::memcpy(&place, data, sizeof place);
        bytes[place % bytes.size()] = static_cast<char>(data[4]);
    }
    // What is left over cuts the file.
    if (size > 0) bytes.resize(bytes.size() * data[0] / 255);
    if (ftruncate(descriptor, 0) < 0 || pwrite(descriptor, bytes.data(), bytes.size(), 0) < 0) std::abort();
    const auto head = read_file_head(descriptor, "F");
    if (!head) return 0;
    const CheckReport ignore = [](std::string_view) {};
    const std::uint64_t newest = head->newest().transaction;
    (void)check_before_use(descriptor, *head, newest, "F");
    const WalkResult result = walk_pages(descriptor, *head, newest, ignore);
    if (result.findings == 0 && result.records > 200) std::abort();
    return 0;
}
