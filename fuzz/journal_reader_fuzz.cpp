// Bytes of journal files: blocks and records read by every road, recovery from damage, conversion, keys. Nothing of them
// may lead outside a buffer, allocate without bound, or hang.
//
// The first bytes of an input choose what it changes: a record that would be whole, the blocks around it, or all of the
// data. With VELDA_FUZZ_LOUD in the environment what recovery prints is shown.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "journal/journal.h"
#include "journal/log_bytes.h"
#include "journal/log_record.h"
#include "journal/log_scan.h"
#include "journal/log_select.h"
#include "journal/select_parser.h"
#include "runtime/vutil.h"
#include "tests/support/journal_builder.h"

namespace {

using namespace velda::journal;

constexpr std::int64_t SetTime = 1'700'000'000;
constexpr std::size_t FileBytes = 3 * 4096;

void require(bool holds) {
    if (!holds) std::abort();
}

// A journal with a set of two files, whose bytes each input replaces.
struct Journal {
    Journal() : directory(std::filesystem::temp_directory_path() / "velda-fuzz-XXXXXX") {
        require(mkdtemp(directory.data()) != nullptr);
        setenv("VELDAGLOBALDIR", directory.c_str(), 1);
        dp = velda_getdp();
        require(VELDALoggerGetDefinition(dp) == 0);
        config = VediLoggerInit(dp, 1);
        std::snprintf(config->adminLogPath, sizeof config->adminLogPath, "/dev/null");
        velda::test::SetBuilder set({directory + "/a", directory + "/b"}, SetTime);
        set.add(velda::test::write_record("FILE", "first", std::string(4300, 'd')));
        set.add(velda::test::write_record("FILE", "second", "data"));
        set.add(velda::test::transaction_record(velda::test::TranStartType, 1, 2, "text"));
        set.add(velda::test::record_of(velda::test::EofType));
        set.configure(*config);
        config->sets[0].timeLast = 0;
        config->currentSet = 2;
        for (std::size_t file = 0; file < 2; ++file) {
            sound[file] = set.file_bytes(file);
            sound[file].resize(FileBytes, '\0');
            files[file] = open(set.paths()[file].c_str(), O_RDWR | O_CREAT, 0600);
            require(files[file] >= 0);
        }
    }
    ~Journal() { std::filesystem::remove_all(directory); }

    std::string directory;
    DP *dp;
    VELDALoggerConfig *config;
    std::string sound[2];
    int files[2];
};

Journal &journal() {
    static Journal the_journal;
    return the_journal;
}

// Puts the sound bytes, changed by the input, into the files.
void put_files(const std::uint8_t *data, std::size_t size) {
    std::string bytes[2] = {journal().sound[0], journal().sound[1]};
    const int way = size > 0 ? data[0] % 3 : 0;
    if (way == 0) {  // the data itself
        bytes[0].replace(3660, std::min<std::size_t>(size, 436),
                         std::string(data, data + std::min<std::size_t>(size, 436)));
        if (size > 436)
            bytes[1].replace(28, std::min<std::size_t>(size - 436, 4068),
                             std::string(data + 436, data + std::min<std::size_t>(size, 4504)));
    } else {  // single bytes: of the first record's header, or of anything
        const std::size_t begin = way == 1 ? 3660 : 0, range = way == 1 ? 100 : 2 * FileBytes;
        for (std::size_t n = 1; n + 3 <= size; n += 3) {
            const std::size_t at = begin + (data[n] * 256u + data[n + 1]) % range;
            if (at < 2 * FileBytes) bytes[at / FileBytes][at % FileBytes] = static_cast<char>(data[n + 2]);
        }
    }
    for (std::size_t file = 0; file < 2; ++file)
        require(pwrite(journal().files[file], bytes[file].data(), FileBytes, 0) == static_cast<ssize_t>(FileBytes));
}

char *allocate(DP *, char *old, std::uint32_t size) { return static_cast<char *>(std::realloc(old, size)); }

// A record in memory of exactly its size.
void convert_record(const unsigned char *record) {
    const LogHeader header(record);
    require(has_possible_sizes(header));
    const std::vector<unsigned char> exact(record, record + header.record_size);
    char *buffer = nullptr;
    std::uint32_t size = 0;
    require(VELDALoggerConvertRecord(journal().dp, exact.data(), "extra", &buffer, &size, allocate) == 0);
    std::free(buffer);
    char key[VELDA_LOGGER_KEY_BYTES];
    const int length = VELDALoggerMakeKey(journal().dp, exact.data(), key);
    std::int32_t file = 0, set = 0;
    std::int64_t offset = 0, time = 0;
    VELDALoggerSplitKey(journal().dp, &file, &set, &offset, &time, key, length);
    require(file == header.file && set == header.set && (header.offset < 0 || offset == header.offset));
}

void read_selection() {
    LoggerContext &context = logger_context(journal().dp);
    release_blocks(journal().dp, context);
    context.hasRecord = false;
    LogSelect select;
    select.deviceType = LogSetDevice;
    select.set = 1;
    select.setFirstTime = SetTime;
    select.flags = SelectEos;
    select.retry = 0;
    constexpr int MostReads = 1000;
    int reads = 0;
    while (const unsigned char *const record = VELDALoggerReadnext(journal().dp, &select, nullptr)) {
        require(++reads < MostReads);
        convert_record(record);
    }
    require(context.recordCapacity < 1'000'000);
}

struct Visitor : LogVisitor {
    bool record(const LogHeader &, const unsigned char *record) override {
        convert_record(record);
        return true;
    }
    void fault(const LogFault &fault) override { require(fault.place.file < 2 && fault.place.offset >= 0); }
};

void scan_all() {
    Visitor visitor;
    for (const bool as_set : {true, false}) {
        const auto source =
            as_set ? source_of_set(journal().dp, 1) : source_of_files(journal().dp, {journal().directory + "/a"});
        if (!source) continue;
        const auto scanned = scan_log(journal().dp, *source, visitor);
        const auto verified = verify_log(journal().dp, *source, visitor, 1);
        require(scanned.ok() && verified.ok());
        require(verified->records == scanned->records && verified->has_faults == scanned->has_faults);
    }
}

// Any bytes as a record of the size that is there.
void convert_anything(const std::uint8_t *data, std::size_t size) {
    if (size < RecordHeader::Bytes + RecordTrailerBytes) return;
    std::vector<unsigned char> record(data, data + size);
    vputint32(record.data() + RecordHeader::RecordSize, static_cast<std::int32_t>(size));
    const LogHeader header(record.data());
    if (has_possible_sizes(header)) convert_record(record.data());
}

class Quiet {
  public:
    Quiet() : before_(std::getenv("VELDA_FUZZ_LOUD") ? -1 : dup(2)) {
        if (before_ < 0) return;
        const int nothing = open("/dev/null", O_WRONLY);
        dup2(nothing, 2);
        close(nothing);
    }
    ~Quiet() {
        if (before_ < 0) return;
        dup2(before_, 2);
        close(before_);
    }

  private:
    int before_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    setenv("ALLOWLOGDATA", "on", 1);
    put_files(data, size);
    spec_settings().skip_damaged = true;
    {
        const Quiet quiet;
        read_selection();
    }
    scan_all();
    convert_anything(data, size);
    std::int32_t file, set;
    std::int64_t offset, time;
    VELDALoggerSplitKey(journal().dp, &file, &set, &offset, &time, reinterpret_cast<const char *>(data),
                        static_cast<int>(size));
    const Quiet quiet;
    VELDALoggerReadRecord(journal().dp, nullptr, file, 1, offset, 0, nullptr);
    return 0;
}
