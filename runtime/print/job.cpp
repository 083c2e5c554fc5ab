#include "runtime/print/job.h"

#include <cstdlib>

#include "runtime/base/global_directory.h"

namespace velda {

Result<std::unique_ptr<PrintJob>> begin_print_job(const PrintJobOwner &owner) {
    if (const char *const command = std::getenv("VELDAPRINTER"); command && *command)
        return begin_command_job(command, owner);
    Result<std::string> directory = global_subdirectory("print");
    if (!directory) return directory.error();
    return begin_file_job(*directory, owner);
}

}  // namespace velda
