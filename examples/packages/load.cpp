#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <set>

#include "actions.h"
#include "package_record.h"

namespace {

struct Counts {
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;
    std::uint64_t dependencies = 0;
};

// Opens the file or its dictionary; makes both when the file is missing.
void open_or_create(DP *dp, const std::string &name, VAR &data, VAR &dictionary) {
    const VAR wanted = name, dict = "DICT";
    if (VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &wanted, &data, nullptr) != 1) {
        VAR operands, message;
        operands(1) = "DURABILITY=LAZY";
        operands(2) = name;
        if (!velda_create_file(dp, &operands, &message)) velda::stop(message);
        open_or_stop(data, name);
    }
    if (VLibFNEWOPEN_IIBBBB(dp, 0, &dict, &wanted, &dictionary, nullptr) != 1) velda::stop("201", "DICT " + name);
}

void write_dictionary(DP *dp, const VAR &dictionary) {
    for (int n = 0; n < PackageAttributeCount; ++n) {
        const VAR item = dictionary_item(PackageAttributes[n]), key = PackageAttributes[n].name;
        VLibFNEWWRITE_IIBBBIB(dp, 0, &dictionary, &item, &key, 0, nullptr);
    }
}

// A list may hold several versions of a name: the first one keeps the name as its key.
std::string free_key(const Stanza &stanza, std::set<std::string> &used) {
    std::string key = package_key(stanza);
    if (key.empty()) return key;
    const auto version = stanza.find("Version");
    for (int n = 2; !used.insert(key).second; ++n) {
        key = package_key(stanza) + "*" + (version == stanza.end() || n > 2 ? std::to_string(n) : version->second);
    }
    return key;
}

void load_list(DP *dp, std::istream &input, const VAR &data, std::set<std::string> &used, Counts &counts) {
    for (Stanza stanza; read_stanza(input, stanza);) {
        const std::string name = free_key(stanza, used);
        if (name.empty()) continue;
        const VAR record = package_record(stanza), key = name;
        VLibFNEWWRITE_IIBBBIB(dp, 0, &data, &record, &key, 0, nullptr);
        ++counts.records;
        counts.bytes += record.size();
        counts.dependencies += velda::dcount(record(9), velda::VM);
    }
}

}  // namespace

int load(DP *dp, const std::string &file, const std::vector<std::string> &lists) {
    VAR data, dictionary;
    open_or_create(dp, file, data, dictionary);
    write_dictionary(dp, dictionary);
    std::set<std::string> used;
    Counts counts;
    const auto start = std::chrono::steady_clock::now();
    for (const std::string &list : lists) {
        std::ifstream opened;
        if (list != "-") opened.open(list);
        if (list != "-" && !opened) velda::stop("Cannot read package list '" + list + "': " + std::strerror(errno));
        load_list(dp, list == "-" ? std::cin : opened, data, used, counts);
    }
    velda::crt_line("loaded " + rate(counts.records, "records", seconds_since(start)) + "; " +
                    std::to_string(counts.bytes) + " bytes, " + std::to_string(counts.dependencies) + " dependencies");
    return 0;
}
