// actions.h - the functions behind the command table, one for each command word.
#pragma once

#include "commands/command.h"

namespace velda::commands {

// file_commands.cpp
void create_file(DP *dp, const Words &words);
void delete_file(DP *dp, const Words &words);
void clear_file(DP *dp, const Words &words);
void file_status(DP *dp, const Words &words);
void check_file(DP *dp, const Words &words);

// record_commands.cpp
void copy(DP *dp, const Words &words);
void copy_to_terminal(DP *dp, const Words &words);
void copy_to_printer(DP *dp, const Words &words);
void count(DP *dp, const Words &words);
void list(DP *dp, const Words &words);

// list_commands.cpp
void select(DP *dp, const Words &words);
void sorted_select(DP *dp, const Words &words);
void save_list(DP *dp, const Words &words);
void get_list(DP *dp, const Words &words);
void delete_list(DP *dp, const Words &words);

// session_commands.cpp
void who(DP *dp, const Words &words);
void list_users(DP *dp, const Words &words);
void list_locks(DP *dp, const Words &words);
void kill_process(DP *dp, const Words &words);

// path_commands.cpp
void remove_paths(DP *dp, const Words &words);
void move_path(DP *dp, const Words &words);

// transaction_commands.cpp
void begin_transaction(DP *dp, const Words &words);
void end_transaction(DP *dp, const Words &words);
void abort_transaction(DP *dp, const Words &words);

// vlogadmin.cpp, vlogstatus.cpp, vlogdup.cpp, vlogkill.cpp, vlogdump.cpp, vlogverify.cpp
void journal_admin(DP *dp, const Words &words);
void journal_status(DP *dp, const Words &words);
void duplicate(DP *dp, const Words &words);
void kill_duplicators(DP *dp, const Words &words);
void journal_dump(DP *dp, const Words &words);
void journal_verify(DP *dp, const Words &words);

}  // namespace velda::commands
