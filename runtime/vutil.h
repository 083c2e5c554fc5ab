// vutil.h - what the logic includes: the runtime contract, family by family, and the facade over it.
#ifndef VELDA_RUNTIME_VUTIL_H
#define VELDA_RUNTIME_VUTIL_H

#include "runtime/value/value.h"
#include "runtime/vdefc.h"

#ifdef __cplusplus
#include "runtime/value/facade.h"
#endif

#include "runtime/config/config.h"
#include "runtime/convert/convert.h"
#include "runtime/crypt/crypt.h"
#include "runtime/file/file.h"
#include "runtime/journal/journal.h"
#include "runtime/lock/lock.h"
#include "runtime/memory/memory.h"
#include "runtime/port/port.h"
#include "runtime/print/print.h"
#include "runtime/process/process.h"
#include "runtime/rawio/rawio.h"
#include "runtime/socket/socket.h"
#include "runtime/store/vedi.h"
#include "runtime/terminal/terminal.h"
#include "runtime/transaction/transaction.h"
#ifdef __cplusplus
#include "runtime/convert/facade.h"
#include "runtime/crypt/facade.h"
#include "runtime/file/facade.h"
#include "runtime/lock/facade.h"
#include "runtime/port/facade.h"
#include "runtime/print/facade.h"
#include "runtime/process/facade.h"
#include "runtime/process/subroutine.h"
#include "runtime/terminal/facade.h"
#include "runtime/transaction/facade.h"
#endif

#endif
