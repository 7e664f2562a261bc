// The bytes below a WebSocket connection. For websocket_beast.cpp alone: Beast and OpenSSL stay in one file's time of
// compilation.
#pragma once

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <cstdint>
#include <memory>

namespace vell {

namespace net = boost::asio;
namespace beast = boost::beast;
using boost::system::error_code;
using Tcp = net::ip::tcp;
using Socket = net::basic_stream_socket<Tcp, net::io_context::executor_type>;

/// Any handler of a read or a write. Beast has dozens of them, and what is below it would be compiled for each.
class AnyHandler {
public:
    template <class Handler>
    explicit AnyHandler(Handler handler) : held_(std::make_unique<Held<Handler>>(std::move(handler))) {}

    void operator()(error_code error, size_t count = 0) {
        HeldBase& held = *held_;
        held.call(std::move(held_), error, count);
    }

private:
    struct HeldBase {
        virtual ~HeldBase() = default;
        /// Frees `self`, this object, before the handler runs: it will want memory for the next operation.
        virtual void call(std::unique_ptr<HeldBase> self, error_code error, size_t count) = 0;
    };
    template <class Handler>
    struct Held final : HeldBase {
        explicit Held(Handler&& wanted) : handler(std::move(wanted)) {}
        void call(std::unique_ptr<HeldBase> self, error_code error, size_t count) override {
            Handler moved(std::move(handler));
            self.reset();
            moved(error, count);
        }
        Handler handler;
    };
    std::unique_ptr<HeldBase> held_;
};

/// The bytes of a connection, as they are or through TLS.
class Pipe {
public:
    using executor_type = net::io_context::executor_type;

    explicit Pipe(net::io_context& context) : socket_(context) {}

    executor_type get_executor() noexcept { return socket_.get_executor(); }
    Socket& socket() { return socket_; }
    void use_tls(net::ssl::context& context) { tls_ = std::make_unique<net::ssl::stream<Socket&>>(socket_, context); }
    /// Null for a plain connection.
    [[nodiscard]] SSL* tls() { return tls_ != nullptr ? tls_->native_handle() : nullptr; }

    template <class Handler>
    void async_secure(Handler&& handler) {
        tls_->async_handshake(net::ssl::stream_base::client, AnyHandler(std::forward<Handler>(handler)));
    }
    template <class Buffers, class Handler>
    void async_read_some(const Buffers& buffers, Handler&& handler) {
        net::mutable_buffer first;
        for (auto buffer = net::buffer_sequence_begin(buffers); buffer != net::buffer_sequence_end(buffers); ++buffer)
            if (first.size() == 0) first = *buffer;
        read_some(first, AnyHandler(std::forward<Handler>(handler)));
    }
    template <class Buffers, class Handler>
    void async_write_some(const Buffers& buffers, Handler&& handler) {
        Pieces pieces;
        size_t used = 0;
        for (auto buffer = net::buffer_sequence_begin(buffers); buffer != net::buffer_sequence_end(buffers); ++buffer)
            if (net::const_buffer(*buffer).size() > 0 && used < pieces.size()) pieces[used++] = *buffer;
        write_some(pieces, AnyHandler(std::forward<Handler>(handler)));
    }
    /// Ends the connection after the closing handshake: what still comes is read, since closing the socket on unread
    /// bytes would take back what was sent last.
    void async_end(AnyHandler handler) {
        error_code ignored;
        if (tls_ == nullptr) socket_.shutdown(Socket::shutdown_send, ignored);
        if (tls_ != nullptr) return tls_->async_shutdown(std::move(handler));
        drain(std::move(handler));
    }

    uint64_t bytes_read = 0, bytes_written = 0;

private:
    using Pieces = std::array<net::const_buffer, 4>;

    /// Counts, and goes on with the handler.
    auto counted(uint64_t& counter, AnyHandler handler) {
        return [&counter, handler = std::move(handler)](error_code error, size_t count) mutable {
            counter += count;
            handler(error, count);
        };
    }
    void read_some(net::mutable_buffer buffer, AnyHandler handler) {
        auto then = counted(bytes_read, std::move(handler));
        tls_ != nullptr ? tls_->async_read_some(buffer, std::move(then))
                        : socket_.async_read_some(buffer, std::move(then));
    }
    void write_some(const Pieces& pieces, AnyHandler handler) {
        auto then = counted(bytes_written, std::move(handler));
        tls_ != nullptr ? tls_->async_write_some(pieces, std::move(then))
                        : socket_.async_write_some(pieces, std::move(then));
    }
    void drain(AnyHandler handler) {
        auto then = [this, handler = std::move(handler)](error_code error, size_t) mutable {
            if (!error) return drain(std::move(handler));
            handler(error == net::error::eof ? error_code() : error);
        };
        socket_.async_read_some(net::buffer(drained_), std::move(then));
    }

    Socket socket_;
    std::unique_ptr<net::ssl::stream<Socket&>> tls_;
    std::array<char, 4096> drained_{};
};

// What Beast asks of a stream below it.
template <class Handler>
void async_teardown(beast::role_type, Pipe& pipe, Handler&& handler) {
    pipe.async_end(AnyHandler(std::forward<Handler>(handler)));
}
inline void beast_close_socket(Pipe& pipe) {
    error_code ignored;
    pipe.socket().close(ignored);
}

}  // namespace vell
