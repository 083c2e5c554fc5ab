// actions.h - what the program `packages` can do; each runs as a command of the database and gives an exit code.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <runtime/vutil.h>

// Reads package lists, "-" for standard input, into FILE and its dictionary, which are made when they are missing.
int load(DP *dp, const std::string &file, const std::vector<std::string> &lists);

// Compares every record of two files, both ways, byte for byte.
int compare(DP *dp, const std::string &one, const std::string &other);

// Two processes fight over the lock of one record; shows who holds it and that no update was lost.
int fight(DP *dp, const std::string &file, const std::string &key);

// Updates records of FILE, one step in ten a transaction, for so many seconds. `name` begins the keys of the records
// that it makes.
int update(DP *dp, const std::string &file, const std::string &name, double seconds);

// Ends the program's command with a message when the file cannot be opened.
void open_or_stop(VAR &file, const std::string &name);

// Seconds since `start`, and "N things in S s, R/s".
double seconds_since(std::chrono::steady_clock::time_point start);
std::string rate(std::uint64_t count, const char *things, double seconds);
