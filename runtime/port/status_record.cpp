#include "runtime/port/status_record.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "runtime/base/global_directory.h"
#include "runtime/port/whole_file.h"
#include "runtime/process/context.h"
#include "runtime/process/session_names.h"

namespace velda::port {

namespace {

std::vector<std::string> attributes_of(std::string_view record) {
    std::vector<std::string> attributes;
    for (std::size_t at = 0; at <= record.size();) {
        const std::size_t end = std::min(record.find(AM, at), record.size());
        attributes.emplace_back(record.substr(at, end - at));
        at = end + 1;
    }
    return attributes;
}

std::string joined(const std::vector<std::string> &attributes) {
    std::string record;
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        if (i != 0) record += AM;
        record += attributes[i];
    }
    return record;
}

// A text that must not divide the record.
std::string plain(std::string_view text) {
    std::string result(text);
    std::replace_if(
        result.begin(), result.end(), [](char byte) { return byte == '\n' || byte == AM; }, ' ');
    return result;
}

std::string terminal_name() {
    char name[256];
    return ttyname_r(STDIN_FILENO, name, sizeof name) == 0 ? name : "";
}

std::string current_directory() {
    std::error_code failed;
    return std::filesystem::current_path(failed).string();
}

std::string seconds_now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(now).count());
}

std::string stamp_now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    char text[40];
    snprintf(text, sizeof text, "%lld.%06lld", static_cast<long long>(microseconds / 1000000),
             static_cast<long long>(microseconds % 1000000));
    return text;
}

std::string path_of(const std::string &directory, int port) { return directory + "/" + std::to_string(port); }

}  // namespace

std::string new_status_record(DP *dp, int port) {
    std::vector<std::string> attributes(StatusOwnAttributes);
    attributes[StatusPort - 1] = std::to_string(port);
    attributes[StatusProcess - 1] = std::to_string(getpid());
    attributes[StatusConnected - 1] = stamp_now();
    attributes[StatusUser - 1] = plain(user_name());
    attributes[StatusTerminal - 1] = plain(terminal_name());
    attributes[StatusAccount - 1] = plain(account_name());
    attributes[StatusDirectory - 1] = plain(current_directory());
    attributes[StatusCommandBegan - 1] = seconds_now();
    attributes[StatusContext - 1] = std::to_string(dp->serial);
    return joined(attributes);
}

std::string with_command(std::string_view record, std::string_view command) {
    std::vector<std::string> attributes = attributes_of(record);
    if (attributes.size() < StatusOwnAttributes) attributes.resize(StatusOwnAttributes);
    attributes[StatusDirectory - 1] = plain(current_directory());
    attributes[StatusCommand - 1] = plain(command);
    attributes[StatusCommandBegan - 1] = seconds_now();
    return joined(attributes);
}

std::string_view status_attribute(std::string_view record, int attribute) {
    for (; attribute > 1; --attribute) {
        const std::size_t mark = record.find(AM);
        if (mark == std::string_view::npos) return {};
        record.remove_prefix(mark + 1);
    }
    return record.substr(0, record.find(AM));
}

Result<void> write_status_record(const std::string &directory, int port, std::string_view record) {
    std::string text(record);
    std::replace(text.begin(), text.end(), AM, '\n');
    return write_whole_file(path_of(directory, port), text + "\n");
}

std::string read_status_record(const std::string &directory, int port) {
    std::string text = read_whole_file(path_of(directory, port)).value_or("");
    if (!text.empty() && text.back() == '\n') text.pop_back();
    std::replace(text.begin(), text.end(), '\n', AM);
    return text;
}

}  // namespace velda::port
