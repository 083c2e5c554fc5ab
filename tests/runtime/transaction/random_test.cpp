// Random transactions: one thread's sessions against a model, and processes that are killed at random instants.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <vector>

#include "tests/runtime/transaction/session_fixture.h"
#include "tests/support/seed.h"

namespace velda::test {

// --- sessions of one thread, whose statements take turns at random ---

class RandomTransactionTest : public TransactionTest {
  protected:
    static constexpr int Sessions = 3;
    static constexpr int Keys = 12;
    static constexpr const char *Files[] = {"A", "B", "D"};

    using Store = std::map<std::string, std::string>;  // "FILE key" to the record

    // What the model knows of a session: the updates that it holds, nullopt for a record that it removed, and the
    // locks that it has.
    struct Model {
        bool active = false;
        std::map<std::string, std::optional<std::string>> held;
        std::set<std::string> locks;
    };

    struct Player : Session {
        std::map<std::string, VAR> files;
        Model model;
    };

    void SetUp() override {
        for (int i = 0; i < Sessions; ++i) {
            players_.push_back(std::make_unique<Player>());
            for (const char *name : Files) players_.back()->open_file(path(name), players_.back()->files[name]);
        }
    }

    bool is_locked_by_other(const Player &player, const std::string &place) const {
        for (const auto &other : players_)
            if (other.get() != &player && other->model.locks.contains(place)) return true;
        return false;
    }
    std::string expected(const Player &player, const std::string &place) const {
        if (const auto held = player.model.held.find(place); held != player.model.held.end())
            return held->second.value_or("(none)");
        const auto stored = store_.find(place);
        return stored == store_.end() ? "(none)" : stored->second;
    }

    void read(Player &player, const std::string &file, const std::string &key) {
        EXPECT_EQ(player.read_from(player.files[file], key), expected(player, file + " " + key));
    }
    // An update of `record`, or a removal where it is nullopt.
    void update(Player &player, const std::string &file, const std::string &key, std::optional<std::string> record) {
        const std::string place = file + " " + key;
        const bool busy = player.model.active && is_locked_by_other(player, place);
        const int result = record ? player.write_to(player.files[file], key, *record, VELDA_WRITE_NOWAIT)
                                  : player.remove_from(player.files[file], key, VELDA_WRITE_NOWAIT);
        ASSERT_EQ(result, busy ? 2 : 1);
        if (busy) return;
        if (player.model.active) {
            player.model.locks.insert(place);
            // Nothing is removed where there is nothing: should another write the record without its lock, it stays.
            if (record || expected(player, place) != "(none)") player.model.held[place] = record;
        } else if (record) {
            store_[place] = *record;
        } else {
            store_.erase(place);
        }
    }
    void walk(Player &player, const std::string &file) {
        std::set<std::string> keys, wanted;
        VAR list, key;
        ASSERT_EQ(VLibFSELECT_IBBB(player.dp(), &player.files[file], &list, nullptr), 1);
        while (VLibFREADNEXT_IBBBBB(player.dp(), &key, nullptr, nullptr, &list, nullptr) == 1)
            EXPECT_TRUE(keys.insert(key.str()).second) << "seen twice: " << key.str();
        for (int i = 0; i < Keys; ++i) {
            const std::string name = "k" + std::to_string(i);
            if (expected(player, file + " " + name) != "(none)") wanted.insert(name);
        }
        EXPECT_EQ(keys, wanted);
    }
    void begin(Player &player) {
        ASSERT_EQ(player.begin(), !player.model.active);
        player.model.active = true;
    }
    void end(Player &player, bool commits) {
        ASSERT_EQ(commits ? player.commit() : player.abort(), player.model.active);
        if (commits) {
            for (const auto &[place, record] : player.model.held) {
                if (record)
                    store_[place] = *record;
                else
                    store_.erase(place);
            }
        }
        player.model = Model();
    }

    std::vector<std::unique_ptr<Player>> players_;
    Store store_;
};

TEST_F(RandomTransactionTest, InterleavedSessionsAgreeWithAModel) {
    auto random = seeded_random();
    for (int step = 0; step < 3000 && !HasFatalFailure(); ++step) {
        Player &player = *players_[random() % Sessions];
        const std::string file = Files[random() % 3];
        const std::string key = "k" + std::to_string(random() % Keys);
        switch (random() % 16) {
            case 0:
            case 1:
                begin(player);
                break;
            case 2:
                end(player, true);
                break;
            case 3:
                end(player, false);
                break;
            case 4:
                walk(player, file);
                break;
            case 5:
            case 6:
                update(player, file, key, std::nullopt);
                break;
            case 7:
            case 8:
            case 9:
            case 10:
                read(player, file, key);
                break;
            default:
                update(player, file, key, "r" + std::to_string(step) + "^x");
        }
    }
}

// --- processes that are killed ---

namespace {

constexpr int Groups = 4;
constexpr const char *GroupFiles[] = {"A", "B", "L", "D"};

// What the processes of the test share: for each group of records the number of the last commit that has returned.
struct Shared {
    std::atomic<int> returned[Groups];
    std::atomic<std::uint64_t> commits;
};

}  // namespace

// A group is one record in each of four files, which every transaction writes together with the next number.
class KilledSessionsTest : public TransactionTest {
  protected:
    static constexpr int Workers = 4;
    static constexpr int Kills = 240;

    KilledSessionsTest()
        : shared_(*new (mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                      Shared{}) {
        make("L DURABILITY=LAZY");
    }
    ~KilledSessionsTest() override { munmap(&shared_, sizeof(Shared)); }

    std::vector<VAR> open_all(Session &session) const {
        std::vector<VAR> files(std::size(GroupFiles));
        for (std::size_t i = 0; i < files.size(); ++i) session.open_file(path(GroupFiles[i]), files[i]);
        return files;
    }
    // Reads under the lock, waiting for it.
    static int number_of(Session &session, const VAR &file, int group) {
        VAR record;
        const VAR key("g" + std::to_string(group));
        VLibFNEWREAD_IIBBBIB(session.dp(), VELDA_READ_LOCK, &file, &record, &key, 0, nullptr);
        return static_cast<int>(record.to_integer());
    }

    [[noreturn]] void work(std::uint64_t seed) const {
        std::mt19937_64 random(seed);
        Session session;
        std::vector<VAR> files = open_all(session);
        for (;;) {
            const int first = static_cast<int>(random() % Groups);
            const int last = std::min(Groups - 1, first + static_cast<int>(random() % 2));
            if (!session.begin()) _exit(2);
            std::vector<int> numbers;
            for (int group = first; group <= last; ++group) {
                numbers.push_back(number_of(session, files[0], group) + 1);
                for (const VAR &file : files)
                    session.write_to(file, "g" + std::to_string(group), std::to_string(numbers.back()));
            }
            if (random() % 8 == 0) {
                session.abort();
                continue;
            }
            if (!session.commit()) _exit(3);
            // Another may have been faster to note its later number.
            for (int group = first; group <= last; ++group) {
                int noted = shared_.returned[group].load();
                const int number = numbers[static_cast<std::size_t>(group - first)];
                while (noted < number && !shared_.returned[group].compare_exchange_weak(noted, number)) {
                }
            }
            ++shared_.commits;
        }
    }

    pid_t start_worker(std::uint64_t seed) const {
        const pid_t child = fork();
        if (child == 0) work(seed);
        return child;
    }

    // Under the locks of a group all of its records bear one number, and not one before the last that was returned.
    void check(Session &session, const std::vector<VAR> &files) {
        for (int group = 0; group < Groups; ++group) {
            const int returned = shared_.returned[group].load();
            const int number = number_of(session, files[0], group);
            EXPECT_GE(number, returned) << "a commit that had returned is lost";
            for (std::size_t i = 1; i < files.size(); ++i)
                EXPECT_EQ(number_of(session, files[i], group), number) << "group " << group << " in " << GroupFiles[i];
            for (const VAR &file : files) {
                const VAR key("g" + std::to_string(group));
                VLibFRELEASE_IBB(session.dp(), &file, &key);
            }
        }
    }

    Shared &shared_;
};

TEST_F(KilledSessionsTest, EveryTransactionIsWholeAndNoneThatReturnedIsLost) {
    auto random = seeded_random();
    std::vector<pid_t> workers;
    for (int i = 0; i < Workers; ++i) workers.push_back(start_worker(random()));
    Session checker;
    const std::vector<VAR> files = open_all(checker);
    for (int kill_number = 0; kill_number < Kills && !HasFailure(); ++kill_number) {
        usleep(static_cast<unsigned>(random() % 20'000));
        pid_t &victim = workers[random() % Workers];
        kill(victim, SIGKILL);
        int status = 0;
        waitpid(victim, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "a worker ended by itself: " << WEXITSTATUS(status);
        victim = start_worker(random());
        if (kill_number % 4 == 0) check(checker, files);
    }
    for (const pid_t worker : workers) {
        kill(worker, SIGKILL);
        waitpid(worker, nullptr, 0);
    }
    check(checker, files);
    EXPECT_GT(shared_.commits.load(), static_cast<std::uint64_t>(Kills));
    std::printf("%llu commits returned, %d kills\n", static_cast<unsigned long long>(shared_.commits.load()), Kills);
}

}  // namespace velda::test
