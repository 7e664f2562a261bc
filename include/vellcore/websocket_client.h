#pragma once
// VlWebSocket: a WebSocket client (RFC 6455) whose calls wait until they are done.
//
//     VlWebSocket* socket = VlWebSocket::Create();
//     if (socket != nullptr && socket->Connect("wss://render.example.com/jobs") && socket->SendText("status")) {
//         VlWebSocketData* message = nullptr;
//         while (socket->ReceiveData(message)) {
//             if (message->GetType() == VL_WEBSOCKET_TEXT) std::puts(message->GetText());
//             message->Release();
//         }
//     }
//     VlWebSocket::Destroy(socket);
//
// A connection lives on a thread of its own, which answers the server's pings whether the host calls or not. That
// thread handles no signals, and nothing here raises one. When 20 seconds pass without a byte from the server, it is
// pinged; after 20 more of silence the connection has failed.
//
// Certificates of wss servers are verified, name included, against the certificates that the system trusts. (OpenSSL's
// variables SSL_CERT_FILE and SSL_CERT_DIR name others.) HTTP proxies are taken from the environment: http_proxy for
// ws, https_proxy for wss, all_proxy, no_proxy; they are asked for a tunnel with CONNECT. SOCKS proxies and proxies
// behind TLS are not used. Redirects are not followed; messages are not compressed.

#include <stddef.h>

#include "export.h"

/// What VlWebSocketData::GetType answers.
enum VlWebSocketDataType { VL_WEBSOCKET_BINARY = 1, VL_WEBSOCKET_TEXT = 2 };

/// One received message. It belongs to whoever received it and does not need the connection any more.
class VELL_API VlWebSocketData {
public:
    /// Frees the message: the only way to give it back.
    virtual void Release() noexcept = 0;

    /// VL_WEBSOCKET_TEXT or VL_WEBSOCKET_BINARY.
    [[nodiscard]] virtual int GetType() const noexcept = 0;

    /// The content. A text is valid UTF-8 with a zero behind it; it may hold zeros itself.
    /// @return  null for a binary message without bytes.
    [[nodiscard]] virtual const void* GetData() const noexcept = 0;

    /// The same as GetData.
    [[nodiscard]] virtual const char* GetText() const noexcept = 0;

    /// Bytes. Of a text: up to its first zero.
    [[nodiscard]] virtual unsigned long GetSize() const noexcept = 0;

protected:
    VlWebSocketData() = default;
    VlWebSocketData(const VlWebSocketData&) = default;
    VlWebSocketData& operator=(const VlWebSocketData&) = default;
    ~VlWebSocketData() = default;
};

/// One connection at a time.
///
/// | state     | after                                                   | sending, receiving                     |
/// |-----------|---------------------------------------------------------|----------------------------------------|
/// | no task   | Create, Disconnect, an operation that failed            | false at once, nothing logged          |
/// | connected | Connect                                                 | wait for the handshake, then do it     |
///
/// A failed operation writes three error lines: "WebSocket::ReceiveData: code: 111" (or "WebSocket::SendData",
/// "WebSocket::SendText"), then "description: " and "reason: ". The code is the system's (errno), OpenSSL's, the HTTP
/// status of a handshake that was declined, or the close code that the server sent. What servers and proxies say in
/// these lines is escaped as by vl_utf8_printable. A server that closes the connection properly ends it in the same
/// way; GetCloseCode tells the difference.
///
/// @thread  One operation at a time is meant. A send beside a receive works, a second send or receive waits for the
///          first. Disconnect and Destroy may be called while another thread waits in an operation: it ends with false.
///          Nobody may begin a call once Destroy has begun.
/// @waits   Sending and receiving, as said there. The others at most until such calls of other threads have left.
class VELL_API VlWebSocket {
public:
    /// Begins to connect, and returns at once: that it does not succeed shows when the first operation fails. An open
    /// connection is closed first. Looking the server up, connecting, TLS and the handshake have 60 seconds together.
    ///
    /// @param url  ws://host[:port]/path?query or wss://..., ASCII; user:password@ before the host is sent as basic
    ///             authorization.
    /// @return  false for null, a URL that is malformed or of another scheme, and short of memory or threads; nothing
    ///          is logged.
    virtual bool Connect(const char* url) noexcept = 0;

    /// Closes the connection. The server is told (code 1000) in the background, within 3 seconds, after everything that
    /// was sent; exit() waits up to a second for that.
    /// @return  true.
    virtual bool Disconnect() noexcept = 0;

    /// Sends a binary message and returns when the system has taken it. The bytes are not copied.
    /// @param bytes  may be null when `size` is 0.
    /// @param size   bytes.
    /// @return  false without a task, for null bytes with a size, and when the connection has failed. Only the last is
    ///          logged, and leaves no task.
    /// @waits   while the server takes nothing; 40 seconds to a minute without a byte either way end the connection.
    virtual bool SendData(void* bytes, unsigned long size) noexcept = 0;

    /// Sends a text message. @param text  UTF-8; null and invalid UTF-8 give false, with nothing logged.
    virtual bool SendText(const char* text) noexcept = 0;

    /// Sets the largest message that is accepted, bytes; 1 MiB after Connect. A larger one fails the ReceiveData that
    /// would get it, and the server is told (code 1009).
    /// @return  false without a task.
    virtual bool SetMaxDataSize(unsigned long size) noexcept = 0;

    /// Waits for the next message. One message, and the beginning of one more, is read ahead between calls; then the
    /// server has to wait, and pings behind those are answered later.
    ///
    /// @param message  a new message, yours to Release; left as it is when the result is false.
    /// @return  false without a task, when the connection has failed or was closed, and when the time set with
    ///          SetReceiveTimeOut has passed. After the last the connection is as good as before, and nothing is
    ///          logged.
    /// @waits   without a limit, unless one is set.
    [[nodiscard]] virtual bool ReceiveData(VlWebSocketData*& message) noexcept = 0;

    /// A new object without a connection; null when memory is short.
    [[nodiscard]] static VlWebSocket* Create() noexcept;
    /// Disconnects and frees the object. Null is accepted.
    static void Destroy(VlWebSocket* socket) noexcept;

    /// How long ReceiveData waits, for all objects, from their next call on. 0, as it is at first: without a limit.
    static void SetReceiveTimeOut(unsigned int milliseconds) noexcept;

    /// How the connection ended, as the last failed operation found it.
    /// @return  0 since Connect while nothing failed, and for null; what the server closed with: 1000 for a normal end,
    ///          1001 when it goes away, 1005 when it gave no code; 1006 when the connection was lost or never made (RFC
    ///          6455, 7.4.1).
    [[nodiscard]] static int GetCloseCode(const VlWebSocket* socket) noexcept;
    /// The description and reason as they were logged last since Connect: "Connection refused (connecting to 127.0.0.1
    /// port 80)"; an empty text while nothing failed.
    /// @param text      gets as much of it as fits, and a zero.
    /// @param capacity  bytes of `text`, its zero included.
    /// @return  the length of the whole text, bytes.
    static size_t GetErrorText(const VlWebSocket* socket, char* text, size_t capacity) noexcept;

protected:
    VlWebSocket() = default;
    VlWebSocket(const VlWebSocket&) = default;
    VlWebSocket& operator=(const VlWebSocket&) = default;
    ~VlWebSocket() = default;
};
