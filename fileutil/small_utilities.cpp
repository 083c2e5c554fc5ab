// Utilities that stand alone, each too small for a file of its own.
#include <algorithm>
#include <string>
#include <system_error>

#include "fileutil/fileutil.h"

using namespace velda;

namespace {

constexpr int FrameSizeBytes = 4096;

// Both bits of the file type that only a symbolic link has.
constexpr unsigned SymbolicLinkBits = 40960;

constexpr std::string_view KeyPunctuation = "%+-._";

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }
bool is_letter(char byte) { return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z'); }
bool stands_in_key(char byte) {
    return is_letter(byte) || is_digit(byte) || KeyPunctuation.find(byte) != std::string_view::npos;
}

}  // namespace

VAR *VELDAGetTTYKeepKey(VAR *target, DP *dp, const char *text) {
    VAR terminal;
    VELDAGetTTYName(dp, &terminal);
    std::string key = "vutil_" + std::string(text) + "_" + terminal.str();
    // A name without a number may be that of many terminals; the port tells them apart.
    if (std::ranges::none_of(key, is_digit)) key += "-" + std::to_string(VELDAGetPortNumber(dp));
    std::ranges::replace_if(
        key, [](char byte) { return !stands_in_key(byte); }, '_');
    *target = key;
    return target;
}

VAR *VELDAPERROR(VAR *target, DP *, int error_number) {
    const std::string text = std::generic_category().message(error_number);
    *target = ": " + (text.starts_with("Unknown error") ? "Unknown error" : text);
    return target;
}

int VELDACheckSymLinkFile(DP *, const VAR *path) {
    struct stat status;
    if (VediWin32lstat(path->str().c_str(), &status) != 0) return 0;
    return (status.st_mode & SymbolicLinkBits) == SymbolicLinkBits;
}

int VELDAGetFrameSize(void) { return FrameSizeBytes; }
