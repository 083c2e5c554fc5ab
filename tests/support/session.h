// session.h - a session of one test: a context of its own, current on the test's thread, gone when the object dies. A
// fixture declares it behind its ScratchSystem, so that the session belongs to that system.
#pragma once

#include "runtime/process/process.h"

namespace velda::test {

class ScratchSession {
  public:
    ScratchSession() : dp_(velda_new_context()), before_(velda_set_context(dp_)) {}
    ~ScratchSession() {
        velda_set_context(before_);
        velda_free_context(dp_);
    }
    ScratchSession(const ScratchSession &) = delete;
    ScratchSession &operator=(const ScratchSession &) = delete;

    operator DP *() const { return dp_; }

  private:
    DP *dp_;
    DP *before_;
};

}  // namespace velda::test
