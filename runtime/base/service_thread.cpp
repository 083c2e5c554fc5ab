#include "runtime/base/service_thread.h"

#include <csignal>

#include <future>
#include <utility>

namespace velda {
namespace {

class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

  private:
    sigset_t before_;
};

}  // namespace

std::thread service_thread(std::function<void()> body) {
    const SignalsBlocked blocked;
    std::promise<void> begun;
    const std::future<void> has_begun = begun.get_future();
    std::thread thread([begun = std::move(begun), body = std::move(body)]() mutable {
        begun.set_value();
        body();
    });
    has_begun.wait();
    return thread;
}

}  // namespace velda
