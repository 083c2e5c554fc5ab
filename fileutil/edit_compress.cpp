// The editor's stored form of a record: a run of blanks or stars is kept as three bytes, 0x10, the byte and the count.
#include <string>
#include <string_view>

#include "fileutil/fileutil.h"

namespace {

constexpr char RunMarker = '\x10';
constexpr std::size_t RunBytes = 3;         // marker, byte, count
constexpr std::size_t LongestPlainRun = 2;  // a longer run is worth its three bytes

bool compressible(char byte) { return byte == ' ' || byte == '*'; }

// The count is one byte: a run of 256 is written as 0, and a longer one loses what does not fit.
void append_run(std::string &compressed, char byte, std::size_t count) {
    if (count > LongestPlainRun)
        compressed.append({RunMarker, byte, static_cast<char>(count)});
    else
        compressed.append(count, byte);
}

std::string compressed_form(std::string_view plain) {
    std::string compressed;
    compressed.reserve(plain.size() + 1);
    for (std::size_t at = 0; at < plain.size(); ++at) {
        if (!compressible(plain[at])) {
            compressed += plain[at];
            continue;
        }
        const std::size_t run_end = std::min(plain.find_first_not_of(plain[at], at), plain.size());
        append_run(compressed, plain[at], run_end - at);
        // The byte that ended the run is copied as it is, whatever it is. At the end of the text there is none, and the
        // last byte of the run is copied once more: records stored by the editor have that byte, so it stays.
        at = run_end;
        compressed += run_end < plain.size() ? plain[run_end] : plain.back();
    }
    return compressed;
}

bool run_starts(std::string_view rest) {
    return rest.size() >= RunBytes && rest[0] == RunMarker && compressible(rest[1]);
}

std::string expanded_form(std::string_view compressed) {
    std::string plain;
    plain.reserve(2 * compressed.size());
    for (std::size_t at = 0; at < compressed.size();) {
        if (run_starts(compressed.substr(at))) {
            plain.append(static_cast<unsigned char>(compressed[at + 2]), compressed[at + 1]);
            at += RunBytes;
        } else {
            plain += compressed[at++];
        }
    }
    return plain;
}

}  // namespace

VAR *VELDAEditCompress(DP *, VAR *cell) {
    *cell = compressed_form(cell->view());
    return cell;
}

VAR *VELDAEditExpand(DP *, VAR *cell) {
    *cell = expanded_form(cell->view());
    return cell;
}
