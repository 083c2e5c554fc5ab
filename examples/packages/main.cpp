// packages - Debian's package lists in a multi-value database file.
//
//   packages load FILE LIST ...    LIST is a package list such as /var/lib/dpkg/status, or - for standard input
//   packages compare FILE OTHER    compares two files record by record
//   packages fight FILE KEY        lets two processes fight over the lock of a record
//   packages update FILE NAME SECONDS    updates, adds and deletes records, some in transactions
#include "actions.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr char Usage[] =
    "usage: packages load FILE LIST ...\n"
    "       packages compare FILE OTHER\n"
    "       packages fight FILE KEY\n"
    "       packages update FILE NAME SECONDS\n";

struct Request {
    std::vector<std::string> words;
};

int run(DP *dp, const std::vector<std::string> &words) {
    if (words.size() >= 3 && words[0] == "load") return load(dp, words[1], {words.begin() + 2, words.end()});
    if (words.size() == 3 && words[0] == "compare") return compare(dp, words[1], words[2]);
    if (words.size() == 3 && words[0] == "fight") return fight(dp, words[1], words[2]);
    if (words.size() == 4 && words[0] == "update") return update(dp, words[1], words[2], std::atof(words[3].c_str()));
    std::fputs(Usage, stderr);
    return 2;
}

void body(DP *dp, void *request) {
    if (const int code = run(dp, static_cast<Request *>(request)->words)) velda::exit_command(code);
}

}  // namespace

void open_or_stop(VAR &file, const std::string &name) {
    const VAR wanted = name;
    if (VLibFNEWOPEN_IIBBBB(velda_getdp(), 0, nullptr, &wanted, &file, nullptr) != 1) velda::stop("201", wanted);
}

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string rate(std::uint64_t count, const char *things, double seconds) {
    char text[128];
    std::snprintf(text, sizeof text, "%llu %s in %.2f s, %.0f/s", static_cast<unsigned long long>(count), things,
                  seconds, static_cast<double>(count) / seconds);
    return text;
}

int main(int argc, char **argv) {
    Request request{{argv + 1, argv + argc}};
    return velda_run(velda_getdp(), "packages", body, &request);
}
