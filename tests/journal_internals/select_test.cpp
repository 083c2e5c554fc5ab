// Specifications: tokens, their rules and reports, times, renames, completion and summary.
#include <sys/stat.h>
#include <utime.h>

#include <cerrno>
#include <memory>

#include "journal/select_parser.h"
#include "tests/journal/fixture.h"

using namespace velda::journal;
using velda::test::LoggerTest;

namespace {

constexpr bool Input = false, Output = true;

class Specification : public LoggerTest {
  protected:
    Specification() : config(defined()) {
        SpecSettings &settings = spec_settings();
        settings.verbose = false;
        settings.skip_damaged = true;
        settings.skip_given = false;
        settings.ending_shown = false;
        settings.previous_flags = 0;
        settings.previous_timeout = 0;
        setenv("TZ", "UTC", 1);
        tzset();
    }

    // Parses; `select` holds the result, or null. What it said goes to `report` and, on standard error, to `said`.
    LogSelect *parse(const std::string &text, bool is_output) {
        report.clear();
        admin([&] {
            errno = 0;
            select.reset(start_selection(dp, text.c_str(), is_output, &report, true));
            error = errno;
            return 0;
        });
        return select.get();
    }

    void expect_fault(const std::string &text, bool is_output, const std::string &message, int number = EINVAL) {
        EXPECT_EQ(parse(text, is_output), nullptr) << text;
        EXPECT_EQ(report.str(), message) << text;
        EXPECT_EQ(error, number) << text;
    }

    void expect_read(const std::string &text, bool is_output) {
        EXPECT_NE(parse(text, is_output), nullptr) << text << ": " << report.str();
    }

    // A set with records of these times.
    void fill_set(int set, std::int64_t first, std::int64_t last, std::int64_t records = 5) {
        config.sets[set - 1].timeFirst = first;
        config.sets[set - 1].timeLast = last;
        config.sets[set - 1].recordCount = records;
    }

    std::string file(const std::string &name, const std::string &text) {
        const std::string path = system_ / name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

    VELDALoggerConfig &config;
    std::unique_ptr<LogSelect> select;
    VAR report;
    int error = 0;
};

}  // namespace

// --- tokens ---------------------------------------------------------------------------------------------------------

TEST_F(Specification, TheTokenListHasEveryNameInOrderAndEndsWithCodeZero) {
    std::string shown;
    const LogToken *token = VELDALoggerTokenList(dp);
    for (; token->code != 0; ++token) shown += std::to_string(token->code) + token->name + " ";
    EXPECT_EQ(token->name, nullptr);
    EXPECT_EQ(shown,
              "1SET 2FROM 2BEGIN 2START 3TO 3UNTIL 3END 4TERMINATE 5DEVICE 5FILE 5SERIAL 6TYPE 7VERBOSE 8BLOCKSIZE "
              "8SIZEBLOCK 9BLOCKMAX 9MAXBLOCK 10RENAME 11RENAMEFILE 12NOTRANS 13NOFLUSH 14PROMPT 15TIMEOUT 16RETRY "
              "17HOSTNAME 18PORT 19ENCRYPT 20SCHEME 21KEY 22SKIPREC 23MILESTONE ");
}

TEST_F(Specification, TokensAreDividedByBlanksAndTabsAndNamedInAnyCase) {
    expect_read(" \tSeT=tty \t bLOCKsize=512\t", Input);
    EXPECT_EQ(select->deviceType, Tty);
    EXPECT_EQ(select->blockSize, 512);
    EXPECT_EQ(select->specText, " \tSeT=tty \t bLOCKsize=512\t");
}

TEST_F(Specification, AnUnknownNameIsNotRecognised) {
    expect_fault("set=tty nonsense=1", Input, "Error: For command 'nonsense=1': The command is not recognised");
    expect_fault("=tty", Input, "Error: For command '=tty': The command is not recognised");
    expect_fault("se", Input, "Error: For command 'se': The command is not recognised");
}

TEST_F(Specification, ATokenIsSplitAtTheFirstEqualsSign) {
    expect_read("set=serial device=a=b", Input);
    EXPECT_EQ(select->devices, std::vector<std::string>{"a=b"});
}

TEST_F(Specification, TheFirstFaultEndsTheReading) {
    expect_fault("port=1 nonsense", Input, "Error: For command 'port=1': The TCP port is an invalid value");
}

TEST_F(Specification, AReportWithoutAnErrorTextGoesToStandardErrorAsALine) {
    admin([&] { return VELDALoggerSelectStart(dp, "nonsense", 0, nullptr) == nullptr ? 0 : 1; });
    EXPECT_EQ(said, "Error: For command 'nonsense': The command is not recognised\n");
}

TEST_F(Specification, WithoutAJournalNothingIsRead) {
    logger_context(dp).config = VELDA_LOGGER_NOT_MAPPED;
    setenv("VBCLOGCONFDIR", (system_ / "nowhere").c_str(), 1);
    expect_fault("set=tty", Input, "Error: Velda Journaler not defined", ENOENT);
}

TEST_F(Specification, DefaultsOfASelection) {
    expect_read("set=tty", Input);
    EXPECT_EQ(select->set, SetNotChosen);
    EXPECT_EQ(select->scheme, static_cast<std::uint32_t>(VELDA_SCHEME_3DES));
    EXPECT_EQ(select->retry, 5);
    EXPECT_EQ(select->timeout, 0);
    EXPECT_EQ(select->flags, 0u);
    EXPECT_EQ(select->fd, -1);
    EXPECT_EQ(select->deviceIndex, NoDevice);
}

// --- where a token may stand ----------------------------------------------------------------------------------------

TEST_F(Specification, TokensOfAnInputAreRefusedOnAnOutput) {
    for (const std::string token :
         {"start=10:00", "from=10:00", "begin=10:00", "end=10:00", "to=10:00", "until=10:00", "terminate=eos",
          "timeout=1", "retry=1", "set=current", "set=eldest", "set=auto", "set=3", "set=stdin"})
        expect_fault(token, Output, "Error: For command '" + token + "': Only valid for an INPUT specification");
}

TEST_F(Specification, TokensOfAnOutputAreRefusedOnAnInput) {
    for (const std::string token :
         {"rename=a,b", "renamefile=x", "notrans=yes", "noflush=yes", "encrypt=yes", "scheme=des", "key=k",
          "set=database", "set=null", "set=stdout", "set=logset", "set=encrypt"})
        expect_fault(token, Input, "Error: For command '" + token + "': Only valid for an OUTPUT specification");
}

// --- SET ------------------------------------------------------------------------------------------------------------

TEST_F(Specification, SetChoosesTheDeviceType) {
    config.currentSet = 2;
    const std::vector<std::tuple<const char *, bool, std::uint32_t>> cases = {{"set=current", Input, LogSetDevice},
                                                                              {"set=eldest", Input, LogSetDevice},
                                                                              {"set=7", Input, LogSetDevice},
                                                                              {"set=database", Output, Database},
                                                                              {"set=null", Output, Null},
                                                                              {"set=tty", Input, Tty},
                                                                              {"set=tty", Output, Tty},
                                                                              {"set=stdin", Input, Tty},
                                                                              {"set=stdout", Output, Tty},
                                                                              {"set=logset", Output, LogSetDevice},
                                                                              {"set=encrypt", Output, LogSetDevice}};
    for (const auto &[text, is_output, type] : cases) {
        expect_read(text, is_output);
        ASSERT_TRUE(select) << text;
        EXPECT_EQ(select->deviceType, type) << text;
    }
    expect_read("set=serial device=x", Input);
    EXPECT_EQ(select->deviceType, Serial);
    expect_read("set=socket hostname=h port=2000", Output);
    EXPECT_EQ(select->deviceType, Socket);
}

TEST_F(Specification, SetCurrentIsTheCurrentSetAndANumberIsThatSet) {
    config.currentSet = 5;
    expect_read("set=Current", Input);
    EXPECT_EQ(select->set, 5);
    expect_read("set=16", Input);
    EXPECT_EQ(select->set, 16);
    expect_read("set=logset", Output);
    EXPECT_EQ(select->set, 5);
}

TEST_F(Specification, SetEldestIsTheSetWithTheSmallestTimeAmongThoseThatHoldRecords) {
    fill_set(3, 500, 600);
    fill_set(4, 300, 400);
    fill_set(5, 100, 200, 0);
    expect_read("set=eldest", Input);
    EXPECT_EQ(select->set, 4);
    EXPECT_EQ(select->setFirstTime, 300);
}

TEST_F(Specification, OfEldestSetsWithOneTimeTheLowerNumberIsTaken) {
    fill_set(7, 300, 400);
    fill_set(4, 300, 400);
    EXPECT_EQ(eldest_set(config), 4);
}

TEST_F(Specification, WithoutASetThatHoldsRecordsTheEldestIsTheCurrentOne) {
    config.currentSet = 9;
    fill_set(3, 300, 400, 0);
    fill_set(4, 0, 0, 5);
    EXPECT_EQ(eldest_set(config), 9);
}

TEST_F(Specification, AStartTimeFindsTheSetThatHoldsItWhicheverWasChosen) {
    config.currentSet = 2;
    fill_set(2, 100, 200);
    fill_set(1, 300, 400);
    fill_set(3, 500, 0);
    fill_set(4, 0, 1000);  // never used: no set that begins earlier
    const auto chosen = [&](std::int32_t set, std::int64_t start) {
        LogSelect made;
        made.set = set;
        made.startTime = start;
        const char *const fault = choose_set(config, made);
        return fault ? std::string(fault) : std::to_string(made.set) + " from " + std::to_string(made.setFirstTime);
    };
    const std::string none = "No log set could be found which includes the specified start time";
    for (const std::int32_t set : {1, 2, 3, SetAuto, SetNotChosen}) {
        EXPECT_EQ(chosen(set, 150), "2 from 100") << set;
        EXPECT_EQ(chosen(set, 100), "2 from 100") << set;
        EXPECT_EQ(chosen(set, 200), "2 from 100") << set;
        EXPECT_EQ(chosen(set, 300), "1 from 300") << set;
        EXPECT_EQ(chosen(set, 400), "1 from 300") << set;
        EXPECT_EQ(chosen(set, 250), none) << set << ": between two sets";
        EXPECT_EQ(chosen(set, 50), none) << set << ": before all";
        EXPECT_EQ(chosen(set, 500), none) << set << ": deliberately no exception for a last time of 0";
    }
    EXPECT_EQ(chosen(SetNotChosen, 0), "2 from 100");
    EXPECT_EQ(chosen(3, 0), "3 from 500");
}

TEST_F(Specification, AnyOtherOperandOfSetIsUnrecognised) {
    for (const std::string operand : {"17", "0", "-1", "3x", "", "data", "currentx"})
        expect_fault("set=" + operand, Input, "Error: For command 'set=" + operand + "': Command is unrecognised");
    expect_fault("set", Input, "Error: For command 'set': Command is unrecognised");
}

TEST_F(Specification, AnOutputLogSetNeedsACurrentSet) {
    config.currentSet = 0;
    expect_fault("set=logset", Output, "Error: For command 'set=logset': Unable to log updates - logging not set up");
    config.currentSet = 17;
    expect_fault("set=logset", Output, "Error: For command 'set=logset': Unable to log updates - logging not set up");
}

TEST_F(Specification, ASecondDeviceTypeIsRefused) {
    expect_fault("set=tty device=x", Input, "Error: For command 'device=x': This command changes the type of device");
    expect_fault("set=3 set=tty", Input, "Error: For command 'set=tty': This command changes the type of device");
    expect_fault("set=null blockmax=5", Output,
                 "Error: For command 'blockmax=5': This command changes the type of device");
    expect_read("set=serial device=x blockmax=3", Input);
    expect_read("set=1 set=2", Input);
}

// --- TERMINATE ------------------------------------------------------------------------------------------------------

TEST_F(Specification, TerminateSetsItsFlagAndClearsTheOthers) {
    const std::vector<std::pair<std::string, std::uint32_t>> cases = {
        {"terminate=eos", SelectEos},
        {"terminate=EOF", SelectEof},
        {"terminate=Wait", SelectWait},
        {"terminate=waiteos", SelectEos | SelectWait},
        {"terminate=eof terminate=eos", SelectEos},
        {"terminate=wait terminate=eof", SelectEof},
        {"terminate=waiteos terminate=wait", SelectWait},
        {"terminate=eof terminate=waiteos", SelectEos | SelectEof | SelectWait},
        {"prompt=yes terminate=wait", SelectPrompt | SelectWait}};
    for (const auto &[text, flags] : cases) {
        expect_read("set=1 " + text, Input);
        EXPECT_EQ(select->flags, flags) << text;
    }
}

TEST_F(Specification, WaiteosBehindPromptLosesThePromptAndBeforeItKeepsIt) {
    expect_read("set=1 prompt=yes terminate=waiteos", Input);
    EXPECT_EQ(select->flags, static_cast<std::uint32_t>(SelectEos | SelectWait));
    expect_read("set=1 terminate=waiteos prompt=yes", Input);
    EXPECT_EQ(select->flags, static_cast<std::uint32_t>(SelectEos | SelectWait | SelectPrompt));
}

TEST_F(Specification, AnotherOperandOfTerminateIsRefused) {
    for (const std::string token : {"terminate=never", "terminate=", "terminate"})
        expect_fault("set=1 " + token, Input,
                     "Error: For command '" + token + "': The operand should be EOS , EOF or WAIT");
}

TEST_F(Specification, ALogSetWithoutAnEndStopsAtTheLastSet) {
    expect_read("set=1", Input);
    EXPECT_EQ(select->flags, static_cast<std::uint32_t>(SelectEof));
}

// --- booleans -------------------------------------------------------------------------------------------------------

TEST_F(Specification, BooleansAreYesTrueNoAndFalseInAnyCase) {
    for (const char *const yes : {"YES", "yes", "True", "TRUE"}) {
        bool value = false;
        EXPECT_TRUE(LoggerParseBool(dp, yes, value));
        EXPECT_TRUE(value) << yes;
    }
    for (const char *const no : {"NO", "no", "False", "FALSE"}) {
        bool value = true;
        EXPECT_TRUE(LoggerParseBool(dp, no, value));
        EXPECT_FALSE(value) << no;
    }
}

TEST_F(Specification, AnotherOperandOfABooleanIsRefused) {
    for (const std::string token : {"verbose=1", "prompt=y", "skiprec=on", "milestone=maybe"})
        expect_fault("set=tty " + token, Input,
                     "Error: For command '" + token + "': The operand should be YES, NO, TRUE or FALSE");
    for (const std::string token : {"notrans=1", "noflush=t", "encrypt=aye"})
        expect_fault("set=tty " + token, Output,
                     "Error: For command '" + token + "': The operand should be YES, NO, TRUE or FALSE");
}

TEST_F(Specification, ABooleanWithoutAnOperandIsFalse) {
    expect_read("set=tty prompt", Input);
    EXPECT_EQ(select->flags, 0u);
    expect_read("set=tty noflush notrans= encrypt", Output);
    EXPECT_EQ(select->flags, 0u);
    expect_read("set=tty skiprec", Input);
    EXPECT_FALSE(skips_damaged_records());
}

TEST_F(Specification, BooleansSetAndClearTheirFlags) {
    expect_read("set=tty notrans=yes noflush=true prompt=yes", Output);
    EXPECT_EQ(select->flags, static_cast<std::uint32_t>(SelectNoTrans | SelectNoFlush | SelectPrompt));
    expect_read("set=tty notrans=yes noflush=true notrans=no", Output);
    EXPECT_EQ(select->flags, static_cast<std::uint32_t>(SelectNoFlush));
}

// --- numbers --------------------------------------------------------------------------------------------------------

TEST_F(Specification, NumbersHaveToBeAboveZero) {
    for (const std::string bad : {"0", "-5", "", "x", "5x", "99999999999"}) {
        const auto fault = [&](const std::string &name, bool is_output, const std::string &text) {
            const std::string token = name + "=" + bad;
            expect_fault(token, is_output, "Error: For command '" + token + "': " + text);
        };
        fault("blocksize", Output, "The block size is an invalid value");
        fault("sizeblock", Input, "The block size is an invalid value");
        fault("blockmax", Output, "The block max is an invalid value");
        fault("maxblock", Input, "The block max is an invalid value");
        fault("timeout", Input, "The TIMEOUT is an invalid value");
        fault("retry", Input, "The RETRY is an invalid value");
    }
    expect_read("device=x blocksize=100 blockmax=7 timeout=3 retry=1", Input);
    EXPECT_EQ(select->blockSize, 100);
    EXPECT_EQ(select->blockMax, 7);
    EXPECT_EQ(select->timeout, 3);
    EXPECT_EQ(select->retry, 1);
}

TEST_F(Specification, APortHasToBeAbove1024AndFitInto16Bits) {
    for (const std::string bad : {"1024", "0", "-2000", "65536", "99999999999", "", "2000x", "smtp"})
        expect_fault("port=" + bad, Input, "Error: For command 'port=" + bad + "': The TCP port is an invalid value");
    expect_read("set=socket hostname=h port=1025", Input);
    EXPECT_EQ(select->port, 1025);
    expect_read("set=socket hostname=h port=65535", Input);
    EXPECT_EQ(select->port, 65535);
}

// --- devices --------------------------------------------------------------------------------------------------------

TEST_F(Specification, DevicesAreKeptInOrder) {
    expect_read("device=a file=b serial=c", Input);
    EXPECT_EQ(select->deviceType, Serial);
    EXPECT_EQ(select->devices, (std::vector<std::string>{"a", "b", "c"}));
}

TEST_F(Specification, ADeviceNeedsAName) {
    for (const std::string token : {"device=", "file", "serial="})
        expect_fault(token, Input, "Error: For command '" + token + "': No device name follows");
}

TEST_F(Specification, TypeIsAcceptedAndIgnored) {
    expect_read("set=tty type=anything type", Input);
    EXPECT_EQ(select->deviceType, Tty);
}

TEST_F(Specification, TheBlockSizeOfAStreamIsTheJournals) {
    config.blockSize = 8192;
    for (const char *const text : {"set=tty", "device=x", "set=socket hostname=h port=2000"}) {
        expect_read(text, Output);
        EXPECT_EQ(select->blockSize, 8192) << text;
    }
    expect_read("set=null", Output);
    EXPECT_EQ(select->blockSize, 0);
}

TEST_F(Specification, AJournalWithoutABlockSizeGetsOne) {
    config.blockSize = 0;
    expect_read("set=tty", Output);
    EXPECT_EQ(config.blockSize, 4096u);
    EXPECT_EQ(select->blockSize, 4096);
}

TEST_F(Specification, ABlockHasRoomForAHeaderAndIsNoLargerThanItCanBeHeld) {
    expect_read("set=tty blocksize=76", Output);
    expect_fault("set=tty blocksize=75", Output, "Error: The block size is an invalid value");
    expect_read("set=tty blocksize=67108864", Output);
    expect_fault("set=tty blocksize=67108865", Output, "Error: The block size is an invalid value");
}

TEST_F(Specification, WhatADeviceLacksIsReported) {
    expect_fault("set=serial", Output, "Error: No device names specified for serial device");
    expect_fault("blockmax=5", Output, "Error: No device names specified for serial device");
    expect_fault("set=socket port=2000", Output, "Error: No host name specified for socket");
    expect_fault("set=socket hostname= port=2000", Input, "Error: No host name specified for socket");
    expect_fault("set=socket hostname=h", Output, "Error: No TCP port specified for socket");
    expect_fault("", Input, "Error: No type of device was specified");
    expect_fault("hostname=h", Output, "Error: No type of device was specified");
}

// --- SKIPREC --------------------------------------------------------------------------------------------------------

TEST_F(Specification, SkippingIsOnUntilAnOutputSpecification) {
    EXPECT_TRUE(skips_damaged_records());
    expect_read("set=tty", Input);
    EXPECT_TRUE(skips_damaged_records());
    expect_read("set=null", Output);
    EXPECT_FALSE(skips_damaged_records());
}

TEST_F(Specification, SkiprecOfTheInputHoldsForTheWholeProcess) {
    expect_read("set=tty skiprec=yes", Input);
    expect_read("set=null", Output);
    EXPECT_TRUE(skips_damaged_records());
    expect_read("set=tty skiprec=no", Input);
    expect_read("set=null", Output);
    EXPECT_FALSE(skips_damaged_records());
}

// --- MILESTONE ------------------------------------------------------------------------------------------------------

TEST_F(Specification, AMilestoneOfAnInputIsABoolean) {
    expect_read("set=socket hostname=h port=2000 milestone=yes", Input);
    EXPECT_EQ(select->sendMilestone, 1u);
    expect_read("set=socket hostname=h port=2000 milestone", Input);
    EXPECT_EQ(select->sendMilestone, 0u);
}

TEST_F(Specification, AMilestoneOfAnOutputIsAFileThatIsMade) {
    const std::string path = system_ / "milestone";
    expect_read("set=socket hostname=h port=2000 milestone=" + path, Output);
    EXPECT_FALSE(std::filesystem::exists(path));
    LogSelect made;
    logger_context(dp).operand = path;
    EXPECT_TRUE(SpecParser(dp, made, Output, false).milestone());
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(made.milestoneFile, path);
}

TEST_F(Specification, AMilestoneFileThatExistsKeepsItsContents) {
    const std::string path = file("milestone", "Receiver Milestone : x (UTC 5)\n");
    LogSelect made;
    logger_context(dp).operand = path;
    EXPECT_TRUE(SpecParser(dp, made, Output, false).milestone());
    EXPECT_EQ(content(path), "Receiver Milestone : x (UTC 5)\n");
}

TEST_F(Specification, AMilestoneFileThatCannotBeMadeIsReported) {
    const std::string token = "milestone=" + (system_ / "no/such/directory");
    admin([&] { return VELDALoggerSelectStart(dp, token.c_str(), 1, &report) == nullptr ? 0 : 1; });
    EXPECT_EQ(report.str(), "Error: For command '" + token + "': The milestone file cannot be opened or created");
}

TEST_F(Specification, AMilestoneIsOnlyForSockets) {
    expect_fault("set=tty milestone=yes", Input, "Error: Milestone parameter is only valid when set=socket");
    expect_fault("set=tty milestone=no", Input, "Error: Milestone parameter is only valid when set=socket");
    expect_fault("set=database milestone=" + (system_ / "m"), Output,
                 "Error: Milestone parameter is only valid when set=socket");
}

// --- encryption -----------------------------------------------------------------------------------------------------

TEST_F(Specification, EncryptSetsTheFlagAndTheBuiltInKey) {
    const std::string built_in = velda_builtin_key(dp, VELDA_KEY_TRANSFER);
    ASSERT_FALSE(built_in.empty());
    expect_read("set=tty encrypt=yes", Output);
    EXPECT_EQ(select->flags, static_cast<std::uint32_t>(SelectEncrypt));
    EXPECT_EQ(select->key, built_in);
    expect_read("set=tty key=mine encrypt=true", Output);
    EXPECT_EQ(select->key, built_in);
    expect_read("set=tty key=mine encrypt=no", Output);
    EXPECT_EQ(select->flags, 0u);
    EXPECT_EQ(select->key, "mine");
}

TEST_F(Specification, EachSchemeHasItsName) {
    const std::string built_in = velda_builtin_key(dp, VELDA_KEY_TRANSFER);
    std::set<std::uint32_t> schemes;
    for (const std::string name : {"ROT13", "XOR11", "RC2", "BASE64", "DES", "3DES", "BLOWFISH", "RC2_BASE64",
                                   "DES_BASE64", "3DES_BASE64", "BLOWFISH_BASE64", "AES_CTR", "aes_ctr_base64"}) {
        expect_read("set=tty scheme=" + name, Output);
        EXPECT_EQ(select->flags, static_cast<std::uint32_t>(SelectEncrypt));
        EXPECT_EQ(select->key, built_in);
        schemes.insert(select->scheme);
    }
    EXPECT_EQ(schemes.size(), 13u);
    for (const std::string bad : {"", "AES", "13"})
        expect_fault("scheme=" + bad, Output,
                     "Error: For command 'scheme=" + bad + "': The Encryption Scheme is an invalid value");
}

TEST_F(Specification, ASchemeKeepsTheKeyThatWasGiven) {
    expect_read("set=tty key=mine scheme=des", Output);
    EXPECT_EQ(select->key, "mine");
    expect_read("set=tty scheme=des key=mine", Output);
    EXPECT_EQ(select->key, "mine");
    EXPECT_EQ(select->scheme, static_cast<std::uint32_t>(VELDA_SCHEME_DES));
    EXPECT_EQ(select->flags, static_cast<std::uint32_t>(SelectEncrypt));
}

// --- renames --------------------------------------------------------------------------------------------------------

TEST_F(Specification, ARenameHasTwoPathsDividedByBlanksCommasOrSemicolons) {
    LogSelect made;
    for (const char *const text : {"a,b", "  a b", "\ta;b", "a\t,; b", "a,b rest"})
        EXPECT_EQ(LoggerAddRename(dp, made, text), 0) << text;
    ASSERT_EQ(made.renames.size(), 5u);
    for (const RenamePair &pair : made.renames) EXPECT_EQ(pair.from + ">" + pair.to, "a>b");
    expect_read("set=database rename=/x/y,/z rename=q;r", Output);
    ASSERT_EQ(select->renames.size(), 2u);
    EXPECT_EQ(select->renames[0].from, "/x/y");
    EXPECT_EQ(select->renames[1].to, "r");
}

TEST_F(Specification, ACommentOrAnEmptyRenameAddsNothing) {
    LogSelect made;
    for (const char *const text : {"", "  \t", "# a,b", "  #", "* a,b"})
        EXPECT_EQ(LoggerAddRename(dp, made, text), 0) << text;
    EXPECT_TRUE(made.renames.empty());
}

TEST_F(Specification, ARenameWithAnEmptyPathIsIllegal) {
    for (const std::string bad : {"a", "a,", ",b", "a ;,"}) {
        LogSelect made;
        EXPECT_EQ(admin([&] { return LoggerAddRename(dp, made, bad); }), EINVAL) << bad;
        EXPECT_EQ(said, "Warning: The directory conversion '" + bad + "' is illegal\n");
        EXPECT_TRUE(made.renames.empty());
    }
    expect_fault("set=database rename=a", Output,
                 "Error: For command 'rename=a': The directory conversion 'a' is illegal");
}

TEST_F(Specification, ARenameFileHasARenameOnEachLine) {
    const std::string path = file("renames", "# replica\n/a,/b\r\n\n* none\n  /c\t/d\n/e;/f");
    expect_read("set=database renamefile=" + path, Output);
    std::string shown;
    for (const RenamePair &pair : select->renames) shown += pair.from + ">" + pair.to + " ";
    EXPECT_EQ(shown, "/a>/b /c>/d /e>/f ");
}

TEST_F(Specification, ARenameFileStopsAtTheFirstFailure) {
    const std::string path = file("renames", "/a,/b\n/bad\n/worse\n");
    EXPECT_EQ(parse("set=database renamefile=" + path, Output), nullptr);
    EXPECT_EQ(said, "Warning: The directory conversion '/bad' is illegal\n");
    EXPECT_EQ(error, EINVAL);
}

TEST_F(Specification, ARenameFileThatCannotBeOpenedIsNamed) {
    const std::string path = system_ / "none";
    expect_fault("set=database renamefile=" + path, Output,
                 "Error: For command 'renamefile=" + path + "': The file '" + path +
                     "' cannot be read: No such file or directory",
                 ENOENT);
}

TEST_F(Specification, ALineOfARenameFileHas1024BytesAtMost) {
    const std::string longest = "/" + std::string(1000, 'a') + "," + std::string(22, 'b');
    ASSERT_EQ(longest.size(), 1024u);
    expect_read("set=database renamefile=" + file("fits", "/a,/b\n" + longest + "\n"), Output);
    EXPECT_EQ(select->renames.at(1).to, std::string(22, 'b'));
    const std::string path = file("exceeds", "/a,/b\n" + longest + "b\n");
    expect_fault("set=database renamefile=" + path, Output,
                 "Error: For command 'renamefile=" + path + "': A line of the file '" + path + "' is too long");
}

// --- times ----------------------------------------------------------------------------------------------------------

namespace {

constexpr std::int64_t FirstOf2020 = 1577836800;

class Times : public Specification {
  protected:
    // The start time that a token gives; the device has no sets that it would have to lie in.
    std::int64_t start(const std::string &operand) {
        return parse("start=" + operand + " set=tty", Input) ? select->startTime : -1;
    }
};

}  // namespace

TEST_F(Times, ATimeAndADateMayStandInEitherOrder) {
    for (const char *const operand :
         {"12:00:00,01-JAN-2020", "01-JAN-2020,12:00:00", "01-JAN-2020;12:00", "12:00,,01/01/2020"})
        EXPECT_EQ(start(operand), FirstOf2020 + 43200) << operand << " " << report.str();
}

TEST_F(Times, EachNameOfTheTokensDoesTheSame) {
    for (const std::string name : {"start", "from", "begin"}) {
        expect_read("set=tty " + name + "=01-JAN-2020", Input);
        EXPECT_EQ(select->startTime, FirstOf2020) << name;
        EXPECT_EQ(select->endTime, 0);
    }
    for (const std::string name : {"end", "to", "until"}) {
        expect_read("set=tty " + name + "=01-JAN-2020", Input);
        EXPECT_EQ(select->endTime, FirstOf2020) << name;
        EXPECT_EQ(select->startTime, 0);
    }
}

TEST_F(Times, ADateAloneIsItsMidnight) { EXPECT_EQ(start("01-JAN-2020"), FirstOf2020); }

TEST_F(Times, ATimeAloneIsThatTimeToday) {
    const std::int64_t midnight = std::time(nullptr) / 86400 * 86400;
    const std::int64_t found = start("10:00:00");
    EXPECT_TRUE(found == midnight + 36000 || found == std::time(nullptr) / 86400 * 86400 + 36000) << found;
    EXPECT_EQ(start("1:02") - midnight, 3720);
}

TEST_F(Times, MidnightAloneIsNoTimeAtAll) { EXPECT_EQ(start("00:00:00"), 0); }

TEST_F(Times, TheZonesOffsetIsThatOfTheFirstSecondOf1970) {
    setenv("TZ", "<+03>-3", 1);
    tzset();
    EXPECT_EQ(start("01-JAN-2020,12:00:00"), FirstOf2020 + 43200 - 3 * 3600);
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    EXPECT_EQ(start("01-JUL-2020,12:00:00"), FirstOf2020 + 182 * 86400 + 43200 - 3600);
}

TEST_F(Times, AStampHas32Bits) {
    EXPECT_EQ(LoggerMakeTime(dp, 0, 0), 0);
    EXPECT_EQ(LoggerMakeTime(dp, 5, 733), 86405);
    EXPECT_EQ(LoggerMakeTime(dp, 0, 732 + 24856), static_cast<std::int32_t>(std::int64_t{24856} * 86400));
    EXPECT_LT(LoggerMakeTime(dp, 0, 732 + 24856), 0);
}

TEST_F(Times, AnEmptyOperandIsReported) {
    for (const std::string token : {"start=", "end", "from="})
        expect_fault(token, Input, "Error: For command '" + token + "': No time or date follows the token");
}

TEST_F(Times, WhatIsNoTimeNoDateAndNoFileIsReported) {
    for (const std::string operand : {"yesterday", "99:99", "12:00,nonsense", "32-JAN-2020", ",", "10:00,99:99"})
        expect_fault("start=" + operand, Input,
                     "Error: For command 'start=" + operand + "': '" + operand +
                         "' does not appear to be a time, date or file name");
    EXPECT_EQ(said, "");
}

TEST_F(Times, ADateBefore1968IsNone) {
    expect_fault(
        "start=01-JAN-1960", Input,
        "Error: For command 'start=01-JAN-1960': '01-JAN-1960' does not appear to be a time, date or file name");
}

TEST_F(Times, ABackupsStartStandsInItsFile) {
    const std::string path =
        file("backup", "Backup of /data\nStarted UTC  none\nStarted UTC : \t 1234567 s\nStarted UTC : 9\n");
    EXPECT_EQ(start(path), 1234567);
}

TEST_F(Times, AMilestoneFileStandsForWhatTheReceiverHasReached) {
    const std::string path = file(
        "milestone",
        "vlogdup Milestone Status\nSender Start       : 12:00:00 01 JAN 2020 (UTC 11)\nSender Milestone   : x (UTC "
        "22)\nReceiver Milestone : 12:00:00 01 JAN 2020 (UTC 1577880000)\n");
    EXPECT_EQ(start(path), 1577880000);
}

TEST_F(Times, AnyOtherFileStandsForItsModification) {
    const std::string path = file("plain", "Receiver Milestone : none yet (UTC )\nStarted UTC:\n");
    const utimbuf times = {777, 888};
    ASSERT_EQ(utime(path.c_str(), &times), 0);
    EXPECT_EQ(start(path), 888);
    EXPECT_EQ(said, "");
}

TEST_F(Times, AFilesStampGoesBeforeATimeOfTheSameToken) {
    const std::string path = file("m", "Receiver Milestone : x (UTC 500)\n");
    expect_read("set=tty start=01-JAN-2020 start=" + path, Input);
    EXPECT_EQ(select->startTime, 500);
    expect_read("set=tty start=" + path + " start=01-JAN-2020", Input);
    EXPECT_EQ(select->startTime, 500);
}

TEST_F(Times, AStampNeedsItsLabelInFrontAndADigitBehindTheTag) {
    const std::string path =
        file("stamps", " Started UTC: 1\nxStarted UTC: 2\nStarted UTC\nStarted UTC: -3\nStarted UTC:4\n");
    EXPECT_EQ(LoggerFileStamp(dp, path, "Started UTC", ":"), 4);
    EXPECT_EQ(LoggerFileStamp(dp, system_ / "none", "Started UTC", ":"), 0);
    EXPECT_EQ(LoggerFileStamp(dp, file("huge", "Started UTC: 99999999999999999999\n"), "Started UTC", ":"), 0);
}

TEST_F(Times, OnlyTheFirst1024BytesOfALineCount) {
    const std::string path = file("long", std::string(5000, 'x') + "Started UTC: 1\nStarted UTC" +
                                              std::string(1024, ' ') + ": 2\nStarted UTC: 3");
    EXPECT_EQ(LoggerFileStamp(dp, path, "Started UTC", ":"), 3);
}

TEST_F(Times, AFileThatCannotBeReadIsWarnedOf) {
    std::filesystem::create_directory(system_ / "directory");
    const std::string path = system_ / "directory";
    EXPECT_EQ(admin([&] { return static_cast<int>(LoggerFileStamp(dp, path, "x", "y")); }), 0);
    EXPECT_EQ(said, "Warning: Is a directory\n");
}

// --- completion -----------------------------------------------------------------------------------------------------

TEST_F(Times, ACheckpointInTheLastTokenIsTheLastCheckpoint) {
    config.lastCheckpoint = 4242;
    expect_read("set=tty start=Checkpoint", Input);
    EXPECT_EQ(select->startTime, 4242);
    EXPECT_EQ(select->flags, static_cast<std::uint32_t>(SelectSkipToCheckpoint));
    expect_read("set=tty end=CHECKPOINT", Input);
    EXPECT_EQ(select->endTime, 4242);
    EXPECT_EQ(select->flags, 0u);
}

TEST_F(Times, ACheckpointInAnEarlierTokenGivesNoTime) {
    config.lastCheckpoint = 4242;
    expect_read("start=checkpoint set=tty", Input);
    EXPECT_EQ(select->startTime, 0);
    EXPECT_EQ(select->flags, 0u);
    expect_read("set=tty start=checkpoint end=checkpoint", Input);
    EXPECT_EQ(select->startTime, 0);
    EXPECT_EQ(select->endTime, 4242);
}

TEST_F(Times, ACheckpointInTheLastTokenLeavesEarlierDatesOut) {
    config.lastCheckpoint = 4242;
    expect_read("set=tty start=01-JAN-2020 end=checkpoint", Input);
    EXPECT_EQ(select->startTime, 0);
    EXPECT_EQ(select->endTime, 4242);
}

TEST_F(Times, AReportBehindACheckpointStillNamesTheToken) {
    expect_fault("start=checkpoint", Input, "Error: For command 'start=checkpoint': No type of device was specified");
    expect_fault("start=10:00", Input, "Error: No type of device was specified");
}

TEST_F(Times, SetAutoNeedsAStartAndFindsTheSetThatHoldsIt) {
    expect_fault("set=auto", Input, "Error: Start time must be specified when set=auto");
    config.currentSet = 2;
    fill_set(1, FirstOf2020, FirstOf2020 + 100);
    fill_set(2, FirstOf2020 + 100000, FirstOf2020 + 200000);
    expect_read("set=auto start=01-JAN-2020,00:01:00", Input);
    EXPECT_EQ(select->set, 1);
    EXPECT_EQ(select->setFirstTime, FirstOf2020);
    expect_fault("set=auto start=01-JAN-2020,01:00:00", Input,
                 "Error: No log set could be found which includes the specified start time");
}

// --- the summary ----------------------------------------------------------------------------------------------------

namespace {

constexpr char NoEnd[] = "\n    Process waits indefinitely or terminated by operator\n\n";

class Summary : public Times {};

}  // namespace

TEST_F(Summary, IsSilentWithoutVerbose) {
    expect_read("set=tty verbose", Input);
    EXPECT_EQ(said, "");
    expect_read("set=tty verbose=no", Input);
    EXPECT_EQ(said, "");
}

TEST_F(Summary, TellsOfAStream) {
    expect_read("set=tty verbose=yes blocksize=512", Input);
    EXPECT_EQ(said, std::string("    Using block size of 512 bytes , device size is unknown\n") + NoEnd);
    expect_read("device=x noflush=yes blockmax=20", Output);
    EXPECT_EQ(said,
              "    Flushes to device will be suppressed for TRANSACTION boundaries\n"
              "    Using block size of 4096 bytes , device size is 20 blocks\n");
}

TEST_F(Summary, TellsOfALogSet) {
    fill_set(3, FirstOf2020, FirstOf2020 + 86400);
    expect_read("set=3 verbose=yes start=01-JAN-2020,12:00 end=02-JAN-2020", Input);
    EXPECT_EQ(said, std::string("Notice: INPUT from set 3 , first entry 00:00:00 01 JAN 2020\n"
                                "    Records must be on or AFTER  12:00:00 01 JAN 2020\n"
                                "    Records must be on or BEFORE 00:00:00 02 JAN 2020\n") +
                        NoEnd);
}

TEST_F(Summary, TellsOfTheDatabase) {
    expect_read("set=database verbose=true notrans=yes rename=a,b rename=c,d", Output);
    EXPECT_EQ(said,
              "Notice: OUTPUT to DATABASE\n"
              "    All transaction boundaries will be ignored\n"
              "    Renaming file/directory 'a' to 'b'\n"
              "    Renaming file/directory 'c' to 'd'\n");
}

TEST_F(Summary, TellsOfMilestones) {
    expect_read("set=socket hostname=h port=2000 milestone=yes verbose=yes", Input);
    EXPECT_EQ(said, std::string("Notice: INPUT from SOCKET, sending milestone status to sender\n") + NoEnd);
    expect_read("set=socket hostname=h port=2000 milestone=m", Output);
    EXPECT_EQ(said, "Notice: OUTPUT to SOCKET will update milestone file 'm'\n");
}

TEST_F(Summary, VerboseHoldsForTheWholeProcess) {
    expect_read("set=tty verbose=yes", Input);
    expect_read("set=database", Output);
    EXPECT_EQ(said, "Notice: OUTPUT to DATABASE\n");
}

TEST_F(Summary, TheEndIsThatOfTheSpecificationBefore) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"terminate=eos", "\n    Process continues until end of set\n\n"},
        {"terminate=waiteos timeout=9",
         "\n    Process waits for 9 secs. or until set switched, or terminated by operator\n\n"},
        {"terminate=waiteos", "\n    Process waits indefinitely or until set switched, or terminated by operator\n\n"},
        {"terminate=eof", "\n    Process continues until end of all sets\n\n"},
        {"", "\n    Process continues until end of all sets\n\n"},
        {"terminate=wait timeout=9", "\n    Process waits for 9 secs. or terminated by operator\n\n"},
        {"terminate=wait", NoEnd}};
    for (const auto &[text, line] : cases) {
        expect_read("set=1 verbose=no " + text, Input);
        expect_read("set=null verbose=yes", Output);
        EXPECT_EQ(said, line) << text;
        spec_settings().ending_shown = false;
    }
}

TEST_F(Summary, TheEndOfAFirstSpecificationIsUnknown) {
    expect_read("set=1 verbose=yes terminate=eos", Input);
    EXPECT_TRUE(said.ends_with(NoEnd)) << said;
}

TEST_F(Summary, TheEndIsShownOnceAndNotForADatabase) {
    expect_read("set=database verbose=yes", Output);
    EXPECT_EQ(said, "Notice: OUTPUT to DATABASE\n");
    expect_read("set=null", Output);
    EXPECT_EQ(said, NoEnd);
    expect_read("set=null", Output);
    EXPECT_EQ(said, "");
}
