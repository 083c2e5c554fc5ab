// connection.h - the connections of a session and the waits on them. Private to the folder.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "runtime/socket/socket.h"

namespace velda::sockets {

// A connection, with bytes that were read ahead of what was asked for: a reader of small blocks does not pay a system
// call for each.
class Connection {
  public:
    explicit Connection(int descriptor) : descriptor_(descriptor) {}

    int descriptor() const { return descriptor_; }
    bool has_bytes() const { return begin_ != end_; }
    // As velda_read and velda_write.
    std::ptrdiff_t read(DP *dp, void *buffer, std::size_t size);
    std::ptrdiff_t write(DP *dp, const void *buffer, std::size_t size);
    // As velda_socket_send_more.
    std::ptrdiff_t write_more(const void *buffer, std::size_t size) const;

  private:
    static constexpr std::size_t AheadBytes = std::size_t{256} * 1024;

    std::ptrdiff_t receive(DP *dp, void *buffer, std::size_t size) const;
    std::ptrdiff_t take_ahead(void *buffer, std::size_t size);

    int descriptor_;
    std::unique_ptr<std::byte[]> ahead_;
    std::size_t begin_ = 0, end_ = 0;  // the bytes of `ahead_` that were not taken yet
};

// Waits until `events` of poll(2) happen. False, with errno, when the session was interrupted or the wait failed.
bool wait_for(DP *dp, int descriptor, short events);

// The same for half a second at most; then false with EAGAIN.
bool wait_a_while(DP *dp, int descriptor, short events);

// The numbers of this header for the errors that have one of their own; others stay.
int error_number(int platform_error);

// Keeps a new connection: no delay of small writes, and an end that is gone is noticed.
int keep_connection(DP *dp, int descriptor);

}  // namespace velda::sockets

struct VELDASocketContext {
    ~VELDASocketContext();

    // Null for a descriptor that is no connection of this session.
    velda::sockets::Connection *find(int descriptor);
    void forget(int descriptor);

    std::vector<std::unique_ptr<velda::sockets::Connection>> connections;
};
