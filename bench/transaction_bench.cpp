// Transactions of ten updates against ten single writes, and the road of statements outside of a transaction against the
// driver's own calls. Rows: name, measured ratio, limit.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "runtime/process/process.h"
#include "runtime/store/control_block.h"
#include "runtime/transaction/session_file.h"
#include "runtime/vutil.h"
#include "tests/support/scratch.h"

namespace {

constexpr int Rounds = 25;
constexpr int Updates = 10;
constexpr int Keys = 10'000;

void require(bool happened, const char *what) {
    if (happened) return;
    std::fprintf(stderr, "transaction_bench: %s failed\n", what);
    std::exit(1);
}

double least(const std::vector<double> &values) { return *std::min_element(values.begin(), values.end()); }

double microseconds_each(int times, const std::function<void(int)> &operation) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < times; ++i) operation(i);
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - begin;
    return took.count() / times;
}

bool missed = false;

// The two take turns, and of each the fastest round counts: what else the machine does weighs on neither. The ratio may
// be at most `limit`.
void row(const char *name, double limit, int times, const std::function<void(int)> &operation,
         const std::function<void(int)> &peer) {
    std::vector<double> measured, against;
    for (int round = 0; round < Rounds; ++round) {
        measured.push_back(microseconds_each(times, operation));
        against.push_back(microseconds_each(times, peer));
    }
    const double ratio = least(measured) / least(against);
    missed |= ratio > limit;
    std::printf("%-58s %8.2f %8.2f %s   (%.2f against %.2f microseconds)\n", name, ratio, limit,
                ratio <= limit ? "ok" : "MISSED", least(measured), least(against));
}

class Bench {
  public:
    Bench() : dp_(velda_getdp()), record_(std::string(200, 'r')) {
        for (int i = 0; i < Keys; ++i) keys_.emplace_back("key" + std::to_string(i * 7919 % Keys));
    }

    void run() {
        open("LAZY1", "LAZY", lazy_[0]);
        open("LAZY2", "LAZY", lazy_[1]);
        open("SYNC1", "SYNC", sync_[0]);
        open("SYNC2", "SYNC", sync_[1]);
        const auto singles = [&](VAR *files) {
            return [this, files](int at) {
                for (int i = 0; i < Updates; ++i) write(files[i % 2], at * Updates + i);
            };
        };
        const auto together = [&](VAR *files, int count) {
            return [this, files, count](int at) {
                require(velda_transaction_begin(dp_, nullptr) == 1, "begin");
                for (int i = 0; i < Updates; ++i) write(files[i % count], at * Updates + i);
                require(velda_transaction_commit(dp_, nullptr) == 1, "commit");
            };
        };
        row("10 updates of one lazy file / 10 lazy writes", 2.0, 200, together(lazy_, 1), singles(lazy_));
        row("10 updates of two lazy files / 10 lazy writes", 8.0, 200, together(lazy_, 2), singles(lazy_));
        row("10 updates of one sync file / 10 sync writes", 0.5, 2, together(sync_, 1), singles(sync_));
        row("10 updates of two sync files / 10 sync writes", 1.0, 2, together(sync_, 2), singles(sync_));
        outside_of_transactions();
    }

  private:
    void open(const char *name, const char *durability, VAR &cell) {
        const std::string path = system_ / name;
        const VAR operands("DATA\xFE" + path + "\xFE" + "DURABILITY=" + durability), wanted(path);
        require(velda_create_file(dp_, &operands, nullptr) == 1, "create");
        require(VLibFNEWOPEN_IIBBBB(dp_, 0, nullptr, &wanted, &cell, nullptr) == 1, "open");
        for (int i = 0; i < (durability[0] == 'L' ? Keys : 0); ++i) write(cell, i);
    }
    void write(const VAR &file, int at) {
        require(VLibFNEWWRITE_IIBBBIB(dp_, 0, &file, &record_, &keys_[at % Keys], 0, nullptr) == 1, "write");
    }

    // What the statements' road adds to the driver's calls.
    void outside_of_transactions() {
        auto &content = velda::store::content_of(*reinterpret_cast<VediControlBlock *>(lazy_[0].text));
        std::string target;
        velda::store::StringBuffer buffer(target);
        const auto mode = velda::store::TransferMode::Default;
        row(
            "read outside of a transaction / driver's read", 1.1, 20'000,
            [&](int at) {
                require(bool(velda::transaction::read_record(dp_, content, keys_[at % Keys].view(), buffer, mode)),
                        "read");
            },
            [&](int at) { require(bool(content.file->read(keys_[at % Keys].view(), buffer, mode)), "read"); });
        row(
            "write outside of a transaction / driver's write", 1.1, 4'000,
            [&](int at) {
                require(
                    bool(velda::transaction::write_record(dp_, content, keys_[at % Keys].view(), record_.view(), mode)),
                    "write");
            },
            [&](int at) {
                require(bool(content.file->write(keys_[at % Keys].view(), record_.view(), mode)), "write");
            });
    }

    velda::test::ScratchSystem system_;
    DP *dp_;
    const VAR record_;
    std::vector<VAR> keys_;
    VAR lazy_[2];
    VAR sync_[2];
};

}  // namespace

int main() {
    std::make_unique<Bench>()->run();
    return missed ? 1 : 0;
}
