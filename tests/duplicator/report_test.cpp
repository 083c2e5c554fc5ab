// Reports, their limit, the error file, and the end of a run.
#include <utility>

#include "journal/journal.h"
#include "tests/duplicator/replay_fixture.h"

namespace {

using namespace velda;
using namespace velda::journal;
using namespace velda::test;

class Report : public ReplayTest {
  protected:
    int report(const LogSelect *definition, Severity severity, const std::string &message) {
        return run([&] { DupReport(dp, definition, nullptr, severity, "%s", message.c_str()); });
    }
};

constexpr const char *Moment = R"(\d\d:\d\d:\d\d \d\d [A-Z]{3} \d{4} : )";

TEST_F(Report, ALineHasTimeDateSeverityAndMessage) {
    report(nullptr, Severity::Status, "all well");
    EXPECT_TRUE(std::regex_match(said, std::regex(std::string(Moment) + "STATUS: \n    all well\n"))) << said;
    report(nullptr, Severity::Warning, "look");
    EXPECT_TRUE(std::regex_match(said, std::regex(std::string(Moment) + "WARNING: \n    look\n"))) << said;
    report(nullptr, Severity::Error, "bad");
    EXPECT_TRUE(std::regex_match(said, std::regex(std::string(Moment) + "ERROR: \n    bad\n"))) << said;
}

TEST_F(Report, ADefinitionIsNamed) {
    report(&in_, Severity::Error, "bad");
    EXPECT_TRUE(std::regex_match(said, std::regex(std::string(Moment) + "ERROR:  For definition set=1\n    bad\n")))
        << said;
}

TEST_F(Report, MarksAreShownAsCharacters) {
    report(nullptr, Severity::Status,
           "a\xFC"
           "b\xFD"
           "c\xFE"
           "d\xFF"
           "e");
    EXPECT_NE(said.find("    a\\b]c^d_e\n"), std::string::npos) << said;
}

TEST_F(Report, AnUnfinishedLineOfMarksIsEndedFirst) {
    context.starsPending = 1;
    report(nullptr, Severity::Status, "x");
    EXPECT_EQ(said.front(), '\n');
    report(nullptr, Severity::Status, "x");
    EXPECT_NE(said.front(), '\n');
}

TEST_F(Report, ALineGoesToTheLogFileToo) {
    context.logFile = VRunFileIOOpen(dp, path("log.txt").c_str(),
                                     VELDA_OPEN_READ_WRITE | VELDA_OPEN_CREATE | VELDA_OPEN_TRUNCATE, 0666);
    report(nullptr, Severity::Status, "one");
    std::string both = said;
    report(nullptr, Severity::Status, "two");
    both += said;
    EXPECT_EQ(content(path("log.txt")), both);
    VRunFileIOClose(dp, std::exchange(context.logFile, nullptr));
}

TEST_F(Report, ErrorsAreCountedAtTheSideTheyBelongTo) {
    report(&in_, Severity::Error, "x");
    report(&out_, Severity::Error, "x");
    report(&out_, Severity::Error, "x");
    report(nullptr, Severity::Error, "x");
    report(&out_, Severity::Warning, "x");
    EXPECT_EQ(context.slot->inputErrors, 1u);
    EXPECT_EQ(context.slot->outputErrors, 2u);
    EXPECT_EQ(context.errorCount, 4u);
}

TEST_F(Report, TheLastErrorIsKeptOnOneLineForThoseWhoWatch) {
    report(&out_, Severity::Error, "one\n    and\xFEtwo\n");
    report(&out_, Severity::Warning, "a warning");
    EXPECT_STREQ(context.watch->lastError, "one    and^two");
    EXPECT_NE(context.watch->lastErrorTime, 0);
    report(nullptr, Severity::Error, std::string(1000, 'x'));
    EXPECT_EQ(std::string(context.watch->lastError), std::string(231, 'x'));
}

TEST_F(Report, AnOperatorsOrderIsNoticedAtAReport) {
    context.slot->killerPid = context.slot->killerPort = 1;
    EXPECT_EQ(report(nullptr, Severity::Status, "x"), 5);
}

// --- the limit ---

TEST_F(Report, WithALimitOfOneTheSecondErrorEndsTheRunWithFour) {
    context.maxErrors = 1;
    EXPECT_EQ(report(&out_, Severity::Error, "first"), 0);
    EXPECT_EQ(report(&out_, Severity::Error, "second"), 4);
    EXPECT_EQ(reported().substr(0, 72), "ERROR:second|ERROR:Aborting -- exceeded the maximum of 1 errors");
}

TEST_F(Report, TheLimitIsTenThousandUnlessGiven) { EXPECT_EQ(context.maxErrors, 10000u); }

TEST_F(Report, WarningsDoNotCountTowardsTheLimit) {
    context.maxErrors = 0;
    EXPECT_EQ(report(&out_, Severity::Warning, "x"), 0);
    EXPECT_EQ(report(&out_, Severity::Error, "x"), 4);
}

TEST_F(Report, ReplayStopsAtTheLimit) {
    const std::string file = make_file("ORDERS");
    context.maxErrors = 2;
    int code = 0;
    for (int i = 0; i < 3; ++i) code = apply(write_record(path("NOWHERE"), "1", "x"));
    EXPECT_EQ(code, 4);
}

// --- the error file ---

class ErrorFile : public ReplayTest {
  protected:
    ErrorFile() : error_path(make_file("ERRORS")) {
        context.errorFile = std::make_unique<VAR>();
        context.errorFileName = error_path;
        FileWords words(*context.errorFile);
        EXPECT_TRUE(words.open(error_path));
    }
    const std::string error_path;
};

TEST_F(ErrorFile, AFailedUpdateIsKeptUnderItsRecordsKeyWithTheMessage) {
    BuiltRecord record = write_record(path("NOWHERE"), "K1", "data");
    record.time = 1234567;
    apply(record);
    const VAR kept(read(error_path, "0*1*3660*1234567"));
    EXPECT_EQ(kept(5).str(), "WRITE");
    EXPECT_EQ(kept(6).str(), "1234567");
    EXPECT_EQ(kept(11).str(), "Unable to open file '" + path("NOWHERE") + "' , error value 2");
    EXPECT_EQ(kept(21).str(), path("NOWHERE"));
    EXPECT_EQ(kept(22).str(), "K1");
}

TEST_F(ErrorFile, WarningsAndErrorsOfTheInputAreNotKept) {
    run([&] {
        const std::string bytes = bytes_of(write_record("F", "K", "x"));
        const auto *const record = reinterpret_cast<const unsigned char *>(bytes.data());
        DupReport(dp, &in_, record, Severity::Error, "of the input");
        DupReport(dp, &out_, record, Severity::Warning, "a warning");
        DupReport(dp, &out_, nullptr, Severity::Error, "without record");
    });
    File file;
    ASSERT_TRUE(file.open(error_path));
    EXPECT_EQ(file.status()(VELDA_STATUS_RECORDS).str(), "0");
}

TEST_F(ErrorFile, OnlyARunIntoTheDatabaseKeepsUpdates) {
    out_.deviceType = Serial;
    run([&] {
        const std::string bytes = bytes_of(write_record("F", "K", "x"));
        DupReport(dp, &out_, reinterpret_cast<const unsigned char *>(bytes.data()), Severity::Error, "x");
    });
    File file;
    ASSERT_TRUE(file.open(error_path));
    EXPECT_EQ(file.status()(VELDA_STATUS_RECORDS).str(), "0");
}

// --- the end ---

class Exit : public ReplayTest {
  protected:
    int exit_with(int code) {
        return run([&] { DupExit(dp, code); });
    }
};

TEST_F(Exit, TheCodeIsTheCommands) { EXPECT_EQ(exit_with(9), 9); }

TEST_F(Exit, StatisticsAreReportedWhenBothSpecificationsWereReached) {
    context.initialised = 1;
    context.terminationReason = 0x00040402;
    DupStatusSlot &slot = *context.slot;
    slot.inputRecords = 11, slot.inputBlocks = 12, slot.inputBytes = 13, slot.inputErrors = 14;
    slot.outputRecords = 21, slot.outputBlocks = 22, slot.outputBytes = 23, slot.outputErrors = 24;
    exit_with(3);
    const std::regex expected(
        std::string(Moment) +
        R"(STATUS: \n    Termination Statistics: usr \d+\.\d\d , sys \d+\.\d\d , elapsed 0m\d+\.\d\d\n)"
        R"(    INPUT : 11 records , 12 blocks , 13 record bytes , 14 errors\n)"
        "    OUTPUT: 21 records , 22 blocks , 23\tbytes ,\t24 errors\n" +
        Moment + R"(STATUS: \n    Program terminated\. Exit code is 3, Exit Termination Reason = 0x00040402\n)");
    EXPECT_TRUE(std::regex_match(said, expected)) << said;
}

TEST_F(Exit, NothingIsReportedBeforeTheSpecifications) {
    exit_with(2);
    EXPECT_EQ(said, "");
}

TEST_F(Exit, TheAdministrationLogHasTheStatistics) {
    context.lastSet = 5;
    context.recordsFromSet = 77;
    context.slot->inputRecords = 11;
    exit_with(0);
    const std::string log = content(path("config/vediLoggerAdminLog"));
    EXPECT_NE(log.find("severity 256: Termination Statistics: usr "), std::string::npos) << log;
    EXPECT_NE(log.find("77 records read from current log set number 5"), std::string::npos) << log;
    EXPECT_NE(log.find("INPUT : 11 records , 0 blocks , 0 record bytes , 0 errors"), std::string::npos) << log;
}

TEST_F(Exit, ATransactionThatNeverEndedIsReportedAndNotApplied) {
    const std::string file = make_file("ORDERS");
    apply_quietly(
        {begin(7), inside(7, write_record(file, "1", "x")), inside(7, write_record(file, "2", "y")), begin(8)});
    exit_with(0);
    EXPECT_EQ(reported(),
              "ERROR:TRANSACTION violation: vlogdup closing and there are still 2 outstanding updates in a transaction "
              "for process id 7");
    EXPECT_EQ(read(file, "1"), "(none)");
}

TEST_F(Exit, TheSlotIsFreed) {
    context.slot = VELDALoggerStatusAllocate(dp);
    ASSERT_NE(context.slot, nullptr);
    const DupStatusSlot &slot = *context.slot;
    EXPECT_NE(slot.pid, 0u);
    exit_with(0);
    EXPECT_EQ(slot.pid, 0u);
}

TEST_F(Exit, FilesOfTheCacheAreClosed) {
    const std::string file = make_file("ORDERS");
    apply_quietly({write_record(file, "1", "x")});
    exit_with(0);
    for (const auto &bucket : context.fileCache)
        for (const CachedFile &cached : bucket) EXPECT_EQ(cached.file, nullptr);
}

TEST_F(Exit, TheEndOfTheEndDoesNothing) {
    context.initialised = 1;
    context.staysAfterExit = true;
    EXPECT_EQ(exit_with(5), 0);
    EXPECT_NE(said, "");
    exit_with(6);
    EXPECT_EQ(said, "");
}

}  // namespace
