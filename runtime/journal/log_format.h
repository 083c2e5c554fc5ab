// log_format.h - blocks and records of a journal log set as they lie on disk and on a device: one description for the
// writer, the readers, the dumper and the verifier. All integers are stored most significant byte first, unaligned, by
// vputint32 and vputlong64.
//
// A set is a stream of blocks, striped over its files: block 0 in the first file, block 1 in the second, and after the
// last file again the first, one block further on. Every block opens with a BlockHeader; the set's very first block
// holds a copy of its LogSetInfo in place of what follows the stamp. Records are a continuous byte stream through the
// data areas of the blocks, each made of header, strings, payload and trailer.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "runtime/journal/config_record.h"

namespace velda::journal {

using std::string_view_literals::operator""sv;

// --- blocks ---------------------------------------------------------------------------------------------------------

inline constexpr std::string_view BlockMarker = "V\xFF" "B\xFF" "L\xFF\0\0"sv;       // an ordinary block
inline constexpr std::string_view FirstBlockMarker = "V\xFF" "C\xFF" "R\xFF\0\0"sv;  // the first block of a set
inline constexpr std::size_t ComparedBlockMarkerBytes = 7;
static_assert(BlockMarker.size() == 8 && FirstBlockMarker.size() == 8);

struct BlockHeader {
    static constexpr std::size_t Marker = 0, TimeFirst = 8, BlockNumber = 16, BlockSize = 20, Reserved = 24, Bytes = 28;
};
static_assert(BlockHeader::BlockNumber == BlockHeader::TimeFirst + 8 && BlockHeader::Bytes == BlockHeader::Reserved + 4);

// Where the copy of LogSetInfo lies in a set's first block, and where record data begins there.
inline constexpr std::size_t FirstBlockSetInfo = 16;
inline constexpr std::size_t FirstBlockData = 3660;
static_assert(FirstBlockSetInfo + sizeof(LogSetInfo) + 20 == FirstBlockData);
static_assert(FirstBlockData - BlockHeader::Bytes == 3632);

// --- records --------------------------------------------------------------------------------------------------------

inline constexpr std::string_view RecordMarker = "V\xFF" "R\xFF" "E\xFF" "C\xFF"sv;
// In a set: the data of the WRITE is enciphered. On a device: an envelope around a whole record.
inline constexpr std::string_view EncryptedMarker = "V\xFF" "E\xFF" "N\xFF" "C\xFF"sv;
static_assert(RecordMarker.size() == 8 && EncryptedMarker.size() == 8);

struct RecordHeader {
    static constexpr std::size_t Marker = 0, UpdateTime = 8, Pid = 16, Type = 20, Flags = 21, Set = 22, File = 23,
                                 Offset = 24, Port = 32, RecordSize = 36, Reserved = 40, StringsSize = 44, Bytes = 48;
};
static_assert(RecordHeader::Port == RecordHeader::Offset + 8 && RecordHeader::Bytes == RecordHeader::StringsSize + 4);

// The trailer repeats the header's UpdateTime; it is written last.
inline constexpr std::size_t RecordTrailerBytes = 8;

enum RecordFlag : std::uint8_t { InTransaction = 1, FlushDevice = 2 };

// The fields of the strings area, each ended by a byte of 0xFE or above.
enum class RecordString { FileName, Key, ApplicationName, UserName, TerminalName, ApplicationId, SourceFile, SourceLine };
inline constexpr int RecordStrings = 8;

enum class RecordType : std::uint8_t {
    Eof = 1, Write, Delete, ClearFile, DeleteFile, CreateFile, TranStart, TranEnd, TranAbort, Flush, MoveFile, RemoveFile,
    Chmod, MakeDirectory, FlatFile, Checkpoint = 18, CreateIndex, DeleteIndex, RebuildIndex, CreateTrigger, DeleteTrigger
};
static_assert(static_cast<int>(RecordType::FlatFile) == 15 && static_cast<int>(RecordType::DeleteTrigger) == 23);

// The names that reports show, by type number.
inline constexpr std::array<std::string_view, 24> RecordTypeNames = {
    "UNKNOWN", "EOF", "WRITE", "DELETE", "CLEARFILE", "DELETEFILE", "CREATEFILE", "TRANSTART", "TRANSEND", "TRANSABORT",
    "UNKNOWN", "MOVEFILE", "REMOVEFILE", "VCHMOD", "MKDIR", "FLATFILE", "UNKNOWN", "UNKNOWN", "CHECKPOINT", "CREATEINDEX",
    "DELETEINDEX", "REBUILDINDEX", "CREATETRIGGER", "DELETETRIGGER"};

// Payloads, from the first byte behind the strings area.
struct WritePayload {
    static constexpr std::size_t Flags = 0, Value = 4, DataLength = 8, Data = 12;
};
struct TransactionPayload {
    static constexpr std::size_t First = 0, Kind = 8, Second = 9, Bytes = 17;
};
struct MovePayload {
    static constexpr std::size_t FromLength = 0, ToLength = 4, Paths = 8;
};
struct PathPayload {  // REMOVEFILE, VCHMOD, the index and trigger types
    static constexpr std::size_t Length = 0, Text = 4;
};
struct DirectoryPayload {
    static constexpr std::size_t PathLength = 0, Uid = 4, Gid = 8, Mode = 12, Path = 16;
};
struct FlatFilePayload {
    static constexpr std::size_t PathLength = 0, Uid = 4, Gid = 8, Mode = 12, DataLength = 16, Path = 20;
};
struct CheckpointPayload {
    static constexpr std::size_t Value = 0, Array = 8;
};

// The envelope of an enciphered record on a device stream.
struct Envelope {
    static constexpr std::size_t Marker = 0, BodyLength = 8, KeyLength = 16, Scheme = 20, Key = 24;
};

}  // namespace velda::journal
