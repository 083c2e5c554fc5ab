// dup_options.h - the words of a run: its options and its two specifications. Private to the subsystem.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "journal/duplicator/duplicator.h"

namespace velda::journal {

// What the options ask for.
struct DupOptions {
    bool concise_help = false;
    bool verbose_help = false;
    bool future = false;
    bool exclusive = false;
    std::uint32_t max_errors = DefaultMaxErrors;
    std::uint32_t progress_every = 0;
    std::uint32_t verbose_level = 0;
    std::string error_file;
    std::string log_file;
    std::vector<std::string> operands;  // the words behind the options

    static constexpr std::uint32_t DefaultMaxErrors = 10000;
};

// Reads the options at the front of the words, up to the first that asks for help. Nothing, after a message, for a
// wrong one.
std::optional<DupOptions> read_options(DP *dp, const std::string &program, const std::vector<std::string> &words);

// The texts of the two specifications.
struct DupSpecifications {
    std::string input;
    std::string output;
};

// Divides the operands by the words INPUT and OUTPUT. Nothing, after a message, when one is missing.
std::optional<DupSpecifications> read_specifications(DP *dp, const std::string &program,
                                                     const std::vector<std::string> &operands);

// The text of the help on standard output.
void print_help(DP *dp, const std::string &program, bool is_verbose);

}  // namespace velda::journal
