#include "runtime/config/release_directory.h"

#include <cstdlib>

namespace velda {

std::string release_directory() {
    const char *named = std::getenv("VBCRELEASEDIR");
    return named && *named ? named : VELDA_RELEASE_DIRECTORY;
}

}  // namespace velda
