// interleaving.h - scripted interleavings of sessions. A script is a row of steps with "|" between:
//
//   one: lock K | two: lock K -> waits | one: release K | two: granted
//
// Each name is a session of its own: a forked process, or a thread with its own context when the name begins with
// "thread". It gets its commands through a pipe and answers through another. A step is a command with the answer
// expected after "->" (without one the command must succeed), or just the answer that an earlier "waits" comes to:
// "granted", or "answers" and any other text. A fixture says what the commands do by its perform().
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "runtime/lock/record_lock.h"
#include "runtime/process/context.h"
#include "runtime/process/interrupt.h"
#include "tests/support/scratch.h"

namespace velda::test {

class Actor {
  public:
    // Carries out one command in the session of `dp`; its answer is one line.
    using Perform = std::function<std::string(DP *dp, const std::string &command)>;

    Actor(bool in_thread, Perform perform) : perform_(std::move(perform)) {
        if (pipe(commands_) != 0 || pipe(answers_) != 0) throw std::runtime_error("pipe");
        if (in_thread) {
            thread_ = std::thread([this] { serve(); });
            return;
        }
        pid_ = fork();
        if (pid_ == 0) {
            close(commands_[1]);
            install_signal_handlers();
            serve();
            _exit(0);
        }
    }
    ~Actor() {
        if (pid_ > 0) kill_it();
        close(commands_[1]);
        if (thread_.joinable()) thread_.join();
        close(commands_[0]);
        close(answers_[0]);
        close(answers_[1]);
    }

    void send(const std::string &command) {
        const std::string line = command + "\n";
        ASSERT_EQ(write(commands_[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
    }
    // The next answer, "" when none comes in time.
    std::string answer(std::chrono::milliseconds limit) {
        std::string line;
        pollfd poller{answers_[0], POLLIN, 0};
        for (char byte = 0;;) {
            if (poll(&poller, 1, static_cast<int>(limit.count())) <= 0) return line;
            if (read(answers_[0], &byte, 1) != 1 || byte == '\n') return line;
            line += byte;
        }
    }
    void signal(int number) const { ::kill(pid_, number); }
    void kill_it() {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    pid_t pid() const { return pid_; }

  private:
    // One session: its context lives as long as it is commanded.
    void serve() {
        DP dp;
        std::string command;
        for (char byte = 0; read(commands_[0], &byte, 1) == 1;) {
            if (byte != '\n') {
                command += byte;
                continue;
            }
            if (command == "end") return;
            const std::string line = perform_(&dp, command) + "\n";
            if (write(answers_[1], line.data(), line.size()) < 0) return;
            command.clear();
        }
    }

    Perform perform_;
    int commands_[2] = {};
    int answers_[2] = {};
    pid_t pid_ = -1;
    std::thread thread_;
};

class Interleaving : public testing::Test {
  protected:
    static constexpr std::chrono::seconds Patience{5};

    virtual std::string perform(DP *dp, const std::string &command) = 0;

    void run(const std::string &script) {
        std::istringstream steps(script);
        for (std::string step; std::getline(steps, step, '|') && !HasFatalFailure();) {
            SCOPED_TRACE("step '" + trimmed(step) + "'");
            run_step(trimmed(step));
        }
    }

    Actor &actor(const std::string &name) {
        auto &found = actors_[name];
        if (!found)
            found = std::make_unique<Actor>(name.starts_with("thread"), [this](DP *dp, const std::string &command) {
                return perform(dp, command);
            });
        return *found;
    }

    // How many sessions wait in some queue now.
    static std::size_t waiting_sessions() {
        const auto owners = all_lock_owners();
        return owners ? std::count_if(owners->begin(), owners->end(), [](const LockOwnerInfo &o) { return o.waits; })
                      : 0;
    }

    ScratchSystem system_;

  private:
    static std::string trimmed(const std::string &text) {
        const auto first = text.find_first_not_of(' ');
        return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
    }

    void run_step(const std::string &step) {
        const auto colon = step.find(": ");
        const std::string name = step.substr(0, colon);
        const std::string text = step.substr(colon + 2);
        if (text == "granted" || text == "interrupted" || text == "busy") {
            EXPECT_EQ(actor(name).answer(Patience), text);
        } else if (text.starts_with("answers ")) {
            EXPECT_EQ(actor(name).answer(Patience), text.substr(std::string("answers ").size()));
        } else if (text == "still waits") {
            EXPECT_EQ(actor(name).answer(std::chrono::milliseconds(30)), "");
        } else if (text == "killed") {
            actor(name).kill_it();
        } else if (text == "break key") {
            actor(name).signal(SIGINT);
        } else {
            run_command(name, text);
        }
    }

    void run_command(const std::string &name, const std::string &text) {
        const auto arrow = text.find(" -> ");
        const std::string expected = arrow == std::string::npos ? "" : text.substr(arrow + 4);
        const std::size_t waiting = waiting_sessions();
        actor(name).send(text.substr(0, arrow));
        if (expected == "waits") return expect_one_more_waits(waiting);
        const std::string answer = actor(name).answer(Patience);
        if (!expected.empty())
            EXPECT_EQ(answer, expected);
        else
            EXPECT_TRUE(answer == "granted" || answer == "released" || answer == "yes" || answer == "done") << answer;
    }

    static void expect_one_more_waits(std::size_t before) {
        const auto end = std::chrono::steady_clock::now() + Patience;
        while (waiting_sessions() != before + 1 && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(waiting_sessions(), before + 1);
    }

    std::map<std::string, std::unique_ptr<Actor>> actors_;
};

}  // namespace velda::test
