#include "runtime/socket/address.h"

#include <sys/socket.h>

#include <cerrno>
#include <string>

namespace velda::sockets {

Addresses addresses_of(const char *host, int port, int family) {
    addrinfo wanted{};
    wanted.ai_family = family;
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_NUMERICSERV;
    addrinfo *list = nullptr;
    const int error = getaddrinfo(host, std::to_string(port).c_str(), &wanted, &list);
    if (error == 0) return Addresses(list);
    if (error != EAI_SYSTEM) errno = error == EAI_MEMORY ? ENOMEM : ENOENT;
    return nullptr;
}

Addresses local_addresses_of(const char *host, int port) {
    Addresses addresses = addresses_of(host, port, AF_INET);
    return addresses ? std::move(addresses) : addresses_of(host, port, AF_UNSPEC);
}

}  // namespace velda::sockets
