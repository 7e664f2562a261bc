// A server of the test's own that says what it is told.
#pragma once

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "support/loopback.h"

/// One client, seen from the server.
class Client {
public:
    Client(int socket, const std::atomic<bool>& has_ended) : socket_(socket), has_ended_(has_ended) {}

    /// False when the client is gone or the test is over.
    bool read_request() {
        while (!request_.ends_with("\r\n\r\n")) {
            char byte = 0;
            if (!is_readable() || recv(socket_, &byte, 1, 0) != 1) return false;
            request_ += byte;
        }
        return true;
    }
    const std::string& request() const { return request_; }
    /// Reads another request on the same connection. False as for read_request().
    bool read_next_request() {
        request_.clear();
        return read_request();
    }
    /// Waits until the client's system has everything that was said, or the client is gone.
    void await_arrival() const {
        for (int unacknowledged = 1; unacknowledged > 0 && !has_ended_; std::this_thread::yield()) {
            pollfd watched{socket_, 0, 0};
            if (poll(&watched, 1, 0) != 0 || ioctl(socket_, SIOCOUTQ, &unacknowledged) != 0) return;
        }
    }
    bool say(const std::string& text) {
        for (size_t at = 0; at < text.size() && !has_ended_;) {
            pollfd watched{socket_, POLLOUT, 0};
            if (poll(&watched, 1, k_look_up_ms) != 1) continue;
            const ssize_t sent = send(socket_, text.data() + at, text.size() - at, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent < 0) return false;
            at += static_cast<size_t>(sent);
        }
        return !has_ended_;
    }
    /// A byte at a time.
    bool drip(const std::string& text, std::chrono::milliseconds pause) {
        for (const char byte : text) {
            if (!say({byte})) return false;
            std::this_thread::sleep_for(pause);
        }
        return true;
    }
    /// Says nothing until the client goes.
    void stall() {
        char byte = 0;
        while (is_readable() && recv(socket_, &byte, 1, 0) == 1) {
        }
    }
    /// Says that nothing more comes, and goes on listening.
    void end_speech() const { shutdown(socket_, SHUT_WR); }
    /// Closes without the farewell of the protocol.
    void reset() {
        const linger at_once{1, 0};
        setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }

private:
    static constexpr int k_look_up_ms = 20;

    bool is_readable() {
        while (!has_ended_) {
            pollfd watched{socket_, POLLIN, 0};
            if (poll(&watched, 1, k_look_up_ms) == 1) return true;
        }
        return false;
    }

    int socket_;
    std::string request_;
    const std::atomic<bool>& has_ended_;
};

/// Reads a request from each client, hands the client over, and closes.
class LyingServer {
public:
    explicit LyingServer(std::function<void(Client&)> answer)
        : answer_(std::move(answer)), thread_([this] { serve(); }) {
        for (const char* name : {"http_proxy", "all_proxy", "ALL_PROXY"})
            unsetenv(name);
    }
    ~LyingServer() {
        has_ended_ = true;
        thread_.join();
    }
    std::string url() const { return "http://127.0.0.1:" + port_.number() + "/"; }

private:
    void serve() {
        while (!has_ended_) {
            pollfd watched{port_.socket_number(), POLLIN, 0};
            if (poll(&watched, 1, 20) != 1) continue;
            const int socket = accept(port_.socket_number(), nullptr, nullptr);
            Client client(socket, has_ended_);
            if (client.read_request()) answer_(client);
            close(socket);
        }
    }

    LoopbackPort port_;
    const std::function<void(Client&)> answer_;
    std::atomic<bool> has_ended_{false};
    std::thread thread_;
};
