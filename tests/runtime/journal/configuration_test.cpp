// Finding, checking and mapping the journal's configuration.
#include <sys/mman.h>

#include <cerrno>
#include <thread>

#include "tests/runtime/journal/fixture.h"

using velda::test::in_child;
using velda::test::JournalTest;

namespace {
class Configuration : public JournalTest {
  protected:
    // The error number of mapping this record, and what is said of it.
    int error_of(const VELDALoggerConfig &record) {
        std::filesystem::remove(config_path());
        write_record(config_path(), record);
        errno = 0;
        EXPECT_EQ(VediLoggerInit(dp, 1), VELDA_LOGGER_NOT_MAPPED);
        const int error = errno;
        EXPECT_NE(std::string(velda_logger_error(dp)).find(config_path()), std::string::npos);
        return error;
    }
    bool is_said(const std::string &part) {
        return std::string(velda_logger_error(dp)).find(part) != std::string::npos;
    }
};
}  // namespace

TEST_F(Configuration, AnAbsentFileIsErrorTwo) {
    errno = 0;
    EXPECT_EQ(VediLoggerInit(dp, 1), VELDA_LOGGER_NOT_MAPPED);
    EXPECT_EQ(errno, 2);
    EXPECT_TRUE(is_said(config_path()));
}

TEST_F(Configuration, LiesBelowTheGlobalDirectory) {
    ASSERT_NE(mapped(), VELDA_LOGGER_NOT_MAPPED);
    EXPECT_STREQ(velda_logger_error(dp), "");
}

TEST_F(Configuration, LiesBelowTheDirectoryThatTheEnvironmentNames) {
    auto record = plain_record();
    record.syncSeconds = 77;
    write_record(system_ / "elsewhere/config/vediLoggerConfig", record);
    setenv("VBCLOGCONFDIR", (system_ / "elsewhere").c_str(), 1);
    const auto *const config = VediLoggerInit(dp, 1);
    ASSERT_NE(config, VELDA_LOGGER_NOT_MAPPED);
    EXPECT_EQ(config->syncSeconds, 77u);
}

TEST_F(Configuration, IsMappedOnceInAProcess) {
    const auto *const config = mapped();
    const velda::test::ScratchSession other;
    EXPECT_EQ(VediLoggerInit(other, 1), config);
}

TEST_F(Configuration, AReplacedFileIsMappedAnew) {
    const auto *const before = mapped();
    std::filesystem::rename(config_path(), config_path() + ".old");
    EXPECT_NE(mapped(), before);
}

TEST_F(Configuration, WhatAnotherProcessStoresIsSeen) {
    auto *const config = mapped();
    ASSERT_EQ(in_child([] {
                  auto *const child = VediLoggerInit(velda_getdp(), 1);
                  child->syncSeconds = 123;
                  return 0;
              }),
              0);
    EXPECT_EQ(config->syncSeconds, 123u);
}

TEST_F(Configuration, TheMappingOutlivesAFork) {
    auto *const config = mapped();
    ASSERT_EQ(in_child([config] {
                  if (VediLoggerInit(velda_getdp(), 1) != config) return 1;
                  config->status = 2;
                  return 0;
              }),
              0);
    EXPECT_EQ(config->status, 2u);
}

TEST_F(Configuration, AWrongMagicIsDamage) {
    auto record = plain_record();
    record.magic[7] = 'H';
    EXPECT_EQ(error_of(record), 2014);
    EXPECT_TRUE(is_said("VBC__LOG"));
}

TEST_F(Configuration, AForeignByteOrderIsDamageAndIsNamed) {
    auto record = plain_record();
    record.byteOrderMark = 0x78563412;
    EXPECT_EQ(error_of(record), 2014);
    EXPECT_TRUE(is_said("byte order"));
}

TEST_F(Configuration, ADamagedByteOrderMarkIsDamage) {
    auto record = plain_record();
    record.byteOrderMark = 0;
    EXPECT_EQ(error_of(record), 2014);
}

TEST_F(Configuration, AnotherRecordSizeIsDamage) {
    auto record = plain_record();
    record.recordSize = 79463;
    EXPECT_EQ(error_of(record), 2014);
    EXPECT_TRUE(is_said("79463"));
}

TEST_F(Configuration, AnotherFormatVersionIsDamage) {
    auto record = plain_record();
    record.formatVersion = 4;
    EXPECT_EQ(error_of(record), 2014);
    EXPECT_TRUE(is_said("version 4"));
}

TEST_F(Configuration, AFileThatIsTooShortIsDamage) {
    write_record(config_path(), plain_record());
    std::filesystem::resize_file(config_path(), VELDA_LOGGER_CONFIG_BYTES - 1);
    EXPECT_EQ(VediLoggerInit(dp, 1), VELDA_LOGGER_NOT_MAPPED);
    EXPECT_EQ(errno, 2014);
    EXPECT_TRUE(is_said("79463 bytes"));
}

TEST_F(Configuration, AFileThatAnotherProcessIsJustMakingIsWaitedFor) {
    std::filesystem::create_directories(system_ / "config");
    std::ofstream(config_path()).flush();
    std::thread maker([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        write_record(config_path(), plain_record());
    });
    EXPECT_NE(VediLoggerInit(dp, 1), VELDA_LOGGER_NOT_MAPPED);
    maker.join();
}

TEST_F(Configuration, TheDirectoryIsMadeInTheGlobalDirectory) {
    EXPECT_EQ(velda_logger_make_directory(dp), 0);
    EXPECT_TRUE(std::filesystem::is_directory(system_ / "config"));
    EXPECT_EQ(velda_logger_make_directory(dp), 0);
}

TEST_F(Configuration, TheDirectoryIsNotMadeInANamedOneThatIsAbsent) {
    setenv("VBCLOGCONFDIR", (system_ / "absent").c_str(), 1);
    EXPECT_EQ(velda_logger_make_directory(dp), 2);
    std::filesystem::create_directory(system_ / "absent");
    EXPECT_EQ(velda_logger_make_directory(dp), 0);
    EXPECT_TRUE(std::filesystem::is_directory(system_ / "absent/config"));
}
