// helpers.h - the test program as another process: `test_runtime_process --helper NAME ...`.
#pragma once

// Runs the helper of that name; its exit code.
int run_helper(int count, char **arguments);
