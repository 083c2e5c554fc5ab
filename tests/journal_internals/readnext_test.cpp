// Selections of records: the sets in time order, reasons for stopping, waits, damaged records.
#include <fcntl.h>

#include <chrono>

#include "journal/select_parser.h"
#include "tests/journal_internals/reading_fixture.h"

using namespace velda::test;
using namespace velda::journal;

namespace {

// What the callback does at each code; it has no argument of its own.
std::function<void(int)> at_event;
void call_at_event(DP *, int code, ...) {
    if (at_event) at_event(code);
}

class Readnext : public ReadingTest {
  protected:
    Readnext() { spec_settings().skip_damaged = true; }
    ~Readnext() override { at_event = nullptr; }

    static BuiltRecord keyed(const std::string &key, std::int64_t time = 0) {
        BuiltRecord record = write_record("FILE", key, "data");
        record.time = time;
        return record;
    }

    // Set `number` with records named after it: "1a 1b", and an EOF record when it was left.
    SetBuilder small_set(int number, std::int64_t first_time, bool has_eof) {
        SetBuilder set = set_of(2, number, first_time);
        set.add(keyed(std::to_string(number) + "a"));
        set.add(keyed(std::to_string(number) + "b"));
        if (has_eof) set.add(record_of(EofType));
        return set;
    }

    // The writer leaves the set, and logging is off.
    void leave(SetBuilder &set) {
        set.add(record_of(EofType));
        publish(set);
        config.currentSet = 0;
    }

    // As keys_until_stop, with the callback.
    std::string keys(LogSelect &select) {
        std::string found;
        while (const unsigned char *const record = VELDALoggerReadnext(dp, &select, call_at_event))
            found += std::string(LogParts(record).texts[1]) + " ";
        return found + "stop " + std::to_string(errno - 2048);
    }

    std::string quiet_keys(LogSelect &select) {
        std::string found;
        admin([&] {
            found = keys(select);
            return 0;
        });
        return found;
    }
};

TEST_F(Readnext, WithEosTheEndOfTheSetStopsWhateverLaterSetsExist) {
    publish(small_set(1, FirstTime, true), false);
    publish(small_set(2, FirstTime + 100, false));
    EXPECT_EQ(keys(*selection(1, SelectEos)), "1a 1b stop 514");
}

TEST_F(Readnext, WithEofLaterSetsFollowInTheOrderOfTheirTimes) {
    publish(small_set(1, FirstTime, true), false);
    publish(small_set(5, FirstTime + 100, true), false);
    publish(small_set(3, FirstTime + 200, false));
    EXPECT_EQ(keys(*selection(1, SelectEof)), "1a 1b 5a 5b 3a 3b stop 1026");
}

TEST_F(Readnext, AnEarlierSetIsNotRead) {
    publish(small_set(2, FirstTime, true), false);
    publish(small_set(1, FirstTime + 100, false));
    EXPECT_EQ(keys(*selection(1, SelectEof)), "1a 1b stop 1026");
}

TEST_F(Readnext, ASetOfTheSameTimeIsSkipped) {
    publish(small_set(1, FirstTime, true), false);
    publish(small_set(2, FirstTime, true), false);
    publish(small_set(3, FirstTime + 1, false));
    EXPECT_EQ(keys(*selection(1, SelectEof)), "1a 1b 3a 3b stop 1026");
}

TEST_F(Readnext, OfSetsWithOneTimeTheLowerNumberIsRead) {
    publish(small_set(1, FirstTime, true), false);
    publish(small_set(4, FirstTime + 1, true), false);
    publish(small_set(3, FirstTime + 1, false));
    EXPECT_EQ(keys(*selection(1, SelectEof)), "1a 1b 3a 3b stop 1026");
}

TEST_F(Readnext, ASetThatIsNotCurrentIsReadUpToItsEofRecordWhateverItsCount) {
    publish(small_set(1, FirstTime, true), false);
    publish(small_set(2, FirstTime + 100, false));
    config.sets[0].recordCount = 1;
    EXPECT_EQ(keys(*selection(1, SelectEof)), "1a 1b 2a 2b stop 1026");
}

TEST_F(Readnext, TheCurrentSetIsReadUpToItsCount) {
    publish(small_set(1, FirstTime, false));
    config.sets[0].recordCount = 1;
    EXPECT_EQ(keys(*selection(1, SelectEof)), "1a stop 1026");
}

TEST_F(Readnext, AnEofRecordIsNeverHandedOut) {
    SetBuilder set = set_of(1);
    set.add(record_of(EofType));
    publish(set);
    EXPECT_EQ(keys(*selection(1, SelectEos)), "stop 514");
}

TEST_F(Readnext, WithoutACurrentSetTheEndIsTheEndEvenWhenWaiting) {
    publish(small_set(1, FirstTime, true), false);
    config.currentSet = 0;
    for (const std::uint32_t flags : {std::uint32_t{SelectWait}, SelectWait | SelectEos, std::uint32_t{SelectEof}})
        EXPECT_EQ(keys(*selection(1, flags)), "1a 1b stop 514");
}

TEST_F(Readnext, ASelectionWithoutASetStops) {
    publish(small_set(1, FirstTime, false));
    EXPECT_EQ(keys(*selection(1, SelectEof)), "1a 1b stop 1026");
    auto select = selection(1, SelectEof);
    select->set = 0;
    EXPECT_EQ(keys(*select), "stop 1282");
}

TEST_F(Readnext, RecordsBeforeTheStartTimeArePassedOver) {
    SetBuilder set = set_of(1);
    for (int n = 0; n < 4; ++n) set.add(keyed(std::to_string(n), FirstTime + n));
    publish(set);
    auto select = selection();
    select->startTime = FirstTime + 2;
    EXPECT_EQ(keys(*select), "2 3 stop 514");
}

TEST_F(Readnext, ARecordAtTheEndTimeIsTheLast) {
    SetBuilder set = set_of(1);
    for (int n = 0; n < 4; ++n) set.add(keyed(std::to_string(n), FirstTime + n));
    publish(set);
    auto select = selection();
    select->endTime = FirstTime + 2;
    logged();
    EXPECT_EQ(keys(*select), "0 1 2 stop 1538");
    EXPECT_EQ(logged(), "Record read is past end time");
}

TEST_F(Readnext, ASetThatCannotBeReadStops) {
    SetBuilder set = small_set(1, FirstTime, false);
    publish(set);
    std::filesystem::remove(set.paths()[1]);
    EXPECT_EQ(quiet_keys(*selection()), "stop 1794");
}

TEST_F(Readnext, EveryReasonHasTheLowByteTwo) {
    for (const int reason : {StopEndOfSet, StopTimeout, StopNoLaterSet, StopNoSet, StopPastEndTime, StopReadFailed})
        EXPECT_EQ(reason % 256, 2);
}

TEST_F(Readnext, AnotherDeviceIsInvalid) {
    auto select = selection();
    select->deviceType = Database;
    EXPECT_EQ(keys(*select), "stop 22");
}

TEST_F(Readnext, WithoutAJournalNothingIsRead) {
    std::filesystem::remove_all(system_ / "config");
    ScratchSession other;
    auto select = selection();
    int error = 0;
    admin([&] {
        EXPECT_EQ(VELDALoggerReadnext(other, select.get(), nullptr), nullptr);
        error = errno;
        return 0;
    });
    EXPECT_EQ(error, 258 + 2048);
    EXPECT_EQ(said, "Velda Journaler not defined\n");
}

TEST_F(Readnext, APositionSurvivesAStop) {
    SetBuilder set = small_set(1, FirstTime, false);
    publish(set);
    auto select = selection();
    EXPECT_EQ(keys(*select), "1a 1b stop 514");
    set.add(keyed("late"));
    publish(set);
    EXPECT_EQ(keys(*select), "late stop 514");
}

TEST_F(Readnext, TwoSelectionsOfOneSessionDoNotDisturbEachOther) {
    publish(small_set(1, FirstTime, true), false);
    publish(small_set(2, FirstTime + 100, false));
    auto one = selection(1), two = selection(2);
    std::string found;
    for (int n = 0; n < 2; ++n)
        for (LogSelect *const select : {one.get(), two.get()}) {
            const unsigned char *const record = VELDALoggerReadnext(dp, select, nullptr);
            ASSERT_NE(record, nullptr);
            found += std::string(LogParts(record).texts[1]) + " ";
        }
    EXPECT_EQ(found, "1a 2a 1b 2b ");
}

// --- waiting --------------------------------------------------------------------------------------------------------

TEST_F(Readnext, WaitingAtTheEndOfTheNewestSetNeverCountsAsAFailedRead) {
    SetBuilder set = small_set(1, FirstTime, false);
    publish(set);
    int waits = 0, retries = 0;
    at_event = [&](int code) {
        retries += code == 1 || code == 2;
        if (code == 3 && ++waits == 25) {
            set.add(keyed("late"));
            publish(set);
        }
        if (code == 3 && waits == 40) leave(set);
    };
    EXPECT_EQ(keys(*selection(1, SelectWait)), "1a 1b late stop 514");
    EXPECT_EQ(waits, 40);
    EXPECT_EQ(retries, 0);
}

TEST_F(Readnext, AWaitCallsBackBeforeAndBehindEachSleep) {
    SetBuilder set = small_set(1, FirstTime, false);
    publish(set);
    std::string codes;
    at_event = [&](int code) {
        codes += std::to_string(code);
        if (codes.size() == 4) leave(set);
    };
    keys(*selection(1, SelectWait));
    EXPECT_EQ(codes, "3434");
}

// The writer has begun the next block, and the reader has read it along with the one before.
TEST_F(Readnext, AHeaderWhoseSecondHalfWasReadTooEarlyIsReadAgain) {
    constexpr std::size_t Left = 10;  // bytes of the header in its first block: the marker and no stamp
    SetBuilder set = set_of(1);
    set.add(keyed("filler"));
    const std::size_t bare = record_bytes(write_record("FILE", "", ""), 1, 0, 0).size();
    const auto used = static_cast<std::size_t>(set.next_place().offset) % 4096;
    set.add(write_record("FILE", "", std::string(4096 - Left - used - bare, 'd')));
    ASSERT_EQ(set.next_place().offset % 4096, 4096 - Left);
    SetBuilder begun = set;
    BuiltRecord record = keyed("late");
    record.time = set.time_last();
    const Placed place = begun.next_place();
    begun.add_bytes(record_bytes(record, 1, place.file, place.offset).substr(0, Left));
    begun.next_place();
    publish(begun);
    auto select = selection(1, SelectWait);
    set.add(record);
    at_event = [&](int code) {
        if (code == 3) leave(set);
    };
    EXPECT_EQ(keys(*select), "filler  late stop 514");
}

TEST_F(Readnext, AWaitEndsWhenTheTimeoutIsOver) {
    publish(small_set(1, FirstTime, false));
    auto select = selection(1, SelectWait);
    select->timeout = 2;
    select->retry = 1;
    int waits = 0;
    at_event = [&](int code) { waits += code == 3; };
    logged();
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(keys(*select), "1a 1b stop 770");
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1900));
    EXPECT_GE(waits, 2);
    EXPECT_LE(waits, 3) << "each is as long as the time between tries";
    EXPECT_EQ(logged(), "Time out exceeded");
}

TEST_F(Readnext, WhoIsToldMayEndAWaitHoweverLongTheTimeBetweenTriesIs) {
    publish(small_set(1, FirstTime, false));
    auto select = selection(1, SelectWait);
    select->retry = 1000;
    int looks = 0;
    at_event = [&](int code) {
        if (code == 10 && ++looks == 3) velda::exit_command(0);
    };
    const auto before = std::chrono::steady_clock::now();
    velda_run(
        dp, "reader",
        [](DP *session, void *argument) {
            while (VELDALoggerReadnext(session, static_cast<LogSelect *>(argument), call_at_event)) continue;
        },
        select.get());
    EXPECT_EQ(looks, 3);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
}

TEST_F(Readnext, EachWaitHasTheWholeTimeout) {
    SetBuilder set = small_set(1, FirstTime, false);
    publish(set);
    auto select = selection(1, SelectWait);
    select->timeout = 1'000'000;
    select->waitStart = 1;  // of the wait before
    at_event = [&](int code) {
        if (code == 3) leave(set);
    };
    EXPECT_EQ(keys(*select), "1a 1b stop 514");
}

TEST_F(Readnext, AWaitingReaderFollowsTheWriterIntoTheNextSet) {
    SetBuilder one = small_set(1, FirstTime, false), two = small_set(2, FirstTime + 100, false);
    publish(one);
    int waits = 0;
    at_event = [&](int code) {
        if (code != 3) return;
        if (++waits == 1) {
            one.add(keyed("last"));
            leave(one);
            publish(two);
        } else {
            leave(two);
        }
    };
    EXPECT_EQ(keys(*selection(1, SelectWait)), "1a 1b last 2a 2b stop 514");
}

TEST_F(Readnext, WaitEosEndsOnceTheWriterHasLeftTheSet) {
    SetBuilder one = small_set(1, FirstTime, false);
    publish(one);
    at_event = [&](int code) {
        if (code != 3) return;
        one.add(keyed("last"));
        one.add(record_of(EofType));
        publish(one);
        publish(small_set(2, FirstTime + 100, false));
    };
    auto select = selection(1, SelectWait | SelectEos);
    EXPECT_EQ(keys(*select), "1a 1b last stop 514");
    EXPECT_EQ(select->flags, std::uint32_t{SelectEos});
}

// At every moment of a switch: the writer's steps are made one at a time while the reader sleeps.
TEST_F(Readnext, AtEveryMomentOfASwitchNothingIsLostOrReadTwice) {
    SetBuilder one = small_set(1, FirstTime, false), two = set_of(3, 2, FirstTime + 100);
    publish(one);
    publish(set_of(3, 2, 0), false);
    config.currentSet = 1;
    const auto store = [&](const SetBuilder &set) { set.configure(config); };
    const std::vector<std::function<void()>> steps = {
        [&] {
            one.add(keyed("1c"));
            one.write();
        },  // the record is in the file, not in the count
        [&] { store(one); },
        [&] {
            one.add(record_of(EofType));
            one.write();
        },
        [&] { store(one); },  // the count of the EOF record
        [&] { config.status = VELDA_LOGGER_SUSPENDED; },
        [&] { config.currentSet = 2; },  // not yet reset: no time, no count
        [&] {
            store(two);
            two.write();
        },  // reset
        [&] {
            two.add(keyed("2a"));
            two.write();
        },
        [&] { config.sets[1].recordCount = 1; },  // count before the time of the last record
        [&] {
            store(two);
            config.status = VELDA_LOGGER_ACTIVE;
        },
        [&] {
            two.add(keyed("2b"));
            two.write();
            store(two);
        },
        [&] {
            two.add(record_of(EofType));
            two.write();
            store(two);
        },
        [&] { config.currentSet = 0; },
    };
    std::size_t next = 0;
    at_event = [&](int code) {
        if ((code == 1 || code == 3) && next < steps.size()) steps[next++]();
    };
    EXPECT_EQ(keys(*selection(1, SelectWait)), "1a 1b 1c 2a 2b stop 514");
    EXPECT_EQ(next, steps.size());
}

// --- damaged records ------------------------------------------------------------------------------------------------

class Damage : public Readnext {
  protected:
    // "a", a torn record of that process, and "c".
    void publish_torn(std::uint32_t pid, int files = 1) {
        SetBuilder set = set_of(files);
        set.add(keyed("a"));
        BuiltRecord torn = keyed("torn");
        torn.is_complete = false;
        torn.pid = pid;
        set.add(torn);
        set.add(keyed("c"));
        set.add(record_of(EofType));
        publish(set, false);
        config.currentSet = 2;
    }
    // No process has this number: the kernel's are at most 2^22.
    static constexpr std::uint32_t NoProcess = 0x7FFFFFF0;
};

TEST_F(Damage, ARecordInProgressIsTriedTenTimesWithASleepBehindEach) {
    publish_torn(NoProcess);
    std::string codes;
    at_event = [&](int code) { codes += std::to_string(code); };
    spec_settings().skip_damaged = false;
    auto select = selection();
    EXPECT_EQ(quiet_keys(*select), "a stop 2013");
    EXPECT_EQ(codes, "12121212121212121212");
}

TEST_F(Damage, ARecordThatIsFinishedMeanwhileIsRead) {
    SetBuilder torn_set = set_of(1), whole_set = set_of(1);
    BuiltRecord torn = keyed("slow");
    torn.is_complete = false;
    torn_set.add(torn);
    whole_set.add(keyed("slow"));
    publish(torn_set);
    int retries = 0;
    at_event = [&](int code) {
        if (code == 1 && ++retries == 9) whole_set.write();
    };
    EXPECT_EQ(keys(*selection()), "slow stop 514");
    EXPECT_EQ(retries, 9);
}

TEST_F(Damage, WithoutTheSkipFlagReadingIsTerminated) {
    publish_torn(NoProcess);
    spec_settings().skip_damaged = false;
    logged();
    EXPECT_EQ(quiet_keys(*selection()), "a stop 2013");
    const std::string log = logged();
    EXPECT_NE(log.find("Error reading file 0, set 1, offset 3768"), std::string::npos) << log;
    EXPECT_NE(log.find("The process which started writing to the Transaction Journal (Pid 2147483632) has terminated "
                       "before completion"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("severity 1: Terminating vlogdup"), std::string::npos) << log;
}

TEST_F(Damage, TheLogShowsTheLastRecordsHeaderAndTexts) {
    publish_torn(NoProcess);
    spec_settings().skip_damaged = false;
    logged();
    quiet_keys(*selection());
    const std::string log = logged();
    const std::size_t at = log.find("severity 1: Log File Error|");
    ASSERT_NE(at, std::string::npos) << log;
    for (const char *const line :
         {"Last record PID is : 2147483632|", "Last record type is : 2|", "Last record Port Number is : 3|",
          "Last record Record Size is : ", "Last record Strings Size is : 39|", "Filename is : FILE|",
          "Record Name is : torn|", "Application Name is : app|", "O/S Name is : user|", "TTYName Name is : tty|",
          "AppID Name is : appid|", "Source and Line Number is : source 12|"})
        EXPECT_NE(log.find(line, at), std::string::npos) << line << " in " << log;
}

// A block that is none has no header: the log tells of the record in front of it.
TEST_F(Damage, BehindABadBlockTheLogShowsTheRecordThatWasReadLast) {
    SetBuilder set = set_of(1);
    set.add(keyed("one"));
    set.add(keyed("two"));
    const std::size_t bare = record_bytes(write_record("FILE", "three", ""), 1, 0, 0).size();
    set.add(write_record("FILE", "three", std::string(4096 - set.next_place().offset - bare, 'd')));
    set.add(keyed("four"));
    ASSERT_EQ(set.blocks().size(), 2u);
    ASSERT_EQ(set.blocks()[0].size(), 4096u);
    set.blocks()[1][0] ^= 1;
    publish(set);
    spec_settings().skip_damaged = false;
    logged();
    EXPECT_EQ(quiet_keys(*selection()), "one two three stop 2013");
    const std::string log = logged();
    EXPECT_NE(log.find("Last record PID is : 4711|"), std::string::npos) << log;
    EXPECT_NE(log.find("Record Name is : three|"), std::string::npos) << log;
}

TEST_F(Damage, WithoutAnyRecordReadTheLogShowsZeros) {
    SetBuilder set = set_of(1);
    set.add(keyed("a"));
    set.blocks()[0][0] ^= 1;
    publish(set);
    spec_settings().skip_damaged = false;
    logged();
    EXPECT_EQ(quiet_keys(*selection()), "stop 2013");
    EXPECT_NE(logged().find("Log File Error|     Last record PID is : 0|     Last record type is : 0|"),
              std::string::npos);
}

TEST_F(Damage, AWriterThatLivesIsTold) {
    publish_torn(static_cast<std::uint32_t>(getpid()));
    spec_settings().skip_damaged = false;
    logged();
    quiet_keys(*selection());
    EXPECT_NE(logged().find("The writing process (Pid " + std::to_string(getpid()) +
                            ") is still running but has not written all data to Transaction Journal"),
              std::string::npos);
}

TEST_F(Damage, AProcessOfAnotherUserIsTakenAsRunning) {
    publish_torn(1);
    spec_settings().skip_damaged = false;
    logged();
    auto select = selection();
    const bool is_superuser = geteuid() == 0;  // who may signal every process
    if (is_superuser) {
        for (const char *const name : {"", "config", "config/vediLoggerAdminLog", "set1file1"})
            std::filesystem::permissions(system_ / name, std::filesystem::perms(0777));
        ASSERT_EQ(setresuid(65534, 65534, 0), 0);
    }
    quiet_keys(*select);
    if (is_superuser) {
        ASSERT_EQ(setresuid(0, 0, 0), 0);
    }
    EXPECT_NE(logged().find("(Pid 1) is still running"), std::string::npos);
}

// The count of set 1 tells that the record is whole: the reader goes on behind it by its size.
TEST_F(Damage, ARecordThatIsWholeButBadIsPassedByItsSize) {
    publish_torn(NoProcess);
    auto select = selection();
    EXPECT_EQ(quiet_keys(*select), "a c stop 514");
    EXPECT_EQ(said, "");
    EXPECT_EQ(select->recordsRead, 5);  // deliberately the bad record counts twice
}

TEST_F(Damage, TheCountOfSetOneDecidesWhicheverSetIsRead) {
    SetBuilder set = set_of(1, 2);
    set.add(keyed("a"));
    BuiltRecord torn = keyed("torn");
    torn.is_complete = false;
    set.add(torn);
    set.add(keyed("c"));
    set.add(record_of(EofType));
    publish(set, false);
    config.currentSet = 3;
    config.sets[0].recordCount = 0;
    EXPECT_EQ(quiet_keys(*selection(2)), "a c stop 514");
    EXPECT_NE(said.find("Log file skipped "), std::string::npos) << said;
    config.sets[0].recordCount = 100;
    EXPECT_EQ(quiet_keys(*selection(2)), "a c stop 514");
    EXPECT_EQ(said, "");
}

TEST_F(Damage, AnIncompleteRecordIsSkippedUpToTheNextMarker) {
    SetBuilder set = set_of(3, 2);
    set.add(keyed("a"));
    set.add_bytes(std::string(5000, 'V'));
    set.add(keyed("c"));
    publish(set);
    config.sets[1].recordCount = 3;
    EXPECT_EQ(quiet_keys(*selection(2)), "a c stop 514");
    EXPECT_EQ(said, "Log file skipped 4999 bytes after detecting incomplete record\n");
}

TEST_F(Damage, TheScanPassesBlocksThatAreNone) {
    SetBuilder set = set_of(2, 2);
    set.add(keyed("a"));
    set.add(write_record("FILE", "long", std::string(20'000, 'l')));
    set.add(keyed("c"));
    set.blocks()[2].replace(0, 4, "junk");
    publish(set);
    EXPECT_EQ(quiet_keys(*selection(2)), "a c stop 514");
}

// Deliberately only the ordinary marker ends the scan.
TEST_F(Damage, TheScanDoesNotStopAtAnEncipheredRecord) {
    SetBuilder set = set_of(1, 2);
    set.add(keyed("a"));
    set.add_bytes("damage");
    BuiltRecord enciphered = keyed("enciphered");
    enciphered.is_encrypted = true;
    set.add(enciphered);
    set.add(keyed("c"));
    publish(set);
    config.sets[1].recordCount = 3;
    EXPECT_EQ(quiet_keys(*selection(2)), "a c stop 514");
}

TEST_F(Damage, AScanThatFindsNoMarkerEndsAfter1048576Bytes) {
    SetBuilder set = set_of(1, 2);
    set.add_bytes(std::string(1'048'577, 'x'));
    set.add(keyed("far"));
    publish(set);
    config.sets[1].recordCount = 1;
    EXPECT_EQ(quiet_keys(*selection(2)), "stop 22");
}

TEST_F(Damage, AMarkerAtTheLastByteOfTheScanIsFound) {
    SetBuilder set = set_of(1, 2);
    set.add_bytes(std::string(1'048'576, 'x'));
    set.add(keyed("far"));
    publish(set);
    config.sets[1].recordCount = 1;
    // One record less to read: deliberately the damage has counted as one.
    config.currentSet = 3;
    auto select = selection(2);
    EXPECT_NE(VELDALoggerReadnext(dp, select.get(), nullptr), nullptr);
}

TEST_F(Damage, ASizeThatNoRecordHasIsScannedOver) {
    for (const std::int64_t lie : {std::int64_t{0}, std::int64_t{-7}, std::int64_t{55}}) {
        SetBuilder set = set_of(1, 1, FirstTime + lie + 100);
        set.add(keyed("a"));
        BuiltRecord forged = keyed("forged");
        forged.told_record_size = lie;
        set.add(forged);
        set.add(keyed("c"));
        set.add(record_of(EofType));
        publish(set, false);
        config.sets[0].recordCount = 100;
        config.currentSet = 2;
        EXPECT_EQ(quiet_keys(*selection()), "a c stop 514") << lie;
    }
}

// --- the end of a selection -----------------------------------------------------------------------------------------

TEST_F(Readnext, TheEndFreesTheSelectionAndClearsThePointer) {
    LogSelect *select = selection().release();
    VELDALoggerSelectEnd(dp, &select);
    EXPECT_EQ(select, nullptr);
    VELDALoggerSelectEnd(dp, &select);
    EXPECT_EQ(select, nullptr);
}

TEST_F(Readnext, TheEndClosesADescriptorAboveTwo) {
    LogSelect *select = selection().release();
    select->deviceType = Serial;
    const int fd = dup(0);
    ASSERT_GT(fd, 2);
    select->fd = fd;
    VELDALoggerSelectEnd(dp, &select);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    select = selection().release();
    select->fd = 2;
    VELDALoggerSelectEnd(dp, &select);
    EXPECT_NE(fcntl(2, F_GETFD), -1);
}

}  // namespace
