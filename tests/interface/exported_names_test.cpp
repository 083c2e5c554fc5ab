// The names that both libraries export: every one is there, and nothing goes out by accident.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string library_path(const std::string &library) { return VELDA_BINARY_DIR "/lib/" + library + ".so"; }

std::vector<std::string> listed_names(const std::string &library) {
    std::ifstream list(VELDA_SOURCE_DIR "/tests/interface/" + library + ".names");
    std::vector<std::string> names;
    for (std::string line; std::getline(list, line);) {
        if (line.starts_with('#')) continue;
        std::istringstream words(line);
        for (std::string name; words >> name;) names.push_back(name);
    }
    return names;
}

// What a command of the binary tools writes, line by line.
std::vector<std::string> lines_of_command(const std::string &command) {
    std::vector<std::string> lines;
    FILE *const output = popen(command.c_str(), "r");
    if (!output) return lines;
    char line[4096];
    while (std::fgets(line, sizeof line, output))
        lines.emplace_back(line, std::string_view(line).find_last_not_of('\n') + 1);
    EXPECT_EQ(pclose(output), 0) << command;
    return lines;
}

class Library : public ::testing::TestWithParam<const char *> {};

TEST_P(Library, ExportsEveryNameOfItsList) {
    const auto names = listed_names(GetParam());
    ASSERT_FALSE(names.empty());
    void *const library = dlopen(library_path(GetParam()).c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const std::string &name : names) EXPECT_NE(dlsym(library, name.c_str()), nullptr) << name;
    dlclose(library);
}

// The escaped spelling of a subroutine's name: "_" behind the prefix as "_5F".
std::string escaped(const std::string &name) {
    constexpr std::string_view Prefix = "VBC_";
    return std::string(Prefix) + std::regex_replace(name.substr(Prefix.size()), std::regex("_"), "_5F");
}

TEST_P(Library, ExportsASubroutineWithAnUnderscoreUnderBothSpellings) {
    void *const library = dlopen(library_path(GetParam()).c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const std::string &name : listed_names(GetParam())) {
        if (!name.starts_with("VBC_") || name.find("_5F") != name.npos || name.find("_2D") != name.npos) continue;
        EXPECT_EQ(dlsym(library, escaped(name).c_str()), dlsym(library, name.c_str())) << escaped(name);
    }
    dlclose(library);
}

TEST_P(Library, ExportsNoCNameOfAnotherKind) {
    const std::regex kind(
        "VBC_.+|VLib[A-Z].+|VRun[A-Z].+|Vedi[A-Z].+|VELDA[A-Za-z].+|Velda[A-Z].+|velda_.+|vDLS_.+|"
        "v(get|put)(int32|long64)|CheckIndex|NTLogMessage|WriteDevice.+|TranslateDevice|OutputDeviceCommon|DupLog|_Z.+");
    for (const std::string &name : lines_of_command("nm -D --defined-only -j '" + library_path(GetParam()) + "'"))
        EXPECT_TRUE(std::regex_match(name, kind)) << name;
}

INSTANTIATE_TEST_SUITE_P(Both, Library, ::testing::Values("libvelda5", "libveldautil"));

// --- what the logic stands on ------------------------------------------------------------------------------------------

bool is_sanitized() {
    for (const std::string &line : lines_of_command("readelf -d '" + library_path("libveldautil") + "'"))
        if (line.find("san.so") != line.npos) return true;
    return false;
}

TEST(Logic, IsLinkedWithTheRuntimeTheQueryLibraryAndTheLanguagesLibrariesOnly) {
    const std::regex needed(R"(.*\(NEEDED\).*\[(.*)\])");
    const std::regex allowed(R"(lib(velda5|vQL|stdc\+\+|gcc_s|m|c|asan|ubsan|tsan|clang_rt[a-z.]*)\.so.*|ld-linux.*)");
    std::smatch match;
    std::set<std::string> libraries;
    for (const std::string &line : lines_of_command("readelf -d '" + library_path("libveldautil") + "'"))
        if (std::regex_match(line, match, needed)) libraries.insert(match[1]);
    EXPECT_TRUE(libraries.contains("libvelda5.so.5"));
    for (const std::string &library : libraries) EXPECT_TRUE(std::regex_match(library, allowed)) << library;
}

// Functions of the C library that touch memory, texts and the clock, and nothing of the system; and the mutexes behind
// those of the standard library.
TEST(Logic, CallsNothingOfTheOperatingSystem) {
    if (is_sanitized()) GTEST_SKIP() << "sanitizers call what they like";
    const std::regex allowed(
        "(mem(chr|rchr|cmp|cpy|move|set|mem)|str(len|cmp|ncmp|chr|rchr|to[a-z]+)|v?snprintf|time|"
        "[a-z]*time_r|pthread_mutex_(un)?lock|stdout|stderr|abort|floor|ceil|log|pow|__[a-z_]+)@GLIBC.*");
    for (const std::string &line : lines_of_command("nm -D -u -j '" + library_path("libveldautil") + "'"))
        EXPECT_TRUE(line.find("@GLIBC_") == line.npos || std::regex_match(line, allowed)) << line;
}

}  // namespace
