// process.h - contexts, private data of native modules, commands, commons, calls by name, GOSUB, interrupts, SYSTEM(n),
// the environment, users, waits and the system's log.
//
// Every entry takes the session's context `dp` first. Cells are passed by address; an absent cell is a null pointer.
// An entry that says "does not return" leaves by a C++ exception that only the boundary of a command catches, so a C
// caller's frames are left without clean-up of their own: a C program holds nothing across such a call.
#ifndef VELDA_RUNTIME_PROCESS_H
#define VELDA_RUNTIME_PROCESS_H

#include "runtime/vdefc.h"

struct passwd;
struct group;

#ifdef __cplusplus
#define VELDA_NORETURN [[noreturn]]
extern "C" {
#else
#define VELDA_NORETURN _Noreturn
#endif

// --- contexts -------------------------------------------------------------------------------------------------------
//
// A context is one session: its own port, named commons, stacked data, select list and locks. Each thread of logic has
// one. All of it is given back when the context is destroyed, at the latest at the end of its thread.

// The calling thread's context. One is made on first use; it is destroyed at the thread's end. After a fork the child
// has none of its own yet: the first call in the child makes a new one, and the inherited one is never torn down there.
VELDA_EXPORT DP *velda_getdp(void);

// The calling thread's context, or null when it has none.
VELDA_EXPORT DP *velda_getdp_nocreate(void);

// A new context, owned by the caller and not made current: another session in the same process.
VELDA_EXPORT DP *velda_new_context(void);

// Makes `dp` the calling thread's context, or leaves it without one when `dp` is null. Returns what was current before.
// While a subroutine or a command runs on a context, that context is current by itself.
VELDA_EXPORT DP *velda_set_context(DP *dp);

// Ends a session: runs the exit handlers that were registered outside a command, releases locks, port and all else, and
// frees the context. `dp` must come from velda_new_context, and no command may run on it.
VELDA_EXPORT void velda_free_context(DP *dp);

// --- private data of native modules ---------------------------------------------------------------------------------

// The calling module's block in this context, `size` bytes, zero-filled when it is first asked for and then given to
// `initialiser` (may be null). `key` is the module's key word, zero at the start; the first call fills it, and modules
// of the same name share a block. The block stays in place until the context is destroyed. A size other than the first
// one ends the command with a message.
VELDA_EXPORT void *VLibCreateUserData(DP *dp, const char *module, int size, int *key,
                                      void (*initialiser)(DP *dp, void *block));

// The same with a `finaliser` (may be null), which is called with the block when the context is destroyed.
VELDA_EXPORT void *VLibCreateUserDataEx(DP *dp, const char *module, int size, int *key,
                                        void (*initialiser)(DP *dp, void *block),
                                        void (*finaliser)(DP *dp, void *block));

// What the whole process shares. All zero at the start of the process.
typedef struct VELDAProcessData {
    int vdls_active;     // true when the port information directory is kept by a lock service
    int start_detached;  // set to 1 by a caller that is about to start a program in the background
    int reserved[62];
} VELDAProcessData;

// The block of the calling process.
VELDA_EXPORT VELDAProcessData *VLibGetProcessData(DP *dp);

// --- commands -------------------------------------------------------------------------------------------------------

// Runs `body` as one command. SYSTEM(1000) is `sentence`, its words divided by 0xFE or, where it has none, by blanks.
// STOP, EXIT and CHAIN end here, and the exit handlers that the body registered run once. The result is the exit code:
// 0 after a plain STOP or a return, 1 after a STOP with a message or an ABORT, the code of EXIT, and that of the
// chained command after a CHAIN. A command whose output could not be written does not give 0. The first call of the
// process catches SIGINT (the break key), SIGTERM and SIGHUP (the end of the session) and ignores SIGPIPE, each only
// where the signal has its default action. A session that goes on when a command has ended runs its loop inside one.
VELDA_EXPORT int velda_run(DP *dp, const char *sentence, void (*body)(DP *dp, void *argument), void *argument);

// STOP (mode 1) or ABORT (mode 2): ends the current command. `count` texts follow, as `const VAR *`: a message key and
// its parameters, or one text that holds them divided by VM. They are printed first. Does not return.
VELDA_NORETURN VELDA_EXPORT void VLibCSTOP_VI(DP *dp, int mode, int count, ...);

// EXIT(code): ends the current command with an exit code. Does not return. The last argument is 0.
VELDA_NORETURN VELDA_EXPORT void VLibCEXIT_VI(DP *dp, int code, int reserved);

// CHAIN: ends the current command and runs `command` in its place, with what data is still stacked. Does not return.
VELDA_NORETURN VELDA_EXPORT void VLibCCHAIN_VB(DP *dp, const VAR *command);

// EXECUTE: runs `command` as a new command level and gives its exit code. A leading byte 255 and "k" send the rest to
// the shell. With `capturing` (may be null) the command's terminal output goes there, AM for each line feed between
// lines. With `returning` (may be null) the messages that the command printed go there, one attribute each, key and
// parameters divided by VM; a command that printed none returns its exit code. Data that the caller stacked is the
// command's input. SYSTEM(0) is then the code set by VELDASetSystemReturnCode, or else the exit code. Flags and the
// last four are 0.
VELDA_EXPORT int VLibCPERFORM_IIBBBBBBB(DP *dp, int flags, const VAR *command, VAR *returning, VAR *capturing,
                                        VAR *reserved1, VAR *reserved2, VAR *reserved3, VAR *reserved4);

// DATA: stacks `count` lines, given as `const VAR *`, for the next INPUT of this command or for the command that it
// executes next.
VELDA_EXPORT void VLibCDATA_VIB(DP *dp, int count, ...);

// Sets the code that whoever executed this command reads as SYSTEM(0).
VELDA_EXPORT void VELDASetSystemReturnCode(DP *dp, int code);

// Registers the subroutine of that name to run when the current command ends, however it ends. It is called with one
// cell, the exit code. The last registered runs first, and a name that is registered twice runs once. 0 when there is
// no such subroutine.
VELDA_EXPORT int VLibCCALLONEXIT_IB(DP *dp, const VAR *name);

// --- named commons --------------------------------------------------------------------------------------------------
//
// A common is an array of cells shared by name. It is made on first attach with all cells empty, and lives as long as
// the process or, in a command that another one executes, as long as that command.

// Attaches the block `name` and sets `*base` to its first cell. Each attach names the same number of cells; another
// number ends the command with the message COMMON_SIZE. `attached` (may be null) is the module's attach word: it
// becomes the serial number of the context for which the base was set.
VELDA_EXPORT void VLibCAttachCommon_VSSVI(DP *dp, const char *name, VAR **base, int cells, int *attached);

// The same, called after each CALL: the base is read again, since the block may have moved.
VELDA_EXPORT void VLibCReloadCommon_VSSVI(DP *dp, const char *name, VAR **base, int cells, int *attached);

// Called once, after the attach, by every subroutine that attaches VELDA_dUtil. There is nothing for it to do here.
VELDA_EXPORT void VELDAUtil(DP *dp, int one);

// --- calls by name --------------------------------------------------------------------------------------------------

#define VELDA_MAX_ARGUMENTS 32  // cells of one call by name

// A subroutine of the dialect, as its address is handed around. It is called by VLibCCALL_FUNCTION, or after a cast to
// its own type: the context, one letter for each argument, and the arguments' cells.
typedef void (*VELDASubroutine)(void);

// The address of a cataloged subroutine, null when there is none. `kind` is 2.
VELDA_EXPORT VELDASubroutine VediObjectFindFunction(DP *dp, const char *name, int kind);

// Calls the subroutine `name` with `count` cells, given as `VAR *`. A name that is not found ends the command with the
// message SUBROUTINE_CALL_FAIL.
VELDA_EXPORT void VLibCCALL_FUNCTION(DP *dp, const char *name, int count, ...);

// The address of the subroutine `name`, null when there is none. The caller calls it.
VELDA_EXPORT VELDASubroutine VLibCCALL_DIR_DYN_NOERROR(DP *dp, const char *name);

// Sets `result` to 1 when there is a subroutine of that name, else to 0, and returns the same.
VELDA_EXPORT int VELDASubroutineExist(DP *dp, VAR *result, const VAR *name);

// Calls the site's own subroutine VBCUserCustomiseDisplay with the cell, when there is one. 1 when it was called.
VELDA_EXPORT int VELDACallCustomerCustom(DP *dp, VAR *cell);

// --- GOSUB ----------------------------------------------------------------------------------------------------------
//
// Each call of a subroutine has its own return stack.

#define VELDA_GOSUB_ROOM 512     // entries at the start
#define VELDA_GOSUB_LIMIT 65536  // entries at most; one more ends the command with the message GOSUB_STACK_FULL

typedef struct VELDAGosubStack {
    int32_t *points;  // return points; may move when the stack is enlarged
    int32_t top;      // number of entries
    int32_t limit;    // room for entries
} VELDAGosubStack;

// The return stack of the subroutine that runs now.
VELDA_EXPORT VELDAGosubStack *velda_gosub_stack(DP *dp);

// Called when the top has reached the limit: enlarges the stack, or ends the command.
VELDA_EXPORT void VLibCGOSUB_STACK_FULL_V(DP *dp);

// GOSUB: keeps the return point.
static inline void velda_gosub(DP *dp, VELDAGosubStack *stack, int32_t return_point) {
    if (stack->top == stack->limit) VLibCGOSUB_STACK_FULL_V(dp);
    stack->points[stack->top++] = return_point;
}

// RETURN: 1 and the point to go on at, or 0 when the stack is empty and the RETURN ends the subroutine.
static inline int velda_return(VELDAGosubStack *stack, int32_t *return_point) {
    if (stack->top == 0) return 0;
    *return_point = stack->points[--stack->top];
    return 1;
}

// --- interrupts and failures ----------------------------------------------------------------------------------------

// Called on the context's own thread, at the next test for signals after the break key. It may end the command.
typedef void (*VELDASignalTrap)(DP *dp, void *argument);

// Sets the trap for the break key; a null handler takes it away, so that the break key ends the command again. Returns
// the handler that was set before. A trap belongs to the command level that sets it and ends with it.
VELDA_EXPORT VELDASignalTrap VLibSignalTrap(DP *dp, VELDASignalTrap handler, void *argument);

// Tests for signals: when the break key was pressed, runs the trap, or without one ends the command with a message.
// Gives 1 when the trap ran, 0 when nothing had happened. A long loop calls it once a turn.
VELDA_EXPORT int VLibSignalTest(DP *dp);

// The signal that asked the session to end (SIGTERM or SIGHUP), 0 when none did. The next test for signals ends the
// command, so logic that has something to finish asks first.
VELDA_EXPORT int velda_session_end_signal(DP *dp);

// Called with the error number and the text of a failure that is about to end the command; it may throw instead. An
// error of 0 means that nothing failed.
typedef void (*VELDADebugTrap)(DP *dp, int error, const char *text);

// Sets the debug trap and returns the one before.
VELDA_EXPORT VELDADebugTrap VRunADebugSetTrap(DP *dp, VELDADebugTrap handler);

// --- SYSTEM(n) and @-variables --------------------------------------------------------------------------------------

// SYSTEM(number). A number that means nothing here gives 0.
VELDA_EXPORT VAR *VLibESYSTEM_BBI(DP *dp, VAR *target, int number);

// The cell of an @-variable: 5 the key ctrl-F, 15 the login user name, 18, 19 and 20 the key, record and file name that
// an expression is evaluated for (they keep what is stored in them), 24 the key ctrl-D, 31 the process id, 38 the
// sentence. Any other number gives an empty cell. The cell is the context's; its value may change at the next call.
VELDA_EXPORT VAR *VLibEATFUNC_BI(DP *dp, int number);

// --- environment, users, waits, log ---------------------------------------------------------------------------------

// The value of an environment variable, "" when it is not set. The first gives 1 when it is set, else 0.
VELDA_EXPORT int VLibEGETENV_IBB(DP *dp, const VAR *name, VAR *target);
VELDA_EXPORT VAR *VLibEGETENV_BBB(DP *dp, VAR *target, const VAR *name);
// Sets a variable from "NAME=value". 1 when done, 0 for a text of another form.
VELDA_EXPORT int VLibEPUTENV_IB(DP *dp, const VAR *assignment);
// The same from plain text: 0 when done, else 22.
VELDA_EXPORT int VELDAputenv(DP *dp, const char *assignment);
// Null when it is not set. Valid until the variable is set again.
VELDA_EXPORT const char *VELDAgetenv(DP *dp, const char *name);

// The current directory. 1 when done, 0 (and "") when it has been removed.
VELDA_EXPORT int VLibEGETCWD_IB(DP *dp, VAR *target);

// The process id.
VELDA_EXPORT int VELDAgetpid(DP *dp);

// A user or group of the operating system, null when there is none of that name. Valid until the context's next call.
VELDA_EXPORT struct passwd *VELDAgetpwnam(DP *dp, const char *name);
VELDA_EXPORT struct group *VELDAgetgrnam(DP *dp, const char *name);

// 1 when the process has the superuser's rights, else 0.
VELDA_EXPORT int VeldaIsAdminUser(DP *dp);

// Waits so many seconds (a cell may hold a fraction) or milliseconds. The break key ends the wait: the command with it,
// or only the wait when a trap is set and returns. The second form gives the whole seconds that were left then, else 0.
VELDA_EXPORT void VLibESLEEP_VB(DP *dp, const VAR *seconds);
VELDA_EXPORT int VLibESLEEP_II(DP *dp, int seconds);
VELDA_EXPORT void VLibEMSLEEP_VB(DP *dp, const VAR *milliseconds);

// A function that is called at a steady pace, while the session does something else.
typedef struct VELDATicker VELDATicker;

// Calls `tick` every so many milliseconds, at least 1, on a thread of its own that takes no signals. The function must
// not use the session. Null and errno on failure.
VELDA_EXPORT VELDATicker *velda_ticker_start(DP *dp, int milliseconds, void (*tick)(void *argument), void *argument);

// Between the two no call is made or under way. Null is left alone.
VELDA_EXPORT void velda_ticker_pause(DP *dp, VELDATicker *ticker);
VELDA_EXPORT void velda_ticker_resume(DP *dp, VELDATicker *ticker);

// Ends it and waits for a call that is under way. Null is left alone.
VELDA_EXPORT void velda_ticker_stop(DP *dp, VELDATicker *ticker);

#define VELDA_SYSTEM_LOG (-1)

// Writes to a log. For the set VELDA_SYSTEM_LOG, the system's log `log/system.log` in the global directory: `size`
// bytes of text become one line with time (UTC), port, user and process id, whole also when many processes write; file
// and offset are 0. For a set of the journal, 1 to 16: the bytes are written at the offset of that file (from 1) of the
// set as the configuration names it, and are durable then; 2, absent, without a journal or such a file. 0 when done,
// else the error number.
VELDA_EXPORT int VELDAWriteLogFile(DP *dp, int set, int file, int64_t offset, const void *buffer, int size);

// Adds a zero-ended text to the system's log. 0 when done, else the error number.
VELDA_EXPORT int NTLogMessage(DP *dp, const char *text);

// --- resources of the process ---------------------------------------------------------------------------------------

// Processor time that the process has used so far, in its own code and in the system's.
VELDA_EXPORT void velda_process_times(DP *dp, double *user_seconds, double *system_seconds);

// Lets the process have at least `wanted` files open at once, as far as the system's hard limit goes. The limit that
// holds now.
VELDA_EXPORT int64_t velda_allow_open_files(DP *dp, int64_t wanted);

#ifdef __cplusplus
}
#endif

#endif
