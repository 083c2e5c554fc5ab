// silence.h - what a fuzz target's commands print and ask goes nowhere, for one input.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

class Silence {
  public:
    Silence() : nothing_(open("/dev/null", O_RDWR)) {
        std::fflush(stdout);
        for (int stream = 0; stream < 2; ++stream) {
            before_[stream] = dup(stream);
            dup2(nothing_, stream);
        }
    }
    ~Silence() {
        for (int stream = 0; stream < 2; ++stream) {
            dup2(before_[stream], stream);
            close(before_[stream]);
        }
        close(nothing_);
    }
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;

  private:
    int nothing_;
    int before_[2];
};
