// The entries: each takes the cells apart, calls, and stores the result and its code.
#include <cerrno>
#include <cstring>

#include "runtime/crypt/crypt.h"
#include "runtime/crypt/scheme.h"
#include "runtime/process/context.h"

using velda::Error;
using velda::Result;
using velda::crypt::KeyRing;
using velda::crypt::Scheme;

namespace {

using Operation = Result<std::string> (*)(KeyRing &, const Scheme &, std::string_view phrase, std::string_view text);

struct Session {
    KeyRing ring;
    std::string error;
};

Result<std::string> attempt(Session &session, Operation operation, const VAR &source, const VAR *key, int method) {
    const Scheme *scheme = velda::crypt::scheme_by_number(method);
    if (!scheme) return Error{VELDA_CRYPT_BAD_SCHEME, "there is no encryption scheme " + std::to_string(method)};
    return operation(session.ring, *scheme, key ? key->view() : std::string_view(), source.view());
}

VAR *run(DP *dp, Operation operation, VAR *target, const VAR *source, const VAR *key, int method) {
    Session &session = dp->state<Session>();
    const Result<std::string> result = attempt(session, operation, *source, key, method);
    dp->last_error = result ? VELDA_CRYPT_DONE : result.error().number;
    session.error = result ? std::string() : result.error().message;
    *target = result ? std::string_view(*result) : std::string_view();
    return target;
}

}  // namespace

static_assert(VELDA_CRYPT_BAD_SCHEME == EINVAL && VELDA_CRYPT_DAMAGED == EBADMSG && VELDA_CRYPT_NO_CIPHER == ENOTSUP);

extern "C" {

VAR *VLibEENCRYPT_BBBBI(DP *dp, VAR *target, const VAR *source, const VAR *key, int method) {
    return run(dp, velda::crypt::encrypt, target, source, key, method);
}

VAR *VLibEDECRYPT_BBBBI(DP *dp, VAR *target, const VAR *source, const VAR *key, int method) {
    return run(dp, velda::crypt::decrypt, target, source, key, method);
}

const char *velda_crypt_error(DP *dp) { return dp->state<Session>().error.c_str(); }

int velda_scheme_number(DP *, const char *name) {
    const Scheme *scheme = velda::crypt::scheme_by_name(name);
    return scheme ? scheme->number : 0;
}

const char *velda_scheme_name(DP *, int number) {
    const Scheme *scheme = velda::crypt::scheme_by_number(number);
    return scheme ? scheme->name : nullptr;
}

const char *velda_builtin_key(DP *, int purpose) { return velda::crypt::builtin_key(purpose); }

void VediCrypt(DP *, const char *text, char *target) {
    const std::string result = velda::crypt::scramble(text);
    std::memcpy(target, result.c_str(), result.size() + 1);
}

VAR *VELDACrypt(DP *, VAR *target, const VAR *source) {
    const std::string result = velda::crypt::scramble(source->view());
    *target = std::string_view(result);
    return target;
}

}  // extern "C"
