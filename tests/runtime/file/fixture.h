// fixture.h - verbs for tests of the file statements: dynamic arrays as visible text, one scratch directory a test.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "runtime/file/file.h"
#include "runtime/process/context.h"
#include "runtime/process/output.h"
#include "runtime/process/process.h"
#include "runtime/store/driver.h"
#include "runtime/value/value.h"
#include "tests/support/marks.h"
#include "tests/support/scratch.h"
#include "tests/support/session.h"

namespace velda::test {

class FileTest : public testing::Test {
  protected:
    ScratchSystem directory;
    const ScratchSession session;
    DP *const dp = session;
    VAR file;

    std::string path(const std::string &name) const { return directory / name; }

    // CREATE-FILE with operands divided by blanks; the message, "" when made.
    std::string create(const std::string &operands) const {
        VAR message;
        const VAR words(translate_bytes(operands, " ", "\xFE"));
        const int made = velda_create_file(dp, &words, &message);
        return made ? "" : shown(message.view());
    }
    std::string remove_file(const std::string &operands) const {
        VAR message;
        const VAR words(translate_bytes(operands, " ", "\xFE"));
        const int removed = velda_delete_file(dp, &words, &message);
        return removed ? "" : shown(message.view());
    }

    int open(const std::string &name, VAR &target) const {
        const VAR wanted(name);
        return VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &wanted, &target, nullptr);
    }
    // Makes and opens the file that the other verbs are about.
    void make_file(const std::string &type = "HL") {
        ASSERT_EQ(create("DATA " + path("F") + " TYPE=" + type), "");
        ASSERT_EQ(open(path("F"), file), 1);
    }

    int write(const VAR &key, const std::string &record, int flags = 0, VAR *setting = nullptr) {
        const VAR bytes(marks(record));
        return VLibFNEWWRITE_IIBBBIB(dp, flags, &file, &bytes, &key, 0, setting);
    }
    struct Read {
        int result;
        std::string record;
        bool operator==(const Read &) const = default;
    };
    Read read(const VAR &key, int flags = 0, int attribute = 0) {
        VAR record("old");
        const int result = VLibFNEWREAD_IIBBBIB(dp, flags, &file, &record, &key, attribute, nullptr);
        return {result, shown(record.view())};
    }
    int remove(const VAR &key, int flags = 0, VAR *setting = nullptr) {
        return VLibFNEWDELETE_IIBBB(dp, flags, &file, &key, setting);
    }

    // The keys that are left in a list cell.
    std::vector<std::string> keys_of(VAR &list) {
        std::vector<std::string> keys;
        VAR key;
        while (VLibFREADNEXT_IBBBBB(dp, &key, nullptr, nullptr, &list, nullptr) == 1) keys.push_back(shown(key.view()));
        return keys;
    }

    // Runs the body as a command; its exit code, and what it printed in `output`.
    int run(const std::function<void()> &body, std::string &output) const {
        const CaptureOutput capture(dp, output);
        return velda_run(
            dp, "TEST", [](DP *, void *argument) { (*static_cast<const std::function<void()> *>(argument))(); },
            const_cast<std::function<void()> *>(&body));
    }
    // The message with which the body stops the command; "did not stop" when it does not.
    std::string message_of_stop(const std::function<void()> &body) const {
        std::string output;
        bool went_on = false;
        const int code = run([&] { body(), went_on = true; }, output);
        if (went_on || code != 1) return "did not stop";
        while (output.ends_with('\n')) output.pop_back();
        return output;
    }
};

}  // namespace velda::test
