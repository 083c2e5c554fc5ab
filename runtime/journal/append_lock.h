// append_lock.h - one writer at a time, of all processes. Private to the folder.
#pragma once

#include "runtime/journal/configuration.h"
#include "runtime/journal/writer_state.h"

namespace velda::journal {

// Makes the locks of the writers when this is the first writer since the machine started. 0 or the error.
int prepare_writer_state(DP *dp, Configuration &configuration);

// Held while it lives. A holder that died left nothing half done: what it appended counts from one store on.
class AppendLock {
  public:
    explicit AppendLock(WriterState &state);
    ~AppendLock();
    AppendLock(const AppendLock &) = delete;
    AppendLock &operator=(const AppendLock &) = delete;

    // The holder before died: what is told elsewhere of how far the set is written may be behind.
    bool is_inherited() const { return inherited_; }

  private:
    WriterState &state_;
    bool inherited_ = false;
};

}  // namespace velda::journal
