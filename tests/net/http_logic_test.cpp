// What the client makes of its callers' words and of a transport's answers, with a transport that follows a script.

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "net/body_buffer.h"
#include "net/content_range.h"
#include "platform/http_transport.h"
#include "vellcore/http_client.h"

namespace {

/// The script, and what was asked for.
struct Script {
    vell::HttpHead head;
    std::vector<std::string> pieces;
    vell::HttpResult result{vell::HttpEnd::complete, ""};
    std::vector<vell::HttpRequest> requests;
} script;

class ScriptedTransport final : public vell::HttpTransport {
public:
    vell::HttpResult send(const vell::HttpRequest& request, vell::HttpSink& sink) noexcept override {
        script.requests.push_back(request);
        if (script.head.status == 0) return script.result;
        bool goes_on = sink.begin(script.head);
        for (size_t i = 0; i < script.pieces.size() && goes_on; ++i)
            goes_on = sink.take(script.pieces[i].data(), script.pieces[i].size()) && sink.goes_on();
        return goes_on ? script.result : vell::HttpResult{vell::HttpEnd::stopped, ""};
    }
};

class HttpLogic : public testing::Test {
protected:
    void SetUp() override {
        script = {};
        script.head.status = 200;
        vell::make_http_transport =
            +[]() noexcept -> std::unique_ptr<vell::HttpTransport> { return std::make_unique<ScriptedTransport>(); };
    }
    vl_http_socket http;
    const char* const url = "http://gantry/";
};

TEST_F(HttpLogic, TakesTheLargerOfTwoTimeOuts) {
    const struct {
        unsigned second, third;
        int64_t limit_ms;
    } cases[] = {{5000, 2000, 5000}, {2000, 5000, 5000}, {0, 0, 60000}, {1, 0, 1}, {0, 4294967295U, 2147483647}};
    EXPECT_TRUE(http.OpenUrl(url));
    EXPECT_EQ(script.requests.back().idle_limit_ms, 300000);
    for (const auto& each : cases) {
        EXPECT_TRUE(http.SetTimeOut(1, each.second, each.third));
        EXPECT_TRUE(http.OpenUrl(url));
        EXPECT_EQ(script.requests.back().idle_limit_ms, each.limit_ms);
    }
}

TEST_F(HttpLogic, SendsBodiesOfEveryKindOfLength) {
    const struct {
        const char* body;
        int length;
        std::string sent;
    } cases[] = {{"a=1", -1, "a=1"}, {"a\0b", 3, {"a\0b", 3}}, {"abc", 2, "ab"}, {"abc", 0, ""},
                 {"abc", -2, ""},    {nullptr, -1, ""},        {nullptr, 5, ""}, {"", -1, ""}};
    for (const auto& each : cases) {
        EXPECT_EQ(http.PutHttpData(url, "unused", 6, VL_HTTP_PATCH, each.body, each.length, nullptr), 0);
        const vell::HttpRequest& request = script.requests.back();
        EXPECT_TRUE(request.has_body);
        EXPECT_EQ(std::string(static_cast<const char*>(request.body_bytes > 0 ? request.body : ""), request.body_bytes),
                  each.sent);
    }
    EXPECT_TRUE(http.PostUrl(url, VL_HTTP_GET, "abc", -1, "X: y "));
    EXPECT_FALSE(script.requests.back().has_body);
    EXPECT_EQ(script.requests.back().fields.back().value, " y ");
}

TEST_F(HttpLogic, RefusesWhatMustNotBeSent) {
    script.pieces = {"kept"};
    const auto* kept = http.GetHttpData(url, VL_HTTP_GET, nullptr, 0, nullptr, nullptr);
    ASSERT_NE(kept, nullptr);
    for (const char* bad : {"", "not a url", "host/x", "file:///etc/passwd", "ftp://x/", "http://a b/",
                            "http://a/\r\nX:y", "http://a/\x7f", "http://a/\xC3\xA4", "\thttp://a/"}) {
        EXPECT_FALSE(http.PostUrl(bad, VL_HTTP_POST, "", 0, nullptr)) << bad;
        EXPECT_STRNE(http.LastErrorString(), "") << bad;
    }
    for (const char* bad : {"X:y\r\nZ:z", "X:y\n", "X\r:y", ":y", ":", "X:\x01", "X:\xC3\xA4", "no colon\r\nX"})
        EXPECT_FALSE(http.PostUrl(url, VL_HTTP_POST, "", 0, bad)) << bad;
    EXPECT_FALSE(http.OpenUrl(nullptr));
    EXPECT_EQ(script.requests.size(), 1U);
    EXPECT_EQ(http.GetStatusCode(), 200) << "of the last response";
    EXPECT_STREQ(reinterpret_cast<const char*>(kept), "kept");
    EXPECT_EQ(http.PutHttpData(nullptr, nullptr, 0, VL_HTTP_PUT, nullptr, 0, nullptr), -1);
    EXPECT_EQ(http.GetStatusCode(), 0);
}

TEST_F(HttpLogic, KeepsTheLastResponseUntilTheNextSuccess) {
    unsigned long long size = 77;
    script.pieces = {"two ", "pieces"};
    EXPECT_STREQ(reinterpret_cast<char*>(http.GetHttpData(url, VL_HTTP_GET, nullptr, 0, nullptr, &size)), "two pieces");
    EXPECT_EQ(size, 10U);

    script.result = {vell::HttpEnd::failed, "cut \xC3\xA4 " + std::string(300, 'x')};
    script.head.status = 500;
    EXPECT_EQ(http.GetHttpData(url, VL_HTTP_POST, nullptr, -1, nullptr, &size), nullptr);
    EXPECT_EQ(http.GetStatusCode(), 500) << "of the response that was cut";
    EXPECT_EQ(http.LastErrorString(), "cut ?? " + std::string(248, 'x')) << "255 bytes of ASCII";
    EXPECT_EQ(size, 10U);
    script.head.status = 0;
    EXPECT_FALSE(http.OpenUrl(url));
    EXPECT_EQ(http.GetStatusCode(), 500) << "no response came";

    script.result = {vell::HttpEnd::complete, ""};
    script.head.status = 204;
    script.pieces.clear();
    EXPECT_TRUE(http.OpenUrl(url));
    EXPECT_EQ(http.GetHttpData(url, VL_HTTP_GET, nullptr, 0, nullptr, &size), nullptr) << "an empty body";
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(std::string(http.LastErrorString()).substr(0, 4), "cut ") << "a success does not clear it";
    http.SetStatusCode();
    EXPECT_EQ(http.GetStatusCode(), 204);
}

TEST_F(HttpLogic, TreatsABodyThatIsTooLargeAsNone) {
    script.head.lines = "content-length:\t4294967296 \r\n";
    script.pieces = {"begun"};
    EXPECT_EQ(http.GetHttpData(url, VL_HTTP_GET, nullptr, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(http.GetStatusCode(), 200);
    EXPECT_STREQ(http.LastErrorString(), "");
    EXPECT_TRUE(http.OpenUrl(url));

    for (const uint64_t limit : {uint64_t{40000}, uint64_t{39999}}) {
        vell::BodyBuffer body(limit);
        EXPECT_TRUE(body.expect(5)) << "less than what comes";
        const std::string piece(10000, 'p');
        int added = 0;
        while (added < 4 && body.add(piece.data(), piece.size()))
            ++added;
        uint64_t bytes = 0;
        unsigned char* memory = body.release(bytes);
        EXPECT_EQ(bytes, limit == 40000 ? 40000U : 0U);
        EXPECT_EQ(memory != nullptr, limit == 40000);
        std::free(memory);
    }
}

TEST(ContentRange, IsReadStrictly) {
    const struct {
        const char *text, *read;
    } cases[] = {
        {"bytes 0-0/1", "0-0/1"},
        {"BYTES 5-9/10", "5-9/10"},
        {"bytes 5-9/*", "5-9/?"},
        {"bytes */10", "-/10"},
        {"bytes */*", "-/?"},
        {"bytes 5-10/10", "none"},
        {"bytes 9-5/10", "none"},
        {"bytes -5/10", "none"},
        {"bytes 5-/10", "none"},
        {"bytes 5-9", "none"},
        {"bytes 5-9/", "none"},
        {"bytes 5 -9/10", "none"},
        {"bytes +5-9/10", "none"},
        {"lines 5-9/10", "none"},
        {"bytes", "none"},
        {"", "none"},
        {"bytes 0-18446744073709551615/*", "none"},
        {"bytes 0-18446744073709551616/*", "none"},
        {"bytes 5-9/10 ", "none"},
    };
    for (const auto& each : cases) {
        const auto range = vell::parse_content_range(each.text);
        const auto number = [](uint64_t value) {
            return value == vell::k_unknown_length ? std::string("?") : std::to_string(value);
        };
        std::string read = "none";
        if (range) {
            read = range->has_part ? number(range->first) + "-" + number(range->last) : "-";
            read += "/" + number(range->size);
        }
        EXPECT_EQ(read, each.read) << each.text;
    }
}

}  // namespace
