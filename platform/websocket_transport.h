// One WebSocket connection (RFC 6455) over the system's transport: connecting, TLS, frames, pings, closing.
//
// To port: one implementation of WebSocketConnection, and open_websocket, which makes it. The connection works on its
// own, whether anybody calls or not: it connects, answers pings, sends pings of its own, notices a server that went
// away. Certificates and host names are verified against the system's trust store. No signal is raised in the process
// and none is handled on the connection's threads.
//
// posix/websocket_beast.cpp does it with Boost.Beast and OpenSSL.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

namespace vell {

/// Where to connect to. Hosts are names or addresses without brackets; ports are decimal.
struct WebSocketRequest {
    bool is_secure = false;         ///< TLS
    std::string host, port;         ///< the server
    std::string authority;          ///< the Host header: host, and port unless it is the scheme's own
    std::string target;             ///< path and query, at least "/"
    std::string credentials;        ///< "user:password", or empty
    std::string proxy_host;         ///< the HTTP proxy to ask for a tunnel; empty: none
    std::string proxy_port;         ///
    std::string proxy_credentials;  ///< "user:password", or empty
};

struct WebSocketLimits {
    int64_t handshake_ms = 60'000;  ///< name, connection, TLS and the server's consent, together
    int64_t close_ms = 3'000;       ///< the closing handshake
    int64_t idle_ms = 20'000;       ///< a ping after this long without a byte; after as long again without one, the end
};

struct WebSocketError {
    static constexpr int k_no_close_frame = 1006;  ///< RFC 6455, 7.1.5: lost without a closing handshake

    int code = 0;                       ///< of the system or the library below, or what the server sent; 0: no error
    std::string description;            ///< what happened, for people
    std::string reason;                 ///< where, or the server's own words; may be empty
    int close_code = k_no_close_frame;  ///< what the server closed with; 1005: it gave none
    explicit operator bool() const noexcept { return !description.empty(); }
};

/// Bytes that grow without being cleared, with a zero behind them.
class MessageBytes {
public:
    MessageBytes() noexcept = default;
    MessageBytes(MessageBytes&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)),
          size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    MessageBytes& operator=(MessageBytes&& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
        return *this;
    }
    ~MessageBytes() { std::free(data_); }

    [[nodiscard]] const char* data() const noexcept { return data_; }
    [[nodiscard]] size_t size() const noexcept { return size_; }
    /// Makes room for `room` more bytes. @return  where they go; null when memory is short.
    [[nodiscard]] char* prepare(size_t room) noexcept {
        if (data_ == nullptr || capacity_ - size_ < room) {
            void* larger = std::realloc(data_, size_ + room + 1);
            if (larger == nullptr) return nullptr;
            data_ = static_cast<char*>(larger);
            capacity_ = size_ + room;
        }
        return data_ + size_;
    }
    /// Says that `count` of the bytes prepared last were written.
    void commit(size_t count) noexcept {
        size_ += count;
        data_[size_] = '\0';
    }
    /// Gives back what was prepared for nothing, if that is most of it: hosts may keep many small messages.
    void trim() noexcept {
        if (size_ >= capacity_ / 2) return;
        if (void* smaller = std::realloc(data_, size_ + 1); smaller != nullptr) {
            data_ = static_cast<char*>(smaller);
            capacity_ = size_;
        }
    }

private:
    char* data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;  // without the zero
};

enum class MessageKind : uint8_t { binary = 1, text = 2 };

struct WebSocketMessage {
    MessageKind kind = MessageKind::binary;
    MessageBytes bytes;  ///< of a text: valid UTF-8
};

/// What one send or receive waits for. It is completed exactly once, on any thread, and not touched after that.
class WebSocketCompletion {
public:
    /// @param error    none, or why the operation failed.
    /// @param message  what a receive got, to be moved from; null for a send and a failure.
    virtual void complete(const WebSocketError& error, WebSocketMessage* message) noexcept = 0;

protected:
    ~WebSocketCompletion() = default;
};

/// One connection, from the attempt to its end. All calls return at once, except help_until.
///
/// An operation started while the connection is being made waits for it; its failure is the operation's failure. After
/// a failure every operation fails with it; messages that arrived whole before it are handed out first.
///
/// Read ahead: one message, and up to 4 KiB of the one after it. Then the server has to wait. A message larger than the
/// limit fails the receive that would get it.
class WebSocketConnection {
public:
    /// Says goodbye to the server and goes on to the end in the background, within the time for closing. No operation
    /// may be under way: cancel, and wait for the completions.
    virtual ~WebSocketConnection() = default;

    /// Sends one message. The bytes must stay until the completion. One send at a time.
    virtual void send(MessageKind kind, const void* bytes, size_t size, WebSocketCompletion& completion) noexcept = 0;
    /// Asks for the next message. One receive at a time.
    virtual void receive(WebSocketCompletion& completion) noexcept = 0;
    /// Ends the connection: what is under way fails soon with "Operation canceled", and so does whatever comes later.
    virtual void cancel() noexcept = 0;

    /// The largest message that is accepted, bytes; 1 MiB at first.
    [[nodiscard]] virtual size_t max_message() const noexcept = 0;
    virtual void set_max_message(size_t bytes) noexcept = 0;

    /// Lends the calling thread to the connection until `is_done`, or the deadline on the steady clock in nanoseconds
    /// (0: none), so that a completion needs no change of threads. May return sooner, for any reason, and does so at
    /// once where another thread helps already. Completions of other threads' operations may run in it.
    virtual void help_until(const std::atomic<bool>& is_done, int64_t deadline_ns) noexcept = 0;
};

/// Starts a connection. @return  null when memory or threads are short, or while the process exits.
[[nodiscard]] std::unique_ptr<WebSocketConnection> open_websocket(const WebSocketRequest& request,
                                                                  const WebSocketLimits& limits) noexcept;

}  // namespace vell
