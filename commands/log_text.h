// log_text.h - journal records as lines of text and as JSON.
#pragma once

#include <string>

#include "journal/log_record.h"

namespace velda::commands {

// Adds one record's text to an output. Quick enough for a million records a second.
class LogText {
  public:
    LogText(bool as_json, bool with_data) : as_json_(as_json), with_data_(with_data) {}

    // One line, with its line feed.
    void add(std::string &text, const journal::LogParts &record);

  private:
    void add_line(std::string &text, const journal::LogParts &record);
    void add_json(std::string &text, const journal::LogParts &record) const;
    std::string_view time_text(std::int64_t time);

    bool as_json_, with_data_;
    std::int64_t shown_time_ = INT64_MIN;  // the one that `time_` shows
    std::string time_;
};

// Seconds since 1970 as YYYY-MM-DDTHH:MM:SSZ, or the number where that has no such form.
std::string utc_text(std::int64_t time);

// What a record of a type does beyond its file and key: paths, lengths, values.
std::string record_details(const journal::LogParts &record);

// The data of a WRITE.
std::string_view record_data(const journal::LogParts &record);

}  // namespace velda::commands
