// The client against a real web server.

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/nginx_server.h"
#include "support/temporary_folder.h"
#include "vellcore/http_client.h"

namespace {

const std::string k_locations = R"(
    location = /sent { return 200 "$request_method|$content_type|$content_length|$http_authorization|$http_x_e|$http_expect|$http_cache_control|$http_accept_encoding|$http_user_agent"; }
    location = /echo { proxy_set_header X-Body $request_body; proxy_pass $scheme://$server_addr:$server_port/body; }
    location = /body { return 200 "$http_x_body"; }
    location = /connection { return 200 "$connection"; }
    location = /proxied { return 200 "$host$request_uri"; }
    location = /404 { return 404 "not here"; }
    location = /500 { return 500 "broken"; }
    location = /empty { return 200 ""; }
    location = /204 { return 204; }
    location = /packed.txt { gzip on; gzip_min_length 1; gzip_types *; }
    location = /chunked.txt { sub_filter_types *; sub_filter nothing nothing; }
    location = /slow.bin { limit_rate 2m; }
    location ~ ^/hop/x(x*)$ { return 302 ../hop/$1; }
    location = /hop/ { return 200 "end"; }
    location = /loop { return 302 /loop; }
    location = /to-file { return 302 file:///etc/passwd; }
    location = /to-nowhere { return 302 http://; }
    location = /301 { return 301 /sent; }
    location = /303 { return 303 /sent; }
    location = /307 { return 307 /sent; }
    location = /elsewhere { return 302 http://localhost:$server_port/sent; }
    location = /elsewhere-too { return 302 http://localhost:$server_port/proxied; }
    location = /refresh { add_header Refresh "0; url=/sent"; return 200 "stay"; }
)";

void forget_proxies() {
    for (const char* name :
         {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"})
        unsetenv(name);
}

class HttpServer : public testing::Test {
public:
    HttpServer() { forget_proxies(); }

    /// "status body", "status -" for no body, or "status ! error".
    static std::string ask(const std::string& url, int type = VL_HTTP_GET, const char* body = nullptr,
                           const char* header = nullptr) {
        vl_http_socket http;
        http.SetSecureFlag(false);  // changes nothing
        unsigned long long size = 0;
        const unsigned char* data =
            http.GetHttpData(url.c_str(), static_cast<vl_http_request_type>(type), body, -1, header, &size);
        const std::string status = std::to_string(http.GetStatusCode()) + " ";
        if (*http.LastErrorString() != '\0') return status + "! " + http.LastErrorString();
        if (data == nullptr) return status + "-";
        EXPECT_EQ(data[size], 0);
        return status + std::string(reinterpret_cast<const char*>(data), size);
    }

    NginxServer server{k_locations};
};

TEST_F(HttpServer, SendsWhatTheCallerWrote) {
    const struct {
        int type;
        const char *body, *header, *sent;
    } cases[] = {
        {VL_HTTP_GET, "unused", "Authorization:unused", "GET||||||no-cache|gzip, deflate|VellCore/1.0.0"},
        {VL_HTTP_POST, "a=1", nullptr,
         "POST|application/x-www-form-urlencoded|3||||no-cache|gzip, deflate|VellCore/1.0.0"},
        {VL_HTTP_POST, "a=1", "X-Url:a:b", "POST||3||||no-cache|gzip, deflate|VellCore/1.0.0"},
        {VL_HTTP_PUT, nullptr, "Authorization:Bearer x", "PUT||0|Bearer x|||no-cache|gzip, deflate|VellCore/1.0.0"},
        {VL_HTTP_PATCH, "ab", "Authorization: Bearer x", "PATCH||2|Bearer x|||no-cache|gzip, deflate|VellCore/1.0.0"},
        {VL_HTTP_DELETE, "", "X-E:", "DELETE||0||||no-cache|gzip, deflate|VellCore/1.0.0"},
        {7, "abc", "Content-Type:text/plain", "PUT|text/plain|3||||no-cache|gzip, deflate|VellCore/1.0.0"},
        {VL_HTTP_POST, "abc", "cache-control:max-age=0", "POST||3||||max-age=0|gzip, deflate|VellCore/1.0.0"},
        {VL_HTTP_POST, "abc", "Content-Length:77", "POST||3||||no-cache|gzip, deflate|VellCore/1.0.0"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(ask(server.url("/sent"), each.type, each.body, each.header), std::string("200 ") + each.sent);
    EXPECT_EQ(ask(server.url("/echo"), VL_HTTP_POST, "a=1&b=\"2\""), "200 a=1&b=\"2\"");
    EXPECT_EQ(ask(server.url("/echo"), VL_HTTP_PUT, ""), "200 -") << "an empty body is no null pointer";
    const std::string large(3 << 20, 'x');  // above the size from which permission is asked for as a rule
    EXPECT_EQ(ask(server.url("/sent"), VL_HTTP_POST, large.c_str(), "X-E:a"),
              "200 POST||3145728||a||no-cache|gzip, deflate|VellCore/1.0.0");
}

TEST_F(HttpServer, AnswersWithWhatCame) {
    const std::string text(100000, 'z');
    server.folder().write("www/packed.txt", text);
    server.folder().write("www/chunked.txt", text);
    const struct {
        const char* path;
        std::string answer;
    } cases[] = {
        {"/index.html", "200 hello"},
        {"/missing", "404 <html>"},
        {"/404", "404 not here"},
        {"/500", "500 broken"},
        {"/empty", "200 -"},
        {"/204", "204 -"},
        {"/packed.txt", "200 " + text},
        {"/chunked.txt", "200 " + text},
        {"/refresh", "200 stay"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(ask(server.url(each.path)).substr(0, each.answer.size()), each.answer) << each.path;
}

TEST_F(HttpServer, FollowsRedirects) {
    const std::string tail = "||||||no-cache|gzip, deflate|VellCore/1.0.0";
    EXPECT_EQ(ask(server.url("/hop/" + std::string(20, 'x'))), "200 end");
    EXPECT_EQ(ask(server.url("/hop/" + std::string(21, 'x'))), "302 ! Redirect: More than 20 redirects in a row");
    EXPECT_EQ(ask(server.url("/loop")), "302 ! Redirect: More than 20 redirects in a row");
    EXPECT_EQ(ask(server.url("/to-file")), "302 ! Redirect: Unsupported URL: neither http nor https");
    EXPECT_EQ(ask(server.url("/to-nowhere")).substr(0, 5), "302 !");
    for (const char* path : {"/301", "/303"})
        EXPECT_EQ(ask(server.url(path), VL_HTTP_POST, "a=1"), "200 GET" + tail) << path;
    EXPECT_EQ(ask(server.url("/307"), VL_HTTP_POST, "a=1", "X-E:e"),
              "200 POST||3||e||no-cache|gzip, deflate|VellCore/1.0.0");
    for (const char* path : {"/301", "/307"})
        EXPECT_EQ(ask(server.url(path), VL_HTTP_PUT, "body", "Authorization:me"),
                  "200 PUT||4|me|||no-cache|gzip, deflate|VellCore/1.0.0");
    EXPECT_EQ(ask(server.url("/303"), VL_HTTP_DELETE, "body", "Authorization:me"),
              "200 GET|||me|||no-cache|gzip, deflate|VellCore/1.0.0");
    EXPECT_EQ(ask(server.url("/elsewhere"), VL_HTTP_PUT, "body", "Authorization:me"),
              "200 PUT||4||||no-cache|gzip, deflate|VellCore/1.0.0")
        << "another host is not told who the user is";
}

TEST_F(HttpServer, IsAskedUnderTheNameThatTheCallerWrote) {
    EXPECT_EQ(ask(server.url("/proxied"), VL_HTTP_PUT, "", "Host:gantry"), "200 gantry/proxied");
    EXPECT_EQ(ask(server.url("/elsewhere-too"), VL_HTTP_PUT, "", "Host:gantry"), "200 localhost/proxied");
}

TEST(HttpEncryption, TrustsTheRightCertificateForTheRightHostOnly) {
    forget_proxies();
    const NginxServer server("", NginxServer::Encryption::also);
    const struct {
        const char *authority, *host, *answer;
    } cases[] = {
        {"ca.pem", "localhost", "200 hello"},
        {"other.pem", "localhost", "0 ! SSL certificate problem: unable to get local issuer certificate"},
        {"ca.pem", "127.0.0.1",
         "0 ! SSL: no alternative certificate subject name matches target host name '127.0.0.1'"},
    };
    for (const auto& each : cases) {
        setenv("SSL_CERT_FILE", (server.folder() / each.authority).c_str(), 1);
        EXPECT_EQ(HttpServer::ask(server.encrypted_url(each.host, "/index.html")), each.answer) << each.authority;
    }
}

TEST_F(HttpServer, KeepsConnectionsForEachObject) {
    const std::string url = server.url("/connection");
    vl_http_socket first, second;
    const auto connection = [&url](vl_http_socket& http) {
        const unsigned char* data = http.GetHttpData(url.c_str(), VL_HTTP_GET, nullptr, 0, nullptr, nullptr);
        return std::string(data != nullptr ? reinterpret_cast<const char*>(data) : http.LastErrorString());
    };
    const std::string of_first = connection(first), of_second = connection(second);
    EXPECT_NE(of_first, of_second);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(connection(first), of_first);
        EXPECT_EQ(connection(second), of_second);
    }
    const pid_t child = fork();
    if (child == 0) _exit(connection(first) == of_first ? 1 : 0);  // it would talk into the parent's connection
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(connection(first), of_first);

    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 12; ++i) {
        threads.emplace_back([&] {
            vl_http_socket own;
            const std::string mine = connection(own);
            for (int k = 0; k < 20; ++k)
                good += connection(own) == mine ? 1 : 0;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 12 * 20);
}

TEST_F(HttpServer, GoesThroughTheProxyOfTheEnvironment) {
    setenv("http_proxy", server.url("").c_str(), 1);
    setenv("no_proxy", "127.0.0.1", 1);
    EXPECT_EQ(ask("http://gantry.invalid/proxied?x"), "200 gantry.invalid/proxied?x");
    EXPECT_EQ(ask(server.url("/proxied")), "200 127.0.0.1/proxied");
}

TEST_F(HttpServer, LoadsFiles) {
    const TemporaryFolder folder;
    const std::string path = folder / "page", absent = folder / "absent/page";
    LogCapture log;
    EXPECT_TRUE(vl_http_socket::ReadFile(server.url("/index.html").c_str(), path.c_str()));
    EXPECT_EQ(read_whole_file(path), "hello");
    for (const char* answer : {"/404", "/empty"})
        EXPECT_FALSE(vl_http_socket::ReadFile(server.url(answer).c_str(), (folder / "none").c_str())) << answer;
    EXPECT_FALSE(vl_http_socket::ReadFile(nullptr, path.c_str()));
    EXPECT_FALSE(vl_http_socket::ReadFile("gopher://x", path.c_str()));
    EXPECT_FALSE(std::filesystem::exists(folder / "none"));
    EXPECT_EQ(read_whole_file(path), "hello");
    EXPECT_FALSE(vl_http_socket::ReadFile(server.url("/index.html").c_str(), absent.c_str()));
    EXPECT_FALSE(vl_http_socket::ReadFile(server.url("/index.html").c_str(), "/dev/full"));

    EXPECT_FALSE(vl_http_socket::WriteFile(server.url("/index.html").c_str(), absent.c_str())) << "silent";
    EXPECT_FALSE(vl_http_socket::WriteFile(server.url("/404").c_str(), path.c_str()));
    EXPECT_FALSE(vl_http_socket::WriteFile(nullptr, path.c_str()));
    const std::string failed = "ERROR: HTTP: File loader failed: ";
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{failed + "code 404 []", failed + "code 200 []", failed + "code 0 []",
                                        failed + "code 0 [Unsupported URL: neither http nor https]",
                                        failed + "Can't write '" + absent + "'", failed + "Can't write '/dev/full'",
                                        failed + "code 404 []", failed + "code 0 []"}));
}

TEST_F(HttpServer, DownloadsGoOnWhileTheFileIsTheSame) {
    std::string whole(3'000'001, '\0'), got;
    for (size_t i = 0; i < whole.size(); ++i)
        whole[i] = static_cast<char>(i * 7 / 3);
    server.folder().write("www/clip.mov", whole);
    const std::string url = server.url("/clip.mov");
    vl_http_transfer transfer;
    transfer.url = url.c_str();
    transfer.context = &got;
    transfer.begin = [](vl_http_transfer& now) {
        static_cast<std::string*>(now.context)->resize(now.offset);
        return true;
    };
    transfer.data = [](vl_http_transfer& now, const void* bytes, size_t length) {
        auto& all = *static_cast<std::string*>(now.context);
        all.append(static_cast<const char*>(bytes), length);
        return all.size() < 1'000'000 || all.size() >= 2'000'000;  // the caller has enough for now
    };
    int calls = 1;
    for (; vl_http_download(transfer) == VL_HTTP_STOPPED; ++calls)
        EXPECT_EQ(transfer.offset, got.size());
    EXPECT_GT(calls, 20) << "one for every piece of the second megabyte";
    EXPECT_TRUE(got == whole);
    EXPECT_EQ(transfer.size, whole.size());
    EXPECT_EQ(vl_http_download(transfer), VL_HTTP_DONE) << "nothing is left to be sent";
    EXPECT_EQ(transfer.status, 416);
    EXPECT_TRUE(got == whole);

    got.resize(transfer.offset = 2'500'000);
    server.folder().write("www/clip.mov", whole.replace(0, 4, "new "));
    std::filesystem::last_write_time(server.folder() / "www/clip.mov",
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    while (vl_http_download(transfer) == VL_HTTP_STOPPED) {
    }
    EXPECT_TRUE(got == whole) << "began anew";

    const std::string missing = server.url("/missing");
    transfer.url = missing.c_str();
    EXPECT_EQ(vl_http_download(transfer), VL_HTTP_REFUSED);
    EXPECT_STREQ(transfer.error_text, "The server answers with status 404");
}

}  // namespace
