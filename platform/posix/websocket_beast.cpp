// WebSocket connections over Boost.Beast and OpenSSL. With websocket_pipe.h the only file that knows either: their
// headers take most of a minute to compile.
//
// A Link is one connection. Everything in it is touched by the thread that has its turn (work_turn.h), which runs the
// link's io_context; what other threads ask for is posted to it. Its own thread is detached and owns it: looking up a
// name cannot be interrupted, and whoever joined that would wait for it.
//
// Beast wants every operation of a stream to have ended before the stream goes, so operations are counted.

#include <fcntl.h>
#include <pthread.h>

#include <algorithm>
#include <boost/asio/connect.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/field.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <cerrno>
#include <limits>
#include <optional>
#include <vector>

#include "platform/http_transport.h"
#include "platform/posix/open_links.h"
#include "platform/posix/signals_blocked.h"
#include "platform/posix/websocket_pipe.h"
#include "platform/strict_utf8.h"
#include "platform/thread_identity.h"
#include "platform/websocket_transport.h"

namespace vell {
namespace {

namespace websocket = beast::websocket;

constexpr size_t k_first_max_message = 1 << 20;
constexpr size_t k_first_piece = 4096;           // bytes read before a message's length is known
constexpr size_t k_least_growth = 64 * 1024;     // of a message whose length is known
constexpr size_t k_write_buffer = 64 * 1024;     // masked and written at once
constexpr size_t k_longest_proxy_answer = 8192;  // bytes

/// RFC 7617.
std::string basic_authorization(const std::string& credentials) {
    std::string text((credentials.size() + 2) / 3 * 4 + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                       reinterpret_cast<const unsigned char*>(credentials.data()),
                                       static_cast<int>(credentials.size()));
    return "Basic " + text.substr(0, static_cast<size_t>(length));
}

WebSocketError thrown_error(const std::exception& exception, std::string reason) {
    const auto* of_system = dynamic_cast<const boost::system::system_error*>(&exception);
    const bool is_memory = dynamic_cast<const std::bad_alloc*>(&exception) != nullptr;
    const int code = of_system != nullptr ? of_system->code().value() : is_memory ? ENOMEM : EIO;
    return {code, exception.what(), std::move(reason), WebSocketError::k_no_close_frame};
}

/// What Beast lets through of a response to the handshake, although it has to fail (RFC 6455, 4.1 and 11.3). Null when
/// the response is fine. We ask for no extension and no subprotocol.
const char* handshake_problem(const websocket::response_type& response) {
    using beast::http::field;
    const auto says_something = [&response](field name) {
        const auto [first, last] = response.equal_range(name);
        return std::any_of(first, last, [](const auto& each) { return !without_blanks(each.value()).empty(); });
    };
    if (says_something(field::sec_websocket_extensions)) return "The server uses an extension that was not asked for";
    if (says_something(field::sec_websocket_protocol)) return "The server uses a subprotocol that was not asked for";
    if (response.count(field::sec_websocket_accept) != 1) return "The server accepts more than once";
    if (response.count(field::upgrade) != 1 || !beast::iequals(response[field::upgrade], "websocket"))
        return "The server switches to another protocol";
    return nullptr;
}

class Link;

/// Goes on with a link when an operation has ended.
struct Step {
    using Next = void (Link::*)(error_code, size_t);
    Link* link;
    Next next;
    void operator()(error_code error, size_t count = 0) const;
};

WebSocketError error_from(error_code code, std::string reason) {
    return {code.value(), code.message(), std::move(reason), WebSocketError::k_no_close_frame};
}

class Link final : public OpenLink {
public:
    Link(const WebSocketRequest& request, const WebSocketLimits& limits) : request_(request), limits_(limits) {}

    /// Starts the thread that owns the link from then on. False: the link is still the caller's.
    [[nodiscard]] bool start() noexcept;

    // For other threads.
    void post_send(MessageKind kind, const void* bytes, size_t size, WebSocketCompletion& completion) noexcept;
    void post_receive(WebSocketCompletion& completion) noexcept;
    void post_cancel() noexcept;
    void post_max_message(size_t bytes) noexcept;
    void help_until(const std::atomic<bool>& is_done, int64_t deadline_ns) noexcept;
    void abandon() noexcept override;
    /// The connection's handle goes. The link may be gone when this returns.
    void leave() noexcept;

    // The connection in steps. The error is what the step before ended with.
    void on_step_ended() noexcept { --operations_; }

private:
    enum class State : uint8_t {
        connecting,
        open,
        closing,  ///< the closing handshake is under way; operations fail already
        closed,   ///< the socket is closed; operations may still be on their way out
    };
    struct GiveBack {
        WorkTurn& turn;
        ~GiveBack() { turn.give_back(/*is_awaited*/ false); }
    };
    struct Send {
        WebSocketCompletion* completion = nullptr;
        MessageKind kind{};
        net::const_buffer bytes;
    };

    void interrupt() noexcept override { context_.stop(); }
    void resume() noexcept override { context_.restart(); }
    static void* thread_entry(void* link) noexcept;
    /// Works until the end. Leaves with the turn.
    void run_as_owner() noexcept;
    /// Runs handlers until `is_enough()`, or until it is interrupted.
    template <class Condition>
    void run_while_not(Condition is_enough) noexcept;
    template <class Task>
    void post_or_fail(WebSocketCompletion* completion, Task task) noexcept;
    Step step(Step::Next next) noexcept {
        ++operations_;
        return {this, next};
    }

    void begin();
    void prepare_tls();
    void on_found(error_code error, const Tcp::resolver::results_type& found);
    void connect_next();
    void on_connected(error_code error, size_t);
    void ask_proxy();
    void on_proxy_asked(error_code error, size_t);
    void on_proxy_answered(error_code error, size_t count);
    void secure();
    void on_secured(error_code error, size_t);
    void upgrade();
    void on_upgraded(error_code error, size_t);
    void restart_limit(int64_t limit_ms);
    void on_limit(error_code error, size_t);
    void restart_idle();
    void on_idle(error_code error, size_t);
    void on_pinged(error_code, size_t) { is_pinging_ = false; }

    void write();
    void on_written(error_code error, size_t);
    void read_on();
    void on_read(error_code error, size_t count);
    void finish_incoming();
    /// Hands out what was read, as far as somebody asks for it.
    void deliver();

    void fail(WebSocketError error);
    void fail(error_code error, std::string reason) { fail(error_from(error, std::move(reason))); }
    void end_with(WebSocketError error, websocket::close_code code);
    void cancel();
    void close(websocket::close_code code);
    void on_close_ended(error_code, size_t) { close_socket(); }
    void close_socket();
    [[nodiscard]] Pipe& pipe() { return stream_->next_layer(); }
    void set_timeout(int64_t limit_ms) {
        stream_->set_option(websocket::stream_base::timeout{std::chrono::milliseconds(limit_ms),
                                                            websocket::stream_base::none(), /*keep_alive*/ false});
    }
    /// Fails operations that the failure is the answer to.
    void answer();
    /// Nobody asks any more, and nothing is under way that refers to this object.
    [[nodiscard]] bool has_ended() const noexcept { return is_left && state_ == State::closed && operations_ == 0; }

    const WebSocketRequest request_;
    const WebSocketLimits limits_;
    net::io_context context_{1};
    const net::executor_work_guard<net::io_context::executor_type> work_ = net::make_work_guard(context_);
    Tcp::resolver resolver_{context_};
    net::steady_timer limit_{context_};  // of connecting and of closing
    net::steady_timer idle_{context_};
    std::unique_ptr<net::ssl::context> tls_context_;
    std::optional<websocket::stream<Pipe, /*deflate*/ false>> stream_{context_};

    State state_ = State::connecting;
    int operations_ = 0;      // whose step has not been called yet
    WebSocketError failure_;  // what operations fail with
    std::string doing_;       // the step of connecting that is under way, for people
    Tcp::resolver::results_type addresses_;
    Tcp::resolver::results_type::const_iterator next_address_;
    bool is_trying_address_ = false;
    std::chrono::steady_clock::time_point connect_end_;
    std::string proxy_text_;  // what is sent to the proxy, then what it answers
    websocket::response_type response_;

    Send send_;
    bool is_writing_ = false;
    WebSocketCompletion* receiver_ = nullptr;
    bool is_reading_ = false;
    WebSocketMessage incoming_;             // the message that is being read
    bool is_incoming_whole_ = false;        // it waits until `held_` is free
    std::optional<WebSocketMessage> held_;  // the message that is read ahead
    size_t max_message_ = k_first_max_message;

    uint64_t bytes_at_last_look_ = 0;
    bool is_pinging_ = false;         // a ping is being written
    bool is_answer_awaited_ = false;  // one was written, and no byte came since
};

void Step::operator()(error_code error, size_t count) const {
    link->on_step_ended();
    (link->*next)(error, count);
}

// ---------------------------------------------------------------------------------------------------------- threads

bool Link::start() noexcept {
    pthread_attr_t detached;
    if (pthread_attr_init(&detached) != 0) return false;
    pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    bool has_started = false;
    if (enlist()) {
        const SignalsBlocked signals_blocked;
        pthread_t thread;
        has_started = pthread_create(&thread, &detached, thread_entry, this) == 0;
        if (!has_started) delist();
    }
    pthread_attr_destroy(&detached);
    return has_started;
}

void* Link::thread_entry(void* link) noexcept {
    identify_thread("VL_WebSocket");
    const std::unique_ptr<Link> owned(static_cast<Link*>(link));
    owned->run_as_owner();
    owned->stream_.reset();
    owned->tls_context_.reset();
    OPENSSL_thread_stop();  // before the turn goes back: exit() may take OpenSSL apart then
    owned->turn.give_back(/*is_awaited*/ false);
    owned->delist();
    return nullptr;  // the io_context may wait for a name that is still looked up
}

void Link::run_as_owner() noexcept {
    // The thread that looks names up inherits this thread's signal mask.
    try {
        begin();
    } catch (const std::exception& exception) {
        fail(thrown_error(exception, "connecting"));
    }
    while (!has_ended()) {
        run_while_not([this] { return has_ended(); });
        if (has_ended()) break;
        turn.give_back(/*is_awaited*/ false);
        turn.take_as_owner();
    }
}

template <class Condition>
void Link::run_while_not(Condition is_enough) noexcept {
    try {
        while (!is_enough() && context_.run_one() != 0) {
        }
    } catch (const std::exception& exception) {
        fail(thrown_error(exception, ""));
    }
}

void Link::help_until(const std::atomic<bool>& is_done, int64_t deadline_ns) noexcept {
    if (is_done || !is_of_this_process() || !turn.take_as_caller()) return;
    if (deadline_ns == 0) {
        run_while_not([&is_done] { return is_done.load(std::memory_order_relaxed); });
    } else {
        const std::chrono::steady_clock::time_point deadline{std::chrono::nanoseconds(deadline_ns)};
        try {
            while (!is_done.load(std::memory_order_relaxed) && context_.run_one_until(deadline) != 0) {
            }
        } catch (const std::exception& exception) {
            fail(thrown_error(exception, ""));
        }
    }
    turn.give_back(receiver_ != nullptr || send_.completion != nullptr);
}

/// Runs the task here where the turn can be had, which is cheaper, and posts it otherwise.
template <class Task>
void Link::post_or_fail(WebSocketCompletion* completion, Task task) noexcept {
    try {
        if (is_of_this_process() && !turn.is_frozen()) {
            if (!turn.take_as_caller()) return net::post(context_, std::move(task));
            const GiveBack at_the_end{turn};
            return task();
        }
        if (completion != nullptr)
            completion->complete(error_from(net::error::operation_aborted, "the process exits, or has forked"),
                                 nullptr);
    } catch (const std::exception& exception) {
        if (completion != nullptr) completion->complete(thrown_error(exception, ""), nullptr);
    }
}

void Link::post_send(MessageKind kind, const void* bytes, size_t size, WebSocketCompletion& completion) noexcept {
    post_or_fail(&completion, [this, kind, bytes, size, &completion] {
        send_ = {&completion, kind, net::const_buffer(bytes, size)};
        write();
    });
}

void Link::post_receive(WebSocketCompletion& completion) noexcept {
    post_or_fail(&completion, [this, &completion] {
        receiver_ = &completion;
        deliver();
    });
}

void Link::post_cancel() noexcept {
    post_or_fail(nullptr, [this] { cancel(); });
}

void Link::post_max_message(size_t bytes) noexcept {
    post_or_fail(nullptr, [this, bytes] {
        max_message_ = bytes;
        deliver();
    });
}

void Link::abandon() noexcept {
    if (!stream_.has_value()) return;  // it has ended already
    try {
        fail(net::error::operation_aborted, "the process exits");
        context_.restart();
        context_.poll();               // what was asked for and not yet begun
    } catch (const std::exception&) {  // the process exits anyway
    }
}

void Link::leave() noexcept {
    if (!is_of_this_process() || !turn.take_as_caller()) return;  // it stays as it is until the process ends
    try {
        cancel();
    } catch (const std::exception&) {
        close_socket();
    }
    is_left = true;
    turn.give_back(/*is_awaited*/ true);
}

// ------------------------------------------------------------------------------------------------------- connecting

void Link::begin() {
    connect_end_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(limits_.handshake_ms);
    if (request_.is_secure) prepare_tls();
    const bool has_proxy = !request_.proxy_host.empty();
    const std::string& host = has_proxy ? request_.proxy_host : request_.host;
    doing_ = "looking up " + host;
    restart_limit(limits_.handshake_ms);
    resolver_.async_resolve(host, has_proxy ? request_.proxy_port : request_.port,
                            [this](error_code error, const Tcp::resolver::results_type& found) {
                                if (state_ == State::connecting) on_found(error, found);
                            });
}

void Link::prepare_tls() {
    tls_context_ = std::make_unique<net::ssl::context>(net::ssl::context::tls_client);
    SSL_CTX_set_min_proto_version(tls_context_->native_handle(), TLS1_2_VERSION);
    error_code no_store;  // shows as a certificate that cannot be verified
    tls_context_->set_default_verify_paths(no_store);
    tls_context_->set_verify_mode(net::ssl::verify_peer);
    pipe().use_tls(*tls_context_);
    error_code is_name;
    net::ip::make_address(request_.host, is_name);
    if (is_name) {
        SSL_ctrl(pipe().tls(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                 const_cast<char*>(request_.host.c_str()));
        SSL_set1_host(pipe().tls(), request_.host.c_str());
    } else {
        X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(pipe().tls()), request_.host.c_str());
    }
}

void Link::on_found(error_code error, const Tcp::resolver::results_type& found) {
    if (error) return fail(error, doing_);
    addresses_ = found;
    next_address_ = addresses_.begin();
    connect_next();
}

/// Tries the next address. Each gets its part of the time that is left, so that a silent one does not take all.
void Link::connect_next() {
    const Tcp::endpoint address = next_address_->endpoint();
    const auto untried = std::distance(next_address_, Tcp::resolver::results_type::const_iterator(addresses_.end()));
    ++next_address_;
    doing_ = "connecting to " + address.address().to_string() + " port " + std::to_string(address.port());
    auto& socket = pipe().socket();
    error_code error;
    socket.close(error);
    socket.open(address.protocol(), error);
    if (error) return fail(error, doing_);
    fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
    const auto rest = connect_end_ - std::chrono::steady_clock::now();
    restart_limit(std::chrono::duration_cast<std::chrono::milliseconds>(rest).count() / untried);
    is_trying_address_ = true;
    socket.async_connect(address, step(&Link::on_connected));
}

void Link::on_connected(error_code error, size_t) {
    is_trying_address_ = false;
    if (state_ != State::connecting) return;
    if (error && next_address_ != addresses_.end()) return connect_next();
    if (error) return fail(error == net::error::operation_aborted ? net::error::timed_out : error, doing_);
    const auto rest = connect_end_ - std::chrono::steady_clock::now();
    restart_limit(std::chrono::duration_cast<std::chrono::milliseconds>(rest).count());
    error_code ignored;
    pipe().socket().set_option(Tcp::no_delay(true), ignored);
    request_.proxy_host.empty() ? secure() : ask_proxy();
}

/// Asks for a tunnel (RFC 9110, 9.3.6).
void Link::ask_proxy() {
    const bool is_ipv6 = request_.host.find(':') != std::string::npos;
    const std::string server = (is_ipv6 ? "[" + request_.host + "]" : request_.host) + ":" + request_.port;
    doing_ = "asking the proxy for " + server;
    proxy_text_ = "CONNECT " + server + " HTTP/1.1\r\nHost: " + server + "\r\n";
    if (!request_.proxy_credentials.empty())
        proxy_text_ += "Proxy-Authorization: " + basic_authorization(request_.proxy_credentials) + "\r\n";
    proxy_text_ += "\r\n";
    net::async_write(pipe().socket(), net::buffer(proxy_text_), step(&Link::on_proxy_asked));
}

void Link::on_proxy_asked(error_code error, size_t) {
    if (state_ != State::connecting) return;
    if (error) return fail(error, doing_);
    proxy_text_.clear();
    net::async_read_until(pipe().socket(), net::dynamic_buffer(proxy_text_, k_longest_proxy_answer), "\r\n\r\n",
                          step(&Link::on_proxy_answered));
}

void Link::on_proxy_answered(error_code error, size_t count) {
    if (state_ != State::connecting) return;
    if (error) return fail(error, doing_);
    const std::string line = proxy_text_.substr(0, proxy_text_.find("\r\n"));
    const auto status = parse_status_line(line);
    if (!status || *status / 100 != 2)
        return fail(
            {ECONNREFUSED, "The proxy refused the tunnel", doing_ + ": " + line, WebSocketError::k_no_close_frame});
    if (count != proxy_text_.size())  // servers speak second, through TLS too
        return fail({EPROTO, "The proxy sent more than its answer", doing_, WebSocketError::k_no_close_frame});
    secure();
}

void Link::secure() {
    if (!request_.is_secure) return upgrade();
    doing_ = "TLS handshake with " + request_.host;
    pipe().async_secure(step(&Link::on_secured));
}

void Link::on_secured(error_code error, size_t) {
    if (state_ != State::connecting) return;
    if (!error) return upgrade();
    const long verdict = SSL_get_verify_result(pipe().tls());
    if (verdict != X509_V_OK) doing_ += std::string(": ") + X509_verify_cert_error_string(verdict);
    fail(error, doing_);
}

void Link::upgrade() {
    doing_ = "WebSocket handshake with " + request_.host;
    set_timeout(limits_.handshake_ms);
    stream_->auto_fragment(false);
    stream_->write_buffer_bytes(k_write_buffer);
    stream_->read_message_max(0);  // there is a limit of our own
    stream_->set_option(websocket::stream_base::decorator([this](websocket::request_type& header) {
        if (request_.credentials.empty()) return;
        header.set(beast::http::field::authorization, basic_authorization(request_.credentials));
    }));
    stream_->async_handshake(response_, request_.authority, request_.target, step(&Link::on_upgraded));
}

void Link::on_upgraded(error_code error, size_t) {
    if (state_ != State::connecting) return;
    if (error == websocket::error::upgrade_declined) {
        const std::string status = std::to_string(response_.result_int()) + " " + std::string(response_.reason());
        return fail({static_cast<int>(response_.result_int()), error.message(), doing_ + ": HTTP status " + status,
                     WebSocketError::k_no_close_frame});
    }
    if (error) return fail(error, doing_);
    if (const char* problem = handshake_problem(response_))
        return fail({EPROTO, problem, doing_, WebSocketError::k_no_close_frame});
    state_ = State::open;
    limit_.cancel();
    set_timeout(limits_.close_ms);
    restart_idle();
    read_on();
    write();
}

void Link::restart_limit(int64_t limit_ms) {
    limit_.expires_after(std::chrono::milliseconds(limit_ms));
    limit_.async_wait(step(&Link::on_limit));
}

void Link::on_limit(error_code error, size_t) {
    if (error || state_ == State::open || limit_.expiry() > std::chrono::steady_clock::now()) return;
    if (state_ == State::connecting && is_trying_address_) {
        error_code ignored;
        pipe().socket().close(ignored);  // on_connected goes on
    } else {
        fail(net::error::timed_out, doing_);
    }
}

// ------------------------------------------------------------------------------------------------- sending, receiving

void Link::write() {
    if (send_.completion == nullptr || is_writing_) return;
    if (failure_) return answer();
    if (state_ != State::open) return;
    is_writing_ = true;
    stream_->text(send_.kind == MessageKind::text);
    stream_->async_write(send_.bytes, step(&Link::on_written));
}

void Link::on_written(error_code error, size_t) {
    is_writing_ = false;
    WebSocketCompletion* const completion = std::exchange(send_.completion, nullptr);
    if (error) fail(error, "sending");
    completion->complete(error ? failure_ : WebSocketError(), nullptr);
}

void Link::read_on() {
    const size_t size = incoming_.bytes.size();
    const bool is_looking_ahead = held_.has_value();
    if (state_ != State::open || is_reading_ || is_incoming_whole_ || size > max_message_) return;
    if (is_looking_ahead && size > 0) return;
    // The length that a frame claims is not taken at its word: room grows with what has come.
    size_t room = k_first_piece;
    if (size > 0) room = std::min(stream_->read_size_hint(k_first_piece), std::max(size, k_least_growth));
    room = std::min(room - 1, max_message_ - size) + 1;
    char* const begin = incoming_.bytes.prepare(room);
    if (begin == nullptr) return fail(net::error::no_memory, "receiving");
    is_reading_ = true;
    stream_->async_read_some(net::mutable_buffer(begin, room), step(&Link::on_read));
}

void Link::on_read(error_code error, size_t count) {
    is_reading_ = false;
    if (state_ == State::closing) return;
    if (error == websocket::error::closed) {
        const websocket::close_reason& reason = stream_->reason();
        const int sent = reason.code,
                  code = sent != websocket::close_code::none ? sent : websocket::close_code::no_status;
        fail({code, "The server closed the connection with code " + std::to_string(code),
              std::string(reason.reason.data(), reason.reason.size()), code});
    } else if (error) {
        fail(error, "receiving");
    } else {
        incoming_.bytes.commit(count);
        incoming_.kind = stream_->got_text() ? MessageKind::text : MessageKind::binary;
        is_incoming_whole_ = stream_->is_message_done();
        if (is_incoming_whole_) finish_incoming();
        deliver();
    }
}

/// Beast looks at a text piece by piece, and not at its end when the last frame is empty: a text that ends inside a
/// character would pass, and the next one would be taken for the rest of it.
void Link::finish_incoming() {
    incoming_.bytes.trim();
    if (incoming_.kind != MessageKind::text || is_utf8({incoming_.bytes.data(), incoming_.bytes.size()})) return;
    incoming_ = {};
    is_incoming_whole_ = false;
    end_with(error_from(websocket::error::bad_frame_payload, "receiving"), websocket::close_code::bad_payload);
}

/// Fails, and tells the server why where that is possible.
void Link::end_with(WebSocketError error, websocket::close_code code) {
    if (!failure_) failure_ = std::move(error);
    is_writing_ ? close_socket() : close(code);
}

void Link::deliver() {
    const auto hold = [this] {
        if (!is_incoming_whole_ || held_.has_value() || incoming_.bytes.size() > max_message_) return;
        held_ = std::exchange(incoming_, {});
        is_incoming_whole_ = false;
    };
    hold();
    if (receiver_ != nullptr && held_.has_value()) {
        WebSocketMessage message = std::move(*held_);
        held_.reset();
        hold();
        std::exchange(receiver_, nullptr)->complete({}, &message);
    } else if (receiver_ != nullptr && incoming_.bytes.size() > max_message_ && !failure_) {
        end_with(error_from(net::error::message_size,
                            "receiving more than " + std::to_string(max_message_) + " bytes in one message"),
                 websocket::close_code::too_big);
    }
    if (failure_) return answer();
    read_on();
}

/// Looks whether the server is still there. While the host lets messages wait, nothing can be heard of it.
void Link::on_idle(error_code error, size_t) {
    if (error || state_ != State::open) return;
    const uint64_t bytes = pipe().bytes_read + (is_writing_ ? pipe().bytes_written : 0);
    if (std::exchange(bytes_at_last_look_, bytes) != bytes || (!is_reading_ && !is_writing_)) {
        is_answer_awaited_ = false;
    } else if (is_answer_awaited_) {
        return fail(net::error::timed_out, "no answer to a ping");
    } else {
        is_answer_awaited_ = true;
        if (!is_pinging_) {
            is_pinging_ = true;
            stream_->async_ping({}, step(&Link::on_pinged));
        }
    }
    restart_idle();
}

void Link::restart_idle() {
    idle_.expires_after(std::chrono::milliseconds(limits_.idle_ms));
    idle_.async_wait(step(&Link::on_idle));
}

// -------------------------------------------------------------------------------------------------------------- ends

void Link::fail(WebSocketError error) {
    if (!failure_) failure_ = std::move(error);
    close_socket();
    deliver();
}

void Link::answer() {
    if (receiver_ != nullptr && !held_.has_value()) std::exchange(receiver_, nullptr)->complete(failure_, nullptr);
    if (send_.completion != nullptr && !is_writing_)
        std::exchange(send_.completion, nullptr)->complete(failure_, nullptr);
}

void Link::cancel() {
    if (!failure_) failure_ = error_from(net::error::operation_aborted, "");
    held_.reset();
    is_incoming_whole_ = false;
    if (state_ == State::open && !is_writing_) {
        close(websocket::close_code::normal);
    } else if (state_ != State::closing) {
        close_socket();
    }
    answer();
}

void Link::close(websocket::close_code code) {
    state_ = State::closing;
    idle_.cancel();
    restart_limit(limits_.close_ms);
    stream_->async_close(code, step(&Link::on_close_ended));
}

void Link::close_socket() {
    state_ = State::closed;
    limit_.cancel();
    idle_.cancel();
    resolver_.cancel();
    beast_close_socket(pipe());
}

/// The host's end of a connection.
class LinkHandle final : public WebSocketConnection {
public:
    explicit LinkHandle(Link& link) noexcept : link_(link) {}
    ~LinkHandle() override { link_.leave(); }
    LinkHandle(const LinkHandle&) = delete;
    LinkHandle& operator=(const LinkHandle&) = delete;

    void send(MessageKind kind, const void* bytes, size_t size, WebSocketCompletion& completion) noexcept override {
        link_.post_send(kind, bytes, size, completion);
    }
    void receive(WebSocketCompletion& completion) noexcept override { link_.post_receive(completion); }
    void cancel() noexcept override { link_.post_cancel(); }
    size_t max_message() const noexcept override { return max_message_.load(std::memory_order_relaxed); }
    void set_max_message(size_t bytes) noexcept override {
        max_message_.store(bytes, std::memory_order_relaxed);
        link_.post_max_message(bytes);
    }
    void help_until(const std::atomic<bool>& is_done, int64_t deadline_ns) noexcept override {
        link_.help_until(is_done, deadline_ns);
    }

private:
    Link& link_;
    std::atomic<size_t> max_message_{k_first_max_message};
};

}  // namespace

std::unique_ptr<WebSocketConnection> open_websocket(const WebSocketRequest& request,
                                                    const WebSocketLimits& limits) noexcept {
    try {
        OPENSSL_init_ssl(0, nullptr);  // before the list of links: what is prepared first is torn down last
        auto link = std::make_unique<Link>(request, limits);
        auto handle = std::make_unique<LinkHandle>(*link);
        if (link->start()) {
            static_cast<void>(link.release());  // the thread's
            return handle;
        }
        static_cast<void>(handle.release());
    } catch (const std::exception&) {
    }
    return nullptr;
}

}  // namespace vell
