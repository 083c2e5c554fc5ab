// peer.h - peers that are other programs, each measured by a script of this directory.
#pragma once

#include <cstdio>
#include <string>

namespace velda::bench {

// What the peer does in a second, as its script prints it: 0 where the peer is not installed.
inline double peer_rate(const std::string &script, std::size_t count) {
    const std::string command = VELDA_SOURCE_DIR "/bench/" + script + " " + std::to_string(count);
    std::fflush(stdout);
    std::FILE *const output = popen(command.c_str(), "r");
    double rate = 0;
    if (!output || std::fscanf(output, "%lf", &rate) != 1) rate = 0;
    if (output) pclose(output);
    return rate;
}

}  // namespace velda::bench
