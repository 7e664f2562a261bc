// Transports that wait for their owner's next request with their connections open.
#pragma once

#include <sys/types.h>

#include <memory>

#include "platform/http_transport.h"

namespace vell {

inline constexpr const char* k_no_transport = "Out of memory, or libcurl is not installed";

/// A transport for one request.
///
/// The public client has no room for one, so the transports wait in a table, known by their owner's address. An owner
/// gets its own again; one without gets a transport that nobody owns, or a new one. Any thread.
class TransportLease {
public:
    /// @param owner  null: nobody's.
    explicit TransportLease(const void* owner) noexcept;
    ~TransportLease();
    TransportLease(const TransportLease&) = delete;
    TransportLease& operator=(const TransportLease&) = delete;

    /// Null when memory is short, or the system has no transport: k_no_transport is what to say then.
    [[nodiscard]] HttpTransport* get() const noexcept { return transport_.get(); }

private:
    const void* owner_;
    const pid_t process_;
    std::unique_ptr<HttpTransport> transport_;
};

/// The owner goes; its transport stays for others.
void disown_transport(const void* owner) noexcept;

/// Closes those that wait, whoever owns them.
void close_waiting_transports() noexcept;

}  // namespace vell
