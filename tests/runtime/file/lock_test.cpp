// What the record statements do about locks: between processes, and between contexts of one process.
#include <sstream>

#include "runtime/file/file.h"
#include "runtime/lock/lock.h"
#include "runtime/process/process.h"
#include "runtime/value/value.h"
#include "tests/support/interleaving.h"
#include "tests/support/marks.h"

namespace velda::test {
namespace {

class StatementLocks : public Interleaving {
  protected:
    void SetUp() override {
        VAR message;
        const VAR operands("DATA " + path() + marks("^DURABILITY=LAZY"));
        ASSERT_EQ(velda_create_file(velda_getdp(), &operands, &message), 1) << message.view();
        Session session(velda_getdp(), path());
        session.write("K", "old", 0);
    }

    // One session's file and what its last statement left.
    struct Session {
        Session(DP *context, const std::string &file_path) : dp(context) {
            const VAR name(file_path);
            VLibFNEWOPEN_IIBBBB(dp, 0, nullptr, &name, &file, nullptr);
        }
        std::string read(const VAR &key, int flags) {
            VAR record("unchanged"), setting;
            const int result = VLibFNEWREAD_IIBBBIB(dp, flags, &file, &record, &key, 0, &setting);
            const bool took_lock = result < 2 && (flags & VELDA_READ_LOCK);
            return took_lock && result == 1 ? "granted" : std::to_string(result) + " [" + shown(record.view()) + "]";
        }
        std::string matread(const VAR &key, int flags) {
            VAR matrix;
            velda_make_matrix(&matrix, 2);
            VLibBMATAB_VBB(dp, &matrix, velda::Argument("unchanged"));
            const int result = VLibFNEWMATREAD_IIBBBBB(dp, flags, nullptr, &matrix, &key, &file, nullptr);
            return std::to_string(result) + " [" + VLibBARRAY_BB(dp, &matrix, 1)->str() + "]";
        }
        std::string write(const VAR &key, const VAR &record, int flags) {
            return VLibFNEWWRITE_IIBBBIB(dp, flags, &file, &record, &key, 0, nullptr) == 1 ? "done" : "failed";
        }
        std::string write_attribute(const VAR &key, int attribute, const VAR &value) {
            const int flags = VELDA_ONE_ATTRIBUTE;
            return VLibFNEWWRITE_IIBBBIB(dp, flags, &file, &value, &key, attribute, nullptr) == 1 ? "done" : "failed";
        }
        std::string remove(const VAR &key, int flags) {
            return VLibFNEWDELETE_IIBBB(dp, flags, &file, &key, nullptr) == 1 ? "done" : "failed";
        }
        std::string release(const VAR *key) { return VLibFRELEASE_IBB(dp, &file, key) == 1 ? "released" : "not held"; }

        DP *dp;
        VAR file;
    };

    std::string perform(DP *dp, const std::string &command) override {
        std::istringstream words(command);
        std::string verb, key, text;
        words >> verb >> key >> text;
        if (verb == "command") return in_command(dp, command.substr(verb.size() + 1));
        if (verb == "trapped") {
            VLibSignalTrap(
                dp, [](DP *, void *) {}, nullptr);
            return perform(dp, command.substr(verb.size() + 1));
        }
        Session session(dp, path());
        const VAR key_cell(key);
        if (verb == "read") return session.read(key, 0);
        if (verb == "lock") return session.read(key, VELDA_READ_LOCK);
        if (verb == "try") return session.read(key, VELDA_READ_LOCK_NOWAIT);
        if (verb == "tryattribute") return session.read(key, VELDA_READ_LOCK_NOWAIT | VELDA_ONE_ATTRIBUTE);
        if (verb == "trymatread") return session.matread(key, VELDA_READ_LOCK_NOWAIT);
        if (verb == "look") return session.read(key, VELDA_READ_REPORT_LOCK);
        if (verb == "holder") return holder(session, key);
        if (verb == "write") return session.write(key, text, 0);
        if (verb == "writekeep") return session.write(key, text, VELDA_WRITE_KEEP_LOCK);
        if (verb == "writeattribute") return session.write_attribute(key, 2, text);
        if (verb == "delete") return session.remove(key, 0);
        if (verb == "deletekeep") return session.remove(key, VELDA_WRITE_KEEP_LOCK);
        if (verb == "release") return session.release(&key_cell);
        if (verb == "releasefile") return session.release(nullptr);
        if (verb == "releaseall") return VLibFRELEASEALL_I(dp) ? "released" : "failed";
        if (verb == "closefile") return VLibFCLOSE_IB(dp, &session.file) ? "done" : "failed";
        return "unknown command";
    }

    // "held", with the holder's port in the setting variable, or "free".
    static std::string holder(Session &session, const VAR &key) {
        VAR record, setting("none");
        const int flags = VELDA_READ_LOCK_NOWAIT;
        if (VLibFNEWREAD_IIBBBIB(session.dp, flags, &session.file, &record, &key, 0, &setting) != 2) return "free";
        return setting.is_numeric() && setting.to_integer() >= 0 ? "held" : "no port";
    }

    // The same as a command: what it answers, or the exit code of a command that stopped.
    std::string in_command(DP *dp, const std::string &command) {
        struct Call {
            StatementLocks *test;
            std::string command, answer;
        } call{this, command, ""};
        const int code = velda_run(
            dp, "TEST",
            [](DP *context, void *argument) {
                auto &running = *static_cast<Call *>(argument);
                running.answer = running.test->perform(context, running.command);
            },
            &call);
        return call.answer.empty() ? "stopped " + std::to_string(code) : call.answer;
    }

    std::string path() const { return system_.path() + "/F"; }
};

TEST_F(StatementLocks, ALockingReadThatMustNotWaitGives2AndLeavesTheTarget) {
    run("one: lock K | two: try K -> 2 [unchanged] | two: read K -> 1 [old]");
}

TEST_F(StatementLocks, Result2PutsTheHoldersPortIntoTheSettingVariable) {
    run("one: lock K | two: holder K -> held | one: holder K -> free");
}

TEST_F(StatementLocks, ALockingReadWaitsUntilTheHolderWrites) {
    run("one: lock K | two: lock K -> waits | one: write K new | two: granted | two: read K -> 1 [new]");
}

TEST_F(StatementLocks, TwoContextsOfOneProcessAreTwoOwners) {
    run("thread one: lock K | thread two: try K -> 2 [unchanged] | thread two: lock K -> waits | "
        "thread one: release K | thread two: granted | thread one: try K -> 2 [unchanged]");
}

TEST_F(StatementLocks, TheOwnerMayLockAgain) {
    run("one: lock K | one: try K | one: lock K | one: release K | two: try K");
}

TEST_F(StatementLocks, APlainReadSeesTheRecordThroughAnothersLock) { run("one: lock K | two: read K -> 1 [old]"); }

TEST_F(StatementLocks, APlainReadThatReportsLocksGives2AndTheRecord) {
    run("two: look K -> 1 [old] | one: lock K | two: look K -> 2 [old] | one: look K -> 1 [old] | one: release K | "
        "two: look K -> 1 [old]");
}

TEST_F(StatementLocks, APlainReadThatReportsLocksGives2ForAMissingRecord) {
    run("two: look M -> 0 [] | one: lock M -> 0 [] | two: look M -> 2 []");
}

TEST_F(StatementLocks, ALockingReadOfAMissingRecordKeepsTheLock) {
    run("one: lock M -> 0 [] | two: try M -> 2 [unchanged] | one: write M new | two: try M");
}

TEST_F(StatementLocks, AReadOfOneAttributeTakesTheLockLikeAnyOther) {
    run("one: tryattribute K | two: tryattribute K -> 2 [unchanged] | one: release K | two: tryattribute K");
}

TEST_F(StatementLocks, MatreadTakesTheLockLikeAnyOther) {
    run("one: trymatread K -> 1 [old] | two: trymatread K -> 2 [unchanged] | one: release K | "
        "two: trymatread K -> 1 [old] | one: try K -> 2 [unchanged]");
}

TEST_F(StatementLocks, WriteReleasesTheLockUnlessToldToKeepIt) {
    run("one: lock K | one: writekeep K a | two: try K -> 2 [unchanged] | one: write K b | two: try K");
}

TEST_F(StatementLocks, DeleteReleasesTheLockUnlessToldToKeepIt) {
    run("one: lock K | one: deletekeep K | two: try K -> 2 [unchanged] | one: delete K | two: try K -> 0 []");
}

TEST_F(StatementLocks, AWriteWithoutTheLockGoesThroughAndLeavesItAlone) {
    run("one: lock K | two: write K theirs | one: read K -> 1 [theirs] | two: try K -> 2 [unchanged]");
}

TEST_F(StatementLocks, WritingOneAttributeWaitsForTheLock) {
    run("one: lock K | two: writeattribute K value -> waits | one: write K mine | two: answers done | "
        "one: read K -> 1 [mine^value] | one: try K");
}

TEST_F(StatementLocks, WritingOneAttributeUnderTheLockReleasesItAsAWriteDoes) {
    run("one: lock K | one: writeattribute K value | two: try K");
}

TEST_F(StatementLocks, ReleaseFreesOneRecordOrTheFilesOrAll) {
    run("one: lock K | one: lock L -> 0 [] | one: release K | two: try K | two: try L -> 2 [unchanged]");
    run("one: release K -> not held | one: releasefile | two: try L -> 0 [] | two: releaseall | one: try K | one: try "
        "L -> 0 []");
}

TEST_F(StatementLocks, LocksOutliveTheClosingOfTheFile) {
    run("one: lock K | one: closefile | two: try K -> 2 [unchanged] | one: release K | two: try K");
}

TEST_F(StatementLocks, LocksOfAKilledProcessGoToTheNextInLine) {
    run("one: lock K | two: lock K -> waits | one: killed | two: granted | three: try K -> 2 [unchanged]");
}

TEST_F(StatementLocks, ABreakKeyEndsTheWaitAndTheCommand) {
    run("one: lock K | two: command lock K -> waits | two: break key | two: answers stopped 1 | "
        "one: release K | three: try K");
}

TEST_F(StatementLocks, TheWaitGoesOnWhenTheTrapOfTheBreakKeyReturns) {
    run("one: lock K | two: command trapped lock K -> waits | two: break key | two: still waits | one: release K | "
        "two: granted");
}

TEST_F(StatementLocks, ABreakKeyDuringAWaitForOneAttributeLeavesTheRecord) {
    run("one: lock K | two: command writeattribute K value -> waits | two: break key | two: answers stopped 1 | "
        "one: read K -> 1 [old] | one: write K new | three: try K");
}

}  // namespace
}  // namespace velda::test
