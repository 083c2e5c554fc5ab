#include "runtime/port/status_record.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "runtime/lock/lock_layout.h"
#include "runtime/port/whole_file.h"
#include "runtime/process/context.h"
#include "runtime/process/session_names.h"
#include "runtime/store/text_mode.h"

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

constexpr std::size_t MaxWordBytes = 64;  // of user, account and terminal
constexpr std::size_t MaxDirectoryBytes = 400;
constexpr std::size_t MaxCommandBytes = 300;
static_assert(3 * MaxWordBytes + MaxDirectoryBytes + MaxCommandBytes + 110 < lock::MaxNoteBytes);

// A text that is not too long and does not divide the record.
std::string plain(std::string_view text, std::size_t limit) {
    std::string result(text.substr(0, limit));
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

std::string new_status(DP *dp, int port) {
    std::vector<std::string> attributes(StatusOwnAttributes);
    attributes[StatusPort - 1] = std::to_string(port);
    attributes[StatusProcess - 1] = std::to_string(getpid());
    attributes[StatusConnected - 1] = stamp_now();
    attributes[StatusUser - 1] = plain(user_name(), MaxWordBytes);
    attributes[StatusTerminal - 1] = plain(terminal_name(), MaxWordBytes);
    attributes[StatusAccount - 1] = plain(account_name(), MaxWordBytes);
    attributes[StatusContext - 1] = std::to_string(dp->serial);
    return with_command(joined(attributes), "");
}

std::string with_command(std::string_view status, std::string_view command) {
    std::vector<std::string> attributes = attributes_of(status);
    attributes.resize(StatusOwnAttributes);
    attributes[StatusDirectory - 1] = plain(current_directory(), MaxDirectoryBytes);
    attributes[StatusCommand - 1] = plain(command, MaxCommandBytes);
    attributes[StatusCommandBegan - 1] = seconds_now();
    return joined(attributes);
}

std::string merged(std::string_view record, std::string_view status) {
    if (status_attribute(record, StatusConnected) != status_attribute(status, StatusConnected))
        return std::string(status);
    const std::vector<std::string> own = attributes_of(status);
    std::vector<std::string> attributes = attributes_of(record);
    attributes.resize(std::max(attributes.size(), own.size()));
    std::copy(own.begin(), own.end(), attributes.begin());
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
    return write_whole_file(path_of(directory, port), store::text_of_record(record));
}

std::string read_status_record(const std::string &directory, int port) {
    std::string text = read_whole_file(path_of(directory, port)).value_or("");
    if (!text.empty() && text.back() == '\n') text.pop_back();
    store::exchange_line_ends(text.data(), text.size());
    return text;
}

}  // namespace velda::port
