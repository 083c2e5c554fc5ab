// Taste by machine: what a reviewer should not have to look for.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr const char *CodeFolders[] = {"runtime", "frame", "fileutil", "journal", "commands", "examples"};
constexpr const char *LogicFolders[] = {"frame", "fileutil", "journal"};

// No function may be longer than this. It only ever goes down.
constexpr int LongestFunctionLines = 70;

std::vector<fs::path> sources(const std::vector<std::string> &folders, const std::set<std::string> &endings) {
    std::vector<fs::path> found;
    for (const std::string &folder : folders) {
        for (const auto &entry : fs::recursive_directory_iterator(fs::path(VELDA_SOURCE_DIR) / folder)) {
            if (endings.contains(entry.path().extension().string())) found.push_back(entry.path());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<std::string> all_code() { return {std::begin(CodeFolders), std::end(CodeFolders)}; }

std::vector<std::string> lines_of(const fs::path &path) {
    std::ifstream input(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(input, line);) lines.push_back(line);
    return lines;
}

std::string place(const fs::path &path, std::size_t line) {
    return fs::relative(path, VELDA_SOURCE_DIR).string() + ":" + std::to_string(line + 1);
}

bool opens_body(const std::string &line) {
    const bool at_margin = !line.empty() && line[0] != ' ' && line[0] != '}' && line[0] != '/' && line[0] != '#';
    static const std::regex no_function("(namespace|extern \"C\"|class|struct|enum|union|constexpr .*= \\{).*");
    return at_margin && line.back() == '{' && !std::regex_match(line, no_function);
}

}  // namespace

TEST(Style, NoFunctionIsLongerThanTheRatchet) {
    for (const fs::path &path : sources(all_code(), {".cpp"})) {
        const auto lines = lines_of(path);
        for (std::size_t at = 0, start = 0; at < lines.size(); ++at) {
            if (opens_body(lines[at])) start = at;
            if (lines[at].starts_with("}") && start != 0) {
                EXPECT_LE(static_cast<int>(at - start), LongestFunctionLines) << place(path, start);
                start = 0;
            }
        }
    }
}

TEST(Style, EveryPublicDeclarationStandsUnderAComment) {
    for (const fs::path &path : sources(all_code(), {".h"})) {
        bool commented = false;
        const auto lines = lines_of(path);
        for (std::size_t at = 0; at < lines.size(); ++at) {
            if (lines[at].empty()) commented = false;
            if (lines[at].find("//") != std::string::npos) commented = true;
            EXPECT_TRUE(commented || !lines[at].starts_with("VELDA_EXPORT")) << place(path, at);
        }
    }
}

TEST(Style, EveryFolderOfCodeHasAReadme) {
    std::set<fs::path> folders;
    for (const fs::path &path : sources({"runtime", "frame", "fileutil", "journal", "commands"}, {".cpp"})) folders.insert(path.parent_path());
    for (const fs::path &folder : folders)
        EXPECT_TRUE(fs::exists(folder / "README.md")) << fs::relative(folder, VELDA_SOURCE_DIR);
}

TEST(Style, TheLogicIncludesTheStandardLibraryTheRuntimesPublicHeadersAndItself) {
    const std::regex allowed(
        "#include "
        "(<[a-z_]+>|\"runtime/(vutil|vdefc|base/result|base/service_thread)\\.h\"|\"runtime/([a-z]+)/"
        "(facade|\\3|subroutine|config_record|log_format|record_crc)\\.h\"|"
        "\"(frame|fileutil|journal|journal/duplicator)/[a-z_]+\\.h\").*");
    for (const fs::path &path : sources({std::begin(LogicFolders), std::end(LogicFolders)}, {".cpp", ".h"})) {
        const auto lines = lines_of(path);
        for (std::size_t at = 0; at < lines.size(); ++at) {
            const bool is_include = lines[at].starts_with("#include");
            EXPECT_TRUE(!is_include || std::regex_match(lines[at], allowed)) << place(path, at) << " " << lines[at];
        }
    }
}

TEST(Style, NoCallThatCannotBeUsedSafely) {
    const std::regex banned("(^|[^_a-zA-Z0-9:.>])(strcpy|strcat|sprintf|vsprintf|gets|rand|strtok|system)\\(");
    for (const fs::path &path : sources(all_code(), {".cpp", ".h"})) {
        const auto lines = lines_of(path);
        for (std::size_t at = 0; at < lines.size(); ++at) {
            const std::string code = lines[at].substr(0, lines[at].find("//"));
            EXPECT_FALSE(std::regex_search(code, banned)) << place(path, at) << " " << lines[at];
        }
    }
}

TEST(Style, EveryHeaderIsIncludedSomewhere) {
    std::string all;
    for (const fs::path &path :
         sources({"runtime", "frame", "fileutil", "journal", "commands", "examples", "tests", "bench", "fuzz"},
                 {".cpp", ".h", ".c"})) {
        for (const std::string &line : lines_of(path)) {
            if (line.starts_with("#include")) all += line + "\n";
        }
    }
    for (const fs::path &path : sources(all_code(), {".h"})) {
        EXPECT_NE(all.find(path.filename().string()), std::string::npos)
            << fs::relative(path, VELDA_SOURCE_DIR) << " is included nowhere";
    }
}
