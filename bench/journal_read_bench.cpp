// journal_read_bench: how fast the journal is read, dumped and verified, against cat over the same files and against the
// dump of PostgreSQL's log, where that is installed (tools/bootstrap bench). All files are in the page cache.
//
//   journal_read_bench [FILTER] [RECORDS]
//
// runs the rows whose name holds FILTER, over three files with RECORDS records (1,000,000) of 200 bytes of data.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "bench/peer.h"
#include "journal/journal.h"
#include "journal/log_record.h"
#include "journal/log_select.h"
#include "runtime/journal/record_crc.h"
#include "runtime/vutil.h"
#include "tests/support/journal_builder.h"
#include "tests/support/scratch.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int Rounds = 9;
constexpr std::int64_t SetTime = 1'700'000'000;

[[noreturn]] void give_up(const std::string &what) {
    std::fprintf(stderr, "journal_read_bench: %s\n", what.c_str());
    std::exit(1);
}

// A clock in seconds.
using SecondsClock = double (*)();

double wall_seconds() { return std::chrono::duration<double>(Clock::now().time_since_epoch()).count(); }

// Processor time of this process and its children, which what else the machine does hardly touches: for work that waits
// for nothing and has one thread.
double processor_seconds() {
    double sum = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage used{};
        getrusage(who, &used);
        for (const timeval &time : {used.ru_utime, used.ru_stime})
            sum += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    }
    return sum;
}

double seconds_of(SecondsClock clock, const std::function<void()> &work) {
    const double begin = clock();
    work();
    return clock() - begin;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void shell(const std::string &command) {
    const int status = std::system(command.c_str());
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) give_up("failed: " + command);
}

void show(const char *name, double measured, const char *unit, double limit) {
    std::printf("%-52s %10.2f %-9s limit %8.2f  %s\n", name, measured, unit, limit,
                measured >= limit ? "met" : "MISSED");
    std::fflush(stdout);
}

// A journal whose first set has the records.
class Journal {
  public:
    Journal(DP *dp, std::int64_t records) : records_(records) {
        std::vector<std::string> paths;
        for (const char *const name : {"one", "two", "three"}) paths.push_back(system_ / name);
        for (const std::string &path : paths) words_ += " " + path;
        velda::test::SetBuilder set(paths, SetTime);
        velda::test::BuiltRecord record =
            velda::test::write_record("/data/account/CUSTOMERS", "", std::string(200, 'd'));
        record.has_crc = false;
        for (std::int64_t n = 0; n < records; ++n) {
            record.strings[1] = "customer" + std::to_string(n * 7919 % 1'000'003);
            record.time = SetTime + n / 1000;
            add(set, record);
        }
        velda::test::BuiltRecord end = velda::test::record_of(velda::test::EofType);
        end.time = record.time;
        add(set, end);
        set.write();
        VELDALoggerGetDefinition(dp);
        VELDALoggerConfig &config = *VediLoggerInit(dp, 1);
        set.configure(config);
        config.sets[0].recordCount = records + 1;
        config.sets[0].timeLast = record.time;
        config.currentSet = 1;
        shell("cat" + words_ + " > /dev/null");
    }

    std::int64_t records() const { return records_; }
    const std::string &words() const { return words_; }
    // How fast the work is against cat of the same files: they take turns, the median of the rounds' ratios counts.
    double against_cat(SecondsClock clock, const std::function<void()> &work) const {
        std::vector<double> ratios;
        for (int round = 0; round < Rounds; ++round) {
            const double peer = seconds_of(clock, [this] { shell("cat" + words_ + " > /dev/null"); });
            ratios.push_back(peer / seconds_of(clock, work));
        }
        return median(ratios);
    }

  private:
    // The builder's own checksum counts bit by bit, which takes too long here.
    static void add(velda::test::SetBuilder &set, const velda::test::BuiltRecord &record) {
        const velda::test::Placed place = set.next_place();
        std::string bytes = velda::test::record_bytes(record, 1, place.file, place.offset);
        vputint32(bytes.data() + 40, static_cast<std::int32_t>(velda::journal::record_crc(
                                         reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size())));
        set.add_bytes(bytes);
    }

    velda::test::ScratchSystem system_;
    std::int64_t records_;
    std::string words_;
};

// The program that was built beside this one.
std::string velda_program() {
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "velda").string();
}

void read_selection(DP *dp, const Journal &journal) {
    LogSelect *select = VELDALoggerSelectStart(dp, "set=1 terminate=eos", 0, nullptr);
    if (!select) give_up("the selection cannot begin");
    std::int64_t count = 0;
    while (VELDALoggerReadnext(dp, select, nullptr)) ++count;
    VELDALoggerSelectEnd(dp, &select);
    if (count != journal.records()) give_up("a selection gave " + std::to_string(count) + " records");
}

void bench_dump(const Journal &journal) {
    std::vector<double> rates;
    for (int round = 0; round < Rounds; ++round)
        rates.push_back(static_cast<double>(journal.records()) / seconds_of(wall_seconds, [&] {
                            shell(velda_program() + " vlogdump" + journal.words() + " > /dev/null");
                        }));
    const double rate = median(rates);
    const double peer = velda::bench::peer_rate("pg_waldump_peer", static_cast<std::size_t>(journal.records()));
    if (peer > 0)
        show("vlogdump: records a second, against pg_waldump", rate / peer, "x", 1);
    else
        std::printf("vlogdump against pg_waldump: PostgreSQL 15 is not installed, not run\n");
    show("vlogdump: millions of records a second", rate / 1e6, "M/s", 1);
}

}  // namespace

int main(int argc, char **argv) {
    const std::string filter = argc > 1 ? argv[1] : "";
    const auto wanted = [&](const char *name) { return std::string(name).find(filter) != std::string::npos; };
    DP *const dp = velda_getdp();
    const Journal journal(dp, argc > 2 ? std::atoll(argv[2]) : 1'000'000);
    if (wanted("readnext")) {
        show("readnext: speed, against cat of the same files",
             journal.against_cat(processor_seconds, [&] { read_selection(dp, journal); }), "x", 0.25);
    }
    if (wanted("verify")) {
        const auto verify = [&] { shell(velda_program() + " vlogverify" + journal.words() + " > /dev/null"); };
        show("verify: speed, against cat of the same files", journal.against_cat(wall_seconds, verify), "x", 0.5);
    }
    if (wanted("dump")) bench_dump(journal);
    return 0;
}
