#include "websocket_peers.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <thread>

namespace bench {
namespace {

namespace net = boost::asio;
namespace websocket = boost::beast::websocket;
using Tcp = net::ip::tcp;
using Stream = websocket::stream<Tcp::socket, /*deflate*/ false>;

constexpr size_t k_largest_message = 256 << 20;

void prepare(Stream& stream) {
    stream.next_layer().set_option(Tcp::no_delay(true));
    stream.read_message_max(k_largest_message);
    stream.auto_fragment(false);
    stream.write_buffer_bytes(64 * 1024);
    stream.binary(true);
}

void echo(Tcp::socket socket) {
    try {
        Stream stream(std::move(socket));
        prepare(stream);
        stream.accept();
        boost::beast::flat_buffer buffer;
        for (;;) {
            stream.read(buffer);
            stream.write(buffer.data());
            buffer.clear();
        }
    } catch (const std::exception&) {  // the client has gone
    }
}

}  // namespace

std::string start_echo_server() {
    static net::io_context context;
    static Tcp::acceptor acceptor(context, {net::ip::address_v4::loopback(), 0});
    std::thread([] {
        for (;;)
            std::thread(echo, acceptor.accept()).detach();
    }).detach();
    return std::to_string(acceptor.local_endpoint().port());
}

struct BeastClient::State {
    net::io_context context;
    Stream stream{context};
    boost::beast::flat_buffer buffer;
};

BeastClient::BeastClient(const std::string& port) : state_(std::make_unique<State>()) {
    Tcp::resolver resolver(state_->context);
    net::connect(state_->stream.next_layer(), resolver.resolve("127.0.0.1", port));
    prepare(state_->stream);
    state_->stream.handshake("127.0.0.1:" + port, "/");
}

BeastClient::~BeastClient() = default;

void BeastClient::send(const void* bytes, size_t size) {
    state_->stream.write(net::const_buffer(bytes, size));
}

size_t BeastClient::receive() {
    state_->buffer.clear();
    return state_->stream.read(state_->buffer);
}

}  // namespace bench
