#include "runtime/base/write_fully.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace velda {

int write_fully(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd room{file, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

}  // namespace velda
