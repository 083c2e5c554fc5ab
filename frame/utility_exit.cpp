// The exit handler of every command that walks records.
#include "frame/utility_frame.h"

using namespace velda;
using namespace velda::frame;

// Drops what the command held before its process goes on: the file of the walk, and the port report's answer.
VBC_SUBROUTINE(VELDAUtilityExit, parm1) {
    const UtilityCommon utility(dp);
    utility[PreviousFileDSCB] = 0;
    CommonBlock file_lock("VELDAFileLock", FileLockCells);
    for (const FileLockCell cell :
         {FileLockReturn, FileLockPortList, FileLockReturnMessage, FileLockXrefName, FileLockXrefId})
        file_lock[cell] = 0;
}
