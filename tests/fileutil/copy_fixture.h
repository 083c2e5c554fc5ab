// copy_fixture.h - COPY as tests run it: a program with stacked data or typed input, between small files.
#pragma once

#include <algorithm>

#include "fileutil/fileutil.h"
#include "tests/support/command.h"

namespace velda::test {

inline Program copy_program(const std::string &sentence, const std::vector<std::string> &stacked = {},
                            int output_flag = 0) {
    const auto body = [=](DP *dp) {
        VAR OutputFlag = output_flag;
        VBC_VELDACopyCommand(dp, "V", &OutputFlag);
    };
    return command(sentence, body, stacked);
}

// Runs COPY with the answer to its prompt stacked.
inline Ending copy(const std::string &sentence, const std::vector<std::string> &stacked = {}, int output_flag = 0) {
    return run_on_pipes("", copy_program(sentence, stacked, output_flag));
}

// Source F with K1 to K3, an empty target G, a directory file D; both parts of each.
class CopyTest : public InScratchDirectory {
  protected:
    CopyTest() {
        make_file("F", " DURABILITY=LAZY");
        make_file("G", " DURABILITY=LAZY");
        make_file("D", " TYPE=UD DURABILITY=LAZY");
        put("F", "K1", "one^1]2");
        put("F", "K2", "two");
        put("F", "K3", "three");
    }

    // All keys of a file with their records: "K1=one K2=two".
    static std::string contents(const std::string &name) {
        File file;
        if (!file.open(name)) return "(no file)";
        std::vector<std::string> records;
        for (const VAR &key : file.select()) records.push_back(key.str() + "=" + get(name, key.str()));
        std::sort(records.begin(), records.end());
        std::string joined;
        for (const std::string &record : records) joined += (joined.empty() ? "" : " ") + record;
        return joined;
    }
};

inline constexpr const char *All = "K1=one^1]2 K2=two K3=three";

}  // namespace velda::test
