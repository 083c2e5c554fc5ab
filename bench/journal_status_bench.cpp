// The journal's reports: what one costs, and what a report ten times a second costs a process that changes the shared
// record. Rows: name, measured, limit.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "journal/journal.h"
#include "runtime/vutil.h"
#include "tests/support/scratch.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point begin) { return std::chrono::duration<double>(Clock::now() - begin).count(); }

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void require(bool happened, const char *what) {
    if (happened) return;
    std::fprintf(stderr, "journal_status_bench: %s failed\n", what);
    std::exit(1);
}

void fill_set(DP *dp, const velda::test::ScratchSystem &system) {
    for (int file = 1; file <= VELDA_LOGGER_FILES; ++file) {
        const VAR path(system / ("log" + std::to_string(file)));
        require(VELDALoggerSetFile(dp, 1, file, 1, &path) == 0, "naming a file");
    }
    require(VELDALoggerSwapLog(dp, 1) == 0, "switching");
}

double report_milliseconds(DP *dp) {
    constexpr int Reports = 500;
    std::vector<double> took;
    for (int n = 0; n < Reports; ++n) {
        VAR report;
        const auto begin = Clock::now();
        VELDALoggerGetStatus(&report, dp, -1);
        took.push_back(seconds_since(begin) * 1000);
        require(VAR(report(2)).to_integer() == VELDA_LOGGER_FILES, "the report");
    }
    return median(took);
}

// Bracketed changes of the shared record in a second.
double changes_each_second(DP *dp) {
    constexpr int Changes = 100'000;
    VELDALoggerConfig &config = *VediLoggerInit(dp, 1);
    const auto begin = Clock::now();
    for (int n = 0; n < Changes; ++n) {
        VediLoggerMisc(dp, VELDA_LOGGER_BEGIN_CHANGE);
        ++config.sets[0].recordCount;
        VediLoggerMisc(dp, VELDA_LOGGER_END_CHANGE);
    }
    return Changes / seconds_since(begin);
}

double ratio_while_watched(DP *dp) {
    constexpr int Rounds = 7;
    std::vector<double> ratios;
    for (int round = 0; round < Rounds; ++round) {
        const double alone = changes_each_second(dp);
        std::atomic<bool> ended{false};
        std::thread watcher([&ended] {
            VAR report;
            while (!ended) {
                VELDALoggerGetStatus(&report, velda_getdp(), -1);
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        });
        const double watched = changes_each_second(dp);
        ended = true;
        watcher.join();
        ratios.push_back(watched / alone);
    }
    return median(ratios);
}

}  // namespace

int main() {
    const velda::test::ScratchSystem system;
    DP *const dp = velda_getdp();
    require(VELDALoggerGetDefinition(dp) == 0, "the configuration");
    fill_set(dp, system);
    const double report = report_milliseconds(dp);
    std::printf("%-50s %8.3f ms   limit 1.000 %s\n", "status report of a set of 16 files", report,
                report < 1 ? "met" : "MISSED");
    const double ratio = ratio_while_watched(dp);
    std::printf("%-50s %8.3f      limit 0.950 %s\n", "changes while watched 10 times a second, of alone", ratio,
                ratio >= 0.95 ? "met" : "MISSED");
    return report < 1 && ratio >= 0.95 ? 0 : 1;
}
