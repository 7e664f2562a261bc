// A client for tests, and the other ends of its connections: the Python server, and sockets that follow a script.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "net/websocket_impl.h"
#include "tests/net/websocket_server_process.h"
#include "vellcore/hash_functions.h"
#include "vellcore/websocket_client.h"

/// A client, and what it receives as a text: "text: hello", "binary: 00ff", "failed".
class Client {
public:
    explicit Client(const std::string& url = "") : socket(VlWebSocket::Create()) { connect(url); }
    Client(const std::string& url, const vell::WebSocketLimits& limits)
        : socket(new WebSocketImpl(vell::open_websocket, limits)) {
        connect(url);
    }
    ~Client() { VlWebSocket::Destroy(socket); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool connect(const std::string& url) { return !url.empty() && socket->Connect(url.c_str()); }
    bool send(std::string bytes) { return socket->SendData(bytes.data(), bytes.size()); }
    std::string receive() {
        VlWebSocketData* message = nullptr;
        if (!socket->ReceiveData(message)) return message == nullptr ? "failed" : "failed with a message";
        const std::string content(static_cast<const char*>(message->GetData()) != nullptr ? message->GetText() : "",
                                  message->GetSize());
        std::string text = "text: " + content;
        if (message->GetType() == VL_WEBSOCKET_BINARY) {
            text = "binary: ";
            for (const char c : content) {
                char digits[3];
                std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
                text += digits;
            }
        }
        message->Release();
        return text;
    }
    int close_code() const { return VlWebSocket::GetCloseCode(socket); }
    std::string error() const {
        char text[512];
        VlWebSocket::GetErrorText(socket, text, sizeof text);
        return text;
    }

    VlWebSocket* socket;
};

/// One end of a TCP connection, or of a listening socket.
class TestSocket {
public:
    explicit TestSocket(int descriptor = -1) : descriptor_(descriptor) {}
    TestSocket(TestSocket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    ~TestSocket() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    TestSocket(const TestSocket&) = delete;
    TestSocket& operator=(const TestSocket&) = delete;

    int descriptor() const { return descriptor_; }
    void write(std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t count = send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count <= 0) return;
            bytes.remove_prefix(static_cast<size_t>(count));
        }
    }
    /// Reads up to the text, or the end.
    std::string read_to(std::string_view end) const {
        std::string text;
        for (char c = 0; text.find(end) == std::string::npos && recv(descriptor_, &c, 1, 0) == 1;)
            text += c;
        return text;
    }
    /// Closes with a reset instead of an end.
    void reset() const {
        const linger now{1, 0};
        setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }

private:
    int descriptor_;
};

/// A listening socket on a free port of the loopback interface.
class Listener {
public:
    Listener() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(socket_.descriptor(), reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            listen(socket_.descriptor(), 16) != 0 ||
            getsockname(socket_.descriptor(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
            std::abort();
        port_ = std::to_string(ntohs(address.sin_port));
    }
    TestSocket accept_one() const { return TestSocket(accept4(socket_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC)); }
    const std::string& port() const { return port_; }
    std::string url(const std::string& path = "/") const { return "ws://127.0.0.1:" + port_ + path; }

private:
    TestSocket socket_;
    std::string port_;
};

/// Serves connections one after another on a thread, each with the number of those before it.
class ScriptedServer {
public:
    ScriptedServer(size_t connections, std::function<void(TestSocket&, size_t)> script)
        : thread_([this, connections, script = std::move(script)] {
              for (size_t i = 0; i < connections; ++i) {
                  TestSocket socket = listener_.accept_one();
                  script(socket, i);
              }
          }) {}
    ~ScriptedServer() { thread_.join(); }
    std::string url(const std::string& path = "/") const { return listener_.url(path); }
    const std::string& port() const { return listener_.port(); }

private:
    Listener listener_;
    std::thread thread_;
};

/// The answer to a WebSocket handshake (RFC 6455, 4.2.2).
inline std::string accepting(const std::string& request) {
    constexpr char k_digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string name = "Sec-WebSocket-Key: ";
    const size_t at = request.find(name) + name.size();
    const std::string text = request.substr(at, request.find('\r', at) - at) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    SHA1Context context;
    vl_SHA1Reset(&context);
    vl_SHA1Input(&context, reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned>(text.size()));
    vl_SHA1Result(&context);
    unsigned digest[21] = {};  // a multiple of 3
    for (unsigned i = 0; i < 20; ++i)
        digest[i] = context.Intermediate_Hash[i / 4] >> (24 - i % 4 * 8) & 0xFFU;
    std::string accept;
    for (size_t i = 0; i < 21; i += 3) {
        const unsigned bits = digest[i] << 16U | digest[i + 1] << 8U | digest[i + 2];
        for (const unsigned shift : {18U, 12U, 6U, 0U})
            accept += k_digits[bits >> shift & 63U];
    }
    accept.back() = '=';  // 20 bytes
    return "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
           accept + "\r\n\r\n";
}
