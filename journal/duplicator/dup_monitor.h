// dup_monitor.h - shows how far a run is, once a second, whatever the run waits for. Private to the duplicator.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "journal/duplicator/duplicator.h"

namespace velda::journal {

// Reads the run's slot on a thread of its own. The run tells of its end by finish().
class RunMonitor {
  public:
    // With a file for JSON, a terminal on standard error, or both. Null, after a message, when that cannot be had.
    static std::unique_ptr<RunMonitor> start(DP *dp, const DupContext &context, const char *json_file,
                                             bool on_terminal);
    ~RunMonitor();
    RunMonitor(const RunMonitor &) = delete;
    RunMonitor &operator=(const RunMonitor &) = delete;

    // Shows the last line and stops.
    void finish(int exit_code);

    // Keeps the terminal free of the line, for as long as somebody else writes to it.
    class Pause {
      public:
        explicit Pause(RunMonitor *monitor);
        ~Pause();
        Pause(const Pause &) = delete;
        Pause &operator=(const Pause &) = delete;

      private:
        RunMonitor *monitor_;
    };

  private:
    RunMonitor(DP *dp, const DupStatusSlot &slot, const VELDALoggerConfig &config)
        : dp_(dp), slot_(slot), config_(config) {}

    static void tick(void *self) { static_cast<RunMonitor *>(self)->show(false, 0); }
    void show(bool ended, int exit_code);
    void write_json(const std::string &line);
    void draw(const std::string &line);
    void erase();

    DP *dp_;
    const DupStatusSlot &slot_;
    const VELDALoggerConfig &config_;
    VRunFile *json_file_ = nullptr;
    std::int64_t json_size_ = 0;
    bool on_terminal_ = false;
    std::size_t drawn_columns_ = 0;
    std::uint64_t records_before_ = 0;
    std::int64_t milliseconds_before_ = 0;
    VELDATicker *ticker_ = nullptr;
};

}  // namespace velda::journal
