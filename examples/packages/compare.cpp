#include "actions.h"

namespace {

struct Difference {
    std::uint64_t compared = 0;
    std::uint64_t bytes = 0;
    std::vector<std::string> keys;
};

// Looks every record of `one` up in `other`; keys whose records differ or are missing are kept.
Difference compare_one_way(DP *dp, const VAR &one, const VAR &other) {
    Difference difference;
    VAR list, key, record, counterpart;
    if (!VLibFSELECT_IBBB(dp, &one, &list, nullptr)) velda::stop("Cannot select the records of a file");
    while (VLibFREADNEXT_IBBBBB(dp, &key, nullptr, nullptr, &list, nullptr) == 1) {
        const bool same = VLibFNEWREAD_IIBBBIB(dp, 0, &one, &record, &key, 0, nullptr) == 1 &&
                          VLibFNEWREAD_IIBBBIB(dp, 0, &other, &counterpart, &key, 0, nullptr) == 1 &&
                          record.view() == counterpart.view();
        if (!same) difference.keys.push_back(key.str());
        ++difference.compared;
        difference.bytes += record.size();
    }
    return difference;
}

}  // namespace

int compare(DP *dp, const std::string &one, const std::string &other) {
    VAR first, second;
    open_or_stop(first, one);
    open_or_stop(second, other);
    const auto start = std::chrono::steady_clock::now();
    const Difference there = compare_one_way(dp, first, second), back = compare_one_way(dp, second, first);
    const double seconds = seconds_since(start);
    for (const Difference *difference : {&there, &back}) {
        for (const std::string &key : difference->keys) velda::crt_line("differs: '" + key + "'");
    }
    const bool equal = there.keys.empty() && back.keys.empty() && there.compared == back.compared;
    velda::crt_line(one + " and " + other + (equal ? " are equal: " : " differ: ") +
                    rate(there.compared + back.compared, "comparisons", seconds) + ", " + std::to_string(there.bytes) +
                    " bytes");
    return equal ? 0 : 1;
}
