// actors.h - what the sessions of the lock tests' scripts do.
#pragma once

#include <sstream>
#include <string>

#include "tests/support/interleaving.h"

namespace velda::test {

inline constexpr store::FileIdentity TestFile{7, 11};
inline constexpr store::FileIdentity OtherFile{7, 12};

inline std::string word_of(const LockOutcome &outcome) {
    switch (outcome.result) {
        case LockResult::Granted:
            return "granted";
        case LockResult::Busy:
            return "busy";
        case LockResult::Interrupted:
            return "interrupted";
        case LockResult::Failed:
            break;
    }
    return "failed: " + outcome.error.message;
}

inline std::string perform_lock_command(DP *dp, const std::string &command) {
    std::istringstream words(command);
    std::string verb, key;
    words >> verb >> key;
    if (verb == "lock") return word_of(lock_record(dp, TestFile, key, Wait::Yes));
    if (verb == "try") return word_of(lock_record(dp, TestFile, key, Wait::No));
    if (verb == "release") return unlock_record(dp, TestFile, key) ? "released" : "not held";
    if (verb == "releaseall") return unlock_all(dp), "released";
    if (verb == "holds") return holds_record(dp, TestFile, key) ? "yes" : "no";
    if (verb == "exec") return word_of(lock_execution(dp, std::stoi(key), Wait::Yes));
    if (verb == "tryexec") return word_of(lock_execution(dp, std::stoi(key), Wait::No));
    if (verb == "unexec") return unlock_execution(dp, std::stoi(key)) ? "released" : "not held";
    return "unknown command";
}

class LockInterleaving : public Interleaving {
  protected:
    std::string perform(DP *dp, const std::string &command) override { return perform_lock_command(dp, command); }
};

}  // namespace velda::test
