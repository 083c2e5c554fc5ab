// facade.h - the dialect's words for transactions.
//
//   Transaction transfer;
//   from.write(...); to.write(...);
//   if (!transfer.commit()) stop(transaction_error());
//
// They work on the calling thread's context.
#ifndef VELDA_RUNTIME_TRANSACTION_FACADE_H
#define VELDA_RUNTIME_TRANSACTION_FACADE_H

#include "runtime/transaction/transaction.h"
#include "runtime/value/value.h"

extern "C" VELDA_EXPORT DP *velda_getdp(void);

namespace velda {

inline bool transaction_active() { return velda_transaction_active(velda_getdp()) == 1; }

// Why the last begin, commit or abort failed.
inline VAR transaction_error() { return velda_transaction_error(velda_getdp()); }

// A transaction for a scope: it is aborted at the end of the scope, unless it was committed, also when a STOP or another
// exception leaves it. Where a transaction is active already, the scope is no transaction of its own: it takes part in
// the active one, and its commit and its end do nothing.
class Transaction {
  public:
    Transaction() : dp_(velda_getdp()), own_(velda_transaction_begin(dp_, nullptr) == 1) {}
    ~Transaction() {
        if (own_) velda_transaction_abort(dp_, nullptr);
    }
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    // False when this is no transaction of its own: another is active, or it could not begin.
    bool is_own() const { return own_; }
    // False when nothing of it was made; transaction_error() tells why. The scope is over either way.
    bool commit() {
        if (!own_) return transaction_active();
        own_ = false;
        return velda_transaction_commit(dp_, nullptr) == 1;
    }

  private:
    DP *dp_;
    bool own_;
};

}  // namespace velda

#endif
