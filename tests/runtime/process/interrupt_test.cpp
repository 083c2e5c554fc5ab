#include "runtime/process/interrupt.h"

#include <chrono>
#include <csignal>
#include <thread>

#include "runtime/process/command_table.h"
#include "runtime/process/stop.h"
#include "runtime/terminal/terminal.h"
#include "tests/runtime/process/command_fixture.h"

using velda::test::CommandTest;
using velda::test::status_of_child;

namespace {

using Clock = std::chrono::steady_clock;

int traps_run = 0;
std::vector<std::string> handlers_run;

void count_trap(DP *, void *argument) { traps_run += *static_cast<int *>(argument); }

class Interrupts : public CommandTest {
  protected:
    void SetUp() override {
        traps_run = 0;
        handlers_run.clear();
        velda::install_signal_handlers();
        velda::discard_interrupts(dp);
    }
};

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

}  // namespace

VBC_SUBROUTINE(TestInterruptHandler, code) { handlers_run.push_back(code.str()); }

TEST_F(Interrupts, NothingIsPendingAtFirst) {
    EXPECT_FALSE(velda::interrupt_pending(dp));
    EXPECT_EQ(VLibSignalTest(dp), 0);
}

TEST_F(Interrupts, TheBreakKeyEndsTheCommandWithAMessage) {
    int code = 0;
    const std::string output = printed_by(
        [&] {
            velda::call_on_exit("TestInterruptHandler");
            raise(SIGINT);
            EXPECT_TRUE(velda::interrupt_pending(dp));
            VLibSignalTest(dp);
            ADD_FAILURE() << "the command went on";
        },
        &code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(output, "Interrupted\n");
    EXPECT_EQ(handlers_run, std::vector<std::string>{"1"});
    EXPECT_FALSE(velda::interrupt_pending(dp));
}

TEST_F(Interrupts, ATrapRunsInsteadAndTheCommandGoesOn) {
    int step = 1;
    EXPECT_EQ(run([&] {
                  EXPECT_EQ(VLibSignalTrap(dp, count_trap, &step), nullptr);
                  raise(SIGINT);
                  EXPECT_EQ(VLibSignalTest(dp), 1);
                  EXPECT_EQ(VLibSignalTest(dp), 0);
                  EXPECT_EQ(VLibSignalTrap(dp, nullptr, nullptr), count_trap);
              }),
              0);
    EXPECT_EQ(traps_run, 1);
}

TEST_F(Interrupts, ATrapEndsWithItsCommand) {
    int step = 1;
    run([&] {
        run([&] { VLibSignalTrap(dp, count_trap, &step); });
        raise(SIGINT);
        EXPECT_EQ(run([&] { VLibSignalTest(dp); }), 1);
    });
    EXPECT_EQ(traps_run, 0);
}

TEST_F(Interrupts, ADisabledBreakKeyHasNoEffectThenOrLater) {
    EXPECT_EQ(run([&] {
                  VLibFBREAKKEY_VF(dp, 0.0);
                  raise(SIGINT);
                  EXPECT_FALSE(velda::interrupt_pending(dp));
                  VLibFBREAKKEY_VF(dp, 1.0);
                  EXPECT_FALSE(velda::interrupt_pending(dp));
                  raise(SIGINT);
                  EXPECT_TRUE(velda::interrupt_pending(dp));
                  velda::discard_interrupts(dp);
              }),
              0);
}

TEST_F(Interrupts, ABreakKeyPressedJustBeforeItIsEnabledAgainIsForgotten) {
    velda::enable_break_key(dp, false);
    raise(SIGINT);
    velda::enable_break_key(dp, true);
    EXPECT_FALSE(velda::interrupt_pending(dp));
}

TEST_F(Interrupts, ACommandThatLeavesTheBreakKeyOffDoesNotDisableTheCallers) {
    run([&] { VLibFBREAKKEY_VF(dp, 0.0); });
    EXPECT_TRUE(velda::break_key_enabled(dp));
}

TEST_F(Interrupts, AnInterruptMovesTheEventCounter) {
    const auto before = dp->event_counter.load();
    raise(SIGINT);
    velda::interrupt_pending(dp);
    EXPECT_NE(dp->event_counter.load(), before);
    velda::discard_interrupts(dp);
}

TEST_F(Interrupts, AnotherThreadCanInterruptAContext) {
    std::thread([this] { velda::raise_interrupt(dp); }).join();
    EXPECT_TRUE(velda::interrupt_pending(dp));
    EXPECT_EQ(run([&] { VLibSignalTest(dp); }), 1);
}

TEST_F(Interrupts, AnInterruptOfOneContextIsNotAnothers) {
    DP *other = velda_new_context();
    velda::raise_interrupt(other);
    EXPECT_FALSE(velda::interrupt_pending(dp));
    EXPECT_TRUE(velda::interrupt_pending(other));
    velda_free_context(other);
}

TEST_F(Interrupts, TheBreakKeyEndsASleep) {
    const auto start = Clock::now();
    std::thread presser([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        kill(getpid(), SIGINT);
    });
    EXPECT_EQ(run([] { velda::sleep_seconds(10); }), 1);
    presser.join();
    EXPECT_LT(seconds_since(start), 3);
}

TEST_F(Interrupts, ASleepThatATrapEndsGivesTheSecondsLeft) {
    int step = 1;
    run([&] {
        VLibSignalTrap(dp, count_trap, &step);
        raise(SIGINT);
        EXPECT_EQ(VLibESLEEP_II(dp, 10), 10);
    });
    EXPECT_EQ(traps_run, 1);
}

TEST_F(Interrupts, ASleepLastsAsLongAsAsked) {
    auto start = Clock::now();
    velda::sleep_seconds(0.15);
    EXPECT_GE(seconds_since(start), 0.15);
    start = Clock::now();
    const VAR milliseconds(120);
    VLibEMSLEEP_VB(dp, &milliseconds);
    EXPECT_GE(seconds_since(start), 0.12);
    EXPECT_EQ(VLibESLEEP_II(dp, 0), 0);
    velda::sleep_seconds(-5);
    EXPECT_LT(seconds_since(start), 3);
}

// --- the end of the session: in a child, since it ends the whole process -------------------------------------------

TEST_F(Interrupts, TerminationEndsTheSessionInOrder) {
    const int status = status_of_child([] {
        DP *own = velda_getdp();
        std::function<void()> outer = [own] {
            velda::call_on_exit("TestInterruptHandler");
            constexpr static velda::Command Inner[] = {{"TEST-TERMINATED", [](DP *) {
                                                            velda::call_on_exit("TestInterruptHandler");
                                                            raise(SIGTERM);
                                                            velda::sleep_seconds(10);
                                                        }}};
            velda::register_commands(Inner);
            velda::execute("TEST-TERMINATED");
            _exit(1);  // the executing command must not go on
        };
        const int code = velda_run(own, "OUTER", velda::test::call_body, &outer);
        if (handlers_run != std::vector<std::string>{"143", "143"}) _exit(2);
        _exit(code == 143 ? 77 : 3);
    });
    EXPECT_EQ(WEXITSTATUS(status), 77);
}

TEST_F(Interrupts, TerminationIsNotHeldBackByADisabledBreakKey) {
    const int status = status_of_child([] {
        DP *own = velda_getdp();
        std::function<void()> body = [own] {
            VLibFBREAKKEY_VF(own, 0.0);
            raise(SIGHUP);
            VLibSignalTest(own);
        };
        _exit(velda_run(own, "HANGUP", velda::test::call_body, &body));
    });
    EXPECT_EQ(WEXITSTATUS(status), 129);
}

TEST_F(Interrupts, ASecondTerminationKillsAProcessThatDoesNotListen) {
    const int status = status_of_child([] {
        std::function<void()> body = [] {
            raise(SIGTERM);
            raise(SIGTERM);
        };
        velda_run(velda_getdp(), "BUSY", velda::test::call_body, &body);
    });
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST_F(Interrupts, ASignalThatTheHostIgnoresStaysIgnored) {
    const std::string self = "/proc/" + std::to_string(getpid()) + "/exe";
    EXPECT_EQ(WEXITSTATUS(std::system((self + " --helper hangup").c_str())), 128 + SIGHUP);
    EXPECT_EQ(WEXITSTATUS(std::system(("trap '' HUP; " + self + " --helper hangup").c_str())), 0);
}

TEST_F(Interrupts, TerminationIsPassedOnToARunningProgram) {
    const auto start = Clock::now();
    const int status = status_of_child([] {
        DP *own = velda_getdp();
        std::thread([parent = getpid()] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            kill(parent, SIGTERM);
        }).detach();
        std::function<void()> body = [] { velda::execute("sleep 20"); };
        _exit(velda_run(own, "WAITING", velda::test::call_body, &body));
    });
    EXPECT_EQ(WEXITSTATUS(status), 143);
    EXPECT_LT(seconds_since(start), 10);
}

TEST_F(Interrupts, ABreakKeyThatAProgramHasDealtWithIsForgotten) {
    EXPECT_EQ(run([this] {
                  VAR captured;
                  // The terminal sends the break key to both: here both are sent one by hand.
                  velda::execute("\xFFktrap '' INT; kill -INT $PPID $$; sleep 0.3; echo done", nullptr, &captured);
                  EXPECT_EQ(captured.view(), "done");
                  EXPECT_FALSE(velda::interrupt_pending(dp));
              }),
              0);
}

TEST_F(Interrupts, ABreakKeyThatKilledTheProgramInterruptsItsCaller) {
    // Sent by another process, so it is passed on to the program.
    std::thread sender([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        kill(getpid(), SIGINT);
    });
    EXPECT_EQ(run([this] {
                  EXPECT_EQ(velda::execute("sleep 20"), 128 + SIGINT);
                  EXPECT_TRUE(velda::interrupt_pending(dp));
                  VLibSignalTest(dp);
              }),
              1);
    sender.join();
}
