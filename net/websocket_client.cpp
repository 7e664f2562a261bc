// VlWebSocket: calls that wait, above a connection that completes them on its own.
//
// The object's mutex guards its fields and its session. It is not held while the connection is called, and nothing is
// logged under it. A session is deleted by the thread that took it out of the object, once every call on it has left.

#include "net/websocket_data.h"
#include "net/websocket_impl.h"
#include "net/websocket_url.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "platform/fork_handlers.h"
#include "platform/lock.h"
#include "platform/monotonic_clock.h"
#include "platform/strict_utf8.h"
#include "vellcore/auto_lock.h"
#include "vellcore/message_log.h"
#include "vellcore/unicode_text.h"

namespace vell {
namespace {

std::atomic<int64_t> receive_time_out_ms{0};  // 0: none

int64_t receive_deadline_ns() noexcept {
    constexpr int64_t k_ns_per_ms = 1'000'000;
    const int64_t limit_ms = receive_time_out_ms.load(std::memory_order_relaxed);
    return limit_ms == 0 ? 0 : monotonic_ns() + limit_ms * k_ns_per_ms;
}

std::string printable(const std::string& text) {
    std::string result(vl_utf8_printable(nullptr, 0, text.data(), text.size(), VL_BACKSLASHES_KEPT), '\0');
    vl_utf8_printable(result.data(), result.size() + 1, text.data(), text.size(), VL_BACKSLASHES_KEPT);
    return result;
}

/// The error without what the words of servers and proxies would do to a log or a terminal.
WebSocketError shown_error(const WebSocketError& error) noexcept {
    WebSocketError shown;
    shown.code = error.code;
    shown.close_code = error.close_code;
    try {
        shown.description = printable(error.description);
        shown.reason = printable(error.reason);
    } catch (const std::exception&) {  // short of memory: the codes have to do
    }
    return shown;
}

void log_nserror(const char* where, const WebSocketError& error) noexcept {
    msgerror("%s: code: %d", where, error.code);
    if (!error.description.empty()) msgerror("description: %s", error.description.c_str());
    if (!error.reason.empty()) msgerror("reason: %s", error.reason.c_str());
}

}  // namespace

/// All objects of the process, for what happens to them around fork(): nobody is inside one meanwhile. In the child
/// they are not connected any more, since the connections are the parent's.
class WebSocketObjects {
public:
    static void add(WebSocketImpl& object) noexcept {
        const ScopedLock lock(list_lock_);
        object.next_object = first_;
        if (first_ != nullptr) first_->previous_object = &object;
        first_ = &object;
    }
    static void remove(WebSocketImpl& object) noexcept {
        const ScopedLock lock(list_lock_);
        (object.previous_object != nullptr ? object.previous_object->next_object : first_) = object.next_object;
        if (object.next_object != nullptr) object.next_object->previous_object = object.previous_object;
    }

private:
    static void lock_before_fork() noexcept VELL_NO_LOCK_CHECK {
        list_lock_.lock();
        for (WebSocketImpl* object = first_; object != nullptr; object = object->next_object)
            mp_get_mutex(object->mutex);
    }
    static void unlock_after_fork() noexcept VELL_NO_LOCK_CHECK {
        for (WebSocketImpl* object = first_; object != nullptr; object = object->next_object)
            mp_release_mutex(object->mutex);
        list_lock_.unlock();
    }
    static void renew_in_child() noexcept VELL_NO_LOCK_CHECK {
        for (WebSocketImpl* object = first_; object != nullptr; object = object->next_object) {
            mp_release_mutex(object->mutex);
            pthread_cond_init(&object->condition->native, nullptr);
            disconnect(*object);
        }
        list_lock_.unlock();
    }
    /// The session stays until the child's next call: its connection answers nothing in a child.
    static void disconnect(WebSocketImpl& object) noexcept {
        object.visitors = object.pending_calls = 0;
        object.pending = 0;
        object.task = nullptr;
        if (object.session == nullptr) return;
        object.session->users = 0;
        object.session->receive.is_done = true;
    }

    static inline Mutex list_lock_;
    static inline WebSocketImpl* first_ VELL_GUARDED_BY(list_lock_) = nullptr;
    static inline const ForkEntry fork_entry_{ForkOrder::websocket_objects,
                                              {lock_before_fork, unlock_after_fork, renew_in_child}};
};

void WebSocketCall::complete(const WebSocketError& error, WebSocketMessage* received) noexcept {
    WebSocketError shown = shown_error(error);
    if (error) log_nserror(name, shown);
    const CancelShield shield;
    const AutoLock lock(owner.mutex);
    is_ok = !error;
    if (is_ok && received != nullptr) message = std::move(*received);
    if (!is_ok) owner.failure = std::move(shown);
    is_done.store(true, std::memory_order_release);
    owner.pending = --owner.pending_calls > 0 ? 1 : 0;
    mp_cond_broadcast(owner.condition);
}

}  // namespace vell

using vell::WebSocketCall;
using vell::WebSocketSession;

/// A thread in a public call, which the object outlives.
class WebSocketImpl::Visit {
public:
    explicit Visit(WebSocketImpl& object) noexcept : object_(object) {
        const AutoLock lock(object_.mutex);
        ++object_.visitors;
    }
    ~Visit() {
        const AutoLock lock(object_.mutex);
        --object_.visitors;
        mp_cond_broadcast(object_.condition);
    }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

private:
    const vell::CancelShield shield_;
    WebSocketImpl& object_;
};

WebSocketImpl::WebSocketImpl(vell::WebSocketOpener wanted_opener, const vell::WebSocketLimits& wanted_limits) noexcept
    : mutex(mp_new_mutex(0)), condition(mp_new_cond_block()), opener(wanted_opener), limits(wanted_limits) {
    if (is_usable()) vell::WebSocketObjects::add(*this);
}

WebSocketImpl::~WebSocketImpl() {
    if (is_usable()) {
        vell::WebSocketObjects::remove(*this);
        Disconnect();
        const vell::CancelShield shield;
        const AutoLock lock(mutex);
        while (visitors > 0)
            mp_cond_wait(condition, mutex);
    }
    mp_delete_cond_block(condition);
    mp_delete_mutex(mutex);
}

bool WebSocketImpl::Connect(const char* url) noexcept {
    if (url == nullptr) return false;
    const Visit visit(*this);
    vell::WebSocketRequest request;
    if (!vell::read_websocket_url(url, request)) return false;
    end_session();
    std::unique_ptr<vell::WebSocketConnection> connection = opener(request, limits);
    if (connection == nullptr) return false;
    auto* opened = new (std::nothrow) WebSocketSession(*this, std::move(connection));
    if (opened == nullptr) return false;
    const AutoLock lock(mutex);
    failure = {};
    failure.close_code = 0;
    session = task = opened;
    return true;
}

bool WebSocketImpl::Disconnect() noexcept {
    const Visit visit(*this);
    end_session();
    return true;
}

void WebSocketImpl::end_session() noexcept {
    std::unique_ptr<WebSocketSession> ended;
    {
        const AutoLock lock(mutex);
        ended.reset(session);
        session = task = nullptr;
    }
    if (ended == nullptr) return;
    ended->connection->cancel();
    const AutoLock lock(mutex);
    while (ended->users > 0 || !ended->receive.is_done)
        mp_cond_wait(condition, mutex);
}

bool WebSocketImpl::SetMaxDataSize(unsigned long size) noexcept {
    const Visit visit(*this);
    WebSocketSession* const used = enter(nullptr);
    if (used == nullptr) return false;
    if (used->connection->max_message() != size) used->connection->set_max_message(size);
    leave(*used, nullptr, /*has_failed*/ false);
    return true;
}

bool WebSocketImpl::SendData(void* bytes, unsigned long size) noexcept {
    if (bytes == nullptr && size > 0) return false;
    return send(vell::MessageKind::binary, bytes, size, "WebSocket::SendData");
}

bool WebSocketImpl::SendText(const char* text) noexcept {
    if (text == nullptr || !vell::is_utf8(text)) return false;
    return send(vell::MessageKind::text, text, std::char_traits<char>::length(text), "WebSocket::SendText");
}

bool WebSocketImpl::send(vell::MessageKind kind, const void* bytes, size_t size, const char* name) noexcept {
    const Visit visit(*this);
    WebSocketSession* const used = enter(&WebSocketSession::is_sending);
    if (used == nullptr) return false;
    WebSocketCall call(*this, name);
    begin(call);
    used->connection->send(kind, bytes, size, call);
    static_cast<void>(await(*used, call, /*deadline_ns*/ 0));
    leave(*used, &WebSocketSession::is_sending, !call.is_ok);
    return call.is_ok;
}

bool WebSocketImpl::ReceiveData(VlWebSocketData*& message) noexcept {
    const Visit visit(*this);
    const int64_t deadline_ns = vell::receive_deadline_ns();
    WebSocketSession* const used = enter(&WebSocketSession::is_receiving);
    if (used == nullptr) return false;
    WebSocketCall& call = used->receive;
    if (!std::exchange(used->is_asked, true)) {
        begin(call);
        used->connection->receive(call);
    }
    const bool is_done = await(*used, call, deadline_ns);
    VlWebSocketData* received = nullptr;
    if (is_done && call.is_ok) received = new (std::nothrow) WebSocketData(std::move(call.message));
    const bool has_failed = is_done && received == nullptr;
    if (is_done) used->is_asked = false;
    leave(*used, &WebSocketSession::is_receiving, has_failed);
    if (received != nullptr) message = received;
    return received != nullptr;
}

/// Enters the operation that `is_busy` marks, when the object has a task; waits while another thread is in it.
WebSocketSession* WebSocketImpl::enter(bool WebSocketSession::*is_busy) noexcept {
    const AutoLock lock(mutex);
    while (is_busy != nullptr && task != nullptr && task->*is_busy)
        mp_cond_wait(condition, mutex);
    if (task == nullptr) return nullptr;
    ++task->users;
    if (is_busy != nullptr) task->*is_busy = true;
    return task;
}

void WebSocketImpl::leave(WebSocketSession& used, bool WebSocketSession::*is_busy, bool has_failed) noexcept {
    const AutoLock lock(mutex);
    --used.users;
    if (is_busy != nullptr) used.*is_busy = false;
    if (has_failed && task == &used) task = nullptr;
    mp_cond_broadcast(condition);
}

void WebSocketImpl::begin(WebSocketCall& call) noexcept {
    const AutoLock lock(mutex);
    call.is_done.store(false, std::memory_order_relaxed);
    ++pending_calls;
    pending = 1;
}

bool WebSocketImpl::await(WebSocketSession& used, WebSocketCall& call, int64_t deadline_ns) noexcept {
    used.connection->help_until(call.is_done, deadline_ns);
    const AutoLock lock(mutex);
    while (!call.is_done) {
        const int64_t rest_ns = deadline_ns == 0 ? 0 : deadline_ns - vell::monotonic_ns();
        if (deadline_ns == 0) {
            mp_cond_wait(condition, mutex);
        } else if (rest_ns <= 0) {
            return false;
        } else {
            vell::wait_within(*condition, *mutex, rest_ns);
        }
    }
    return true;
}

VlWebSocket* VlWebSocket::Create() noexcept {
    const auto open = [](const vell::WebSocketRequest& request, const vell::WebSocketLimits& limits) {
        return vell::open_websocket(request, limits);
    };
    auto* created = new (std::nothrow) WebSocketImpl(open);
    if (created == nullptr || created->is_usable()) return created;
    delete created;
    return nullptr;
}

void VlWebSocket::Destroy(VlWebSocket* socket) noexcept {
    delete static_cast<WebSocketImpl*>(socket);
}

void VlWebSocket::SetReceiveTimeOut(unsigned int milliseconds) noexcept {
    vell::receive_time_out_ms.store(milliseconds, std::memory_order_relaxed);
}

int VlWebSocket::GetCloseCode(const VlWebSocket* socket) noexcept {
    if (socket == nullptr) return 0;
    const auto* object = static_cast<const WebSocketImpl*>(socket);
    const AutoLock lock(object->mutex);
    return object->failure.close_code;
}

size_t VlWebSocket::GetErrorText(const VlWebSocket* socket, char* text, size_t capacity) noexcept {
    if (socket == nullptr) return 0;
    const auto* object = static_cast<const WebSocketImpl*>(socket);
    const AutoLock lock(object->mutex);
    const vell::WebSocketError& error = object->failure;
    const bool has_reason = !error.reason.empty();
    const int length = std::snprintf(text, capacity, "%s%s%s%s", error.description.c_str(), has_reason ? " (" : "",
                                     error.reason.c_str(), has_reason ? ")" : "");
    return static_cast<size_t>(std::max(length, 0));
}
