// The client against servers that lie, stall, drip and break off: a server of the test's own that says what it is told.

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "support/lying_server.h"
#include "vellcore/http_client.h"

namespace {

/// "status body", "status -" for no body, or "status ! error".
std::string ask(const std::string& url, unsigned limit_ms = 30000) {
    vl_http_socket http;
    http.SetTimeOut(0, limit_ms, 0);
    unsigned long long size = 0;
    const unsigned char* data = http.GetHttpData(url.c_str(), VL_HTTP_GET, nullptr, 0, nullptr, &size);
    const std::string status = std::to_string(http.GetStatusCode()) + " ";
    if (*http.LastErrorString() != '\0') return status + "! " + http.LastErrorString();
    return data == nullptr ? status + "-" : status + std::string(reinterpret_cast<const char*>(data), size);
}

/// A download that keeps what came.
struct Download : vl_http_transfer {
    explicit Download(const std::string& address) {
        url = address.c_str();
        context = this;
        data = [](vl_http_transfer& now, const void* bytes, size_t length) {
            static_cast<Download*>(now.context)->got.append(static_cast<const char*>(bytes), length);
            return true;
        };
    }
    std::string got;
};

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

TEST(LyingServers, AreNotBelieved) {
    const struct {
        const char* what;
        std::string said, answer;
    } cases[] = {
        {"more than announced", k_ok + "Content-Length: 3\r\n\r\nabcdef", "200 abc"},
        {"less than announced", k_ok + "Content-Length: 7\r\n\r\nabc",
         "200 ! transfer closed with 4 bytes remaining to read"},
        {"a terabyte", k_ok + "Content-Length: 1099511627776\r\n\r\nabc", "200 -"},
        {"4 GiB less one byte", k_ok + "Content-Length: 4294967295\r\n\r\nabc",
         "200 ! transfer closed with 4294967292 bytes remaining to read"},
        {"a length that is none", k_ok + "Content-Length: -5\r\n\r\nabc", "0 ! Invalid Content-Length: value"},
        {"a length beyond counting", k_ok + "Content-Length: 99999999999999999999\r\n\r\nabc", "200 abc"},
        {"a chunk without a length", k_ok + "Transfer-Encoding: chunked\r\n\r\nxyz\r\n",
         "200 ! Illegal or missing hexadecimal sequence in chunked-encoding"},
        {"not packed", k_ok + "Content-Encoding: gzip\r\nContent-Length: 3\r\n\r\nabc",
         "200 ! Error while processing content unencoding: incorrect header check"},
        {"no HTTP", "SSH-2.0-OpenSSH\r\n", "0 ! Received HTTP/0.9 when not allowed"},
        {"a redirect without a place", "HTTP/1.1 302 Found\r\nContent-Length: 2\r\n\r\nhi", "302 hi"},
        {"a redirect into nothing", "HTTP/1.1 302 Found\r\nLocation:\r\nContent-Length: 2\r\n\r\nhi", "302 hi"},
    };
    for (const auto& each : cases) {
        const LyingServer server([&each](Client& client) { client.say(each.said); });
        EXPECT_EQ(ask(server.url()), each.answer) << each.what;
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

TEST(LyingServers, ThatSendTheWrongPartAreAskedForTheWhole) {
    const std::string whole = k_ok + "ETag: \"v1\"\r\nContent-Length: 10\r\n\r\n0123456789";
    const auto part = [](const std::string& fields, const std::string& body) {
        return "HTTP/1.1 206 Partial Content\r\n" + fields + "Content-Length: " + std::to_string(body.size()) +
               "\r\n\r\n" + body;
    };
    const struct {
        const char* what;
        std::string said;
        int32_t result;
        std::string got;  // behind the four bytes "abcd" that were there; without them when it began anew
    } cases[] = {
        {"right", part("Content-Range: bytes 4-9/10\r\nETag: \"v1\"\r\n", "456789"), VL_HTTP_DONE, "abcd456789"},
        {"no version", part("Content-Range: bytes 4-9/10\r\n", "456789"), VL_HTTP_DONE, "abcd456789"},
        {"short", part("Content-Range: bytes 4-5/10\r\n", "45"), VL_HTTP_CUT, "abcd45"},
        {"long", part("Content-Range: bytes 4-9/10\r\n", "456789AB"), VL_HTTP_FAILED, "abcd"},
        {"another version", part("Content-Range: bytes 4-9/10\r\nETag: \"v2\"\r\n", "456789"), VL_HTTP_DONE,
         "0123456789"},
        {"another size", part("Content-Range: bytes 4-10/11\r\n", "456789A"), VL_HTTP_DONE, "0123456789"},
        {"another place", part("Content-Range: bytes 3-9/10\r\n", "3456789"), VL_HTTP_DONE, "0123456789"},
        {"no place", part("", "456789"), VL_HTTP_DONE, "0123456789"},
        {"a place that is none", part("Content-Range: bytes 9-4/10\r\n", "456789"), VL_HTTP_DONE, "0123456789"},
        {"the whole", whole, VL_HTTP_DONE, "0123456789"},
        {"beyond the end", "HTTP/1.1 416 No\r\nContent-Range: bytes */2\r\nContent-Length: 0\r\n\r\n", VL_HTTP_DONE,
         "0123456789"},
        {"at the end", "HTTP/1.1 416 No\r\nContent-Range: bytes */4\r\nContent-Length: 2\r\n\r\nno", VL_HTTP_DONE,
         "0123456789"},
        {"an error", "HTTP/1.1 503 No\r\nContent-Length: 2\r\n\r\nno", VL_HTTP_REFUSED, "abcd"},
    };
    for (const auto& each : cases) {
        int requests = 0;
        const LyingServer server([&](Client& client) { client.say(++requests == 1 ? each.said : whole); });
        const std::string url = server.url();
        Download download(url);
        download.got = "abcd";
        download.offset = 4;
        download.size = 10;
        std::strcpy(download.version, "\"v1\"");
        download.begin = [](vl_http_transfer& now) {
            static_cast<Download*>(now.context)->got.resize(now.offset);
            return true;
        };
        EXPECT_EQ(vl_http_download(download), each.result) << each.what;
        EXPECT_EQ(download.got, each.got) << each.what;
        EXPECT_EQ(download.offset, each.got.size()) << each.what;
    }
}

}  // namespace
