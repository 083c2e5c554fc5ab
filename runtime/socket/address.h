// address.h - the addresses of a host. Private to the folder.
#pragma once

#include <netdb.h>

#include <memory>

namespace velda::sockets {

struct FreeAddresses {
    void operator()(addrinfo *list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

// All addresses of a host for streams on a port, in the order of the system; null and errno when there is none. `family`
// is AF_UNSPEC or a family.
Addresses addresses_of(const char *host, int port, int family);

// The addresses that a local socket is bound to: those of IPv4 where there are any.
Addresses local_addresses_of(const char *host, int port);

}  // namespace velda::sockets
