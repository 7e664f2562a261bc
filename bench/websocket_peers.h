// The ends that bench/websocket_bench.cpp measures against, over Boost.Beast.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace bench {

/// Sends every message back, each connection on a thread of its own, until the process ends.
/// @return  its port on the loopback interface.
std::string start_echo_server();

/// A plain blocking client.
class BeastClient {
public:
    explicit BeastClient(const std::string& port);
    ~BeastClient();
    BeastClient(const BeastClient&) = delete;
    BeastClient& operator=(const BeastClient&) = delete;

    void send(const void* bytes, size_t size);
    /// @return  the message's size.
    size_t receive();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace bench
