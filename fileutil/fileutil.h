// fileutil.h - chief header of the file utilities: what other parts of the system and programs call.
#pragma once

#include "runtime/vutil.h"

extern "C" {

// COPY. OutputFlag: 0 plain COPY, 1 always to the terminal, 2 always to the printer. Takes its words from SYSTEM(1000);
// letters "V". Ends the command: by STOP, by EXIT(2) when a record was not found, or by returning when there is no
// target.
VELDA_EXPORT void VBC_VELDACopyCommand(DP *dp, const char *letters, VAR *OutputFlag);

// The options of the user's record `.velda_options` in the home directory; letters "V". `options` becomes a flag word:
// 1 for a line CASE, 2 for a line COMMENT, 0 without the record.
VELDA_EXPORT void VBC_VELDAInitialisePersonalOptions(DP *dp, const char *letters, VAR *options);

// Turns the cell's text into the editor's stored form and back, in place. The cell is returned.
VELDA_EXPORT VAR *VELDAEditCompress(DP *dp, VAR *cell);
VELDA_EXPORT VAR *VELDAEditExpand(DP *dp, VAR *cell);

// The distinct elements of a list, in first-seen order, one attribute each. AM, VM and the byte 0xFF end an element;
// empty ones are dropped. `target` may be `source`; it is returned.
VELDA_EXPORT VAR *VELDAUniqueKeys(VAR *target, DP *dp, const VAR *source);

// Makes a directory. A mode below 1 stands for what the process mask allows; 9 bits of it count. The two texts are not
// used. With `logged` 0 the directory becomes a file of the system whose changes are not journalled. 0 when done; -1 no
// memory, -2 the directory cannot be made or opened, -3 it does not take the file options, -4 it cannot be closed.
VELDA_EXPORT int VELDAMakeDirectory(DP *dp, const char *path, const char *ignored1, const char *ignored2, int mode,
                                    int logged);

// A key that is this terminal's own, made from `text`: letters, digits, and "%+-._" only, so that it can name a file.
// Returns the target.
VELDA_EXPORT VAR *VELDAGetTTYKeepKey(VAR *target, DP *dp, const char *text);

// ": " and the text of a system error number, or ": Unknown error". Returns the target.
VELDA_EXPORT VAR *VELDAPERROR(VAR *target, DP *dp, int error_number);

// The size of a frame: 4096.
VELDA_EXPORT int VELDAGetFrameSize(void);

// 1 when the path names a symbolic link, else 0.
VELDA_EXPORT int VELDACheckSymLinkFile(DP *dp, const VAR *path);
}

namespace velda {

inline void edit_expand(VAR &record) { VELDAEditExpand(velda_getdp(), &record); }

}  // namespace velda
