// vlogdump and vlogverify.
#include <algorithm>
#include <csignal>
#include <thread>

#include "tests/commands/fixture.h"
#include "tests/support/journal_builder.h"

using namespace velda::test;

namespace {

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

constexpr std::int64_t Start = 1'700'000'000;  // 2023-11-14T22:13:20Z

class JournalFiles : public CommandTest {
  protected:
    void SetUp() override {
        CommandTest::SetUp();
        for (const char *const name : {"a", "b"}) paths_.push_back(system_ / name);
        unsetenv("ALLOWLOGDATA");
    }
    void TearDown() override {
        unsetenv("ALLOWLOGDATA");
        CommandTest::TearDown();
    }

    // Six records, the second and third in a transaction of port 9.
    SetBuilder sample() {
        SetBuilder set(paths_, Start);
        set.add(write_record("/data/ORDERS", "o1", "first"));
        BuiltRecord in_transaction = write_record("/data/STOCK", "s\x01\"1", "second");
        in_transaction.flags = 1;
        in_transaction.port = 9;
        in_transaction.time = Start + 10;
        set.add(in_transaction);
        BuiltRecord removal = delete_record("/data/ORDERS", "o2");
        removal.flags = 1;
        removal.port = 9;
        removal.pid = 815;
        set.add(removal);
        set.add(move_record("/data/from", "/data/to"));
        BuiltRecord late = mkdir_record("/data/dir");
        late.time = Start + 100;
        set.add(late);
        set.add(record_of(EofType));
        return set;
    }

    // The set as number 1 of this system.
    void configure(const SetBuilder &set) {
        std::string configuration = configuration_bytes(system_ / "config/vediLoggerConfig", 1, 1);
        put_set(configuration, 1, set.info());
        std::filesystem::create_directories(system_ / "config");
        std::ofstream(system_ / "config/vediLoggerConfig", std::ios::binary) << configuration;
        std::ofstream(system_ / "config/vediLoggerTransLock").flush();
        std::ofstream(system_ / "config/vediLoggerAdminLog").flush();
    }

    Ran dump(std::vector<std::string> words) {
        words.insert(words.begin(), "vlogdump");
        words.insert(words.end(), paths_.begin(), paths_.end());
        return velda(words);
    }
    Ran verify(std::vector<std::string> words = {}) {
        words.insert(words.begin(), "vlogverify");
        words.insert(words.end(), paths_.begin(), paths_.end());
        return velda(words);
    }
    static std::size_t lines(const std::string &text) {
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    }

    std::vector<std::string> paths_;
};

}  // namespace

TEST_F(JournalFiles, ADumpHasALineForEachRecord) {
    sample().write();
    const Ran ran = dump({});
    EXPECT_EQ(ran.code, 0);
    EXPECT_EQ(lines(ran.output), 6u);
    EXPECT_TRUE(contains(ran.output,
                         "0*1*3660*1700000000 2023-11-14T22:13:20Z WRITE port 3 pid 4711 size 118 file "
                         "\"/data/ORDERS\" id \"o1\" data 5 bytes\n"))
        << ran.output;
    EXPECT_TRUE(
        contains(ran.output, "WRITE port 9 pid 4711 size 120 in transaction file \"/data/STOCK\" id \"s\\x01\\\"1\""))
        << ran.output;
    EXPECT_TRUE(contains(ran.output, "MOVEFILE port 3 pid 4711 size ")) << ran.output;
    EXPECT_TRUE(contains(ran.output, "from \"/data/from\" to \"/data/to\"\n"));
    EXPECT_TRUE(contains(ran.output, "path \"/data/dir\"\n"));
}

TEST_F(JournalFiles, EachTypeHasItsDetails) {
    const std::vector<std::pair<BuiltRecord, std::string>> cases = {
        {write_record("/F", "k", "data"), "WRITE|file \"/F\" id \"k\" data 4 bytes"},
        {delete_record("/F", "k"), "DELETE|file \"/F\" id \"k\""},
        {record_of(ClearFileType, "", "/F"), "CLEARFILE|file \"/F\" id \"\""},
        {record_of(DeleteFileType, "", "/F"), "DELETEFILE|file \"/F\" id \"\""},
        {create_file_record("/F", "HL", "words", {"DURABILITY=LAZY", "LOG=NO"}),
         "CREATEFILE|file \"/F\" id \"\" type \"HL\" \"DURABILITY=LAZY\" \"LOG=NO\""},
        {transaction_record(TranStartType, 7, 8, "t"), "TRANSTART|file \"\" id \"t\" values 7 8"},
        {transaction_record(TranEndType, 7, 8), "TRANSEND|file \"\" id \"\" values 7 8"},
        {transaction_record(TranAbortType, 7, 8), "TRANSABORT|file \"\" id \"\" values 7 8"},
        {record_of(FlushType), "UNKNOWN|file \"\" id \"\""},
        {move_record("/a", "/b"), "MOVEFILE|file \"\" id \"\" from \"/a\" to \"/b\""},
        {text_record(RemoveFileType, "/a"), "REMOVEFILE|file \"\" id \"\" text \"/a\""},
        {text_record(ChmodType, "-L", "/F"), "VCHMOD|file \"/F\" id \"\" text \"-L\""},
        {mkdir_record("/a"), "MKDIR|file \"\" id \"\" path \"/a\""},
        {flat_file_record("/a", "data"), "FLATFILE|file \"\" id \"\" path \"/a\" data 4 bytes"},
        {checkpoint_record(12, "C\xFE" + int64(1) + "\xFE" + int64(2)),
         "CHECKPOINT|file \"\" id \"\" behind 12 records"},
        {text_record(CreateIndexType, "t^C %s", "/F"), "CREATEINDEX|file \"/F\" id \"\" text \"t^C %s\""},
        {text_record(DeleteTriggerType, "t^C %s", "/F"), "DELETETRIGGER|file \"/F\" id \"\" text \"t^C %s\""},
    };
    SetBuilder set(paths_, Start);
    for (const auto &[record, line] : cases) set.add(record);
    set.write();
    const std::string output = dump({}).output;
    std::size_t at = 0;
    for (const auto &[record, expected] : cases) {
        const std::size_t end = output.find('\n', at);
        const std::string line = output.substr(at, end - at);
        const std::size_t bar = expected.find('|');
        EXPECT_TRUE(contains(line, "Z " + expected.substr(0, bar) + " port ")) << line;
        EXPECT_EQ(line.substr(std::min(line.find("file \""), line.size())), expected.substr(bar + 1));
        at = end + 1;
    }
    EXPECT_EQ(at, output.size());
}

TEST_F(JournalFiles, ADumpOfASetIsThatOfItsFiles) {
    const SetBuilder set = sample();
    set.write();
    const std::string by_files = dump({}).output;
    configure(set);
    EXPECT_EQ(velda({"vlogdump"}).output, by_files);
    EXPECT_EQ(velda({"vlogdump", "1"}).output, by_files);
}

TEST_F(JournalFiles, EachFilterKeepsItsRecords) {
    sample().write();
    const std::vector<std::pair<std::vector<std::string>, std::size_t>> cases = {
        {{"--file", "/data/ORDERS"}, 2},
        {{"--file", "/data/*"}, 3},
        {{"--file", "ORDERS"}, 0},
        {{"--id", "o1"}, 1},
        {{"--id", "o*"}, 2},
        {{"--type", "WRITE"}, 2},
        {{"--type", "delete,mkdir"}, 2},
        {{"--port", "9"}, 2},
        {{"--pid", "815"}, 1},
        {{"--from", "1700000010"}, 5},
        {{"--from", "2023-11-14T22:13:30"}, 5},
        {{"--from", "2023-11-14T22:13:31Z"}, 2},
        {{"--from", "2023-11-15"}, 0},
        {{"--to", "2023-11-14T22:13:20"}, 1},
        {{"--to", "1700000010", "--from", "1700000001", "--type", "WRITE"}, 1},
    };
    for (const auto &[words, count] : cases) {
        const Ran ran = dump(words);
        EXPECT_EQ(ran.code, 0);
        EXPECT_EQ(lines(ran.output), count) << words[0] << " " << words[1] << "\n" << ran.output;
    }
}

TEST_F(JournalFiles, CountsAreShownByType) {
    sample().write();
    const Ran ran = dump({"--stats"});
    EXPECT_EQ(ran.code, 0);
    EXPECT_TRUE(contains(ran.output, "WRITE                 2            238\n")) << ran.output;
    EXPECT_TRUE(contains(ran.output, "In transactions: 2\nFrom 2023-11-14T22:13:20Z to 2023-11-14T22:15:00Z\n"))
        << ran.output;
    const Ran filtered = dump({"--stats", "--json", "--file", "/data/ORDERS"});
    EXPECT_TRUE(contains(filtered.output, "{\"records\": 2, \"bytes\": ")) << filtered.output;
}

TEST_F(JournalFiles, JsonHasAnObjectALine) {
    sample().write();
    const Ran ran = dump({"--json", "--type", "WRITE"});
    EXPECT_EQ(lines(ran.output), 2u);
    EXPECT_TRUE(contains(ran.output,
                         "{\"key\": \"0*1*3660*1700000000\", \"type\": \"WRITE\", \"type_number\": 2, \"time\": "
                         "1700000000, \"port\": 3, \"pid\": 4711, \"size\": 118, \"in_transaction\": false, "
                         "\"enciphered\": false, \"file\": \"/data/ORDERS\", \"id\": \"o1\""))
        << ran.output;
    EXPECT_TRUE(contains(ran.output, "\"id\": \"s\\u0001\\\"1\"")) << ran.output;
}

TEST_F(JournalFiles, DataIsShownOnlyWhenTheEnvironmentAllowsIt) {
    sample().write();
    EXPECT_FALSE(contains(dump({}).output, "\"first\""));
    const Ran refused = dump({"--data"});
    EXPECT_EQ(refused.code, 3);
    EXPECT_TRUE(contains(refused.output, "vlogdump: --data needs ALLOWLOGDATA=on in the environment\n"));
    setenv("ALLOWLOGDATA", "on", 1);
    EXPECT_TRUE(contains(dump({"--data"}).output, "data 5 bytes \"first\"\n"));
    EXPECT_TRUE(contains(dump({"--data", "--json"}).output, "\"data\": \"first\"}\n"));
    EXPECT_FALSE(contains(dump({}).output, "\"first\""));
}

TEST_F(JournalFiles, ARecordIsFoundByItsKey) {
    const SetBuilder set = sample();
    set.write();
    configure(set);
    const Ran ran = velda({"vlogdump", "--key", "0*1*3660*1700000000"});
    EXPECT_EQ(ran.code, 0) << ran.output;
    EXPECT_TRUE(ran.output.starts_with("0*1*3660*1700000000 ")) << ran.output;
    const Ran absent = velda({"vlogdump", "--key", "0*1*3661*1700000000"});
    EXPECT_EQ(absent.code, 3);
    EXPECT_TRUE(contains(absent.output, "vlogdump: no whole record has the key '0*1*3661*1700000000'"))
        << absent.output;
}

TEST_F(JournalFiles, ADumpGoesOnBehindDamageAndTellsWhereItIs) {
    SetBuilder set = sample();
    set.blocks()[0][3660 + 118 + 60] ^= 1;
    set.write();
    const Ran ran = dump({});
    EXPECT_EQ(ran.code, 1);
    EXPECT_TRUE(contains(ran.output, "vlogdump: " + paths_[0] + " offset 3778: the record's checksum differs\n"))
        << ran.output;
    EXPECT_EQ(lines(ran.output), 6u);  // five records and the fault
}

TEST_F(JournalFiles, ADumpThatFollowsShowsWhatComes) {
    SetBuilder set(paths_, Start);
    set.add(write_record("FILE", "one", "data"));
    set.write();
    configure(set);
    const std::string shown = system_ / "shown";
    const pid_t child = fork();
    if (child == 0) {
        if (!freopen(shown.c_str(), "w", stdout)) _exit(1);
        execl(program().c_str(), "velda", "vlogdump", "--follow", nullptr);
        _exit(1);
    }
    const auto content = [&shown] {
        std::ifstream file(shown);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    const auto until = [&](const std::string &part) {
        for (int n = 0; n < 200 && !contains(content(), part); ++n)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_TRUE(contains(content(), part)) << content();
    };
    until("id \"one\"");
    set.add(write_record("FILE", "two", "data"));
    set.write();
    // In place: the follower has the file mapped.
    const LogSetInfo info = set.info();
    std::fstream file(system_ / "config/vediLoggerConfig", std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(21480);
    file.write(reinterpret_cast<const char *>(&info), sizeof info);
    file.flush();
    until("id \"two\"");
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(JournalFiles, VerifyTellsTheVerdictByItsExitCode) {
    SetBuilder set = sample();
    set.write();
    const Ran sound = verify();
    EXPECT_EQ(sound.code, 0);
    EXPECT_TRUE(contains(sound.output, paths_[0] + " " + paths_[1] + " is sound: 6 records of ")) << sound.output;

    set.blocks()[1].back() ^= 1;
    set.write();
    const Ran end = verify();
    EXPECT_EQ(end.code, 3);
    EXPECT_TRUE(contains(end.output, "the record of process 4711 is incomplete: its trailer differs\n")) << end.output;
    EXPECT_TRUE(contains(end.output, " is damaged at its end: 5 records of ")) << end.output;

    set = sample();
    set.blocks()[0][3660 + 60] ^= 1;
    set.write();
    const Ran inside = verify();
    EXPECT_EQ(inside.code, 4);
    EXPECT_TRUE(contains(inside.output, paths_[0] + " offset 3660: the record's checksum differs\n")) << inside.output;
    EXPECT_TRUE(contains(inside.output, " is damaged inside: 5 records of ")) << inside.output;

    std::filesystem::remove(paths_[1]);
    const Ran unreadable = verify();
    EXPECT_EQ(unreadable.code, 5);
    EXPECT_TRUE(contains(unreadable.output, "vlogverify: cannot open journal file '" + paths_[1] + "': No such file"))
        << unreadable.output;
}

TEST_F(JournalFiles, VerifyAsJsonNamesFileOffsetAndReason) {
    SetBuilder set = sample();
    set.blocks()[0][3660 + 60] ^= 1;
    set.write();
    const Ran ran = verify({"--json"});
    EXPECT_EQ(ran.code, 4);
    EXPECT_TRUE(contains(ran.output, "\"verdict\": \"damaged inside\", \"records\": 5, ")) << ran.output;
    EXPECT_TRUE(contains(ran.output, "\"faults\": [{\"path\": \"" + paths_[0] +
                                         "\", \"offset\": 3660, \"reason\": \"the record's checksum differs\"}]}\n"))
        << ran.output;
}

TEST_F(JournalFiles, VerifyOfOneFileOfSeveralTellsWhatItCannotSee) {
    SetBuilder set(paths_, Start);
    for (int n = 0; n < 50; ++n) set.add(write_record("FILE", std::to_string(n), std::string(300, 'd')));
    set.write();
    const Ran ran = velda({"vlogverify", paths_[1]});
    EXPECT_EQ(ran.code, 0) << ran.output;
    EXPECT_TRUE(contains(ran.output, "records that reach into other files of the set were not checked")) << ran.output;
}

TEST_F(JournalFiles, WrongCallsHaveExitCodeTwo) {
    const std::vector<std::vector<std::string>> calls = {
        {"vlogverify", "17"},
        {"vlogverify", "0"},
        {"vlogverify", "--what"},
        {"vlogdump", "--what"},
        {"vlogdump", "17"},
        {"vlogdump", "--file"},
        {"vlogdump", "--port", "x"},
        {"vlogdump", "--type", "NONE"},
        {"vlogdump", "--from", "yesterday"},
        {"vlogdump", "--from", "2023-13-40"},
        {"vlogdump", "--key", "0*1*2*3", "1"},
        {"vlogdump", "--follow", "--stats"},
        {"vlogdump", "--follow", "/some/file"},
    };
    for (const auto &call : calls) EXPECT_EQ(velda(call).code, 2) << call[0] << " " << call[1];
}

TEST_F(JournalFiles, WithoutAJournalThereIsNothingToRead) {
    EXPECT_EQ(velda({"vlogdump"}).code, 3);
    EXPECT_EQ(velda({"vlogverify"}).code, 5);
    EXPECT_EQ(velda({"vlogdump", "--key", "0*1*2*3"}).code, 3);
}

TEST_F(JournalFiles, BothHaveAHelp) {
    for (const std::string name : {"vlogdump", "vlogverify"}) {
        const Ran ran = velda({name, "-?"});
        EXPECT_EQ(ran.code, 0);
        EXPECT_TRUE(contains(ran.output, name)) << ran.output;
        EXPECT_TRUE(contains(ran.output, "Exit code 0")) << ran.output;
    }
}
