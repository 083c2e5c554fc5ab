// job.h - where the output of a print unit goes when printing is on. Private to the runtime.
//
// This is the whole of what a print unit asks of a spooler. Here a job is a file of the system's directory "print", or
// the input of the command that the environment variable VELDAPRINTER names.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "runtime/base/result.h"

namespace velda {

class PrintJob {
  public:
    virtual ~PrintJob() = default;

    // After a failure the job takes no more, and what it has stays where it is.
    virtual Result<void> write(std::string_view bytes) = 0;

    // The job is complete and may be printed. Called once, last.
    virtual Result<void> finish() = 0;
};

struct PrintJobOwner {
    int port;
    int unit;
};

// Begins a job: by command when VELDAPRINTER is set, else as a file.
Result<std::unique_ptr<PrintJob>> begin_print_job(const PrintJobOwner &owner);

// A job that becomes the file PORT-UNIT-NUMBER.prn of the directory. While it is being written its name ends in
// ".part", so that a ".prn" is always whole; the number is one above the highest in use for port and unit. A process
// that dies leaves the part that it has written.
Result<std::unique_ptr<PrintJob>> begin_file_job(const std::string &directory, const PrintJobOwner &owner);

// A job that is the standard input of a shell command. The command finds port and unit in VELDAPRINTPORT and
// VELDAPRINTUNIT. It fails to finish when the command gives an exit code that is not 0.
Result<std::unique_ptr<PrintJob>> begin_command_job(const std::string &command, const PrintJobOwner &owner);

}  // namespace velda
