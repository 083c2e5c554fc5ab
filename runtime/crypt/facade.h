// facade.h - the dialect's words for encryption.
#pragma once

#include "runtime/crypt/crypt.h"
#include "runtime/process/process.h"

namespace velda {

// ENCRYPT(text, key, scheme); SYSTEM(0) tells whether it could be done.
inline VAR encrypt(const Argument &text, const Argument &key, int scheme) {
    VAR result;
    VLibEENCRYPT_BBBBI(velda_getdp(), &result, text, key, scheme);
    return result;
}

// DECRYPT(text, key, scheme); "" and a code in SYSTEM(0) for a text that was changed or has another key.
inline VAR decrypt(const Argument &text, const Argument &key, int scheme) {
    VAR result;
    VLibEDECRYPT_BBBBI(velda_getdp(), &result, text, key, scheme);
    return result;
}

// The one-way scrambled form of a password.
inline VAR scramble(const Argument &password) {
    VAR result;
    VELDACrypt(velda_getdp(), &result, password);
    return result;
}

}  // namespace velda
