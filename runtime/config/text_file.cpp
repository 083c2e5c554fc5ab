#include "runtime/config/text_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace velda {

Result<std::string> read_text_file(const std::string &path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return system_error(errno, "cannot open file", path);
    std::string content;
    char buffer[16 * 1024];
    ssize_t got;
    while ((got = read(file, buffer, sizeof buffer)) != 0) {
        if (got > 0) {
            content.append(buffer, static_cast<std::size_t>(got));
        } else if (errno != EINTR) {
            const Error error = system_error(errno, "cannot read file", path);
            close(file);
            return error;
        }
    }
    close(file);
    return content;
}

}  // namespace velda
