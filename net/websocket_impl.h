// What VlWebSocket::Create makes.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/websocket_transport.h"
#include "vellcore/threads.h"
#include "vellcore/websocket_client.h"

class WebSocketImpl;

namespace vell {

class WebSocketObjects;

using WebSocketOpener = std::unique_ptr<WebSocketConnection> (*)(const WebSocketRequest& request,
                                                                 const WebSocketLimits& limits);

/// One call of the connection's, from its start to its completion. Guarded by the object's mutex.
struct WebSocketCall final : WebSocketCompletion {
    WebSocketCall(WebSocketImpl& wanted_owner, const char* wanted_name) noexcept
        : owner(wanted_owner), name(wanted_name) {}
    void complete(const WebSocketError& error, WebSocketMessage* received) noexcept override;

    WebSocketImpl& owner;
    const char* const name;           // as the log names it
    std::atomic<bool> is_done{true};  // false from the call's start to its completion
    bool is_ok = false;
    WebSocketMessage message;
};

/// One connection with the calls that are made on it.
struct WebSocketSession {
    WebSocketSession(WebSocketImpl& owner, std::unique_ptr<WebSocketConnection> opened) noexcept
        : connection(std::move(opened)), receive(owner, "WebSocket::ReceiveData") {}

    const std::unique_ptr<WebSocketConnection> connection;
    WebSocketCall receive;
    bool is_asked = false;  // `receive` began and nobody has taken its result yet: its wait may have timed out
    bool is_sending = false, is_receiving = false;  // a thread is in the operation
    uint32_t users = 0;                             // threads in any operation
};

}  // namespace vell

/// Hosts that look into the object know the order of its first fields.
class WebSocketImpl final : public VlWebSocket {
public:
    explicit WebSocketImpl(vell::WebSocketOpener wanted_opener,
                           const vell::WebSocketLimits& wanted_limits = {}) noexcept;
    WebSocketImpl(const WebSocketImpl&) = delete;
    WebSocketImpl& operator=(const WebSocketImpl&) = delete;
    /// Disconnects, and waits until every call has left.
    ~WebSocketImpl();

    bool Connect(const char* url) noexcept override;
    bool Disconnect() noexcept override;
    bool SendData(void* bytes, unsigned long size) noexcept override;
    bool SendText(const char* text) noexcept override;
    bool SetMaxDataSize(unsigned long size) noexcept override;
    bool ReceiveData(VlWebSocketData*& message) noexcept override;

    /// False when memory was short in the constructor.
    [[nodiscard]] bool is_usable() const noexcept { return mutex != nullptr && condition != nullptr; }

    vell::WebSocketSession* session = nullptr;  // null when not connected
    vell::WebSocketSession* task = nullptr;     // the session; null as well after an operation that failed
    uint8_t pending = 0;                        // 1 while a completion is awaited
    __mutex_str* mutex;                         // guards the fields but `condition`, and the sessions
    __cond_str* condition;                      // a call was completed or left

private:
    friend struct vell::WebSocketCall;
    friend class VlWebSocket;
    friend class vell::WebSocketObjects;
    class Visit;

    [[nodiscard]] bool send(vell::MessageKind kind, const void* bytes, size_t size, const char* name) noexcept;
    [[nodiscard]] vell::WebSocketSession* enter(bool vell::WebSocketSession::*is_busy) noexcept;
    void leave(vell::WebSocketSession& used, bool vell::WebSocketSession::*is_busy, bool has_failed) noexcept;
    void begin(vell::WebSocketCall& call) noexcept;
    /// False when the deadline passed first.
    [[nodiscard]] bool await(vell::WebSocketSession& used, vell::WebSocketCall& call, int64_t deadline_ns) noexcept;
    void end_session() noexcept;

    const vell::WebSocketOpener opener;
    const vell::WebSocketLimits limits;
    uint32_t visitors = 0;         // threads in a public call
    uint32_t pending_calls = 0;    // what `pending` is the flag of
    vell::WebSocketError failure;  // the last since Connect
    // Guarded by the lock of the list of all objects.
    WebSocketImpl* next_object = nullptr;
    WebSocketImpl* previous_object = nullptr;
};
