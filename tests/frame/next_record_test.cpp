// The walk over a command's records.
#include <sys/wait.h>

#include "frame/utility_frame.h"
#include "tests/support/command.h"

using namespace velda;
using namespace velda::frame;
using namespace velda::test;

namespace {

// One call's answer as "RESULT FILE KEY RECORD", with visible marks.
std::string next(DP *dp, int lock = 0, const char *flags = "") {
    VAR LockFlag = lock, Result = "old", Record = "old", FileName = "old", RecordKey = "old", commandflags = flags;
    VBC_VELDANextRecord(dp, "VVVVVV", &LockFlag, &Result, &Record, &FileName, &RecordKey, &commandflags);
    return Result.str() + " " + FileName.str() + " " + RecordKey.str() + " " + shown(Record.view());
}

// Words divided by ^; backslashes stand for themselves.
void init(DP *dp, const std::string &words) {
    VAR Help, Args = convert(words, "^", AM), Program = "WALK";
    VBC_VELDAInit(dp, "VVV", &Help, &Args, &Program);
}

// A command that shows every answer of its walk, one a line.
Program walk(std::string words, int lock = 0, std::string flags = "", std::vector<std::string> stacked = {}) {
    return command(
        "WALK",
        [=](DP *dp) {
            init(dp, words);
            for (int calls = 0; calls < 10; ++calls) {
                const std::string answer = next(dp, lock, flags.c_str());
                crt_line(answer);
                if (answer.starts_with("0 ") || answer.starts_with("-3 ")) break;
            }
        },
        stacked);
}

std::string output_of(const Program &program) { return run_on_pipes("", program).output; }

class NextRecord : public InScratchDirectory {
  protected:
    NextRecord() {
        make_file("MYFILE");
        put("MYFILE", "K1", "one^1");
        put("MYFILE", "K2", "two");
        put("MYFILE", "a b", "blank");
        put("DICT MYFILE", "D1", "A");
        std::filesystem::create_directories("dir/sub");
        write_host_file("dir/sub/rec", "line1\nline2\n");
        write_host_file("dir/sub/two", "2\n");
        write_host_file("here", "text\n");
    }
};

TEST_F(NextRecord, ReadsTheKeysOfTheFirstOperandsFile) {
    EXPECT_EQ(output_of(walk("MYFILE^K2^K1")), "1 MYFILE K2 two\n1 MYFILE K1 one^1\n0   \n");
}

TEST_F(NextRecord, TellsThatARecordDoesNotExist) {
    EXPECT_EQ(output_of(walk("MYFILE^NONE^K1")), "-1 MYFILE NONE \n1 MYFILE K1 one^1\n0   \n");
}

TEST_F(NextRecord, SelectsTheWholeFileForAStar) {
    const std::string output = output_of(walk("MYFILE^*"));
    for (const char *line : {"1 MYFILE K1 one^1\n", "1 MYFILE K2 two\n", "1 MYFILE a b blank\n"})
        EXPECT_NE(output.find(line), std::string::npos) << output;
    EXPECT_TRUE(output.ends_with("\n0   \n"));
}

TEST_F(NextRecord, TakesTheWordBehindDictWithItsFile) {
    EXPECT_EQ(output_of(walk("DICT^MYFILE^D1")), "1 DICT MYFILE D1 A\n0   \n");
    EXPECT_EQ(output_of(walk("dict^MYFILE^D1")), "1 DICT MYFILE D1 A\n0   \n");
}

TEST_F(NextRecord, DropsTheQuotesOfAKeyAndKeepsALoneOne) {
    put("MYFILE", "'ab", "lone");
    EXPECT_EQ(output_of(walk("MYFILE^'a b'^\"K1\"^'ab^'K2\"")),
              "1 MYFILE a b blank\n1 MYFILE K1 one^1\n1 MYFILE 'ab lone\n-1 MYFILE 'K2\" \n0   \n");
}

TEST_F(NextRecord, TakesAQuoteThatIsTheWholeKeyForBothOfItsQuotes) {
    EXPECT_EQ(output_of(walk("MYFILE^'^K2")), "-1 MYFILE  \n1 MYFILE K2 two\n0   \n");
}

TEST_F(NextRecord, FindsNoRecordsWhenOnlyBlanksAreGivenAsKeys) {
    EXPECT_EQ(output_of(walk("MYFILE", 0, "", {"   "})), "0   \n");
}

TEST_F(NextRecord, WithoutFileOperandReadsFromTheCurrentDirectory) {
    EXPECT_EQ(output_of(walk("here^gone")), "1 . here text\n-1 . gone \n0   \n");
}

TEST_F(NextRecord, WithoutFileOperandDividesAKeyAtItsLastBackslash) {
    EXPECT_EQ(output_of(walk("dir\\sub\\rec")), "1 dir\\sub rec line1^line2\n0   \n");
}

TEST_F(NextRecord, TakesAKeyUnderTheRootFromTheFileOfTwoBackslashes) {
    EXPECT_EQ(output_of(walk("\\no-such-record")), "-1 \\\\ no-such-record \n0   \n");
}

TEST_F(NextRecord, TellsWhichFileOfAKeyCannotBeOpenedAndGoesOn) {
    std::string answers;
    run_command("WALK", [&](DP *dp) {
        init(dp, "none\\rec^here");
        for (int call = 0; call < 3; ++call) answers += next(dp) + "|";
    });
    EXPECT_EQ(answers, "-3 none rec |1 . here text|0   |");
}

TEST_F(NextRecord, OpensTheFileOfKeysInOneDirectoryOnce) {
    std::string answers;
    run_command("WALK", [&](DP *dp) {
        init(dp, "dir\\sub\\rec^dir\\sub\\two^here");
        answers = next(dp);
        // The directory is gone under this name: only a file that stays open is read from.
        const UtilityCommon utility(dp);
        EXPECT_EQ(utility[PreviousFileName].str(), "dir\\sub");
        const VAR kept = utility[PreviousFileDSCB];
        answers += "|" + next(dp);
        EXPECT_EQ(utility[PreviousFileDSCB].text, kept.text) << "the next key opened the file again";
        answers += "|" + next(dp);
        EXPECT_NE(utility[PreviousFileDSCB].text, kept.text);
    });
    EXPECT_EQ(answers, "1 dir\\sub rec line1^line2|1 dir\\sub two 2|1 . here text");
}

TEST_F(NextRecord, RequiresTheFirstOperandToBeAFileUnderFlagF) {
    EXPECT_EQ(output_of(walk("NOFILE^K1", 0, "F")), "-3 NOFILE  \n");
    EXPECT_EQ(output_of(walk("DICT^NOFILE^K1", 0, "F")), "-3 DICT NOFILE  \n");
    EXPECT_EQ(output_of(walk("MYFILE^K2", 0, "F")), "1 MYFILE K2 two\n0   \n");
    EXPECT_EQ(output_of(walk("NOFILE", 0, "")), "-1 . NOFILE \n0   \n");
}

TEST_F(NextRecord, WithoutOperandsAsksForKeysAlsoUnderFlagF) {
    EXPECT_EQ(output_of(walk("", 0, "F", {"here"})), "1 . here text\n0   \n");
}

TEST_F(NextRecord, StopsWhenTheNameBehindDictIsMissing) {
    std::filesystem::create_directory("DICT");  // what "DICT" without a name opens
    for (const char *words : {"DICT", "dict"}) {
        const Ending ending = run_on_pipes("", walk(words));
        EXPECT_EQ(ending.output, "File name expected\n") << words;
        EXPECT_EQ(ending.exit_code, 1) << words;
    }
}

TEST_F(NextRecord, StartsAgainAfterAFileThatCouldNotBeOpened) {
    std::string answers;
    run_command("WALK", [&](DP *dp) {
        init(dp, "LATER^K1");
        answers = next(dp, 0, "F");
        make_file("LATER");
        put("LATER", "K1", "now");
        answers += "|" + next(dp, 0, "F");
    });
    EXPECT_EQ(answers, "-3 LATER  |1 LATER K1 now");
}

TEST_F(NextRecord, TakesTheSavedListBeforeStackedData) {
    const auto body = [](DP *dp) {
        velda::SelectList(marks("K2^K1")).make_default();
        init(dp, "MYFILE");
        crt_line(next(dp));
        crt_line(next(dp));
        crt_line(next(dp));
        VAR left;
        input(left, {.flags = VELDA_INPUT_NO_PROMPT | VELDA_INPUT_NO_NEWLINE});
    };
    const Ending ending = run_on_pipes("", command("WALK", body, {"K9"}));
    EXPECT_EQ(ending.output.substr(0, ending.output.find("0 ")), "1 MYFILE K2 two\n1 MYFILE K1 one^1\n");
}

TEST_F(NextRecord, ReadsItsKeysFromStackedDataWithoutShowingThem) {
    EXPECT_EQ(output_of(walk("MYFILE", 0, "", {"  K2   K1 "})), "1 MYFILE K2 two\n1 MYFILE K1 one^1\n0   \n");
    EXPECT_EQ(output_of(walk("MYFILE", 0, "P", {"K2"})), "1 MYFILE K2 two\n0   \n");
    EXPECT_EQ(output_of(walk("", 0, "", {"here"})), "1 . here text\n0   \n");
}

TEST_F(NextRecord, RestoresTheEchoAfterStackedData) {
    for (const bool on : {true, false}) {
        const auto body = [=](DP *dp) {
            init(dp, "MYFILE");
            set_echo(on);
            next(dp);
            crt_line(echo_is_on() ? "on" : "off");
        };
        EXPECT_EQ(output_of(command("WALK", body, {"K1"})), on ? "on\n" : "off\n");
    }
}

TEST_F(NextRecord, AsksForKeys) {
    const Ending ending = run_on_pipes("K1 K2\n", walk("MYFILE"));
    EXPECT_TRUE(ending.output.starts_with("Record Keys : ")) << ending.output;
    EXPECT_TRUE(ending.output.ends_with("1 MYFILE K1 one^1\n1 MYFILE K2 two\n0   \n")) << ending.output;
}

TEST_F(NextRecord, StopsWhenNoKeysAreGiven) {
    const Ending ending = run_on_pipes("\n", walk("MYFILE"));
    EXPECT_TRUE(ending.output.ends_with("No record list given\n")) << ending.output;
    EXPECT_EQ(ending.exit_code, 1);
    EXPECT_EQ(run_on_pipes("", walk("MYFILE", 0, "", {""})).exit_code, 1);
}

TEST_F(NextRecord, TakesAllRecordsWithoutListUnderItsEmulationSettingUnlessItMustAsk) {
    const ScratchDirectory release;
    const auto under_setting = [&](const char *flags, const char *typed) {
        return run_on_pipes(typed,
                            [&](DP *dp) {
                                use_emulation(release, "no_list_means_all = 1");
                                walk("DICT^MYFILE", 0, flags)(dp);
                            })
            .output;
    };
    EXPECT_EQ(under_setting("", ""), "1 DICT MYFILE D1 A\n0   \n");
    EXPECT_TRUE(under_setting("P", "D1\n").starts_with("Record Keys : "));
}

TEST_F(NextRecord, TakesTheLockThatItIsAskedFor) {
    for (const int lock : {1, 2}) {
        run_command("WALK", [&](DP *dp) {
            init(dp, "MYFILE^K1^NEW");
            EXPECT_EQ(next(dp, lock), "1 MYFILE K1 one^1");
            EXPECT_EQ(next(dp, lock), "-1 MYFILE NEW ");
            DP *const other = velda_new_context();
            velda_set_context(other);
            {
                File file;
                ASSERT_TRUE(file.open("MYFILE"));
                EXPECT_TRUE(file.try_read_locked("K1").busy());
                EXPECT_TRUE(file.try_read_locked("NEW").busy());
                EXPECT_FALSE(file.try_read_locked("K2").busy());
            }
            velda_set_context(dp);
            velda_free_context(other);
            VLibFRELEASEALL_I(dp);
        });
    }
}

TEST_F(NextRecord, TakesNoLockForOtherLockFlags) {
    run_command("WALK", [&](DP *dp) {
        init(dp, "MYFILE^K1");
        next(dp, 3);
        DP *const other = velda_new_context();
        velda_set_context(other);
        {
            File file;
            ASSERT_TRUE(file.open("MYFILE"));
            EXPECT_FALSE(file.try_read_locked("K1").busy());
        }
        velda_set_context(dp);
        velda_free_context(other);
    });
}

// Another process that holds locks on records of MYFILE for as long as this object lives.
class LockHolder {
  public:
    explicit LockHolder(std::vector<std::string> keys) {
        int ready[2];
        if (pipe(ready) != 0 || pipe(hold_) != 0) throw std::runtime_error("no pipe");
        process_ = fork();
        if (process_ == 0) {
            close(hold_[1]);
            File file;
            if (!file.open("MYFILE")) _exit(1);
            for (const std::string &key : keys) file.read_locked(key);
            if (write(ready[1], "x", 1) != 1) _exit(1);
            char byte;
            _exit(read(hold_[0], &byte, 1) == 1 ? 0 : 1);
        }
        close(hold_[0]);
        close(ready[1]);
        char byte;
        if (read(ready[0], &byte, 1) != 1) throw std::runtime_error("the other process took no locks");
        close(ready[0]);
    }
    ~LockHolder() { let_go(); }
    void let_go() {
        if (process_ < 0) return;
        EXPECT_EQ(write(hold_[1], "x", 1), 1);
        close(hold_[1]);
        waitpid(process_, nullptr, 0);
        process_ = -1;
    }

  private:
    int hold_[2];
    pid_t process_;
};

TEST_F(NextRecord, TellsOfARecordThatAnotherPortHasLocked) {
    const LockHolder holder({"K1", "NONE"});
    EXPECT_EQ(output_of(walk("MYFILE^K1^NONE^K2", 2)), "2 MYFILE K1 one^1\n-2 MYFILE NONE \n1 MYFILE K2 two\n0   \n");
    EXPECT_EQ(output_of(walk("MYFILE^K1^NONE", 0)), "1 MYFILE K1 one^1\n-1 MYFILE NONE \n0   \n");
}

TEST_F(NextRecord, WaitsForALockThatAnotherPortHolds) {
    LockHolder holder({"K1"});
    std::thread release([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        holder.let_go();
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(output_of(walk("MYFILE^K1", 1)), "1 MYFILE K1 one^1\n0   \n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    release.join();
}

TEST_F(NextRecord, LeavesTheFirstCallMarkerAtZero) {
    run_command("WALK", [&](DP *dp) {
        init(dp, "MYFILE^K1^K2");
        const UtilityCommon utility(dp);
        next(dp);
        next(dp);
        EXPECT_EQ(utility[RecordsProcessed].str(), "0");
        EXPECT_EQ(utility[FileModeVelda].str(), "1");
    });
}

TEST_F(NextRecord, KeepsItsCellsWhereOtherProgramsFindThem) {
    run_command("WALK", [&](DP *dp) {
        init(dp, "MYFILE^K1^K2");
        next(dp);
        CommonBlock block("VELDA_dUtil", 100);
        EXPECT_EQ(shown(block[0].view()), "K1^K2");
        EXPECT_EQ(block[54].str(), "0");
        EXPECT_EQ(block[55].str(), "K2");
        EXPECT_EQ(block[57].str(), "MYFILE");
        EXPECT_TRUE(block[58].is_file());
        EXPECT_EQ(block[59].str(), "1");
    });
}

TEST_F(NextRecord, ClosesItsFileWhenTheCommandEnds) {
    VAR held;
    run_command("WALK", [&](DP *dp) {
        init(dp, "MYFILE^K1");
        next(dp);
        const UtilityCommon utility(dp);
        EXPECT_TRUE(utility[PreviousFileDSCB].is_file());
        CommonBlock file_lock("VELDAFileLock", FileLockCells);
        for (int cell = 0; cell < FileLockCells; ++cell) file_lock[cell] = "kept";
    });
    run_command("LOOK", [&](DP *dp) {
        const UtilityCommon utility(dp);
        EXPECT_EQ(utility[PreviousFileDSCB].str(), "0");
        CommonBlock file_lock("VELDAFileLock", FileLockCells);
        std::string cells;
        for (int cell = 0; cell < FileLockCells; ++cell) cells += file_lock[cell].str() + " ";
        EXPECT_EQ(cells, "0 kept 0 0 kept 0 0 kept ");
    });
}

}  // namespace
