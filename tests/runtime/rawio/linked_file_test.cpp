// Blocks and link records of a linked file.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>

#include "runtime/convert/convert.h"
#include "runtime/process/process.h"
#include "runtime/rawio/rawio.h"
#include "tests/support/scratch.h"
#include "tests/support/seed.h"
#include "tests/support/session.h"

namespace velda::test {
namespace {

class LinkedFile : public testing::Test {
  protected:
    static constexpr std::uint32_t BlockSize = 512;
    static constexpr std::uint32_t HeadSize = 52;
    static constexpr std::uint32_t Room = BlockSize - HeadSize;

    LinkedFile() : file(VRunFileIOOpen(dp, path().c_str(), O_RDWR | O_CREAT, 0)) {
        VRunFileIOEnableLink(dp, file, BlockSize);
    }
    ~LinkedFile() override { VRunFileIOClose(dp, file); }

    std::string path() const { return directory / "linked"; }
    void write(std::int64_t offset, const std::string &bytes) {
        ASSERT_EQ(VRunFileIOWrite(dp, file, offset, bytes.data(), bytes.size(), nullptr), 0);
    }
    // Makes a record with these contents; its offset.
    std::int64_t make(const std::string &content) {
        VRunFrame *frame = nullptr;
        EXPECT_EQ(VRunFileIONewLink(dp, file, static_cast<std::uint32_t>(content.size()), &frame), 0);
        std::memcpy(frame->bytes, content.data(), content.size());
        EXPECT_EQ(VRunFileIOLinkResize(dp, file, frame, frame->length), 0);
        const std::int64_t offset = frame->offset;
        EXPECT_EQ(VRunFileIOLinkRelease(dp, file, frame), 0);
        return offset;
    }
    std::string content_of(std::int64_t offset) {
        VRunFrame *frame = nullptr;
        const int result = VRunFileIOLinkRead(dp, file, offset, &frame);
        if (result != 0) return "error " + std::to_string(result);
        const std::string content(frame->bytes, frame->length);
        VRunFileIOLinkRelease(dp, file, frame);
        return content;
    }
    void resize(std::int64_t offset, std::uint32_t length) {
        VRunFrame *frame = nullptr;
        ASSERT_EQ(VRunFileIOLinkRead(dp, file, offset, &frame), 0);
        ASSERT_EQ(VRunFileIOLinkResize(dp, file, frame, length), 0);
        EXPECT_EQ(frame->offset, length == 0 ? 0 : offset);
        EXPECT_EQ(frame->length, length);
        VRunFileIOLinkRelease(dp, file, frame);
    }
    std::int64_t size() {
        VRunFileStatus status;
        VRunFileIOGetStatus(dp, file, &status);
        return status.size_bytes;
    }
    // The first free block and the number of them, as the head of the file tells.
    std::pair<std::int64_t, int> free_list() {
        char bytes[12] = {};
        EXPECT_EQ(VRunFileIORead(dp, file, 156, bytes, sizeof bytes, nullptr), 0);
        return {vgetlong64(bytes), vgetint32(bytes + 8)};
    }

    ScratchSystem directory;
    const ScratchSession session;
    DP *const dp = session;
    VRunFile *file;
};

TEST_F(LinkedFile, ABlockIsReadAsItStands) {
    write(0, std::string(BlockSize, 'a') + std::string(BlockSize, 'b') + "tail");
    VRunFrame *frame = nullptr;
    EXPECT_EQ(VRunFileIOFrameRead(dp, file, BlockSize, &frame), 0);
    EXPECT_EQ(std::string(frame->bytes, frame->length), std::string(BlockSize, 'b'));
    EXPECT_EQ(frame->offset, BlockSize);
    VRunFileIOLinkRelease(dp, file, frame);
    EXPECT_EQ(VRunFileIOFrameRead(dp, file, 2 * BlockSize, &frame), 0);
    EXPECT_EQ(std::string(frame->bytes, frame->length), "tail");
    VRunFileIOLinkRelease(dp, file, frame);
    EXPECT_EQ(VRunFileIOFrameRead(dp, file, 3 * BlockSize, &frame), ENODATA);
    EXPECT_EQ(VRunFileIOFrameRead(dp, file, 7, &frame), EINVAL);
}

TEST_F(LinkedFile, AHeldBlockIsSharedAndAReleasedOneIsReadAnew) {
    write(0, std::string(BlockSize, 'a'));
    VRunFrame *one = nullptr, *two = nullptr;
    VRunFileIOFrameRead(dp, file, 0, &one);
    write(0, std::string(BlockSize, 'b'));
    VRunFileIOFrameRead(dp, file, 0, &two);
    EXPECT_EQ(one, two);
    EXPECT_EQ(two->bytes[0], 'a');
    VRunFileIOLinkRelease(dp, file, one);
    EXPECT_EQ(two->bytes[0], 'a');
    VRunFileIOLinkRelease(dp, file, two);
    VRunFileIOFrameRead(dp, file, 0, &one);
    EXPECT_EQ(one->bytes[0], 'b');
    VRunFileIOLinkRelease(dp, file, one);
}

TEST_F(LinkedFile, ARecordOfAnyLengthIsReadBack) {
    for (const std::uint32_t length : {1u, Room - 1, Room, Room + 1, 3 * Room, 100000u}) {
        std::string content(length, '\0');
        for (std::uint32_t i = 0; i < length; ++i) content[i] = static_cast<char>(i * 7 + length);
        EXPECT_EQ(content_of(make(content)), content) << length;
    }
}

TEST_F(LinkedFile, TheFormatOfABlockIsTheOneThatIsTold) {
    const std::int64_t offset = make(std::string(Room, 'x') + "yz");
    char head[HeadSize], second[HeadSize + 2];
    ASSERT_EQ(offset, BlockSize);
    ASSERT_EQ(VRunFileIORead(dp, file, offset, head, sizeof head, nullptr), 0);
    EXPECT_EQ(vgetlong64(head), 2 * BlockSize);
    EXPECT_EQ(vgetint32(head + 8), static_cast<int>(Room + 2));
    EXPECT_EQ(std::string(head + 12, 4), "LINK");
    EXPECT_EQ(vgetint32(head + 16), 0);
    ASSERT_EQ(VRunFileIORead(dp, file, 2 * BlockSize, second, sizeof second, nullptr), 0);
    EXPECT_EQ(vgetlong64(second), 0);
    EXPECT_EQ(vgetint32(second + 16), 1);
    EXPECT_EQ(std::string(second + 52, 2), "yz");
}

TEST_F(LinkedFile, ResizingKeepsWhatWasThereAndFillsWithZero) {
    const std::int64_t offset = make("abc");
    resize(offset, 2000);
    EXPECT_EQ(content_of(offset), "abc" + std::string(1997, '\0'));
    resize(offset, 2);
    EXPECT_EQ(content_of(offset), "ab");
}

TEST_F(LinkedFile, BlocksThatAreNotNeededAreUsedAgain) {
    const std::int64_t offset = make(std::string(5 * Room, 'x'));
    const std::int64_t full = size();
    EXPECT_EQ(free_list(), (std::pair<std::int64_t, int>(0, 0)));
    resize(offset, 1);
    EXPECT_EQ(free_list().second, 4);
    make(std::string(4 * Room, 'y'));
    EXPECT_EQ(free_list(), (std::pair<std::int64_t, int>(0, 0)));
    EXPECT_EQ(size(), full);
}

TEST_F(LinkedFile, LengthZeroGivesTheRecordBack) {
    const std::int64_t offset = make(std::string(2 * Room, 'x'));
    resize(offset, 0);
    EXPECT_EQ(free_list().second, 2);
    EXPECT_EQ(content_of(offset), "error 74");
    EXPECT_EQ(content_of(make("again")), "again");
}

TEST_F(LinkedFile, ChangesThatWereNotWrittenAreDropped) {
    const std::int64_t offset = make("abc");
    VRunFrame *frame = nullptr;
    VRunFileIOLinkRead(dp, file, offset, &frame);
    frame->bytes[0] = 'X';
    VRunFileIOLinkRelease(dp, file, frame);
    EXPECT_EQ(content_of(offset), "abc");
}

TEST_F(LinkedFile, TheHeadOfTheFileIsTheCallersButForTheFreeList) {
    write(0, "head of the index");
    write(BlockSize - 1, std::string(1, '\0'));
    const std::int64_t offset = make("record");
    resize(offset, 0);
    char head[17];
    VRunFileIORead(dp, file, 0, head, sizeof head, nullptr);
    EXPECT_EQ(std::string(head, sizeof head), "head of the index");
}

TEST_F(LinkedFile, WhatIsNoRecordIsRefused) {
    const std::int64_t offset = make(std::string(2 * Room, 'x'));
    EXPECT_EQ(content_of(0), "error 74");
    EXPECT_EQ(content_of(offset + 1), "error 74");
    EXPECT_EQ(content_of(2 * BlockSize), "error 74");
    EXPECT_EQ(content_of(100 * BlockSize), "error 74");
}

TEST_F(LinkedFile, DamagedChainsAreRefusedNotFollowed) {
    const std::int64_t offset = make(std::string(3 * Room, 'x'));
    const auto with_bytes = [&](std::int64_t at, const std::string &bytes) {
        std::string before(bytes.size(), '\0');
        VRunFileIORead(dp, file, at, before.data(), before.size(), nullptr);
        write(at, bytes);
        const std::string found = content_of(offset);
        write(at, before);
        return found;
    };
    std::string to_itself(8, '\0'), nowhere(8, '\x7F');
    vputlong64(to_itself.data(), offset);
    EXPECT_EQ(with_bytes(offset, to_itself), "error 74");
    EXPECT_EQ(with_bytes(offset, nowhere), "error 74");
    EXPECT_EQ(with_bytes(offset, std::string(8, '\0')), "error 74");
    EXPECT_EQ(with_bytes(offset + 8, "\x7F\xFF\xFF\xFF"), "error 74");
    EXPECT_EQ(with_bytes(offset + BlockSize + 12, "XINK"), "error 74");
    EXPECT_EQ(content_of(offset), std::string(3 * Room, 'x'));
}

TEST_F(LinkedFile, WithoutABlockSizeNothingIsDone) {
    VRunFile *const plain = VRunFileIOOpen(dp, path().c_str(), O_RDWR, 0);
    VRunFrame *frame = nullptr;
    EXPECT_EQ(VRunFileIOFrameRead(dp, plain, 0, &frame), EINVAL);
    EXPECT_EQ(VRunFileIONewLink(dp, plain, 1, &frame), EINVAL);
    EXPECT_EQ(VRunFileIOLinkRead(dp, plain, 0, &frame), EINVAL);
    EXPECT_EQ(VRunFileIOEnableLink(dp, plain, 255), EINVAL);
    EXPECT_EQ(VRunFileIOEnableLink(dp, plain, (16 << 20) + 1), EINVAL);
    EXPECT_EQ(VRunFileIOEnableLink(dp, plain, 256), 0);
    EXPECT_EQ(VRunFileIONewLink(dp, plain, 0, &frame), EINVAL);
    VRunFileIOClose(dp, plain);
}

TEST_F(LinkedFile, AFrameThatIsNotHeldIsRefused) {
    VRunFrame stranger{};
    EXPECT_EQ(VRunFileIOLinkRelease(dp, file, &stranger), EINVAL);
    EXPECT_EQ(VRunFileIOLinkResize(dp, file, &stranger, 1), EINVAL);
    EXPECT_EQ(VRunFileIOLinkRelease(dp, file, nullptr), 0);
}

TEST_F(LinkedFile, RandomRecordsAgreeWithAModel) {
    auto random = seeded_random();
    std::map<std::int64_t, std::string> model;
    const auto any = [&] { return std::next(model.begin(), static_cast<long>(random() % model.size())); };
    for (int turn = 0; turn < 1500; ++turn) {
        const auto choice = random() % 3;
        if (choice == 0 || model.empty()) {
            const std::string content = "x" + random_bytes(random, 3000);
            const std::int64_t offset = make(content);
            ASSERT_FALSE(model.contains(offset)) << "two records at one place";
            model[offset] = content;
        } else if (choice == 1) {
            const auto length = static_cast<std::uint32_t>(1 + random() % 3000);
            auto &[offset, content] = *any();
            resize(offset, length);
            content.resize(length, '\0');
        } else {
            const auto victim = any();
            resize(victim->first, 0);
            model.erase(victim);
        }
        if (turn % 100 != 0) continue;
        for (const auto &[offset, content] : model) ASSERT_EQ(content_of(offset), content) << "turn " << turn;
    }
    std::int64_t blocks = 1 + free_list().second;
    for (const auto &[offset, content] : model) blocks += static_cast<std::int64_t>((content.size() + Room - 1) / Room);
    EXPECT_EQ((size() + BlockSize - 1) / BlockSize, blocks) << "blocks were lost";
}

}  // namespace
}  // namespace velda::test
