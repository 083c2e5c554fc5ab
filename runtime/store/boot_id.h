// boot_id.h - which run of the machine this is: a lazy file that another run left unclean may lack updates on disk.
#pragma once

#include <cstdint>
#include <string>

namespace velda::store {

// A number for this boot of the machine, never 0.
std::uint64_t current_boot();

// Where the boot's identity is read from; tests put another file there to play a power loss.
void set_boot_id_path(const std::string &path);

}  // namespace velda::store
