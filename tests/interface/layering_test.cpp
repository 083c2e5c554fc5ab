// Subsystems of the logic meet by their chief headers only.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// What another folder may include of each.
const std::map<std::string, std::string> ChiefHeaders = {
    {"frame", "utility_frame.h"},
    {"fileutil", "fileutil.h"},
};

TEST(Layering, AFoldersPrivateHeadersAreIncludedByItselfOnly) {
    const std::regex include("#include \"([a-z]+)/([a-z_]+\\.h)\".*");
    const std::vector<std::string> folders = {"frame", "fileutil",   "journal", "spooler",  "proc",
                                              "index", "catalog",    "tape",    "srctools", "dict",
                                              "query", "background", "commands"};
    int seen = 0;
    for (const std::string &folder : folders) {
        for (const auto &entry : fs::recursive_directory_iterator(fs::path(VELDA_SOURCE_DIR) / folder)) {
            std::ifstream source(entry.path());
            std::smatch match;
            for (std::string line; std::getline(source, line);) {
                if (!std::regex_match(line, match, include)) continue;
                const auto chief = ChiefHeaders.find(match[1]);
                if (chief == ChiefHeaders.end()) continue;
                ++seen;
                EXPECT_TRUE(match[1] == folder || match[2] == chief->second) << entry.path() << ": " << line;
            }
        }
    }
    EXPECT_GT(seen, 0) << "no include was looked at";
}

}  // namespace
