// silence.h - what a fuzz target's commands print and ask goes nowhere, for one input; what they report too, if said so.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

class Silence {
  public:
    explicit Silence(bool of_reports = false) : streams_(of_reports ? 3 : 2), nothing_(open("/dev/null", O_RDWR)) {
        std::fflush(stdout);
        for (int stream = 0; stream < streams_; ++stream) {
            before_[stream] = dup(stream);
            dup2(nothing_, stream);
        }
    }
    ~Silence() {
        for (int stream = 0; stream < streams_; ++stream) {
            dup2(before_[stream], stream);
            close(before_[stream]);
        }
        close(nothing_);
    }
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;

  private:
    const int streams_;
    int nothing_;
    int before_[3] = {};
};
