// value_bench.cpp - speed of values and dynamic arrays against the C and C++ library on the same bytes.
//
// Each line is a ratio measured in this run: the median of several turns, in each of which the operation and its peer
// run one after the other, so that a busy machine slows both. "MISSED" says that the limit was not reached.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "runtime/value/scan.h"
#include "runtime/value/facade.h"

using namespace velda;

namespace {

constexpr std::size_t Mebibyte = 1 << 20;
constexpr int Turns = 9;

template <class T>
void keep(const T &value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

// Time that this thread has worked, whatever else the machine does.
double worked_seconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Seconds that a call takes: it is repeated for a few milliseconds.
template <class Work>
double seconds(Work work) {
    constexpr double Enough = 0.004;
    for (int repeats = 1;; repeats *= 4) {
        const double begin = worked_seconds();
        for (int i = 0; i < repeats; ++i) work();
        const double taken = worked_seconds() - begin;
        if (taken >= Enough) return taken / repeats;
    }
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

// How many times as fast as its peer an operation is.
template <class Work, class Peer>
double speed(Work work, Peer peer) {
    std::vector<double> ratios;
    for (int turn = 0; turn < Turns; ++turn) {
        const double peer_seconds = seconds(peer);
        ratios.push_back(peer_seconds / seconds(work));
    }
    return median(ratios);
}

enum class Limit { AtLeast, AtMost };

void report(const char *name, double measured, Limit kind, double limit) {
    const bool ok = kind == Limit::AtLeast ? measured >= limit : measured <= limit;
    std::printf("%-62s %9.2f  %s %5.2f  %s\n", name, measured, kind == Limit::AtLeast ? ">=" : "<=", limit,
                ok ? "ok" : "MISSED");
}

// Attributes of eight letters and digits, all different, up to `length` bytes.
std::string record_of(std::size_t length) {
    std::string record;
    for (unsigned number = 0; record.size() + 9 <= length; ++number) {
        char element[16];
        std::snprintf(element, sizeof element, "k%07x", number * 2654435761u >> 4);
        record.append(element, 8) += AM;
    }
    record.append(length - record.size(), 'z');
    return record;
}

void search_a_record() {
    const std::string bytes = record_of(Mebibyte);
    const VAR record = bytes;
    const int last = dcount(record, AM);
    const auto memchr_peer = [&] { keep(std::memchr(bytes.data(), 1, bytes.size())); };
    const auto memmem_peer = [&](const char *text) {
        return [&bytes, text] { keep(memmem(bytes.data(), bytes.size(), text, std::strlen(text))); };
    };
    // The cell forgets where it was read last, so that each call walks the whole record.
    const auto extract_last = [&] {
        VLibGUPCASE_INTERNAL(nullptr, const_cast<VAR *>(&record), 0);
        keep(record(last).view().data());
    };
    const auto locate_text = [&](const char *wanted) {
        return [&record, wanted] { keep(locate(wanted, record).position); };
    };
    const auto find_one = [&](const char *wanted) {
        return [&record, wanted] { keep(velda::find(wanted, record).found); };
    };

    report("EXTRACT of the last attribute of 1 MiB, to memchr", speed(extract_last, memchr_peer), Limit::AtLeast, 0.5);
    report("LOCATE of an absent element, to memmem", speed(locate_text("missing!"), memmem_peer("missing!")),
           Limit::AtLeast, 0.5);
    const std::string before_last = record(last - 1).str();
    report("LOCATE of the last but one element, to memmem",
           speed(locate_text(before_last.c_str()), memmem_peer(before_last.c_str())), Limit::AtLeast, 0.5);
    report("LOCATE of an absent element of one byte, to memchr", speed(locate_text("!"), memchr_peer), Limit::AtLeast,
           0.5);
    report("FIND of an absent element, to memmem", speed(find_one("missing!"), memmem_peer("missing!")), Limit::AtLeast,
           0.5);
    report("FIND of an absent element of one byte, to memchr", speed(find_one("!"), memchr_peer), Limit::AtLeast, 0.5);
    report("COUNT of one byte, to memchr", speed([&] { keep(velda::count(record, AM)); }, memchr_peer), Limit::AtLeast,
           0.5);
    report("COUNT of a text, to memmem",
           speed([&] { keep(velda::count(record, "missing!")); }, memmem_peer("missing!")), Limit::AtLeast, 0.5);
}

void change_a_record() {
    const std::string bytes = record_of(Mebibyte);
    const auto memchr_peer = [&] { keep(std::memchr(bytes.data(), 1, bytes.size())); };
    VAR record = bytes;
    report("CHANGE of an absent byte in place, to memchr", speed([&] { change_in(record, "!", "?"); }, memchr_peer),
           Limit::AtLeast, 0.5);
    bool there = false;
    const auto toggle = [&] {
        change_in(record, there ? VM : AM, there ? AM : VM);
        there = !there;
    };
    report("CHANGE of one byte in place, every 9th, to memchr", speed(toggle, memchr_peer), Limit::AtLeast, 0.5);
    VAR target;
    const auto copy_peer = [&] {
        static std::string copy;
        copy = bytes;
        keep(std::memchr(copy.data(), 1, copy.size()));
    };
    const auto change_elsewhere = [&] {
        VLibGSWAPF_BBBBBII(nullptr, &target, &record, Argument(AM), Argument(VM), -1, 1);
    };
    report("CHANGE of one byte into another cell, to a copy and memchr", speed(change_elsewhere, copy_peer),
           Limit::AtLeast, 0.5);
}

// Seconds for reading attributes 1 to n of a record one after another.
double read_all(const VAR &record, int n) {
    return seconds([&] {
        std::size_t total = 0;
        for (int a = 1; a <= n; ++a) total += record(a).size();
        keep(total);
    });
}

void read_one_after_another() {
    constexpr int N = 100000;
    const VAR record = record_of(9 * N), twice = record_of(9 * 2 * N);
    std::vector<double> growth, rates;
    for (int turn = 0; turn < Turns; ++turn) {
        const double once = read_all(record, N);
        growth.push_back(read_all(twice, 2 * N) / once);
        rates.push_back(N / once / 1e6);
    }
    report("reading attributes 1 to n: time for 2n to time for n", median(growth), Limit::AtMost, 2.3);
    report("reading attributes 1 to n: millions a second", median(rates), Limit::AtLeast, 20);
}

double append_all(int n) {
    return seconds([&] {
        VAR record;
        const VAR element = "k1234567";
        for (int a = 0; a < n; ++a) record(-1) = element;
        keep(record.text);
    });
}

void append_one_after_another() {
    constexpr int N = 1000000;
    const auto string_peer = [] {
        std::string record;
        const std::string element = "k1234567";
        for (int a = 0; a < N; ++a) {
            if (a > 0) record += AM;
            record += element;
        }
        keep(record.data());
    };
    std::vector<double> growth, ratios;
    for (int turn = 0; turn < Turns; ++turn) {
        const double once = append_all(N);
        growth.push_back(once / append_all(N / 2));
        ratios.push_back(seconds(string_peer) / once);
    }
    report("appending n attributes: time for n to time for n/2", median(growth), Limit::AtMost, 2.3);
    report("appending n attributes, to std::string", median(ratios), Limit::AtLeast, 0.25);
}

}  // namespace

int main() {
    std::printf("loops: %s\n", fast_kernels() ? "AVX2" : "portable");
    std::printf("%-62s %9s  %8s\n", "work", "measured", "limit");
    search_a_record();
    change_a_record();
    read_one_after_another();
    append_one_after_another();
}
