// config_record.h - the journal's shared records as they lie in the file "vediLoggerConfig", for C and C++.
//
// The file is mapped by every process that writes or reads the journal. Numbers are in the byte order of the machine;
// `byteOrderMark` tells a reader of another machine. Every position below is proven by an assertion at the end: the
// layout is a file format and cannot change. Bytes not named are zero and are not interpreted.
#ifndef VELDA_RUNTIME_JOURNAL_CONFIG_RECORD_H
#define VELDA_RUNTIME_JOURNAL_CONFIG_RECORD_H

#include <stddef.h>
#include <stdint.h>

#define VELDA_LOGGER_MAGIC "VBC__LOG"
#define VELDA_LOGGER_BYTE_ORDER 0x12345678u

enum {
    VELDA_LOGGER_CONFIG_BYTES = 79464,
    VELDA_LOGGER_SETS = 16,
    VELDA_LOGGER_FILES = 16,  // of a set
    VELDA_LOGGER_DUP_SLOTS = 8,
    VELDA_LOGGER_QUEUE_NAMES = 8,
    VELDA_LOGGER_PATH_BYTES = 192,  // with the zero byte at the end
    VELDA_LOGGER_USER_BYTES = 32,
    VELDA_LOGGER_FORMAT_VERSION = 3,
    VELDA_LOGGER_BLOCK_BYTES = 4096  // the block size that the first reset of a set gives
};

// Values of VELDALoggerConfig::status.
enum { VELDA_LOGGER_INACTIVE = 0, VELDA_LOGGER_ACTIVE = 1, VELDA_LOGGER_SUSPENDED = 2 };

// One file of a set. An empty first byte of `path` marks a free entry.
typedef struct LogFileEntry {
    char path[VELDA_LOGGER_PATH_BYTES];
    int64_t createdTime;  // UTC seconds
    int64_t maxSize;      // bytes; -1: limited only by the disk
} LogFileEntry;

// A set: which use of it this is, how far it is written, and its files. Also stored in the first block of its first file.
typedef struct LogSetInfo {
    uint32_t setState;
    uint32_t reserved4;
    int64_t timeFirst;                   // stamp of this use of the set; every block carries it
    int64_t timeLast;                    // time of the last update; 0: none recorded
    unsigned char timeFirstPortable[8];  // timeFirst by vputlong64
    int64_t recordCount;
    uint32_t currentFile;  // file being written, from 1
    uint32_t reserved44;
    int64_t fileOffset;      // write offset in each file
    uint32_t blockPosition;  // write position in the current block; the block size: the block is full
    unsigned char reserved60[36];
    int64_t archivedTime;  // 0: never
    char archiveLocation[VELDA_LOGGER_PATH_BYTES];
    LogFileEntry files[VELDA_LOGGER_FILES];
} LogSetInfo;

// A running duplicator. Free when `pid` is 0.
typedef struct DupStatusSlot {
    uint32_t pid;
    uint32_t reserved4;
    uint64_t startTime;
    uint32_t port;
    char statusText[48];
    uint32_t killerPid;  // process that asked it to stop; 0: none
    uint32_t killerPort;
    uint32_t reserved76;
    // How far the input has been read, for those who watch; no part of the reports.
    int64_t lastTime;   // stamp of the last record read; 0: none yet
    int64_t milestone;  // what a receiver has told its sender last, at either end; 0: nothing yet
    uint32_t inputSet;  // a log set: which one is read; 0: none yet
    uint32_t reserved100;
    int64_t inputSetRecords;  // and how many of its records were taken
    char inputSpec[256];
    uint32_t inputDevice;
    uint32_t inputFlags;
    uint64_t inputRecords;
    uint64_t inputBlocks;
    uint64_t inputBytes;
    uint32_t inputErrors;
    uint32_t reserved404;
    char outputSpec[256];
    uint32_t outputDevice;
    uint32_t outputFlags;
    uint64_t outputRecords;
    uint64_t outputBlocks;
    uint64_t outputBytes;
    uint32_t outputErrors;
    uint32_t reserved700;
} DupStatusSlot;

// What else those who watch are shown of the duplicator in the slot of the same number; no part of the reports.
typedef struct DupWatch {
    int64_t inputOffset;  // a log set: how far it has been read, the offset in a file
    uint32_t inputFile;   // and the file's index
    uint32_t reserved12;
    int64_t lastErrorTime;  // 0: no error yet
    char lastError[232];    // the beginning of its text
} DupWatch;

typedef struct VELDALoggerConfig {
    char magic[8];
    char configPath[VELDA_LOGGER_PATH_BYTES];
    uint32_t recordSize;
    char adminLogPath[VELDA_LOGGER_PATH_BYTES];
    char adminLogNotifyProgram[VELDA_LOGGER_PATH_BYTES];
    unsigned char reserved588[64];
    uint32_t formatVersion;
    uint32_t blockSize;  // 0 until the first reset of a set
    uint32_t byteOrderMark;
    uint32_t updateCount;
    uint64_t createdTime;
    uint32_t createdPort;
    char createdUser[VELDA_LOGGER_USER_BYTES];
    uint32_t reserved716;
    uint64_t updatedTime;  // all ones until the first save
    uint32_t updatedPort;
    char updatedUser[VELDA_LOGGER_USER_BYTES];
    uint32_t status;
    uint32_t warnInitialPercent;
    uint32_t warnStepPercent;
    uint32_t warnStepSeconds;
    uint32_t syncSeconds;
    uint32_t currentSet;  // 1 to 16; 0: none
    uint32_t reserved788;
    uint64_t switchedTime;
    uint32_t switchedPort;
    char switchedUser[VELDA_LOGGER_USER_BYTES];
    uint32_t activatedTime;
    uint32_t extendedRecords;
    uint32_t reportField32;
    unsigned char reserved848[96];
    uint32_t checkpointMinutes;
    uint32_t statistics[5];
    uint32_t encryptedRecords;
    uint32_t syncTransactions;
    int32_t lastCheckpoint;  // -1: none
    unsigned char reserved980[20];
    DupStatusSlot dupSlots[VELDA_LOGGER_DUP_SLOTS];
    unsigned char reserved6632[1560];
    unsigned char writer[4096];  // what the writers of records share; only the runtime looks at it
    DupWatch dupWatches[VELDA_LOGGER_DUP_SLOTS];
    unsigned char reserved14336[6792];
    char password[32];  // enciphered; first byte 0: none
    char mqNames[VELDA_LOGGER_QUEUE_NAMES][40];
    LogSetInfo sets[VELDA_LOGGER_SETS];
} VELDALoggerConfig;

#ifdef __cplusplus
#define VELDA_PROVE(Record, field, expected) static_assert(offsetof(Record, field) == expected, #Record "::" #field)
#else
#define VELDA_PROVE(Record, field, expected) _Static_assert(offsetof(Record, field) == expected, #Record "::" #field)
#endif

VELDA_PROVE(LogFileEntry, path, 0);
VELDA_PROVE(LogFileEntry, createdTime, 192);
VELDA_PROVE(LogFileEntry, maxSize, 200);

VELDA_PROVE(LogSetInfo, setState, 0);
VELDA_PROVE(LogSetInfo, timeFirst, 8);
VELDA_PROVE(LogSetInfo, timeLast, 16);
VELDA_PROVE(LogSetInfo, timeFirstPortable, 24);
VELDA_PROVE(LogSetInfo, recordCount, 32);
VELDA_PROVE(LogSetInfo, currentFile, 40);
VELDA_PROVE(LogSetInfo, fileOffset, 48);
VELDA_PROVE(LogSetInfo, blockPosition, 56);
VELDA_PROVE(LogSetInfo, archivedTime, 96);
VELDA_PROVE(LogSetInfo, archiveLocation, 104);
VELDA_PROVE(LogSetInfo, files, 296);

VELDA_PROVE(DupStatusSlot, startTime, 8);
VELDA_PROVE(DupStatusSlot, port, 16);
VELDA_PROVE(DupStatusSlot, statusText, 20);
VELDA_PROVE(DupStatusSlot, killerPid, 68);
VELDA_PROVE(DupStatusSlot, killerPort, 72);
VELDA_PROVE(DupStatusSlot, lastTime, 80);
VELDA_PROVE(DupStatusSlot, milestone, 88);
VELDA_PROVE(DupStatusSlot, inputSet, 96);
VELDA_PROVE(DupStatusSlot, inputSetRecords, 104);
VELDA_PROVE(DupStatusSlot, inputSpec, 112);
VELDA_PROVE(DupStatusSlot, inputDevice, 368);
VELDA_PROVE(DupStatusSlot, inputFlags, 372);
VELDA_PROVE(DupStatusSlot, inputRecords, 376);
VELDA_PROVE(DupStatusSlot, inputBlocks, 384);
VELDA_PROVE(DupStatusSlot, inputBytes, 392);
VELDA_PROVE(DupStatusSlot, inputErrors, 400);
VELDA_PROVE(DupStatusSlot, outputSpec, 408);
VELDA_PROVE(DupStatusSlot, outputDevice, 664);
VELDA_PROVE(DupStatusSlot, outputFlags, 668);
VELDA_PROVE(DupStatusSlot, outputRecords, 672);
VELDA_PROVE(DupStatusSlot, outputBlocks, 680);
VELDA_PROVE(DupStatusSlot, outputBytes, 688);
VELDA_PROVE(DupStatusSlot, outputErrors, 696);

VELDA_PROVE(DupWatch, inputFile, 8);
VELDA_PROVE(DupWatch, lastErrorTime, 16);
VELDA_PROVE(DupWatch, lastError, 24);

VELDA_PROVE(VELDALoggerConfig, configPath, 8);
VELDA_PROVE(VELDALoggerConfig, recordSize, 200);
VELDA_PROVE(VELDALoggerConfig, adminLogPath, 204);
VELDA_PROVE(VELDALoggerConfig, adminLogNotifyProgram, 396);
VELDA_PROVE(VELDALoggerConfig, formatVersion, 652);
VELDA_PROVE(VELDALoggerConfig, blockSize, 656);
VELDA_PROVE(VELDALoggerConfig, byteOrderMark, 660);
VELDA_PROVE(VELDALoggerConfig, updateCount, 664);
VELDA_PROVE(VELDALoggerConfig, createdTime, 672);
VELDA_PROVE(VELDALoggerConfig, createdPort, 680);
VELDA_PROVE(VELDALoggerConfig, createdUser, 684);
VELDA_PROVE(VELDALoggerConfig, updatedTime, 720);
VELDA_PROVE(VELDALoggerConfig, updatedPort, 728);
VELDA_PROVE(VELDALoggerConfig, updatedUser, 732);
VELDA_PROVE(VELDALoggerConfig, status, 764);
VELDA_PROVE(VELDALoggerConfig, warnInitialPercent, 768);
VELDA_PROVE(VELDALoggerConfig, warnStepPercent, 772);
VELDA_PROVE(VELDALoggerConfig, warnStepSeconds, 776);
VELDA_PROVE(VELDALoggerConfig, syncSeconds, 780);
VELDA_PROVE(VELDALoggerConfig, currentSet, 784);
VELDA_PROVE(VELDALoggerConfig, switchedTime, 792);
VELDA_PROVE(VELDALoggerConfig, switchedPort, 800);
VELDA_PROVE(VELDALoggerConfig, switchedUser, 804);
VELDA_PROVE(VELDALoggerConfig, activatedTime, 836);
VELDA_PROVE(VELDALoggerConfig, extendedRecords, 840);
VELDA_PROVE(VELDALoggerConfig, reportField32, 844);
VELDA_PROVE(VELDALoggerConfig, checkpointMinutes, 944);
VELDA_PROVE(VELDALoggerConfig, statistics, 948);
VELDA_PROVE(VELDALoggerConfig, encryptedRecords, 968);
VELDA_PROVE(VELDALoggerConfig, syncTransactions, 972);
VELDA_PROVE(VELDALoggerConfig, lastCheckpoint, 976);
VELDA_PROVE(VELDALoggerConfig, dupSlots, 1000);
VELDA_PROVE(VELDALoggerConfig, writer, 8192);
VELDA_PROVE(VELDALoggerConfig, dupWatches, 12288);
VELDA_PROVE(VELDALoggerConfig, password, 21128);
VELDA_PROVE(VELDALoggerConfig, mqNames, 21160);
VELDA_PROVE(VELDALoggerConfig, sets, 21480);

#ifdef __cplusplus
static_assert(sizeof(LogFileEntry) == 208 && sizeof(LogSetInfo) == 3624 && sizeof(DupStatusSlot) == 704);
static_assert(sizeof(VELDALoggerConfig) == VELDA_LOGGER_CONFIG_BYTES);
#endif

#endif
