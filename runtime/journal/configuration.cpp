#include "runtime/journal/configuration.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <vector>

#include "runtime/base/global_directory.h"
#include "runtime/journal/under_way.h"
#include "runtime/journal/writer_state.h"
#include "runtime/process/context.h"

namespace velda::journal {

namespace {

constexpr char ConfigurationName[] = "/vediLoggerConfig";
constexpr char LockName[] = "/vediLoggerTransLock";

// A record lies on disk with numbers in the byte order of its machine.
constexpr std::uint32_t ForeignByteOrder = 0x78563412;
static_assert(__builtin_bswap32(VELDA_LOGGER_BYTE_ORDER) == ForeignByteOrder);

class OpenFile {
  public:
    explicit OpenFile(const std::string &path) : number(open(path.c_str(), O_RDWR | O_CLOEXEC)) {}
    ~OpenFile() {
        if (number >= 0) close(number);
    }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;
    const int number;
};

// The file's status once it has its full size, which the process that makes it gives it with its contents.
Result<struct stat> complete_status(int file, const std::string &path) {
    constexpr int Looks = 100;
    constexpr timespec BetweenLooks = {0, 1'000'000};
    struct stat status {};
    for (int look = 0; look < Looks; ++look) {
        if (fstat(file, &status) != 0) return system_error(errno, "cannot read the status of", path);
        if (status.st_size >= VELDA_LOGGER_CONFIG_BYTES) return status;
        nanosleep(&BetweenLooks, nullptr);
    }
    return Error{VELDA_LOGGER_DAMAGED, "journal configuration '" + path + "' is damaged: it has " +
                                           std::to_string(status.st_size) + " bytes instead of " +
                                           std::to_string(VELDA_LOGGER_CONFIG_BYTES) +
                                           "; when it is removed, the next use makes a new one"};
}

// Why a record of the right length is none that this process can use; "" when it is.
std::string fault_of(const VELDALoggerConfig &record) {
    if (std::memcmp(record.magic, VELDA_LOGGER_MAGIC, sizeof record.magic) != 0)
        return "it does not begin with " VELDA_LOGGER_MAGIC;
    if (record.byteOrderMark == ForeignByteOrder) return "it comes from a machine of another byte order";
    if (record.byteOrderMark != VELDA_LOGGER_BYTE_ORDER) return "its byte order mark is damaged";
    if (record.recordSize != VELDA_LOGGER_CONFIG_BYTES)
        return "it names a record size of " + std::to_string(record.recordSize);
    if (record.formatVersion != VELDA_LOGGER_FORMAT_VERSION)
        return "it has format version " + std::to_string(record.formatVersion);
    return "";
}

Result<VELDALoggerConfig *> map_record(int file, const std::string &path) {
    void *const bytes = mmap(nullptr, VELDA_LOGGER_CONFIG_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (bytes == MAP_FAILED) return system_error(errno, "cannot map", path);
    auto *const record = static_cast<VELDALoggerConfig *>(bytes);
    const std::string fault = fault_of(*record);
    if (fault.empty()) return record;
    munmap(bytes, VELDA_LOGGER_CONFIG_BYTES);
    return Error{VELDA_LOGGER_DAMAGED, "journal configuration '" + path + "' cannot be used: " + fault};
}

struct Mappings {
    std::mutex mutex;
    std::vector<std::unique_ptr<Configuration>> all;
};

// Sessions may still end after the static objects of the process.
Mappings &mappings() {
    static auto &mappings = *new Mappings;
    return mappings;
}

Result<Configuration *> find_or_map(const std::string &path) {
    const OpenFile file(path);
    if (file.number < 0) return system_error(errno, "cannot open", path);
    const auto status = complete_status(file.number, path);
    if (!status) return status.error();

    Mappings &known = mappings();
    const std::lock_guard guard(known.mutex);
    for (const auto &configuration : known.all)
        if (configuration->device == status->st_dev && configuration->inode == status->st_ino)
            return configuration.get();
    const auto record = map_record(file.number, path);
    if (!record) return record.error();
    known.all.push_back(std::make_unique<Configuration>(Configuration{
        path, status->st_dev, status->st_ino, *record, std::make_unique<LockFile>(configuration_directory() + LockName),
        std::make_unique<SetStream>(), 0}));
    return known.all.back().get();
}

// The session's configuration; a missing one is looked for again from time to time.
Configuration *known_configuration(JournalSession &session) {
    if (session.configuration) return session.configuration;
    const std::int64_t now = coarse_nanoseconds();
    if (now < session.looked_until) return nullptr;
    if (const auto mapped = map_configuration()) return session.configuration = *mapped;
    session.looked_until = now + MissingConfigurationNanoseconds;
    return nullptr;
}

std::string given_directory() {
    const char *const given = std::getenv("VBCLOGCONFDIR");
    return given ? given : "";
}

}  // namespace

std::int64_t coarse_nanoseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

std::string configuration_directory() {
    const std::string given = given_directory();
    return (given.empty() ? global_directory() : given) + "/config";
}

Result<Configuration *> map_configuration() { return find_or_map(configuration_directory() + ConfigurationName); }

JournalSession::~JournalSession() {
    abandon_slot(*this);
    table_lock.leave_all();
    change_lock.leave_all();
}

Result<Configuration *> configuration_of(DP *dp) {
    auto &session = dp->state<JournalSession>();
    if (session.configuration) return session.configuration;
    const auto mapped = map_configuration();
    if (mapped) session.configuration = *mapped;
    return mapped;
}

int number_of(DP *dp, const Result<void> &result) {
    if (result) return 0;
    dp->state<JournalSession>().error = result.error().message;
    return errno = result.error().number;
}

Configuration *configuration_or_null(DP *dp) {
    const auto configuration = configuration_of(dp);
    return configuration ? *configuration : nullptr;
}

Configuration *journal_of_updates(DP *dp) {
    auto &session = dp->state<JournalSession>();
    if (session.stays_out) return nullptr;
    Configuration *const configuration = known_configuration(session);
    if (!configuration) return nullptr;
    const std::uint32_t status = std::atomic_ref(configuration->record->status).load(std::memory_order_acquire);
    return status == VELDA_LOGGER_INACTIVE ? nullptr : configuration;
}

}  // namespace velda::journal

using namespace velda::journal;

VELDALoggerConfig *VediLoggerInit(DP *dp, int) {
    auto &session = dp->state<JournalSession>();
    const auto mapped = map_configuration();
    if (mapped) {
        session.configuration = *mapped;
        session.error.clear();
        return (*mapped)->record;
    }
    session.error = mapped.error().message;
    errno = mapped.error().number;
    return VELDA_LOGGER_NOT_MAPPED;
}

const char *velda_logger_error(DP *dp) { return dp->state<JournalSession>().error.c_str(); }

int velda_logger_make_directory(DP *) {
    if (given_directory().empty()) {
        const auto made = velda::global_subdirectory("config");
        return made ? 0 : made.error().number;
    }
    return mkdir(configuration_directory().c_str(), 0777) == 0 || errno == EEXIST ? 0 : errno;
}

void velda_logger_await_discovery(DP *) {
    constexpr std::int64_t ClockStep = 10'000'000;  // of the coarse clock, and more
    const timespec time = {0, MissingConfigurationNanoseconds + ClockStep};
    nanosleep(&time, nullptr);
}
