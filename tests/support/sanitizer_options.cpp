// Options of the sanitizers, in every test program.
#include <unistd.h>

// Tests fork while the store's housekeeper runs; the children use only what the store's fork handlers have set up anew,
// so the thread sanitizer may let them go on.
extern "C" __attribute__((visibility("default"))) const char *__tsan_default_options() { return "die_after_fork=0"; }

// LMDB is built without the thread sanitizer, which so cannot see how its readers and its writer keep apart. A fixture of
// the journal's writer stores into the shared configuration as the administrator's process would.
extern "C" __attribute__((visibility("default"))) const char *__tsan_default_suppressions() {
    return "called_from_lib:liblmdb.so\n"
           "race:velda::test::WriterTest::reset\n"
           "race:velda::test::WriterTest::activate\n";
}

namespace {
const pid_t TestProcess = getpid();
}

// A forked child has what its parent held in memory, and nothing that points to it: that is no leak of the child's.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() { return getpid() != TestProcess; }
