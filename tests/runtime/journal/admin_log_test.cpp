// The administration log and its notify program.
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <regex>
#include <thread>
#include <vector>

#include "tests/runtime/journal/fixture.h"

using velda::test::JournalTest;

namespace {

class AdminLog : public JournalTest {
  protected:
    AdminLog() { config = mapped(); }

    // Waits until a file has some content.
    static std::string eventual_content(const std::string &path) {
        for (int n = 0; n < 1000 && content(path).empty(); ++n)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return content(path);
    }
    void notify(const std::string &command) { std::strncpy(config->adminLogNotifyProgram, command.c_str(), 191); }

    VELDALoggerConfig *config;
};

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::size_t at = 0;
    for (std::size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(text.substr(at, end - at));
    return lines;
}

}  // namespace

TEST_F(AdminLog, AnEntryHasTimePortProcessSeverityAndText) {
    VediLoggerError(dp, 257, "Journal Log Files now at %d %% capacity", 81);
    const std::regex expected("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ port \\d+ pid " + std::to_string(getpid()) +
                              " severity 257: Journal Log Files now at 81 % capacity\n");
    EXPECT_TRUE(std::regex_match(content(log_path()), expected)) << content(log_path());
}

TEST_F(AdminLog, ALineFeedAtTheEndIsDropped) {
    VediLoggerError(dp, 0, "done\n");
    EXPECT_TRUE(content(log_path()).ends_with("severity 0: done\n"));
}

TEST_F(AdminLog, ATextCannotForgeAnEntry) {
    VediLoggerError(dp, 0, "one\ntwo\n     three");
    EXPECT_TRUE(content(log_path()).ends_with("severity 0: one\n     two\n     three\n"));
}

TEST_F(AdminLog, EntriesAreAppended) {
    VediLoggerError(dp, 0, "first");
    VediLoggerError(dp, 0, "second");
    EXPECT_EQ(lines_of(content(log_path())).size(), 2u);
}

TEST_F(AdminLog, EntriesOfManyProcessesStayWhole) {
    constexpr int Processes = 4, Entries = 200;
    const std::string text(300, 'x');
    pid_t children[Processes];
    for (pid_t &child : children) {
        child = fork();
        if (child != 0) continue;
        for (int n = 0; n < Entries; ++n) VediLoggerError(velda_getdp(), 0, "%s", text.c_str());
        _exit(0);
    }
    for (const pid_t child : children) waitpid(child, nullptr, 0);
    const auto lines = lines_of(content(log_path()));
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(Processes * Entries));
    for (const auto &line : lines) ASSERT_TRUE(line.ends_with("severity 0: " + text)) << line;
}

TEST_F(AdminLog, TheErrorNumberStaysAsItWas) {
    config->adminLogPath[0] = 0;
    errno = 17;
    VediLoggerError(dp, 0, "text");
    EXPECT_EQ(errno, 17);
}

TEST_F(AdminLog, AnEntryThatCannotBeWrittenGoesToTheSystemLog) {
    std::strncpy(config->adminLogPath, (system_ / "absent/log").c_str(), 191);
    VediLoggerError(dp, 2, "lost?");
    EXPECT_NE(content(system_ / "log/system.log").find("severity 2: lost?"), std::string::npos);
}

TEST_F(AdminLog, ALogThatNobodyReadsDoesNotBlock) {
    const std::string pipe_path = system_ / "pipe";
    ASSERT_EQ(mkfifo(pipe_path.c_str(), 0600), 0);
    std::strncpy(config->adminLogPath, pipe_path.c_str(), 191);
    VediLoggerError(dp, 2, "nobody reads");
    EXPECT_NE(content(system_ / "log/system.log").find("nobody reads"), std::string::npos);
}

TEST_F(AdminLog, WithoutAJournalAnEntryGoesToTheSystemLog) {
    std::filesystem::remove_all(system_ / "config");
    VediLoggerError(velda::test::ScratchSession(), 0, "no journal");
    EXPECT_NE(content(system_ / "log/system.log").find("no journal"), std::string::npos);
}

TEST_F(AdminLog, TheNotifyProgramGetsSeverityAndEntry) {
    const std::string told = system_ / "told";
    notify("f() { printf '%s|%s' \"$1\" \"$2\" >'" + told + ".new'; mv '" + told + ".new' '" + told + "'; }; f");
    VediLoggerError(dp, 257, "it's \"full\" $(now)");
    const std::string words = eventual_content(told);
    EXPECT_TRUE(words.starts_with("257|")) << words;
    EXPECT_TRUE(words.ends_with("severity 257: it's \"full\" $(now)")) << words;
}

TEST_F(AdminLog, TheNotifyProgramIsNotWaitedFor) {
    const std::string told = system_ / "told";
    notify("sleep 2; echo done >'" + told + "'; :");
    const auto start = std::chrono::steady_clock::now();
    VediLoggerError(dp, 0, "text");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1500));
    EXPECT_FALSE(std::filesystem::exists(told));
}

TEST_F(AdminLog, ANotifyProgramThatDoesNotExistLosesNoEntry) {
    notify("/no/such/program");
    VediLoggerError(dp, 0, "kept");
    EXPECT_TRUE(content(log_path()).ends_with("kept\n"));
}

TEST_F(AdminLog, EndedNotifyProgramsDoNotPileUp) {
    notify("true");
    for (int n = 0; n < 20; ++n) {
        VediLoggerError(dp, 0, "entry");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    int ended = 0;
    siginfo_t state{};
    while (waitid(P_ALL, 0, &state, WEXITED | WNOHANG) == 0 && state.si_pid != 0) ++ended, state = {};
    EXPECT_LE(ended, 3);
}
