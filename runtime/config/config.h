// config.h - the settings of the account's emulation.
#ifndef VELDA_RUNTIME_CONFIG_H
#define VELDA_RUNTIME_CONFIG_H

#include "runtime/vdefc.h"

#ifdef __cplusplus
extern "C" {
#endif

// The emulation setting of that number; 0 for a number without a meaning. The settings come from the file `emulation`
// in the release directory, from the section that the environment variable VELDAEMULATION names ("default" without it);
// the file explains its form. A setting that the section lacks has its default, 0.
VELDA_EXPORT int VELDAEmulateGETINT(DP *dp, int number);
VELDA_EXPORT int VLibEmulateGetIntVELDA(DP *dp, int number);

#ifdef __cplusplus
}
#endif

#endif
