#include "runtime/lock/owner_notes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace velda::lock;

TEST(OwnerNotes, AreReadAsTheyWereWritten) {
    OwnerNotes notes{};
    EXPECT_EQ(read_notes(notes), "");
    for (const std::size_t size : {0, 1, 7, 8, 9, 1015, 1016}) {
        const std::string text(size, 'x');
        write_notes(notes, text);
        EXPECT_EQ(read_notes(notes), text);
    }
}

TEST(OwnerNotes, LongerTextIsCut) {
    OwnerNotes notes{};
    write_notes(notes, std::string(2000, 'x'));
    EXPECT_EQ(read_notes(notes), std::string(MaxNoteBytes, 'x'));
}

TEST(OwnerNotes, OfAWriterThatDiedInTheMiddleAreEmptyAndCanBeWrittenAgain) {
    OwnerNotes notes{};
    write_notes(notes, "before");
    notes.version = notes.version | 1;
    EXPECT_EQ(read_notes(notes), "");
    write_notes(notes, "after");
    EXPECT_EQ(read_notes(notes), "after");
}

TEST(OwnerNotes, AReaderNeverSeesHalfAChange) {
    OwnerNotes notes{};
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 20000; ++i) write_notes(notes, std::string(i % 2 ? 900 : 500, i % 2 ? 'a' : 'b'));
        done = true;
    });
    int torn = 0;
    while (!done) {
        const std::string seen = read_notes(notes);
        torn += !seen.empty() && seen != std::string(900, 'a') && seen != std::string(500, 'b');
    }
    EXPECT_EQ(torn, 0);
    writer.join();
    EXPECT_EQ(read_notes(notes), std::string(900, 'a'));
}
