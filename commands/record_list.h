// record_list.h - the records that a command line names: "[DICT] FILE [KEYS|*] [(OPTIONS]", walked one by one.
#pragma once

#include <cstdint>

#include "commands/command.h"

namespace velda::commands {

// Parses the running command's line; a missing name or a file that cannot be opened ends the command with its message.
class RecordList {
  public:
    explicit RecordList(DP *dp);

    // The next key whose record is there; false at the end. Keys without a record are kept for report_missing.
    bool next(VAR &key);
    // Prints "'KEY' record not found" for each; when there was one, ends the command with exit code 2.
    void report_missing() const;
    bool has_option(char letter) const;
    const VAR &file_name() const { return name_; }
    std::uint64_t found() const { return found_; }

  private:
    bool exists(const VAR &key) const;

    DP *dp_;
    VAR file_, name_, dash_options_, options_, list_;
    bool is_whole_file_ = false;  // the list is the keys that the file has
    std::uint64_t found_ = 0;
    std::vector<std::string> missing_;
};

}  // namespace velda::commands
