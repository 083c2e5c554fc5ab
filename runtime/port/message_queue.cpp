#include "runtime/port/message_queue.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "runtime/base/global_directory.h"
#include "runtime/port/whole_file.h"

namespace velda::port {

namespace {

std::string queue_path(int port) { return global_directory() + "/messages/" + std::to_string(port); }

std::vector<std::string> waiting_names(const std::string &queue) {
    std::vector<std::string> names;
    std::error_code failed;
    for (const auto &entry : std::filesystem::directory_iterator(queue, failed))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

// Later names sort behind earlier ones; the process and its count make those of one instant different.
std::string new_name() {
    static std::atomic<unsigned> count{0};
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    char name[80];
    snprintf(name, sizeof name, "%012lld.%09ld.%d.%u", static_cast<long long>(now.tv_sec), now.tv_nsec, getpid(),
             ++count);
    return name;
}

}  // namespace

void remove_queue(int port) {
    std::error_code ignored;
    std::filesystem::remove_all(queue_path(port), ignored);
}

Result<void> put_message(int port, std::string_view text) {
    if (text.size() > MaxMessageBytes)
        return Error{E2BIG, "message of " + std::to_string(text.size()) + " bytes is too long: the longest has " +
                                std::to_string(MaxMessageBytes)};
    if (const auto queues = global_subdirectory("messages"); !queues) return queues.error();
    const auto queue = global_subdirectory("messages/" + std::to_string(port));
    if (!queue) return queue.error();
    if (waiting_names(*queue).size() >= MaxWaitingMessages)
        return Error{EAGAIN, "port " + std::to_string(port) + " has " + std::to_string(MaxWaitingMessages) +
                                 " messages that wait already"};
    return write_whole_file(*queue + "/" + new_name(), text);
}

std::vector<std::string> take_queue(int port) {
    std::vector<std::string> texts;
    const std::string queue = queue_path(port);
    for (const std::string &name : waiting_names(queue)) {
        const std::string path = queue + "/" + name;
        if (auto text = read_whole_file(path)) texts.push_back(std::move(*text));
        unlink(path.c_str());
    }
    return texts;
}

}  // namespace velda::port
