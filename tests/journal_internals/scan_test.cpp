// The scan of journal files, by which the commands dump and verify: damage of every kind is found, named, and passed.
#include "journal/log_scan.h"

#include <set>
#include <thread>

#include "journal/select_parser.h"
#include "tests/journal_internals/reading_fixture.h"
#include "tests/support/seed.h"

using namespace velda::test;
using namespace velda::journal;

namespace {

class Collector : public LogVisitor {
  public:
    explicit Collector(const LogSource &source) : source_(source) {}
    bool record(const LogHeader &header, const unsigned char *bytes) override {
        records.emplace_back(reinterpret_cast<const char *>(bytes), static_cast<std::size_t>(header.record_size));
        return true;
    }
    void fault(const LogFault &fault) override {
        const std::string path = source_.paths[fault.place.file];
        faults.push_back(path.substr(path.rfind('/') + 1) + " " + std::to_string(fault.place.offset) + ": " +
                         fault.reason);
        places.push_back(fault.place);
    }
    std::vector<std::string> records, faults;
    std::vector<LogPlace> places;

  private:
    const LogSource &source_;
};

// A scan's outcome.
struct Scanned {
    std::vector<std::string> records, faults;
    std::vector<LogPlace> places;
    ScanResult result;
    std::string error;
    std::string verdict() const {
        return !error.empty() ? error : !result.has_faults ? "sound" : result.is_damaged_inside ? "inside" : "end";
    }
};

class ScanTest : public ReadingTest {
  protected:
    Scanned scan(const velda::Result<LogSource> &source) {
        Scanned scanned;
        if (!source) {
            scanned.error = source.error().message;
            return scanned;
        }
        Collector collector(*source);
        const auto result = scan_log(dp, *source, collector);
        if (result)
            scanned.result = *result;
        else
            scanned.error = result.error().message;
        scanned.records = collector.records;
        scanned.faults = collector.faults;
        scanned.places = collector.places;
        expect_same_verdict_of_threads(*source, scanned);
        return scanned;
    }
    // Whatever is scanned in these tests, several threads must come to the same end.
    void expect_same_verdict_of_threads(const LogSource &source, const Scanned &scanned) {
        for (const std::int64_t stretch_blocks : {1, 3, 20}) {
            Collector collector(source);
            const auto result = verify_log(dp, source, collector, stretch_blocks);
            ASSERT_EQ(result ? "" : result.error().message, scanned.error);
            EXPECT_EQ(collector.faults, scanned.faults) << "stretches of " << stretch_blocks;
            if (!result) continue;
            EXPECT_EQ(result->records, scanned.result.records);
            EXPECT_EQ(result->record_bytes, scanned.result.record_bytes);
            EXPECT_EQ(result->without_crc, scanned.result.without_crc);
            EXPECT_EQ(result->blocks, scanned.result.blocks);
            EXPECT_EQ(result->has_faults, scanned.result.has_faults);
            EXPECT_EQ(result->is_damaged_inside, scanned.result.is_damaged_inside);
            records_passed += scanned.result.records - static_cast<std::int64_t>(collector.records.size());
        }
    }
    std::int64_t records_passed = 0;  // that stretches vouched for, of all scans
    Scanned scan_set(int set = 1) { return scan(source_of_set(dp, set)); }
    Scanned scan_files(const std::vector<std::string> &paths) { return scan(source_of_files(dp, paths)); }

    // Records of every type, at these sizes.
    static std::vector<BuiltRecord> every_type() {
        return {write_record("FILE", "key", std::string(200, 'd')),
                delete_record("FILE", "key"),
                record_of(ClearFileType, "", "FILE"),
                record_of(DeleteFileType, "", "FILE"),
                create_file_record("NEW", "HL", "text", {"one", "two"}),
                transaction_record(TranStartType, 1, 2, "text"),
                transaction_record(TranEndType, 1, 2, "text"),
                transaction_record(TranAbortType, 1, 2, "text"),
                record_of(FlushType),
                move_record("/data/a", "/data/b"),
                text_record(RemoveFileType, "/data/gone"),
                text_record(ChmodType, "mode block", "FILE"),
                mkdir_record("/data/dir"),
                flat_file_record("/data/flat", "contents"),
                checkpoint_record(7, "a\xFE" + int64(1) + "\xFE" + int64(2)),
                text_record(CreateIndexType, "text^CREATE %s"),
                text_record(DeleteIndexType, "text^DELETE %s"),
                text_record(RebuildIndexType, "text^REBUILD %s"),
                text_record(CreateTriggerType, "text^TRIGGER %s"),
                text_record(DeleteTriggerType, "text^TRIGGER %s")};
    }

    SetBuilder mixed_set(int files, int records, std::mt19937_64 &random) {
        SetBuilder set = set_of(files);
        const std::vector<BuiltRecord> types = every_type();
        for (int n = 0; n < records; ++n) {
            BuiltRecord record =
                n % 4 ? write_record("FILE", std::to_string(n), random_bytes(random, n % 7 ? 500 : 12'000))
                      : types[static_cast<std::size_t>(n / 4) % types.size()];
            record.time = FirstTime + n / 5;
            set.add(record);
        }
        return set;
    }
};

// --- sound sets -----------------------------------------------------------------------------------------------------

TEST_F(ScanTest, EveryRecordOfASoundSetIsGivenInOrder) {
    auto random = seeded_random();
    for (const int files : {1, 2, 3, 16}) {
        const SetBuilder set = mixed_set(files, 300, random);
        publish(set);
        for (const Scanned &scanned : {scan_set(), scan_files(set.paths())}) {
            if (files > 1 || scanned.error.empty()) {
                EXPECT_EQ(scanned.verdict(), "sound") << (scanned.faults.empty() ? "" : scanned.faults[0]);
                EXPECT_EQ(scanned.records.size(), 300u);
            }
        }
        EXPECT_EQ(scan_set().records, scan_files(set.paths()).records);
    }
    EXPECT_TRUE(records_passed > 1000 || std::thread::hardware_concurrency() < 2);
}

TEST_F(ScanTest, ASetThatWasEmptiedIsSound) {
    const SetBuilder set = set_of(2);
    publish(set);
    EXPECT_EQ(scan_set().verdict(), "sound");
    std::ofstream(set.paths()[0], std::ios::binary) << std::string(4095, '\0') << 'x';
    EXPECT_EQ(scan_set().verdict(), "sound");
}

TEST_F(ScanTest, AFilledSetMayBeFollowedByBlocksOfAnEarlierUse) {
    SetBuilder before = set_of(2, 1, FirstTime - 1000);
    for (int n = 0; n < 100; ++n) before.add(write_record("FILE", "old", std::string(400, 'o')));
    before.write();
    SetBuilder set = set_of(2);
    for (int n = 0; n < 30; ++n) set.add(write_record("FILE", "new", std::string(400, 'n')));
    set.configure(config);
    for (std::size_t file = 0; file < 2; ++file) {
        std::fstream out(set.paths()[file], std::ios::binary | std::ios::in | std::ios::out);
        out << set.file_bytes(file);
    }
    config.currentSet = 1;
    const Scanned scanned = scan_set();
    EXPECT_EQ(scanned.verdict(), "sound") << scanned.faults[0];
    EXPECT_EQ(scanned.records.size(), 30u);
    EXPECT_EQ(scan_files(set.paths()).records.size(), 30u);
}

TEST_F(ScanTest, SpaceThatWasOnlyAllocatedIsSound) {
    SetBuilder set = set_of(2);
    set.add(write_record("FILE", "key", "data"));
    publish(set);
    for (const std::string &path : set.paths()) std::filesystem::resize_file(path, 65536);
    EXPECT_EQ(scan_set().verdict(), "sound");
    EXPECT_EQ(scan_files(set.paths()).verdict(), "sound");
}

TEST_F(ScanTest, ASetWithoutAnyChecksumIsSoundAndCounted) {
    SetBuilder set = set_of(1);
    for (int n = 0; n < 3; ++n) {
        BuiltRecord record = write_record("FILE", "key", "data");
        record.has_crc = false;
        set.add(record);
    }
    publish(set);
    const Scanned scanned = scan_set();
    EXPECT_EQ(scanned.verdict(), "sound");
    EXPECT_EQ(scanned.result.without_crc, 3);
}

// --- faults by their texts ------------------------------------------------------------------------------------------

class Faults : public ScanTest {
  protected:
    // Ten records of 308 bytes over two files, with one changed before it is put in.
    Scanned with(const std::function<void(SetBuilder &, BuiltRecord &)> &change, int which = 4) {
        SetBuilder set = set_of(2);
        for (int n = 0; n < 10; ++n) {
            BuiltRecord record = write_record("FILE", "key" + std::to_string(n), std::string(200, 'd'));
            record.time = FirstTime + n;
            if (n == which) change(set, record);
            set.add(record);
        }
        publish(set);
        return scan_set();
    }
    void expect_fault(const Scanned &scanned, const std::string &fault, const std::string &verdict) {
        ASSERT_FALSE(scanned.faults.empty());
        EXPECT_EQ(scanned.faults[0], fault);
        EXPECT_EQ(scanned.verdict(), verdict);
    }
};

TEST_F(Faults, AnIncompleteRecordInside) {
    const Scanned scanned = with([](SetBuilder &, BuiltRecord &record) { record.is_complete = false; });
    expect_fault(scanned, "set1file2 820: the record of process 4711 is incomplete: its trailer differs", "inside");
    EXPECT_EQ(scanned.records.size(), 9u);
}

TEST_F(Faults, AnIncompleteRecordAtTheEnd) {
    const Scanned scanned = with([](SetBuilder &, BuiltRecord &record) { record.is_complete = false; }, 9);
    expect_fault(scanned, "set1file2 2355: the record of process 4711 is incomplete: its trailer differs", "end");
    EXPECT_EQ(scanned.records.size(), 9u);
}

TEST_F(Faults, AStampThatFalls) {
    expect_fault(with([](SetBuilder &, BuiltRecord &record) { record.time -= 2; }),
                 "set1file2 820: the record's stamp is earlier than that of the record before", "inside");
}

TEST_F(Faults, AStampBeforeTheSet) {
    const Scanned scanned = with([](SetBuilder &, BuiltRecord &record) { record.time = FirstTime - 1; });
    expect_fault(scanned, "set1file2 820: the record's stamp 1699999999 is before the set's", "inside");
    EXPECT_EQ(scanned.records.size(), 9u);
}

TEST_F(Faults, AnUnknownType) {
    expect_fault(with([](SetBuilder &, BuiltRecord &record) { record.type = 16; }),
                 "set1file2 820: the record's type is unknown", "inside");
}

TEST_F(Faults, ContentsThatDoNotFillTheRecord) {
    expect_fault(with([](SetBuilder &, BuiltRecord &record) { record.payload.replace(8, 4, int32(199)); }),
                 "set1file2 820: the record's contents do not fill it as their lengths tell", "inside");
}

TEST_F(Faults, AnotherPlaceThanItTells) {
    const Scanned scanned = with([](SetBuilder &, BuiltRecord &record) { record.told_file = 0; });
    expect_fault(scanned, "set1file2 820: the record tells that it is of file 0 at offset 820", "inside");
    EXPECT_EQ(scanned.records.size(), 9u);
}

TEST_F(Faults, AnotherSetThanTheRecordsBefore) {
    expect_fault(with([](SetBuilder &, BuiltRecord &record) { record.told_set = 5; }),
                 "set1file2 820: the record tells that it is of set 5", "inside");
}

TEST_F(Faults, ASizeThatCannotBe) {
    expect_fault(with([](SetBuilder &, BuiltRecord &record) { record.told_record_size = 40; }),
                 "set1file2 820: the record's size 40 with texts of 39 is impossible", "inside");
}

TEST_F(Faults, ARecordWithoutAChecksumAmongOthers) {
    expect_fault(with([](SetBuilder &, BuiltRecord &record) { record.has_crc = false; }),
                 "set1file2 820: the record has no checksum, unlike others", "inside");
}

TEST_F(Faults, BytesBetweenRecords) {
    const Scanned scanned = with([](SetBuilder &set, BuiltRecord &) { set.add_bytes("junk"); });
    expect_fault(scanned, "set1file2 820: no record begins here", "inside");
    EXPECT_EQ(scanned.records.size(), 10u);
}

TEST_F(Faults, ARecordBehindTheEndOfTheSet) {
    expect_fault(with([](SetBuilder &set, BuiltRecord &record) {
                     BuiltRecord end = record_of(EofType);
                     end.time = record.time;
                     set.add(end);
                 }),
                 "set1file2 907: a record stands behind the end of the set", "inside");
}

TEST_F(Faults, RecordsThatAreMissingAtTheEnd) {
    SetBuilder set = set_of(1);
    for (int n = 0; n < 5; ++n) set.add(delete_record("FILE", "key"));
    const Placed end = set.next_place();
    publish(set);
    config.sets[0].recordCount = 6;
    const Scanned scanned = scan_set();
    expect_fault(scanned,
                 "set1file1 " + std::to_string(end.offset) + ": records are missing: the set has 6, found were 5",
                 "end");
}

TEST_F(Faults, AStampBehindTheSetsLast) {
    with([](SetBuilder &, BuiltRecord &) {});
    config.sets[0].timeLast = FirstTime + 8;
    expect_fault(scan_set(), "set1file2 2355: the record's stamp is later than the set's last", "end");
}

TEST_F(Faults, FilesThatAreNone) {
    EXPECT_NE(scan_files({system_ / "absent"}).error.find("No such file"), std::string::npos);
    std::ofstream(system_ / "text") << std::string(10'000, 't');
    EXPECT_EQ(scan_files({system_ / "text"}).error,
              "journal file '" + (system_ / "text") + "': it has no block of a journal");
    std::ofstream(system_ / "short") << "short";
    EXPECT_EQ(scan_files({system_ / "short"}).error,
              "journal file '" + (system_ / "short") + "': it has no block of a journal");
    EXPECT_EQ(scan_set(9).error, "set 9 has no files");
}

// What a record tells in its turn: at each place of some blocks, so also where a stretch of a thread begins.
TEST_F(Faults, AreTheSameWhereAStretchBegins) {
    constexpr int Records = 60;
    using Change = std::function<void(BuiltRecord & record, int number, int which)>;
    const std::vector<Change> changes = {
        [](BuiltRecord &record, int n, int which) { record.time -= n == which ? 2 : 0; },
        [](BuiltRecord &record, int n, int which) { record.time += n == which ? 1000 : 0; },
        [](BuiltRecord &record, int n, int which) { record.told_set = n == which ? 5 : 1; },
        [](BuiltRecord &record, int n, int which) { record.has_crc = n != which; },
        [](BuiltRecord &record, int n, int which) { record.has_crc = n > which; },
        [](BuiltRecord &record, int n, int which) { record.type = n == which ? EofType : record.type; },
        [](BuiltRecord &record, int n, int which) { record.type = n == which ? 16 : record.type; }};
    for (const Change &change : changes)
        for (int which = 1; which < Records - 1; ++which) {
            SetBuilder set = set_of(2);
            for (int n = 0; n < Records; ++n) {
                BuiltRecord record = write_record("FILE", "key" + std::to_string(n), std::string(200, 'd'));
                record.time = FirstTime + n;
                change(record, n, which);
                set.add(record);
            }
            publish(set);
            config.sets[0].recordCount = Records;
            config.sets[0].timeLast = FirstTime + Records;
            EXPECT_TRUE(scan_set().result.has_faults) << which;
        }
    EXPECT_TRUE(records_passed > 1000 || std::thread::hardware_concurrency() < 2);
}

// --- every byte -----------------------------------------------------------------------------------------------------

TEST_F(ScanTest, EverySingleByteFlipInARecordOfEveryTypeIsFound) {
    auto random = seeded_random();
    std::size_t flips = 0;
    for (const BuiltRecord &middle : every_type()) {
        SetBuilder set = set_of(1);
        set.add(write_record("FILE", "before", "data"));
        const Placed placed = set.add(middle);
        set.add(write_record("FILE", "behind", "data"));
        publish(set);
        const std::string sound = set.file_bytes(0);
        for (std::size_t byte = 0; byte < placed.size; ++byte) {
            const std::size_t in_block = static_cast<std::size_t>(placed.offset) % 4096 + byte;
            const std::size_t at = in_block < 4096 ? static_cast<std::size_t>(placed.offset) + byte
                                                   : static_cast<std::size_t>(placed.offset) + byte + 28;
            std::string flipped = sound;
            flipped[at] = static_cast<char>(flipped[at] ^ (1 + random() % 255));
            std::ofstream(set.paths()[0], std::ios::binary) << flipped;
            const Scanned scanned = scan_set();
            ++flips;
            ASSERT_TRUE(scanned.result.has_faults) << "type " << middle.type << " byte " << byte;
            ASSERT_EQ(scanned.places[0].offset, placed.offset) << "type " << middle.type << " byte " << byte;
        }
    }
    EXPECT_GT(flips, 2000u);
}

// --- generated damage -----------------------------------------------------------------------------------------------

struct Damaged {
    std::vector<std::string> files;  // the bytes of each; "(gone)" for one that was removed
    bool is_unreadable = false;
};

class GeneratedDamage : public ScanTest, public ::testing::WithParamInterface<int> {
  protected:
    static constexpr const char *Gone = "(gone)";

    // One kind of damage to the sound bytes of three files. `before` is what the files held at an earlier moment of this
    // use, `old` what they held in the use before.
    static std::string damage(int kind, std::mt19937_64 &random, std::vector<std::string> &files,
                              const std::vector<std::string> &before, const std::vector<std::string> &old) {
        const auto place = [&](std::size_t unit, std::size_t &file) {
            file = random() % files.size();
            return random() % (files[file].size() / unit) * unit;
        };
        std::size_t file = 0;
        switch (kind) {
            case 0: {
                const std::size_t at = place(4096, file);
                files[file].replace(at, 4096, 4096, '\0');
                return "block zeroed";
            }
            case 1: {
                const std::size_t at = place(512, file);
                files[file].replace(at, 512, 512, '\0');
                return "sector zeroed";
            }
            case 2: {
                const std::size_t at = place(512, file);
                files[file].replace(at, 512, old[file].substr(at, 512));
                return "sector of the use before";
            }
            case 3: {
                const std::size_t at = place(512, file);
                std::string sector = at < before[file].size() ? before[file].substr(at, 512) : "";
                sector.resize(512, '\0');
                files[file].replace(at, 512, sector);
                return "sector of an earlier moment";
            }
            case 4: {
                const std::size_t at = place(4096, file);
                files[file].replace(at, 4096, old[file].substr(at, 4096));
                return "block of the use before";
            }
            case 5: {
                const std::size_t first = random() % 3;
                std::swap(files[first], files[(first + 1 + random() % 2) % 3]);
                return "files swapped";
            }
            case 6:
                files[random() % 3] = Gone;
                return "file removed";
            case 7:
                file = random() % 3;
                files[file] = before[file];
                return "file rolled back";
            case 8: {
                file = random() % 3;
                files[file].resize(random() % files[file].size());
                return "file cut";
            }
            case 9: {
                const std::size_t from = place(4096, file), to = random() % (files[file].size() / 4096) * 4096;
                const std::string one = files[file].substr(from, 4096);
                files[file].replace(from, 4096, files[file].substr(to, 4096));
                files[file].replace(to, 4096, one);
                return "blocks swapped";
            }
            default: {
                const std::size_t at = place(1, file);
                const std::size_t length = std::min<std::size_t>(1 + random() % 300, files[file].size() - at);
                for (std::size_t n = 0; n < length; ++n) files[file][at + n] = static_cast<char>(random());
                return "bytes overwritten";
            }
        }
    }

    // Whether the byte of a file belongs to a record: not to a block's header, the set's description, or free space.
    static bool is_in_record(SetBuilder &set, std::size_t file, std::size_t at) {
        const std::size_t block = at / 4096 * 3 + file, in_block = at % 4096;
        return block < set.blocks().size() && in_block >= (block == 0 ? 3660u : 28u) &&
               in_block < set.blocks()[block].size();
    }

    void put(const SetBuilder &set, const std::vector<std::string> &files) {
        for (std::size_t n = 0; n < files.size(); ++n) {
            std::filesystem::remove(set.paths()[n]);
            if (files[n] != Gone) std::ofstream(set.paths()[n], std::ios::binary) << files[n];
        }
    }
};

// Nothing that is not a record of the set is delivered, by the scan or by a selection, and every fault has its place.
TEST_P(GeneratedDamage, NothingOldOrForeignIsDelivered) {
    auto random = seeded_random();
    spec_settings().skip_damaged = true;
    SetBuilder old_set = set_of(3, 1, FirstTime - 10'000);
    for (int n = 0; n < 220; ++n) {
        BuiltRecord record = write_record("FILE", std::to_string(n), random_bytes(random, 600));
        record.time = FirstTime - 10'000 + n;
        old_set.add(record);
    }
    while (old_set.blocks().size() < 60) old_set.add(write_record("FILE", "fill", std::string(5000, 'f')));
    constexpr int Cases = 20, MostRounds = 400;  // of each kind: 220 in all
    int cases = 0;
    for (int round = 0; round < MostRounds && cases < Cases; ++round) {
        SetBuilder set = set_of(3);
        std::vector<std::string> before, files, old, all;
        for (int n = 0; n < 200; ++n) {
            BuiltRecord record = write_record("FILE", std::to_string(n), random_bytes(random, n % 9 ? 500 : 9000));
            record.time = FirstTime + n;
            const Placed placed = set.next_place();
            set.add(record);
            all.push_back(record_bytes(record, 1, placed.file, placed.offset));
            if (n == 120)
                for (std::size_t file = 0; file < 3; ++file) before.push_back(set.file_bytes(file));
        }
        set.add(record_of(EofType));
        set.configure(config);
        config.currentSet = 2;
        for (std::size_t file = 0; file < 3; ++file) {
            files.push_back(set.file_bytes(file));
            old.push_back(old_set.file_bytes(file));
            old.back().resize(std::max(old.back().size(), files.back().size()), '\0');
        }
        const std::vector<std::string> sound = files;
        const std::string what = damage(GetParam(), random, files, before, old);
        if (files == sound) continue;
        ++cases;
        put(set, files);
        const std::set<std::string> known(all.begin(), all.end());

        const Scanned scanned = scan_set();
        const bool is_gone = std::find(files.begin(), files.end(), Gone) != files.end();
        if (is_gone) {
            EXPECT_NE(scanned.error.find("No such file"), std::string::npos);
            continue;
        }
        bool differs_in_data = false;  // in a byte that belongs to a record
        for (std::size_t file = 0; file < 3; ++file)
            for (std::size_t at = 0; at < sound[file].size() && !differs_in_data; ++at)
                differs_in_data =
                    (at >= files[file].size() || files[file][at] != sound[file][at]) && is_in_record(set, file, at);
        EXPECT_TRUE(!differs_in_data || scanned.result.has_faults) << what;
        std::size_t last = 0;
        for (const std::string &record : scanned.records) {
            if (static_cast<unsigned char>(record[20]) == EofType) continue;
            EXPECT_TRUE(known.contains(record)) << what << ": something foreign was delivered";
            while (last < all.size() && all[last] != record) ++last;
            EXPECT_LT(last, all.size()) << what << ": out of order";
        }
        for (const LogPlace &place : scanned.places) {
            EXPECT_LT(place.file, 3u);
            EXPECT_GE(place.offset, 0);
        }

        auto select = selection(1, SelectEof);
        context().openSet = -1;
        for (int reads = 0; reads < 400; ++reads) {
            const unsigned char *const record = VELDALoggerReadnext(dp, select.get(), nullptr);
            if (!record) break;
            const std::string bytes(reinterpret_cast<const char *>(record),
                                    static_cast<std::size_t>(LogHeader(record).record_size));
            EXPECT_TRUE(known.contains(bytes)) << what << ": something foreign was delivered by a selection";
        }
    }
    EXPECT_EQ(cases, Cases);
}

INSTANTIATE_TEST_SUITE_P(Kinds, GeneratedDamage, ::testing::Range(0, 11));

// --- one file of several --------------------------------------------------------------------------------------------

class Member : public ScanTest {
  protected:
    Member() : random(seeded_random()), set(mixed_set(3, 200, random)) { publish(set); }
    std::mt19937_64 random;
    SetBuilder set;
};

TEST_F(Member, ASoundFileOfSeveralIsSoundAlone) {
    for (const std::string &path : set.paths()) {
        const Scanned scanned = scan_files({path});
        EXPECT_EQ(scanned.verdict(), "sound") << path << ": " << (scanned.faults.empty() ? "" : scanned.faults[0]);
        EXPECT_GT(scanned.records.size(), 0u);
    }
}

TEST_F(Member, AZeroedBlockInsideIsFound) {
    for (std::size_t file = 0; file < 3; ++file) {
        std::string bytes = set.file_bytes(file);
        bytes.replace(8192, 4096, 4096, '\0');
        std::ofstream(set.paths()[file], std::ios::binary) << bytes;
        const Scanned scanned = scan_files({set.paths()[file]});
        ASSERT_EQ(scanned.faults.size(), 1u);
        EXPECT_EQ(scanned.faults[0], "set1file" + std::to_string(file + 1) + " 8192: the block is all zeros");
        EXPECT_EQ(scanned.verdict(), "inside");
    }
}

TEST_F(Member, ABlockOfAnotherFileIsFound) {
    std::string bytes = set.file_bytes(1);
    bytes.replace(8192, 4096, set.file_bytes(2).substr(8192, 4096));
    std::ofstream(set.paths()[1], std::ios::binary) << bytes;
    EXPECT_EQ(scan_files({set.paths()[1]}).verdict(), "inside");
}

TEST_F(Member, AByteOfARecordInsideOfABlockIsFound) {
    std::string bytes = set.file_bytes(1);
    const std::size_t marker = bytes.find(
        "V\xFF"
        "R\xFF"
        "E\xFF"
        "C\xFF",
        4096 * 3);
    bytes[marker + 60] ^= 4;
    std::ofstream(set.paths()[1], std::ios::binary) << bytes;
    const Scanned scanned = scan_files({set.paths()[1]});
    EXPECT_LT(scanned.records.size(), 200u);
}

}  // namespace
