#include "commands/actions.h"

namespace velda::commands {

namespace {

constexpr CommandEntry Entries[] = {
    {"CREATE-FILE", "[-B] [-L] [-T] [DICT|DATA] NAME[,SECTION] [SIZE ...] [WORD=VALUE ...]",
     "makes a file: its dictionary and its data section",
     "TYPE=HL|UD            hashed (the default) or a directory\n"
     "DURABILITY=SYNC|LAZY  what a returned update survives: power loss, or the death of any process\n"
     "PERMS=0666            mode bits, in octal\n"
     "LOG=NO|YES            whether changes are journalled\n"
     "-B -L -T              driver options; -L also means LOG=NO\n"
     "SIZE                  sizes of older systems such as 1 11 or 1,1 23,1: accepted, without effect",
     create_file},
    {"DELETE-FILE", "[DICT|DATA] NAME[,SECTION]", "removes a file: its data section and its dictionary", "",
     delete_file},
    {"CLEAR-FILE", "[DICT|DATA] NAME[,SECTION]", "removes all records of a file", "", clear_file},
    {"FILE-STATUS", "[--json] [DICT] NAME[,SECTION]", "shows size, records, durability and flags of a file", "",
     file_status},
    {"CHECK-FILE", "[DICT] NAME[,SECTION]", "walks a whole file and reports every damage",
     "Exit code 0 when the file is sound, 1 when damage was found. A sound file that was not closed cleanly before a\n"
     "power loss may be opened again afterwards.",
     check_file},
    {"COPY", "[DICT] FILE [KEYS|*] [(OPTIONS]", "copies records to a file, the terminal or the printer", "", copy,
     true},
    {"CT", "[DICT] FILE [KEYS|*] [(OPTIONS]", "shows records on the terminal", "Options as those of COPY.",
     copy_to_terminal},
    {"CP", "[DICT] FILE [KEYS|*] [(OPTIONS]", "prints records", "Options as those of COPY.", copy_to_printer},
    {"COUNT", "[DICT] FILE [KEYS|*]", "counts the records of a file or of a list", "", count},
    {"LIST", "[DICT] FILE [KEYS|*] [(N]", "lists the keys of a file or of a list", "(N  no pause at the end of a page",
     list},
    {"SELECT", "[DICT] FILE [KEYS|*]", "makes the default select list: the keys of a file, in its own order", "",
     select},
    {"SSELECT", "[DICT] FILE [KEYS|*]", "makes the default select list: the keys of a file, sorted", "", sorted_select},
    {"SAVE-LIST", "[NAME]", "saves the default select list under a name", "", save_list},
    {"GET-LIST", "[NAME]", "makes a saved list the default select list", "", get_list},
    {"DELETE-LIST", "NAME", "removes a saved list", "", delete_list},
    {"TRANSTART", "[TEXT]",
     "begins a transaction: what the session changes from here on is made by TRANSEND, or not at all",
     "Until then only this session sees it, and every record that it writes stays locked. TEXT is a remark for the\n"
     "transaction journal. A transaction belongs to one session: use it in the shell, or in a script (velda -c or\n"
     "velda -f); it is dropped when the session ends, as a script does at the first command that fails. Making, "
     "moving\n"
     "and removing whole files is not part of it, and CLEAR-FILE is refused.",
     begin_transaction},
    {"TRANSEND", "[TEXT]", "makes all changes of the transaction, in all its files",
     "Exit code 1 when there is no transaction, or when none of its changes could be made; it is over in either case.",
     end_transaction},
    {"TRANSABORT", "[TEXT]", "drops all changes of the transaction", "Exit code 1 when there is no transaction.",
     abort_transaction},
    {"WHO", "", "shows this session's port, user and account", "", who},
    {"LISTU", "[--json]", "lists the ports in use", "", list_users},
    {"LIST-LOCKS", "[--json]", "lists record and execution locks, with those who wait for them", "", list_locks},
    {"vrm", "[-r] [-f] PATH ...", "removes files; with -r directories and what is in them",
     "-f  no message for what does not exist", remove_paths},
    {"vmv", "FROM TO", "moves a file or a directory", "", move_path},
    {"vkill", "[-t|-v] [-SIGNAL] [--] PID", "ends a process",
     "-t       only tests: exit code 0 when the process exists\n"
     "-v       says what was done\n"
     "-SIGNAL  number of another signal than 15",
     kill_process},
    {"vlogadmin", "OPERATION [WORDS]", "changes the transaction journal", "", journal_admin, true},
    {"vlogstatus", "[--json|--metrics] [SET]", "shows the transaction journal, its files and its duplicators",
     "SET        another set than the current one\n"
     "--metrics  in the text format of Prometheus",
     journal_status},
    {"vlogdup", "[OPTIONS] INPUT SPECIFICATION OUTPUT SPECIFICATION",
     "copies journal records: from the journal, a file, a terminal or a socket to the database and elsewhere", "",
     duplicate, true},
    {"vlogkill", "[--wait SECONDS] PID ...|all", "orders duplicators to stop",
     "--wait  does not return before they have ended, or the seconds have passed\n"
     "Exit code 1 when a process is no duplicator, or still runs after the wait.",
     kill_duplicators},
    {"vlogdump", "[OPTIONS] [SET | FILE ...]", "prints records of the transaction journal",
     "SET           a set by its number, the current one when nothing is given\n"
     "FILE ...      all files of a set in their order, or one file of it\n"
     "--key KEY     one record of this system's journal: FILE*SET*OFFSET*TIME\n"
     "--file NAME   only records of this file; a * at the end stands for any rest\n"
     "--id KEY      only records of this record key; likewise\n"
     "--type TYPES  only records of these types, divided by commas\n"
     "--port N      only records of this port; --pid N of this process\n"
     "--from TIME   only records from this time on, --to TIME up to it: seconds since 1970,\n"
     "              or YYYY-MM-DD or YYYY-MM-DDTHH:MM:SS, in UTC\n"
     "--data        shows the data of WRITE records; needs ALLOWLOGDATA=on\n"
     "--stats       counts instead of records\n"
     "--json        one object a line\n"
     "--follow      goes on through later sets and waits for more; only for a set\n"
     "Exit code 0 when all could be read, 1 when damage was passed over, 3 when nothing could be read.",
     journal_dump},
    {"vlogverify", "[--json] [SET | FILE ...]", "checks every block and record of a journal's set",
     "SET           a set by its number, the current one when nothing is given\n"
     "FILE ...      all files of a set in their order, or one file of it\n"
     "Exit code 0 when it is sound, 3 when it is damaged at its end, 4 when records follow\n"
     "the damage, 5 when it cannot be read.",
     journal_verify},
};

}  // namespace

std::span<const CommandEntry> command_entries() { return Entries; }

}  // namespace velda::commands
