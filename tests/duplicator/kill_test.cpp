// A replay that is killed at any instant and begun again: nothing is missing, and no transaction is half applied.
#include <signal.h>

#include <chrono>
#include <map>
#include <random>

#include "journal/journal.h"
#include "tests/duplicator/replay_fixture.h"
#include "tests/support/seed.h"

namespace {

using namespace velda;
using namespace velda::journal;
using namespace velda::test;

constexpr int Pairs = 12;  // keys that every transaction writes alike in both files

class Kill : public ReplayTest {
  protected:
    Kill()
        : left(make_file("LEFT", "HL", "DURABILITY=LAZY")),
          right(make_file("RIGHT", "HL", "DURABILITY=LAZY")),
          directory(make_file("PLAIN", "UD", "DURABILITY=LAZY")) {}

    // Transactions of several processes, interleaved, one of them aborted now and then, and updates outside of them.
    void fill_set(std::mt19937_64 &random, int steps) {
        SetBuilder set({path("set-a"), path("set-b"), path("set-c")}, 1000000);
        std::map<std::uint32_t, std::vector<std::pair<std::string, std::string>>> open;
        for (int step = 0; step < steps; ++step) {
            const std::uint32_t pid = 1 + static_cast<std::uint32_t>(random() % 4);
            const std::string key = "K" + std::to_string(random() % Pairs), data = std::to_string(step);
            if (random() % 3 == 0) {
                set.add(by(99, write_record(left, "P" + key, data)));
                model[left]["P" + key] = data;
            } else if (!open.contains(pid)) {
                set.add(begin(pid));
                open[pid];
            } else if (open[pid].size() < 3) {
                set.add(inside(pid, write_record(left, key, data)));
                set.add(inside(pid, write_record(right, key, data)));
                set.add(inside(pid, write_record(directory, key, data, VEDI_BINARY)));
                open[pid].emplace_back(key, data);
            } else {
                const bool is_aborted = random() % 5 == 0;
                set.add(is_aborted ? abort(pid) : end(pid));
                if (!is_aborted)
                    for (const auto &[held_key, held_data] : open[pid])
                        for (const std::string &file : {left, right, directory}) model[file][held_key] = held_data;
                open.erase(pid);
            }
        }
        set.write();
        VELDALoggerConfig &config = *VediLoggerInit(dp, 1);
        set.configure(config);
        config.currentSet = 1;
    }

    // A process of its own that replays the set.
    static pid_t start_replay(bool exclusive) {
        const pid_t child = fork();
        if (child != 0) return child;
        std::freopen("/dev/null", "w", stderr);
        bool is_exclusive = exclusive;
        _exit(velda_run(
            velda_getdp(), "vlogdup",
            [](DP *session, void *argument) {
                DupContext &run = start_dup_context(session);
                run.exclusive = *static_cast<bool *>(argument);
                run.input = VELDALoggerSelectStart(session, "set=1 terminate=eos", 0, nullptr);
                run.output = VELDALoggerSelectStart(session, "set=database", 1, nullptr);
                run.slot = VELDALoggerStatusAllocate(session);
                DupExit(session, run_duplicator(session));
            },
            &is_exclusive));
    }

    static int wait_for(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    // The first thing that a new process finds wrong with the pairs; "" when all is well. Each is read under its locks,
    // as by a program of the database.
    std::string fault_of_pairs() {
        int channel[2];
        EXPECT_EQ(pipe(channel), 0);
        const pid_t child = fork();
        if (child == 0) {
            std::string fault;
            DP *const session = velda_getdp();
            (void)session;
            File files[3];
            const std::string *const names[] = {&left, &right, &directory};
            for (int i = 0; i < 3; ++i) files[i].open(*names[i]);
            files[2].set_mode("RB,WB");
            for (int number = 0; number < Pairs && fault.empty(); ++number) {
                const std::string key = "K" + std::to_string(number);
                std::string found[3];
                for (int i = 0; i < 3; ++i) found[i] = files[i].read_locked(key).record.str();
                for (File &file : files) file.release(key);
                if (found[0] != found[1] || found[0] != found[2])
                    fault = key + ": '" + found[0] + "' '" + found[1] + "' '" + found[2] + "'";
            }
            if (write(channel[1], fault.data(), fault.size()) < 0) _exit(1);
            _exit(0);
        }
        close(channel[1]);
        char text[200];
        const ssize_t size = ::read(channel[0], text, sizeof text);
        close(channel[0]);
        EXPECT_EQ(wait_for(child), 0);
        return {text, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }

    void expect_database_of_model() {
        for (const auto &[file, records] : model)
            for (const auto &[key, data] : records) EXPECT_EQ(read(file, key), data) << file << " " << key;
    }

    const std::string left, right, directory;
    std::map<std::string, std::map<std::string, std::string>> model;
};

TEST_F(Kill, NoTransactionIsHalfAppliedAndARestartCompletesTheDatabase) {
    std::mt19937_64 random = seeded_random();
    fill_set(random, 900);
    const auto begin_time = std::chrono::steady_clock::now();
    EXPECT_EQ(wait_for(start_replay(false)), 0);
    const auto whole =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin_time);
    const auto longest = static_cast<std::uint32_t>(std::min<std::int64_t>(whole.count() * 4 / 5, 40000));
    int killed = 0;
    for (int round = 0; killed < 200 && round < 600; ++round) {
        const pid_t child = start_replay(round % 2 == 1);
        usleep(static_cast<useconds_t>(random() % longest));
        kill(child, SIGKILL);
        killed += wait_for(child) == -SIGKILL;
        if (round % 4 == 3) {
            const std::string fault = fault_of_pairs();
            ASSERT_EQ(fault, "") << "after round " << round;
        }
    }
    EXPECT_EQ(killed, 200);
    EXPECT_EQ(wait_for(start_replay(false)), 0);
    EXPECT_EQ(fault_of_pairs(), "");
    expect_database_of_model();
}

}  // namespace
