#include <random>

#include "actions.h"

namespace {

constexpr std::size_t KeysInUse = 2000;
constexpr int CountAttribute = 15;  // of a package's record: how often it was updated here
constexpr int Accounts = 10;        // records between which transactions move amounts
constexpr int OpeningAmount = 1000;

struct Counts {
    std::uint64_t writes = 0;
    std::uint64_t deletes = 0;
    std::uint64_t transactions = 0;
    std::uint64_t total() const { return writes + deletes + 2 * transactions; }
};

class Updater {
  public:
    Updater(DP *dp, const std::string &file, const std::string &name) : dp_(dp), name_(name) {
        open_or_stop(file_, file);
        VAR list, key;
        if (!VLibFSELECT_IBBB(dp_, &file_, &list, nullptr)) velda::stop("Cannot select the records of a file");
        while (keys_.size() < KeysInUse && VLibFREADNEXT_IBBBBB(dp_, &key, nullptr, nullptr, &list, nullptr) == 1)
            keys_.push_back(key.str());
        if (keys_.empty()) velda::stop("There is no record in '" + file + "'");
        for (int n = 0; n < Accounts; ++n) {
            VAR amount;
            if (read(account(n), amount) == 0) write(account(n), OpeningAmount);
            VLibFRELEASE_IBB(dp_, &file_, nullptr);
        }
    }

    // One update of a random kind.
    void step() {
        switch (random(10)) {
            case 0:
                return add_record();
            case 1:
                return delete_record();
            case 2:
                return move_amount();
            default:
                return change_package();
        }
    }

    const Counts &counts() const { return counts_; }

  private:
    std::size_t random(std::size_t below) { return std::uniform_int_distribution<std::size_t>(0, below - 1)(engine_); }
    std::string account(std::size_t n) const { return name_ + "*account*" + std::to_string(n); }

    // READU: waits for the record's lock.
    int read(const VAR &key, VAR &record) {
        return VLibFNEWREAD_IIBBBIB(dp_, VELDA_READ_LOCK, &file_, &record, &key, 0, nullptr);
    }
    void write(const VAR &key, const VAR &record) { VLibFNEWWRITE_IIBBBIB(dp_, 0, &file_, &record, &key, 0, nullptr); }

    void change_package() {
        const VAR key = keys_[random(keys_.size())];
        VAR record;
        read(key, record);
        record(CountAttribute) = record(CountAttribute).to_integer() + 1;
        write(key, record);
        ++counts_.writes;
    }

    void add_record() {
        VAR record;
        record(1) = "made by " + name_;
        record(2) = std::string(random(400), 'x');
        write(name_ + "*" + std::to_string(++made_), record);
        ++counts_.writes;
    }

    void delete_record() {
        if (deleted_ == made_) return add_record();
        const VAR key = name_ + "*" + std::to_string(++deleted_);
        VLibFNEWDELETE_IIBBB(dp_, 0, &file_, &key, nullptr);
        ++counts_.deletes;
    }

    // A transaction: what leaves one account arrives in another, or neither.
    void move_amount() {
        const std::size_t from = random(Accounts), to = (from + 1 + random(Accounts - 1)) % Accounts;
        const auto amount = static_cast<int>(random(100));
        velda::Transaction transaction;
        VAR giver, taker;
        read(account(from), giver);
        read(account(to), taker);
        giver(1) = giver(1).to_integer() - amount;
        taker(1) = taker(1).to_integer() + amount;
        write(account(from), giver);
        write(account(to), taker);
        if (!transaction.commit()) velda::stop(velda::transaction_error());
        ++counts_.transactions;
    }

    DP *const dp_;
    const std::string name_;
    VAR file_;
    std::vector<std::string> keys_;
    std::mt19937 engine_{std::random_device{}()};
    std::uint64_t made_ = 0, deleted_ = 0;  // records of this process: numbers 1 to made_, the first deleted_ are gone
    Counts counts_;
};

}  // namespace

int update(DP *dp, const std::string &file, const std::string &name, double seconds) {
    Updater updater(dp, file, name);
    const auto start = std::chrono::steady_clock::now();
    while (seconds_since(start) < seconds) updater.step();
    const Counts &counts = updater.counts();
    velda::crt_line(name + ": " + rate(counts.total(), "updates", seconds_since(start)) + "; " +
                    std::to_string(counts.transactions) + " transactions, " + std::to_string(counts.deletes) +
                    " deletes");
    return 0;
}
