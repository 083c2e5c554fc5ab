// session_names.h - who runs the session and under which account. Private to the runtime.
#pragma once

#include <string>

namespace velda {

// The login user name, SYSTEM(1015): that of the process's real user, its number when the user database has no name.
std::string user_name();

// The account name, SYSTEM(19): the environment variable VELDAACCOUNT, else the login user name.
std::string account_name();

// The system file, SYSTEM(1008), which holds the definitions of accounts: the environment variable VELDASYSTEM, else
// SYSTEM in the global directory. It need not exist.
std::string system_file_name();

}  // namespace velda
