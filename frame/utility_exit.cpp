#include "runtime/vutil.h"
