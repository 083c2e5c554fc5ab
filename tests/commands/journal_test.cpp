// vlogadmin and vlogstatus.
#include "tests/commands/fixture.h"

using velda::test::CommandTest;
using velda::test::Ran;

namespace {

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

class JournalCommands : public CommandTest {
  protected:
    std::string log() const {
        std::ifstream file(system_ / "config/vediLoggerAdminLog");
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void make_set(const std::string &set) {
        const Ran ran = velda({"vlogadmin", "set-file", set, "1", system_ / ("set" + set), "create"});
        ASSERT_EQ(ran.code, 0) << ran.output;
    }
};

}  // namespace

TEST_F(JournalCommands, AJournalIsSetUpSwitchedOnAndShown) {
    make_set("1");
    make_set("2");
    EXPECT_EQ(velda({"vlogadmin", "switch", "1"}).code, 0);
    EXPECT_EQ(velda({"vlogadmin", "status", "active"}).code, 0);
    const Ran status = velda({"vlogstatus"});
    EXPECT_EQ(status.code, 0);
    EXPECT_TRUE(contains(status.output, "Status                        active\n")) << status.output;
    EXPECT_TRUE(contains(status.output, "Current set                   1\n"));
    EXPECT_TRUE(contains(status.output, system_ / "set1"));
    EXPECT_EQ(velda({"vlogadmin", "switch", "next"}).code, 0);
    EXPECT_TRUE(contains(velda({"vlogstatus", "--json"}).output, "\"current_set\": 2,"));
    EXPECT_EQ(velda({"vlogadmin", "switch", "none"}).code, 0);
    EXPECT_TRUE(contains(velda({"vlogstatus", "--json"}).output, "\"status\": \"inactive\""));
}

TEST_F(JournalCommands, ARefusalHasItsReasonAndExitCodeOne) {
    const Ran ran = velda({"vlogadmin", "switch", "9"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_TRUE(contains(ran.output, "vlogadmin: Error! No files configured for set number 9\n")) << ran.output;
    EXPECT_TRUE(contains(ran.output, "switch failed")) << ran.output;
}

TEST_F(JournalCommands, WrongCallsHaveExitCodeTwo) {
    const std::vector<std::vector<std::string>> calls = {
        {"vlogadmin"},
        {"vlogadmin", "no-such"},
        {"vlogadmin", "switch"},
        {"vlogadmin", "switch", "x"},
        {"vlogadmin", "status", "maybe"},
        {"vlogadmin", "queue", "wrong", "n"},
        {"vlogadmin", "extended", "1"},
        {"vlogadmin", "sync", "10", "20"},
        {"vlogstatus", "x"},
        {"vlogstatus", "1", "2"},
        {"vlogstatus", "--json", "--metrics"},
    };
    for (const auto &call : calls) EXPECT_EQ(velda(call).code, 2) << call.back();
}

TEST_F(JournalCommands, EveryOperationIsInTheHelp) {
    const Ran help = velda({"vlogadmin", "--help"});
    EXPECT_EQ(help.code, 0);
    for (const char *word : {"create",      "status",   "switch",        "truncate",  "set-file",
                             "remove-file", "archive",  "import",        "sync",      "checkpoint",
                             "threshold",   "notify",   "extended",      "encrypted", "sync-transactions",
                             "queue",       "password", "test-password", "warn-full", "kill"})
        EXPECT_TRUE(contains(help.output, std::string("  ") + word + " ")) << word;
}

TEST_F(JournalCommands, SettingsReachTheAdministrationLog) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"sync", "20"}, "Sync count changed from every 10 seconds to every 20 seconds"},
        {{"checkpoint", "3"}, "Checkpoint count changed from every 10 minutes to every 3 minutes"},
        {{"threshold", "0", "5", "0"}, "set to 70 initial percentage\n     thereafter every additional 5 percent"},
        {{"extended", "on"}, "Extended Record Status now set to ON"},
        {{"encrypted", "off"}, "Encrypted Records Status now set to OFF"},
        {{"sync-transactions", "off"}, "Sync Transactions Status now set to OFF"},
        {{"notify", "true", "-x"}, "Admin. Log Notify Program now set to 'true -x'"},
        {{"notify"}, "Admin. Log Notify Program REMOVED"},
        {{"queue", "server-control", "Q"}, "MQ Server Control Queue now set to 'Q'"},
        {{"queue", "server-control"}, "MQ Server Control  Queue REMOVED"},
        {{"warn-full", "95"}, "severity 257: Journal Log Files now at 95 % capacity"},
        {{"remove-file", "3", "2"}, "File 2 for log set 3 REMOVED"},
    };
    for (auto [words, text] : cases) {
        words.insert(words.begin(), "vlogadmin");
        EXPECT_EQ(velda(words).code, 0) << words[1];
        EXPECT_TRUE(contains(log(), text)) << text << "\n" << log();
    }
}

TEST_F(JournalCommands, FilesAreTruncatedArchivedAndImported) {
    make_set("4");
    EXPECT_EQ(velda({"vlogadmin", "truncate", "4"}).code, 0);
    EXPECT_EQ(velda({"vlogadmin", "archive", "4", "1", system_ / "set4", "tape", "7"}).code, 0);
    EXPECT_TRUE(contains(velda({"vlogstatus", "4"}).output, "Archived to                   tape 7\n"));
    std::filesystem::copy_file(system_ / "set4", system_ / "copy");
    EXPECT_EQ(velda({"vlogadmin", "import", "5", system_ / "copy"}).code, 1) << "it holds no set's first block";
    EXPECT_EQ(velda({"vlogadmin", "import", "5", system_ / "absent"}).code, 1);
}

TEST_F(JournalCommands, ThePasswordIsAskedForAndTested) {
    EXPECT_EQ(velda({"vlogadmin", "password"}, "secret\n").code, 0);
    EXPECT_EQ(velda({"vlogadmin", "test-password"}, "secret\n").code, 0);
    const Ran wrong = velda({"vlogadmin", "test-password"}, "public\n");
    EXPECT_EQ(wrong.code, 1);
    EXPECT_TRUE(contains(wrong.output, "Please Enter Journal Password      ")) << wrong.output;
}

TEST_F(JournalCommands, AProcessThatIsNoDuplicatorIsNamed) {
    EXPECT_TRUE(contains(velda({"vlogadmin", "kill", "99999"}).output,
                         "Error! Process id 99999 is not an active vlogdup process\n"));
}

TEST_F(JournalCommands, WithoutAJournalTheStatusFails) {
    const Ran ran = velda({"vlogstatus"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_TRUE(contains(ran.output, "Error number 2 reading the logger configuration")) << ran.output;
    EXPECT_FALSE(std::filesystem::exists(system_ / "config")) << "a report makes nothing";
}

TEST_F(JournalCommands, ASetThatIsNoneFails) {
    EXPECT_EQ(velda({"vlogadmin", "create"}).code, 0);
    const Ran ran = velda({"vlogstatus", "17"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_TRUE(contains(ran.output, "Set number 17 is invalid (should be in range 1 to 16)")) << ran.output;
}

TEST_F(JournalCommands, TheReportForPeopleHasTimesSwitchesAndLimitsInWords) {
    make_set("1");
    const std::string report = velda({"vlogstatus", "1"}).output;
    EXPECT_TRUE(contains(report, "Sync at transaction ends      yes\n")) << report;
    EXPECT_TRUE(contains(report, "Enciphered records            no\n")) << report;
    EXPECT_TRUE(contains(report, " UTC   none\n")) << report;
}

TEST_F(JournalCommands, TheTimeSinceTheLastSyncIsKnownAfterOne) {
    make_set("1");
    ASSERT_EQ(velda({"vlogadmin", "switch", "1"}).code, 0);
    ASSERT_EQ(velda({"vlogadmin", "status", "active"}).code, 0);
    const std::string before = velda({"vlogstatus", "--metrics"}).output;
    EXPECT_TRUE(contains(before, "velda_journal_last_sync_seconds 0\n")) << before;
    EXPECT_FALSE(contains(before, "velda_journal_since_sync_seconds ")) << before;
    ASSERT_EQ(velda({"CREATE-FILE", "F"}).code, 0);  // its process syncs at its end: none was made yet
    const std::string behind = velda({"vlogstatus", "--metrics"}).output;
    EXPECT_FALSE(contains(behind, "velda_journal_last_sync_seconds 0\n")) << behind;
    EXPECT_TRUE(contains(behind, "velda_journal_since_sync_seconds ")) << behind;
}

TEST_F(JournalCommands, AFileThatCannotBeOpenedHasOnlyItsPath) {
    make_set("1");
    std::filesystem::remove(system_ / "set1");
    EXPECT_TRUE(contains(velda({"vlogstatus", "1"}).output, "\n" + (system_ / "set1") + "\n"))
        << velda({"vlogstatus", "1"}).output;
    EXPECT_TRUE(contains(velda({"vlogstatus", "1", "--json"}).output,
                         "\"percent_used\": null, \"created_time\": null, \"max_size\": null}"));
    EXPECT_FALSE(contains(velda({"vlogstatus", "--metrics"}).output, "file_used_percent{"));
}

TEST_F(JournalCommands, AnImportedSetCanBeReadInAJournalThatWasNeverWritten) {
    make_set("1");
    ASSERT_EQ(velda({"vlogadmin", "switch", "1"}).code, 0);
    ASSERT_EQ(velda({"vlogadmin", "status", "active"}).code, 0);
    ASSERT_EQ(velda({"CREATE-FILE", "F"}).code, 0);
    ASSERT_EQ(velda({"vlogadmin", "switch", "none"}).code, 0);
    const std::string dumped = velda({"vlogdump", "1"}).output;
    std::filesystem::remove_all(system_ / "config");
    ASSERT_EQ(velda({"vlogadmin", "import", "3", system_ / "set1"}).code, 0);
    EXPECT_TRUE(contains(dumped, " CREATEFILE "));
    EXPECT_EQ(velda({"vlogdump", "3"}).output, dumped);
    EXPECT_EQ(velda({"vlogverify", "3"}).code, 0);
}

TEST_F(JournalCommands, MetricsHaveHelpTypeAndSamples) {
    make_set("1");
    ASSERT_EQ(velda({"vlogadmin", "switch", "1"}).code, 0);
    const std::string metrics = velda({"vlogstatus", "--metrics"}).output;
    EXPECT_TRUE(contains(metrics, "# TYPE velda_journal_records gauge\nvelda_journal_records 0\n")) << metrics;
    EXPECT_TRUE(contains(metrics, "velda_journal_current_set 1\n"));
    EXPECT_TRUE(contains(metrics, "velda_journal_file_used_percent{file=\"" + (system_ / "set1") + "\"} "));
    EXPECT_TRUE(contains(metrics, "# TYPE velda_journal_duplicator_lag_records gauge\n"));
}
