#include "runtime/config/emulation.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "runtime/config/config.h"
#include "runtime/config/emulation_section.h"
#include "runtime/config/release_directory.h"
#include "runtime/config/text_file.h"

namespace velda {
namespace {

constexpr EmulationSetting Settings[] = {
    {0, "invert_verbose_option", 0},    // COPY and tape control: the verbose option means quiet
    {3, "user_exit_line_crlf", 0},      // a line of the user exit ends with CR and LF
    {17, "proc_relaxed_commands", 0},   // PROC: M and F commands also in PQ mode
    {22, "proc_pad_parameters", 0},     // PROC: the R command makes the parameters that it lacks
    {30, "for_tests_first", 0},         // a FOR loop whose start lies beyond its end is not entered
    {34, "no_list_means_all", 0},       // a record-list command with no list acts on all records
    {77, "proc_empty_input_stays", 0},  // PROC: alternative treatment of the I command and user exits
    {79, "proc_wide_port_number", 0},   // PROC: likewise, port numbers of 4 digits
    {86, "proc_semicolon_blanks", 0},   // PROC: A command quoting, ";" becomes two blanks
    {98, "proc_quote_blank", 0},        // PROC: A command quoting, a blank before a quote
    {102, "upper_case_options", 0},     // options in parentheses are folded to upper case
    {126, "proc_ignore_case", 0},       // PROC: case-blind IF
    {127, "lower_case_catalog", 0},     // catalog names are folded to lower case
    {131, "no_list_is_error", 0},       // BASIC, CATALOG and DECATALOG with no list stop with an error
};

// The settings of one section of one file. Never changed once they are loaded.
struct Emulation {
    std::string path;
    std::string section;
    std::unordered_map<int, int> values;
};

int number_of(const std::string &text, int otherwise) {
    int value = otherwise;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

Result<EmulationSettings> read_section(const std::string &path, const std::string &section) {
    const Result<std::string> text = read_text_file(path);
    if (!text) return text.error();
    return emulation_section(*text, section);
}

Emulation load_emulation(const std::string &path, const std::string &section) {
    Emulation emulation{path, section, {}};
    const Result<EmulationSettings> found = read_section(path, section);
    if (!found) std::fprintf(stderr, "%s; emulation settings have their defaults\n", found.error().message.c_str());
    for (const EmulationSetting &setting : Settings) {
        int value = setting.default_value;
        if (found) {
            const auto line = found->find(setting.name);
            if (line != found->end()) value = number_of(line->second, value);
        }
        emulation.values[setting.number] = value;
    }
    return emulation;
}

// The emulation that is set now. One that was loaded before is kept: the account may be changed back.
const Emulation &current_emulation() {
    static std::mutex mutex;
    static std::vector<std::unique_ptr<const Emulation>> loaded;
    const std::string path = release_directory() + "/emulation";
    const char *named = std::getenv("VELDAEMULATION");
    const std::string section = named && *named ? named : "default";
    const std::lock_guard guard(mutex);
    for (const auto &known : loaded)
        if (known->path == path && known->section == section) return *known;
    return *loaded.emplace_back(std::make_unique<const Emulation>(load_emulation(path, section)));
}

}  // namespace

std::span<const EmulationSetting> emulation_settings() { return Settings; }

}  // namespace velda

int VELDAEmulateGETINT(DP *, int number) {
    const auto &values = velda::current_emulation().values;
    const auto found = values.find(number);
    return found == values.end() ? 0 : found->second;
}

int VLibEmulateGetIntVELDA(DP *dp, int number) { return VELDAEmulateGETINT(dp, number); }
