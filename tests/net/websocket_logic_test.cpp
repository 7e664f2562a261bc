// What VlWebSocket makes of a connection's answers, with a connection that answers as the test says.

#include <cstring>
#include <deque>
#include <mutex>
#include <thread>

#include "net/websocket_data.h"
#include "net/websocket_impl.h"
#include "support/log_capture.h"

namespace {

/// What the connections of a test do, and what they were asked.
struct Script {
    enum class Answer { at_once, later, never_but_cancelled };
    Answer answer = Answer::at_once;
    vell::WebSocketError error;  // of the next operation; none: it succeeds
    std::string text = "hello";  // of the next message
    int opened = 0, alive = 0, receives = 0, limits_set = 0;
    std::vector<std::string> sent;
    bool cannot_open = false;
} script;

class ScriptedConnection final : public vell::WebSocketConnection {
public:
    ScriptedConnection() { ++script.alive; }
    ~ScriptedConnection() override {
        for (std::thread& thread : threads_)
            thread.join();
        --script.alive;
    }
    void send(vell::MessageKind kind, const void* bytes, size_t size,
              vell::WebSocketCompletion& completion) noexcept override {
        script.sent.push_back((kind == vell::MessageKind::text ? "t:" : "b:") +
                              std::string(static_cast<const char*>(bytes), size));
        answer(completion, /*is_receive*/ false);
    }
    void receive(vell::WebSocketCompletion& completion) noexcept override {
        ++script.receives;
        answer(completion, /*is_receive*/ true);
    }
    void cancel() noexcept override {
        const std::lock_guard lock(lock_);
        is_cancelled_ = true;
        for (vell::WebSocketCompletion* completion : waiting_)
            complete_cancelled(*completion);
        waiting_.clear();
    }
    /// Completes the receive that waits.
    void deliver(const std::string& text) {
        std::unique_lock lock(lock_);
        vell::WebSocketCompletion* completion = waiting_.front();
        waiting_.pop_front();
        lock.unlock();
        finish(*completion, /*is_receive*/ true, text, {});
    }
    bool is_waited_for() {
        const std::lock_guard lock(lock_);
        return !waiting_.empty();
    }
    size_t max_message() const noexcept override { return limit_; }
    void set_max_message(size_t bytes) noexcept override {
        limit_ = bytes;
        ++script.limits_set;
    }
    void help_until(const std::atomic<bool>&, int64_t) noexcept override {}

private:
    void complete_cancelled(vell::WebSocketCompletion& completion) {
        threads_.emplace_back([&completion] {
            std::this_thread::yield();
            completion.complete({125, "Operation canceled", "", 1006}, nullptr);
        });
    }
    static void finish(vell::WebSocketCompletion& completion, bool is_receive, const std::string& text,
                       const vell::WebSocketError& error) {
        vell::WebSocketMessage message;
        message.kind = vell::MessageKind::text;
        std::copy(text.begin(), text.end(), message.bytes.prepare(text.size()));
        message.bytes.commit(text.size());
        completion.complete(error, is_receive && !error ? &message : nullptr);
    }
    void answer(vell::WebSocketCompletion& completion, bool is_receive) {
        const std::lock_guard lock(lock_);
        if (is_cancelled_) return complete_cancelled(completion);
        if (script.answer == Script::Answer::never_but_cancelled) return waiting_.push_back(&completion);
        const auto now = [&completion, is_receive, text = script.text, error = script.error] {
            finish(completion, is_receive, text, error);
        };
        if (script.answer == Script::Answer::later) {
            threads_.emplace_back(now);
        } else {
            now();
        }
    }
    std::mutex lock_;
    std::vector<std::thread> threads_;
    std::deque<vell::WebSocketCompletion*> waiting_;
    bool is_cancelled_ = false;
    size_t limit_ = 1 << 20;
};

ScriptedConnection* last_connection = nullptr;

std::unique_ptr<vell::WebSocketConnection> open_scripted(const vell::WebSocketRequest&, const vell::WebSocketLimits&) {
    if (script.cannot_open) return nullptr;
    ++script.opened;
    auto connection = std::make_unique<ScriptedConnection>();
    last_connection = connection.get();
    return connection;
}

class WebSocketLogic : public testing::Test {
protected:
    WebSocketLogic() : object(new WebSocketImpl(open_scripted)), socket(object) { script = {}; }
    ~WebSocketLogic() override {
        destroy();
        EXPECT_EQ(script.alive, 0);
    }
    void destroy() { VlWebSocket::Destroy(std::exchange(socket, nullptr)); }
    std::string receive() const {
        VlWebSocketData* message = nullptr;
        if (!socket->ReceiveData(message)) return "failed";
        std::string text = message->GetText();
        message->Release();
        return text;
    }
    WebSocketImpl* object;
    VlWebSocket* socket;
    const LogCapture log;
};

TEST_F(WebSocketLogic, NothingHappensWithoutATask) {
    char bytes[] = "x";
    EXPECT_FALSE(socket->SendData(bytes, 1) || socket->SendText("x") || socket->SetMaxDataSize(1));
    EXPECT_EQ(receive(), "failed");
    EXPECT_TRUE(socket->Disconnect());
    script.cannot_open = true;
    EXPECT_FALSE(socket->Connect("ws://x"));
    EXPECT_TRUE(object->session == nullptr && object->task == nullptr);
    EXPECT_EQ(log.line_count(), 0);
}

TEST_F(WebSocketLogic, ACompletionMayComeAtOnceOrFromAnotherThread) {
    ASSERT_TRUE(socket->Connect("ws://x"));
    for (const auto answer : {Script::Answer::at_once, Script::Answer::later}) {
        script.answer = answer;
        for (int i = 0; i < 50; ++i) {
            char bytes[] = "\0b";
            ASSERT_TRUE(socket->SendText("") && socket->SendData(bytes, 2) && socket->SendData(nullptr, 0));
            ASSERT_EQ(receive(), "hello");
            ASSERT_EQ(object->pending, 0);
        }
    }
    using std::string_literals::operator""s;
    ASSERT_GE(script.sent.size(), 3U);
    EXPECT_EQ(script.sent[0] + "," + script.sent[1] + "," + script.sent[2], "t:,b:\0b,b:"s);
}

TEST_F(WebSocketLogic, AFailureIsLoggedInTheOperationsNameAndDropsTheTask) {
    char bytes[] = "x";
    const struct {
        const char* name;
        bool (*operation)(VlWebSocket* socket, char* bytes);
    } operations[] = {{"SendData", [](VlWebSocket* s, char* b) { return s->SendData(b, 1); }},
                      {"SendText", [](VlWebSocket* s, char* b) { return s->SendText(b); }},
                      {"ReceiveData", [](VlWebSocket* s, char*) {
                           auto* message = reinterpret_cast<VlWebSocketData*>(1);
                           const bool is_received = s->ReceiveData(message);
                           EXPECT_EQ(message, reinterpret_cast<VlWebSocketData*>(1));
                           return is_received;
                       }}};
    for (const auto& [name, operation] : operations)
        for (const char* reason : {"", "because"}) {
            ASSERT_TRUE(socket->Connect("ws://x"));
            EXPECT_EQ(VlWebSocket::GetCloseCode(socket), 0);
            script.error = {-7, "It failed", reason, 1001};
            const size_t before = log.lines().size();
            EXPECT_FALSE(operation(socket, bytes));
            std::vector<std::string> lines = log.lines();
            lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
            std::vector<std::string> wanted = {"ERROR: WebSocket::" + std::string(name) + ": code: -7",
                                               "ERROR: description: It failed"};
            if (*reason != '\0') wanted.push_back("ERROR: reason: because");
            EXPECT_EQ(lines, wanted);
            EXPECT_TRUE(object->task == nullptr && object->session != nullptr);
            script.error = {};
            EXPECT_FALSE(operation(socket, bytes) || socket->SetMaxDataSize(1)) << "not before the next Connect";
            EXPECT_EQ(log.lines().size(), before + wanted.size());
            EXPECT_EQ(VlWebSocket::GetCloseCode(socket), 1001);
            char text[6];
            EXPECT_EQ(VlWebSocket::GetErrorText(socket, text, sizeof text), *reason != '\0' ? 19U : 9U);
            EXPECT_STREQ(text, "It fa");
        }
    EXPECT_EQ(script.alive, 1) << "each Connect closed the one before";
}

TEST_F(WebSocketLogic, TextsThatAreNotUtf8AndMissingBytesAreNotSent) {
    ASSERT_TRUE(socket->Connect("ws://x"));
    for (const char* text :
         {static_cast<const char*>(nullptr), "\xFF", "a\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
        EXPECT_FALSE(socket->SendText(text));
    EXPECT_FALSE(socket->SendData(nullptr, 1));
    EXPECT_TRUE(script.sent.empty());
    EXPECT_EQ(log.line_count(), 0);
    EXPECT_TRUE(socket->SendText("\xED\x9F\xBF")) << "the task is kept";
}

TEST_F(WebSocketLogic, TheLimitIsSetWhenItDiffers) {
    ASSERT_TRUE(socket->Connect("ws://x"));
    EXPECT_TRUE(socket->SetMaxDataSize(1 << 20));
    EXPECT_EQ(script.limits_set, 0);
    EXPECT_TRUE(socket->SetMaxDataSize(0) && socket->SetMaxDataSize(0));
    EXPECT_EQ(script.limits_set, 1);
}

TEST_F(WebSocketLogic, AMessageThatComesAfterTheTimeOutIsTheNextCalls) {
    ASSERT_TRUE(socket->Connect("ws://x"));
    script.answer = Script::Answer::never_but_cancelled;
    VlWebSocket::SetReceiveTimeOut(5);
    EXPECT_EQ(receive() + receive(), "failedfailed");
    EXPECT_EQ(object->pending, 1);
    EXPECT_EQ(script.receives, 1) << "one receive is under way";
    last_connection->deliver("late");
    EXPECT_EQ(object->pending, 0);
    EXPECT_EQ(receive(), "late");
    EXPECT_EQ(receive(), "failed");
    VlWebSocket::SetReceiveTimeOut(0);
    EXPECT_EQ(log.line_count(), 0);
    EXPECT_TRUE(socket->Disconnect()) << "with a receive that nobody waits for";
}

TEST_F(WebSocketLogic, EndingFromAnotherThreadFailsEveryWaitingCall) {
    for (const bool is_destroyed : {false, true}) {
        ASSERT_TRUE(socket->Connect("ws://x"));
        script.answer = Script::Answer::never_but_cancelled;
        std::vector<std::thread> waiting;
        for (int i = 0; i < 3; ++i) {
            waiting.emplace_back([this] { EXPECT_EQ(receive(), "failed"); });
            waiting.emplace_back([this] { EXPECT_FALSE(socket->SendText("x")); });
        }
        const auto users = [this] {
            mp_get_mutex(object->mutex);
            const uint32_t count = object->session->users;
            mp_release_mutex(object->mutex);
            return count;
        };
        while (!last_connection->is_waited_for() || users() < 2)
            std::this_thread::yield();
        EXPECT_TRUE(is_destroyed || socket->Disconnect());
        for (std::thread& thread : waiting)
            if (!is_destroyed) thread.join();
        if (is_destroyed) {
            // Calls that have not begun may not begin now.
            EXPECT_TRUE(socket->Disconnect());
            for (std::thread& thread : waiting)
                thread.join();
            destroy();
        }
        EXPECT_EQ(script.alive, 0);
    }
    EXPECT_TRUE(log.contains("description: Operation canceled"));
}

TEST(WebSocketData, TellsItsKindItsContentAndItsSize) {
    using std::string_literals::operator""s;
    const struct {
        vell::MessageKind kind;
        std::string bytes;
        unsigned long size;
        bool has_data;
    } cases[] = {{vell::MessageKind::text, "h\xC3\xA9llo", 6, true},
                 {vell::MessageKind::text, "a\0b"s, 1, true},
                 {vell::MessageKind::text, "", 0, true},
                 {vell::MessageKind::binary, "a\0b"s, 3, true},
                 {vell::MessageKind::binary, "", 0, false}};
    for (const auto& each : cases) {
        vell::WebSocketMessage message;
        message.kind = each.kind;
        std::copy(each.bytes.begin(), each.bytes.end(), message.bytes.prepare(each.bytes.size()));
        message.bytes.commit(each.bytes.size());
        VlWebSocketData* data = new WebSocketData(std::move(message));
        EXPECT_EQ(data->GetType(), each.kind == vell::MessageKind::text ? 2 : 1);
        EXPECT_EQ(data->GetSize(), each.size);
        EXPECT_EQ(data->GetData() != nullptr, each.has_data);
        EXPECT_EQ(data->GetText(), data->GetData());
        if (each.has_data) {
            EXPECT_EQ(std::memcmp(data->GetData(), each.bytes.c_str(), each.size), 0);
        }
        data->Release();
    }
}

}  // namespace
