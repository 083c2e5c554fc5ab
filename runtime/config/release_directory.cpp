#include "runtime/config/release_directory.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

namespace velda {
namespace {

namespace fs = std::filesystem;

// share/velda beside the directory of the library, or of the program that holds it: a build and an installation have it
// there wherever they lie. Where there is none it is the directory of the configured prefix.
std::string beside_the_library() {
    Dl_info library;
    if (dladdr(reinterpret_cast<const void *>(&release_directory), &library) != 0) {
        std::error_code error;
        const fs::path found = fs::canonical(library.dli_fname, error).parent_path().parent_path() / "share" / "velda";
        if (!error && fs::is_directory(found, error)) return found.string();
    }
    return VELDA_RELEASE_DIRECTORY;
}

}  // namespace

std::string release_directory() {
    const char *named = std::getenv("VBCRELEASEDIR");
    if (named && *named) return named;
    static const std::string own = beside_the_library();
    return own;
}

}  // namespace velda
