// builtin_keys.h - every key that is part of the system, in one place. Private to the runtime.
//
// They keep texts from being read by accident, not from somebody who has this file. Changing one makes everything that
// was enciphered under it unreadable.
#pragma once

#include <string_view>

#include "runtime/crypt/crypt.h"

namespace velda::crypt {

struct BuiltinKey {
    int purpose;
    const char *text;
};

inline constexpr BuiltinKey BuiltinKeys[] = {
    {VELDA_KEY_DEFAULT, "q7Gm-vane-5Lh0-tarn-Xw2c"},        {VELDA_KEY_JOURNAL_PASSWORD, "Zk3e-moss-9Rb1-quay-Tf6u"},
    {VELDA_KEY_JOURNAL_RECORD, "a8Yd-fern-2Wq4-keel-Nj7p"}, {VELDA_KEY_TRANSFER, "H5sv-loam-6Cx3-reed-Eb9g"},
    {VELDA_KEY_TRANSFER_KEY, "m1Po-silt-7Kt8-wick-Du4z"},   {VELDA_KEY_BACKGROUND_PASSWORD, "B6na-gale-3Fy5-holm-Vi0r"},
};

// Mixed into every scrambled password.
inline constexpr std::string_view ScrambleSalt = "c4Lx-dune-8Sg2-bark-Oq6w";

}  // namespace velda::crypt
