// The client against servers that lie, stall, drip and break off: a server of the test's own that says what it is told.

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "support/lying_server.h"
#include "tests/net/http_asking.h"

namespace {

const std::string k_ok = "HTTP/1.1 200 OK\r\n";

TEST(LyingServers, FailOrSucceedAtEveryByte) {
    const struct {
        std::string head, body;
        bool ends_with_connection;
    } cases[] = {
        {k_ok + "Content-Length: 12\r\n\r\n", "twelve bytes", false},
        {k_ok + "Transfer-Encoding: chunked\r\n\r\n", "7\r\ntwelve \r\n5;x=y\r\nbytes\r\n0\r\nX-Trailer: 1\r\n\r\n",
         false},
        {"HTTP/1.1 103 Early\r\nA: b\r\n\r\n" + k_ok + "\r\n", "twelve bytes", true},
    };
    for (const auto& each : cases) {
        const std::string whole = each.head + each.body;
        for (const bool is_reset : {false, true}) {
            std::atomic<size_t> length{0};
            const LyingServer server([&](Client& client) {
                client.say(whole.substr(0, length));
                if (is_reset) client.reset();
            });
            const std::string url = server.url();
            // Of the last line's end the line feed is not waited for.
            for (length = 0; length + 1 < whole.size(); ++length) {
                const std::string answer = ask(url);
                if (each.ends_with_connection && !is_reset && length >= each.head.size()) continue;  // may be the end
                EXPECT_NE(answer.find('!'), std::string::npos) << length << ": " << answer;
                Download download(url);
                EXPECT_LT(vl_http_download(download), 0) << length;
                EXPECT_TRUE(std::string("twelve bytes").starts_with(download.got)) << download.got;
            }
            length = whole.size();
            if (!is_reset) {
                EXPECT_EQ(ask(url), "200 twelve bytes");
            }
        }
    }
}

TEST(LyingServers, ThatNeverEndAreLeft) {
    const std::string block(1 << 20, 'x');
    const struct {
        const char* what;
        std::string head, again, answer;
    } cases[] = {
        {"fields", k_ok, "X-Field: " + block.substr(0, 1000) + "\r\n", "0 ! The header of the response is too long"},
        {"one field", k_ok + "X-Field: ", block, "0 ! Out of memory"},
        {"interim responses", "", "HTTP/1.1 100 Continue\r\n\r\n", "0 ! The header of the response is too long"},
        {"the text of a redirect", "HTTP/1.1 302 Found\r\nLocation: ftp://x/\r\n\r\n", block,
         "302 ! Redirect: Unsupported URL: neither http nor https"},
    };
    for (const auto& each : cases) {
        const LyingServer server([&each](Client& client) {
            for (bool goes_on = client.say(each.head); goes_on;)
                goes_on = client.say(each.again);
        });
        EXPECT_EQ(ask(server.url()), each.answer) << each.what;
    }
    const LyingServer server([&block](Client& client) {
        for (bool goes_on = client.say(k_ok + "\r\n"); goes_on;)
            goes_on = client.say(block);
    });
    const std::string url = server.url();
    Download download(url);
    download.wait = [](vl_http_transfer& now) { return now.offset < 5'000'000; };
    EXPECT_EQ(vl_http_download(download), VL_HTTP_STOPPED);
    EXPECT_EQ(download.got, std::string(download.offset, 'x'));
}

TEST(LyingServers, ThatFallSilentAreLeftAfterTheTimeOut) {
    constexpr unsigned k_limit_ms = 150;
    for (const std::string& said :
         {std::string(), std::string("HTTP/1.1 20"), k_ok + "A: b\r\n", k_ok + "Content-Length: 5\r\n\r\nab"}) {
        const LyingServer server([&said](Client& client) {
            client.say(said);
            client.stall();
        });
        const std::string status = said.ends_with("ab") ? "200 " : "0 ";
        EXPECT_EQ(ask(server.url(), k_limit_ms), status + "! Timed out: nothing came for 0.150 seconds") << said;
    }
}

TEST(LyingServers, ThatDoNotPickUpAreLeftAfterTheTimeOut) {
    const LoopbackPort port(SOCK_CLOEXEC, /*backlog*/ 0);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(port.socket_number(), reinterpret_cast<sockaddr*>(&address), &length);
    std::vector<int> waiting;  // fill the queue: the system answers no further connection
    for (int i = 0; i < 4; ++i) {
        waiting.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        connect(waiting.back(), reinterpret_cast<sockaddr*>(&address), length);
    }
    const std::string answer = ask("http://127.0.0.1:" + port.number() + "/", /*limit_ms*/ 150);
    // The transport's own watch or ours, whichever looks first: "Connection timeout after 150 ms", "Timed out: ...".
    EXPECT_TRUE(answer.find("imeout") != std::string::npos || answer.find("Timed out") != std::string::npos) << answer;
    for (const int each : waiting)
        close(each);
}

TEST(LyingServers, ThatAreSlowButAliveAreHeard) {
    constexpr unsigned k_limit_ms = 2000;
    const std::string response = k_ok + "Content-Length: 12\r\n\r\ntwelve bytes";
    const LyingServer server(
        [&response](Client& client) { client.drip(response, std::chrono::milliseconds(50)); });  // 2.6 s in all
    EXPECT_EQ(ask(server.url(), k_limit_ms), "200 twelve bytes");
}

TEST(LyingServers, ThatCloseKeptConnectionsAreAskedAgain) {
    const LyingServer server([](Client& client) { client.say(k_ok + "Content-Length: 2\r\n\r\nok"); });
    vl_http_socket http;
    const std::string url = server.url();
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(http.PostUrl(url.c_str(), VL_HTTP_PUT, "", 0, nullptr)) << http.LastErrorString();
}

}  // namespace
