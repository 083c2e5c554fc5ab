// crypt.h - encryption of texts under a key, and the one-way scrambling of passwords. For C and C++.
//
// A scheme has a number and a name; journals and transfers store the number. A text under a cipher is
//
//     initial value (one cipher block) | ciphertext
//
// and the schemes whose names end in "_BASE64" write that in base 64. The initial value is computed from the key and
// the plain text, so the same text under the same key always gives the same result, and reading it back proves that
// nothing was changed and that the key is the right one. Its first byte is never zero, so a field that holds a cipher
// text is never taken for an empty zero-ended one. ROT13, XOR11 and BASE64 disguise only: they use no key and prove
// nothing.
#ifndef VELDA_RUNTIME_CRYPT_H
#define VELDA_RUNTIME_CRYPT_H

#include "runtime/vdefc.h"

// The schemes by number.
enum {
    VELDA_SCHEME_ROT13 = 1,
    VELDA_SCHEME_XOR11 = 2,
    VELDA_SCHEME_RC2 = 3,  // the journal's password, keys and records
    VELDA_SCHEME_BASE64 = 4,
    VELDA_SCHEME_DES = 5,
    VELDA_SCHEME_3DES = 6,  // the default of a transfer
    VELDA_SCHEME_BLOWFISH = 7,
    VELDA_SCHEME_RC2_BASE64 = 8,
    VELDA_SCHEME_DES_BASE64 = 9,
    VELDA_SCHEME_3DES_BASE64 = 10,
    VELDA_SCHEME_BLOWFISH_BASE64 = 11,
    VELDA_SCHEME_AES_CTR = 12,
    VELDA_SCHEME_AES_CTR_BASE64 = 13
};

// What encryption and decryption leave in SYSTEM(0); error numbers of the platform.
enum {
    VELDA_CRYPT_DONE = 0,
    VELDA_CRYPT_BAD_SCHEME = 22,  // no scheme has this number
    VELDA_CRYPT_DAMAGED = 74,     // not a text of this scheme and key
    VELDA_CRYPT_NO_CIPHER = 95    // the machine's cipher library lacks the cipher
};

// The purposes that have a key of their own inside the system.
enum {
    VELDA_KEY_DEFAULT = 0,  // used wherever a caller gives an empty key
    VELDA_KEY_JOURNAL_PASSWORD = 1,
    VELDA_KEY_JOURNAL_RECORD = 2,  // the data of enciphered WRITE records
    VELDA_KEY_TRANSFER = 3,        // body of a transfer, where the operator gave no key
    VELDA_KEY_TRANSFER_KEY = 4,    // the key that travels with a body
    VELDA_KEY_BACKGROUND_PASSWORD = 5
};

#ifdef __cplusplus
extern "C" {
#endif

// Enciphers `source` under `key` by scheme number `method` and stores the result in `target`, which may be the source.
// Any bytes are allowed in both. A null or empty key is the system's default key. SYSTEM(0) becomes one of
// VELDA_CRYPT_; on a failure the target is "".
VELDA_EXPORT VAR *VLibEENCRYPT_BBBBI(DP *dp, VAR *target, const VAR *source, const VAR *key, int method);

// The reverse. A text that was cut or changed, or was enciphered under another key or scheme, gives "" and
// VELDA_CRYPT_DAMAGED (except under ROT13 and XOR11, which cannot tell).
VELDA_EXPORT VAR *VLibEDECRYPT_BBBBI(DP *dp, VAR *target, const VAR *source, const VAR *key, int method);

// Why the last encryption or decryption of this session failed, naming what is missing or wrong; "" when it did not.
// The text stays until the next one.
VELDA_EXPORT const char *velda_crypt_error(DP *dp);

// The number of a scheme by its name ("3DES", in any case); 0 when there is none.
VELDA_EXPORT int velda_scheme_number(DP *dp, const char *name);

// The name of a scheme by its number; null when there is none. The text is constant.
VELDA_EXPORT const char *velda_scheme_name(DP *dp, int number);

// The system's own key for a purpose, one of VELDA_KEY_; null for any other number. The text is constant.
VELDA_EXPORT const char *velda_builtin_key(DP *dp, int purpose);

// Scrambles a zero-ended text one way, for comparing passwords without keeping them. `target` has room for twice the
// text's length (and for at least one byte); the result is printable, free of marks, zero-ended and always the same for
// the same text. "" gives "".
VELDA_EXPORT void VediCrypt(DP *dp, const char *text, char *target);

// The same of a cell's whole text, with the target's length set to the result's. The target may be the source.
VELDA_EXPORT VAR *VELDACrypt(DP *dp, VAR *target, const VAR *source);

#ifdef __cplusplus
}
#endif

#endif
