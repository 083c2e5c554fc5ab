// vutil.h - what the logic includes: the runtime contract, family by family, and the facade over it.
#ifndef VELDA_RUNTIME_VUTIL_H
#define VELDA_RUNTIME_VUTIL_H

#include "runtime/vdefc.h"

#include "runtime/convert/convert.h"
#ifdef __cplusplus
#include "runtime/convert/facade.h"
#endif

#endif
