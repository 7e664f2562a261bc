// What a server may send, and what the client makes of it: tables of handshakes and frames (RFC 6455).

#include <mutex>

#include "support/log_capture.h"
#include "tests/net/websocket_peer.h"

namespace {

using std::string_literals::operator""s;

TEST(WebSocketConformance, HandshakesAreWhatWasAskedFor) {
    constexpr const char* k_failed = "WebSocket handshake with 127.0.0.1";
    const auto with = [](const std::string& fields) {
        return [fields](const std::string& request) {
            std::string answer = accepting(request);
            return answer.insert(answer.find("\r\n") + 2, fields) + "\x81\x02ok";
        };
    };
    const auto instead = [](const std::string& old_text, const std::string& new_text) {
        return [old_text, new_text](const std::string& request) {
            std::string answer = accepting(request);
            return answer.replace(answer.find(old_text), old_text.size(), new_text) + "\x81\x02ok";
        };
    };
    const auto just = [](const std::string& answer) { return [answer](const std::string&) { return answer; }; };
    const struct {
        const char* label;
        std::function<std::string(const std::string& request)> answer;
        const char* logged;  // empty: works
    } cases[] = {
        {"usual", with(""), ""},
        {"other fields", with("Server: x\r\nDate: now\r\n"), ""},
        {"no extension in particular", with("Sec-WebSocket-Extensions: \r\n"), ""},
        {"names in other cases", instead("Upgrade: websocket", "upgrade: WebSocket"), ""},
        {"compression", with("Sec-WebSocket-Extensions: permessage-deflate\r\n"), k_failed},
        {"an unknown extension", with("sec-websocket-extensions: x-own; a=1\r\n"), k_failed},
        {"a second field", with("Sec-WebSocket-Extensions:\r\nSec-WebSocket-Extensions: x\r\n"), k_failed},
        {"a subprotocol", with("Sec-WebSocket-Protocol: chat\r\n"), k_failed},
        {"two keys", with("Sec-WebSocket-Accept: x\r\n"), k_failed},
        {"two protocols", instead("Upgrade: websocket", "Upgrade: websocket, h2c"), k_failed},
        {"another protocol", instead("Upgrade: websocket", "Upgrade: h2c"), k_failed},
        {"no upgrade", instead("Upgrade: websocket\r\n", ""), k_failed},
        {"no connection", instead("Connection: Upgrade\r\n", ""), k_failed},
        {"an older HTTP", instead("HTTP/1.1", "HTTP/1.0"), k_failed},
        {"another status", instead("101 Switching Protocols", "200 OK"), "HTTP status 200 OK"},
        {"wrong key", just(accepting("Sec-WebSocket-Key: x\r")), k_failed},
        {"missing", just("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n"), "HTTP status 404 Not Found"},
        {"moved", just("HTTP/1.1 301 Moved\r\nLocation: ws://x/\r\nContent-Length: 0\r\n\r\n"),
         "HTTP status 301 Moved"},
        {"no HTTP", just("SSH-2.0-OpenSSH_9.2\r\n"), k_failed},
        {"a header without an end", just("HTTP/1.1 101 Yes\r\nX: " + std::string(100'000, 'x')), k_failed},
        {"nothing", just(""), k_failed},
    };
    const ScriptedServer server(std::size(cases), [&cases](const TestSocket& socket, size_t index) {
        const std::string answer = cases[index].answer(socket.read_to("\r\n\r\n"));
        socket.write(answer);
        if (answer.empty()) socket.read_to("the end");
        if (*cases[index].logged == '\0') socket.read_to("\x88");
    });
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        const LogCapture log;
        Client client(server.url(), {.handshake_ms = each.label == "nothing"s ? 100 : 20'000});
        if (*each.logged == '\0') {
            EXPECT_EQ(client.receive(), "text: ok") << log.text();
            continue;
        }
        EXPECT_FALSE(client.socket->SendText("x"));
        const std::vector<std::string> lines = log.lines();
        ASSERT_EQ(lines.size(), 3U) << log.text();
        EXPECT_EQ(lines[0].rfind("ERROR: WebSocket::SendText: code: ", 0), 0U) << lines[0];
        EXPECT_EQ(lines[1].rfind("ERROR: description: ", 0), 0U) << lines[1];
        EXPECT_EQ(lines[2].rfind("ERROR: reason: ", 0), 0U) << lines[2];
        EXPECT_TRUE(log.contains(each.logged)) << log.text();
        EXPECT_NE(client.error().find(each.logged), std::string::npos) << client.error();
    }
}

std::string frame(unsigned char first, const std::string& payload) {
    const size_t size = payload.size();
    std::string head{static_cast<char>(first)};
    if (size < 126) return head + static_cast<char>(size) + payload;
    return head + "\x7E" + static_cast<char>(size >> 8) + static_cast<char>(size & 0xFF) + payload;
}

/// The code of the close frame among short masked frames; 0 when there is none, 1005 when it has no code.
int close_code_in(const std::string& frames) {
    for (size_t at = 0; at + 6 <= frames.size();) {
        const size_t size = frames[at + 1] & 0x7F;
        const auto byte = [&](size_t i) {
            return static_cast<unsigned char>(frames[at + 6 + i]) ^ static_cast<unsigned char>(frames[at + 2 + i % 4]);
        };
        if (frames[at] == '\x88') return size < 2 || at + 8 > frames.size() ? 1005 : byte(0) * 256 + byte(1);
        at += 6 + size;
    }
    return 0;
}

TEST(WebSocketConformance, FramesFollowTheRules) {
    constexpr unsigned char k_more_text = 0x01, k_more_data = 0x02, k_more = 0x00, k_last = 0x80, k_text = 0x81,
                            k_data = 0x82, k_close = 0x88, k_ping = 0x89, k_pong = 0x8A;
    const std::string bye = frame(k_close, "\x03\xE8");
    const struct {
        const char* label;
        std::string frames;
        std::vector<std::string> received;  // before the failure
        int close_code = 1000;              // that the client finds
        int answered = 1000;                // the code that the server gets; 0: none
    } cases[] = {
        {"a normal end", frame(k_text, "ok") + bye, {"text: ok"}},
        {"fragments", frame(k_more_text, "a") + frame(k_more, "b") + frame(k_last, "c") + bye, {"text: abc"}},
        {"empty fragments", frame(k_more_data, "") + frame(k_more, "a") + frame(k_last, "") + bye, {"binary: 61"}},
        {"a character in two fragments", frame(k_more_text, "\xC3") + frame(k_last, "\xA9") + bye, {"text: \xC3\xA9"}},
        {"a character, and an empty last fragment",
         frame(k_more_text, "\xC3\xA9") + frame(k_last, "") + bye,
         {"text: \xC3\xA9"}},
        {"a character around an empty fragment",
         frame(k_more_text, "\xF0\x9F") + frame(k_more, "") + frame(k_last, "\x8E\xAC") + bye,
         {"text: \xF0\x9F\x8E\xAC"}},
        {"pings between fragments",
         frame(k_more_text, "\xC3") + frame(k_ping, "x") + frame(k_pong, "") + frame(k_last, "\xA9") + bye,
         {"text: \xC3\xA9"}},
        {"a ping of 125 bytes", frame(k_ping, std::string(125, 'x')) + frame(k_text, "ok") + bye, {"text: ok"}},
        {"the last characters of UTF-8",
         frame(k_text, "\xF4\x8F\xBF\xBF\xEF\xBF\xBF\xED\x9F\xBF") + bye,
         {"text: \xF4\x8F\xBF\xBF\xEF\xBF\xBF\xED\x9F\xBF"}},
        {"bytes that are no text", frame(k_data, "\xFF") + bye, {"binary: ff"}},

        {"invalid UTF-8", frame(k_text, "\xC3("), {}, 1006, 1007},
        {"an overlong form", frame(k_text, "\xC0\x80"), {}, 1006, 1007},
        {"a surrogate", frame(k_text, "\xED\xA0\x80"), {}, 1006, 1007},
        {"above the last character", frame(k_text, "\xF4\x90\x80\x80"), {}, 1006, 1007},
        {"a lone continuation byte", frame(k_text, "\x80"), {}, 1006, 1007},
        {"a cut character at a text's end", frame(k_text, "ab\xC3"), {}, 1006, 1007},
        {"a cut character before an empty last fragment",
         frame(k_more_text, "ab\xC3") + frame(k_last, "") + frame(k_text, "\xA9") + bye,
         {},
         1006,
         1007},
        {"a cut character before a ping and an empty fragment",
         frame(k_more_text, "\xF0\x9F\x8E") + frame(k_ping, "") + frame(k_last, "") + bye,
         {},
         1006,
         1007},
        {"a cut character behind a whole message",
         frame(k_text, "ok") + frame(k_more_text, "\xC3") + frame(k_last, "") + bye,
         {"text: ok"},
         1006,
         1007},

        {"a masked frame", "\x81\x81\x01\x02\x03\x04x"s, {}, 1006, 1002},
        {"reserved bits", "\xC1\x01x"s, {}, 1006, 1002},
        {"an unknown kind", "\x83\x01x"s, {}, 1006, 1002},
        {"an unknown kind of control frame", "\x8B\x00"s, {}, 1006, 1002},
        {"a continuation of nothing", frame(k_last, "x"), {}, 1006, 1002},
        {"a message inside a message", frame(k_more_text, "x") + frame(k_text, "y"), {}, 1006, 1002},
        {"a ping in fragments", "\x09\x01x"s, {}, 1006, 1002},
        {"a ping of 126 bytes", frame(k_ping, std::string(126, 'x')), {}, 1006, 1002},
        {"a length in more bytes than it needs", "\x81\x7E\x00\x02ok"s, {}, 1006, 1002},
        {"a length of 2 to the 63rd", "\x82\x7F\x80\0\0\0\0\0\0\0x"s, {}, 1006, 0},
        {"a length that never comes", "\x82\x7F\0\0\0\xFF\0\0\0\0x"s, {}, 1006, 0},
        {"a close frame of one byte", frame(k_close, "\x03"), {}, 1006, 1002},
        {"a close code that is not sent", frame(k_close, "\x03\xED"), {}, 1006, 1002},
        {"a close code below 1000", frame(k_close, "\x03\xE7"), {}, 1006, 1002},
        {"a close reason that is no UTF-8", frame(k_close, "\x03\xE8\xC3"), {}, 1006, 1002},
        {"a close frame without a code", frame(k_close, ""), {}, 1005},
        {"a close code of the application's", frame(k_close, "\x0F\xA1"), {}, 4001, 4001},
        {"the end inside a frame",
         "\x81\x05"
         "ab"s,
         {},
         1006,
         0},
        {"the end inside a header", "\x81"s, {}, 1006, 0},
        {"the end inside a message", frame(k_more_text, "x"), {}, 1006, 0},
        {"the end without a closing handshake", frame(k_text, "ok") + frame(k_ping, ""), {"text: ok"}, 1006, 0},
    };
    std::mutex lock;
    std::string answered;
    bool has_answered = false;
    const ScriptedServer server(std::size(cases), [&](const TestSocket& socket, size_t index) {
        socket.write(accepting(socket.read_to("\r\n\r\n")) + cases[index].frames);
        shutdown(socket.descriptor(), SHUT_WR);
        const std::string frames = socket.read_to("the end");
        const std::lock_guard guard(lock);
        answered = frames;
        has_answered = true;
    });
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        const LogCapture log;
        {
            Client client(server.url(), {.handshake_ms = 20'000, .close_ms = 2000, .idle_ms = 20'000});
            EXPECT_TRUE(client.socket->SetMaxDataSize(~0UL));
            for (const std::string& wanted : each.received)
                EXPECT_EQ(client.receive(), wanted);
            EXPECT_EQ(client.receive(), "failed");
            EXPECT_GE(log.line_count(), 2) << log.text();
            EXPECT_EQ(client.close_code(), each.close_code);
        }
        for (bool is_over = false; !is_over; std::this_thread::yield()) {
            const std::lock_guard guard(lock);
            is_over = std::exchange(has_answered, false);
        }
        EXPECT_EQ(close_code_in(answered), each.answered);
    }
}

TEST(WebSocketConformance, ForeignWordsStayOnTheirLine) {
    const std::string words = "bye\r\nERROR: forged\x1b[2J\x7F \xC2\x9B \xE2\x80\xAE \\ \xC3\xA9";
    const std::string shown = "bye\\r\\nERROR: forged\\x1b[2J\\x7f \\xc2\\x9b \\xe2\\x80\\xae \\ \xC3\xA9";
    const struct {
        const char* label;
        std::string answer;  // empty: a handshake and a close frame
        std::string logged;
    } cases[] = {
        {"a close reason", "", "reason: " + shown},
        {"a status text",
         "HTTP/1.1 404 a\xFF\xC2\x9B"
         "b\r\nContent-Length: 0\r\n\r\n",
         "404 a\\xff\\xc2\\x9b"
         "b"},
    };
    const ScriptedServer server(std::size(cases), [&](const TestSocket& socket, size_t index) {
        const std::string request = socket.read_to("\r\n\r\n");
        const std::string& answer = cases[index].answer;
        socket.write(answer.empty() ? accepting(request) + frame(0x88, "\x03\xE8" + words) : answer);
        shutdown(socket.descriptor(), SHUT_WR);
        socket.read_to("the end");  // closed with bytes unread, the connection would be reset
    });
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        const LogCapture log;
        Client client(server.url());
        EXPECT_EQ(client.receive(), "failed");
        EXPECT_EQ(log.line_count(), 3) << log.text();
        EXPECT_TRUE(log.contains(each.logged)) << log.text();
        EXPECT_EQ(client.error().find_first_of("\r\n\x1b\x7F"), std::string::npos) << client.error();
    }
}

}  // namespace
