// What a response says, and what the client makes of it: tables of responses (RFC 9110, RFC 9112, RFC 1950 to 1952).

#include <zlib.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/http_transport.h"
#include "support/log_capture.h"
#include "support/lying_server.h"
#include "support/temporary_folder.h"
#include "tests/net/http_asking.h"
#include "vellcore/startup.h"

namespace {

using std::string_literals::operator""s;

const std::string k_ok = "HTTP/1.1 200 OK\r\n";

/// The code of a failure without its text: "200 !".
std::string outcome(const std::string& answer) {
    const size_t mark = answer.find(" !");
    return mark == std::string::npos ? answer : answer.substr(0, mark + 2);
}

struct Case {
    const char* label;
    std::string response;  // the server closes the connection after it
    std::string answer;    // of a request; of a failure only its status and "!"
    int32_t download = VL_HTTP_DONE;
};

void expect_answers(const std::vector<Case>& cases) {
    for (const Case& each : cases) {
        SCOPED_TRACE(each.label);
        const LyingServer server([&each](Client& client) { client.say(each.response); });
        const std::string url = server.url();
        EXPECT_EQ(outcome(ask(url)), each.answer);
        Download download(url);
        EXPECT_EQ(vl_http_download(download), each.download) << download.error_text;
        const bool fails = each.answer.ends_with('!');
        const TemporaryFolder folder;
        const LogCapture log;
        const bool is_loaded = vl_http_socket::ReadFile(url.c_str(), (folder / "file").c_str());
        EXPECT_EQ(is_loaded, !fails && each.answer.starts_with("200 ") && each.answer != "200 -");
        EXPECT_EQ(read_whole_file(folder / "file"), is_loaded ? each.answer.substr(4) : "");
    }
}

TEST(HttpConformance, LengthsAreWhatTheySay) {
    const auto with_length = [](const std::string& value) {
        return k_ok + "Content-Length: " + value + "\r\n\r\ntwelve bytes";
    };
    constexpr int32_t k_failed = VL_HTTP_FAILED, k_cut = VL_HTTP_CUT;
    expect_answers({
        {"exact", with_length("12"), "200 twelve bytes"},
        {"zeros in front", with_length("0012"), "200 twelve bytes"},
        {"more than announced", with_length("6"), "200 twelve"},
        {"none announced", with_length("0"), "200 -"},
        {"less than announced", with_length("13"), "200 !", k_cut},
        {"a terabyte", with_length("1099511627776"), "200 -", k_cut},
        {"4 GiB less one byte", with_length("4294967295"), "200 !", k_cut},
        {"2 to the 63rd", with_length("9223372036854775808"), "200 -", k_cut},
        {"2 to the 64th", with_length("18446744073709551616"), "200 !", k_failed},
        {"twenty digits", with_length("99999999999999999999"), "200 !", k_failed},
        {"a plus sign", with_length("+12"), "200 !", k_failed},
        {"a minus sign", with_length("-5"), "0 !", k_failed},
        {"spaces inside", with_length("1 2"), "200 !", k_failed},
        {"hexadecimal", with_length("0xC"), "200 !", k_failed},
        {"letters behind", with_length("12abc"), "200 !", k_failed},
        {"a fraction", with_length("12.0"), "200 !", k_failed},
        {"empty", with_length(""), "0 !", k_failed},
        {"no number", with_length("twelve"), "0 !", k_failed},
        {"twice the same in one field", with_length("12, 12"), "200 twelve bytes"},
        {"twice the same in two fields", with_length("12\r\nContent-Length: 12"), "200 twelve bytes"},
        {"two values in one field", with_length("12, 6"), "200 !", k_failed},
        {"two values in two fields", with_length("6\r\nContent-Length: 12"), "200 !", k_failed},
        {"two values in two fields, the other way", with_length("12\r\ncontent-length: 6"), "200 !", k_failed},
        {"a comma behind", with_length("12,"), "200 !", k_failed},
        {"a folded line", with_length("1\r\n 2"), "200 !", k_failed},
        {"a blank before the colon", k_ok + "Content-Length : 100\r\n\r\ntwelve bytes", "200 !", k_failed},
        {"an empty file of no length", k_ok + "Content-Length: x\r\n\r\n", "0 !", k_failed},
        {"an empty file of too large a length", k_ok + "Content-Length: 18446744073709551616\r\n\r\n", "200 !",
         k_failed},
        {"up to the end of the connection", k_ok + "\r\ntwelve bytes", "200 twelve bytes"},
    });
}

TEST(HttpConformance, TransferCodingsAreTheOnesAskedFor) {
    const std::string chunks = "7\r\ntwelve \r\n5;x=y\r\nbytes\r\n0\r\nX-Trailer: 1\r\n\r\n";
    const auto with_coding = [&chunks](const std::string& coding, const std::string& body = "") {
        return k_ok + "Transfer-Encoding: " + coding + "\r\n\r\n" + (body.empty() ? chunks : body);
    };
    constexpr int32_t k_failed = VL_HTTP_FAILED, k_cut = VL_HTTP_CUT;
    expect_answers({
        {"chunks", with_coding("chunked"), "200 twelve bytes"},
        {"in capitals", with_coding("CHUNKED"), "200 twelve bytes"},
        {"chunks above a length", with_coding("chunked\r\nContent-Length: 3"), "200 twelve bytes"},
        {"chunks above a length that is none", with_coding("chunked\r\nContent-Length: 3x"), "200 twelve bytes"},
        {"identity", with_coding("identity", "twelve bytes"), "200 twelve bytes"},
        {"no last chunk", with_coding("chunked", "7\r\ntwelve \r\n"), "200 !", k_cut},
        {"no size", with_coding("chunked", "xyz\r\n"), "200 !", k_cut},
        {"a negative size", with_coding("chunked", "-7\r\ntwelve \r\n0\r\n\r\n"), "200 !", k_cut},
        {"a size above 64 bits", with_coding("chunked", "10000000000000007\r\ntwelve \r\n0\r\n\r\n"), "200 !", k_cut},
        {"gzip", with_coding("gzip, chunked"), "200 !", k_failed},
        {"chunks of chunks", with_coding("chunked, chunked"), "200 !", k_failed},
        {"chunks and then something", with_coding("chunked, identity"), "200 !", k_failed},
        {"unknown", with_coding("x-packed"), "200 !", k_failed},
        {"a blank before the colon", k_ok + "Transfer-Encoding : chunked\r\n\r\n" + chunks, "200 !", k_failed},
    });
}

TEST(HttpConformance, StatusLinesAreReadStrictly) {
    const auto with_line = [](const std::string& line) { return line + "\r\nContent-Length: 2\r\n\r\nhi"; };
    constexpr int32_t k_failed = VL_HTTP_FAILED, k_refused = VL_HTTP_REFUSED;
    expect_answers({
        {"usual", with_line("HTTP/1.1 200 OK"), "200 hi"},
        {"no reason", with_line("HTTP/1.1 200 "), "200 hi"},
        {"no blank behind the code", with_line("HTTP/1.1 200"), "200 hi"},
        {"the older version", with_line("HTTP/1.0 200 OK"), "200 hi"},
        {"an odd reason", with_line("HTTP/1.1 200 O\xFF\x1b[2JK"), "200 hi"},
        {"no content", "HTTP/1.1 204 No\r\nContent-Length: 2\r\n\r\n", "204 -", k_refused},
        {"beyond the known classes", with_line("HTTP/1.1 999 ?"), "999 hi", k_refused},
        {"interim responses", "HTTP/1.1 103 Early\r\nContent-Length: 77\r\n\r\n" + with_line("HTTP/1.1 200 OK"),
         "200 hi"},
        {"four digits", with_line("HTTP/1.1 2000 OK"), "0 !", k_failed},
        {"two digits", with_line("HTTP/1.1 20 OK"), "0 !", k_failed},
        {"letters behind", with_line("HTTP/1.1 200OK"), "0 !", k_failed},
        {"a sign", with_line("HTTP/1.1 +20 OK"), "0 !", k_failed},
        {"two blanks", with_line("HTTP/1.1  200 OK"), "0 !", k_failed},
        {"a blank in front", with_line(" HTTP/1.1 200 OK"), "0 !", k_failed},
        {"below 100", with_line("HTTP/1.1 099 No"), "0 !", k_failed},
        {"no version", with_line("HTTP 200 OK"), "0 !", k_failed},
        {"another protocol", "SSH-2.0-OpenSSH\r\n", "0 !", k_failed},
    });
}

TEST(HttpConformance, RedirectsNeedAPlace) {
    const auto redirect = [](const std::string& fields, const std::string& length) {
        return "HTTP/1.1 302 Found\r\n" + fields + "Content-Length: " + length + "\r\n\r\nhi";
    };
    constexpr int32_t k_failed = VL_HTTP_FAILED, k_refused = VL_HTTP_REFUSED;
    expect_answers({
        {"none", redirect("", "2"), "302 hi", k_refused},
        {"an empty one", redirect("Location:\r\n", "2"), "302 hi", k_refused},
        {"another scheme", redirect("Location: file:///etc/passwd\r\n", "2"), "302 !", k_failed},
        {"control characters", redirect("Location: http://\x1b[2J/\r\n", "2"), "302 !", k_failed},
        {"a port that is none", redirect("Location: http://127.0.0.1:0x50/\r\n", "2"), "302 !", k_failed},
        {"a port above 16 bits", redirect("Location: http://127.0.0.1:65617/\r\n", "2"), "302 !", k_failed},
        {"a length that is none", redirect("Location: /\r\n", "2x"), "302 !", k_failed},
        {"a text that is cut", redirect("Location: /\r\n", "3"), "302 !", k_failed},
    });
}

// ------------------------------------------------------------------------------------------------------------ codings

enum Wrapping { k_raw = -15, k_zlib = 15, k_gzip = 31 };

std::string packed(const std::string& text, Wrapping wrapping) {
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, wrapping, /*memLevel*/ 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&stream, text.size()) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

std::string coded(const std::string& coding, const std::string& body) {
    return k_ok + "Content-Encoding: " + coding + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

/// Text that packs to something longer than a piece of input or output.
std::string long_text() {
    std::string text;
    for (uint32_t i = 0, bits = 1; i < 100'000; ++i) {
        bits = bits * 1664525 + 1013904223;
        text += static_cast<char>('a' + (bits >> 28));
    }
    return text;
}

TEST(HttpConformance, CodedBodiesAreDecodedAndComplete) {
    const std::string text = long_text(), gzip = packed(text, k_gzip), zlib = packed(text, k_zlib),
                      raw = packed(text, k_raw), empty = packed("", k_gzip);
    const auto damaged = [](std::string body, size_t from_end) {
        body[body.size() - from_end] = static_cast<char>(body[body.size() - from_end] ^ 1);
        return body;
    };
    const std::vector<Case> cases = {
        {"gzip", coded("gzip", gzip), "200 " + text},
        {"by its other name", coded("X-GZip", gzip), "200 " + text},
        {"several members", coded("gzip", gzip + empty + packed("more", k_gzip)), "200 " + text + "more"},
        {"gzip that is zlib", coded("gzip", zlib), "200 " + text},
        {"deflate", coded("deflate", zlib), "200 " + text},
        {"deflate without a wrapping", coded("deflate", raw), "200 " + text},
        {"deflate with a checksum of no wrapping", coded("deflate", raw + "1234"), "200 " + text},
        {"two codings", coded("gzip, deflate", packed(gzip, k_zlib)), "200 " + text},
        {"two codings in two fields", coded("gzip\r\nContent-Encoding: deflate", packed(gzip, k_zlib)), "200 " + text},
        {"nothing packed", coded("gzip", empty), "200 -"},
        {"nothing at all", coded("gzip", ""), "200 -"},
        {"no coding", coded("identity", text), "200 " + text},
        {"an empty field", coded("", text), "200 " + text},
        {"no trailer", coded("gzip", gzip.substr(0, gzip.size() - 8)), "200 !"},
        {"half a trailer", coded("gzip", gzip.substr(0, gzip.size() - 4)), "200 !"},
        {"half a body", coded("gzip", gzip.substr(0, gzip.size() / 2)), "200 !"},
        {"half a header", coded("gzip", gzip.substr(0, 5)), "200 !"},
        {"half a body, no length", k_ok + "Content-Encoding: gzip\r\n\r\n" + gzip.substr(0, gzip.size() / 2), "200 !"},
        {"no body, no length", k_ok + "Content-Encoding: gzip\r\n\r\n", "200 !"},
        {"half a second member", coded("gzip", gzip + gzip.substr(0, gzip.size() / 2)), "200 !"},
        {"one byte of a second member", coded("gzip", gzip + gzip.substr(0, 1)), "200 !"},
        {"a damaged checksum", coded("gzip", damaged(gzip, 8)), "200 !"},
        {"a damaged size", coded("gzip", damaged(gzip, 4)), "200 !"},
        {"something behind the end", coded("gzip", gzip + "behind"), "200 !"},
        {"half of deflate", coded("deflate", zlib.substr(0, zlib.size() / 2)), "200 !"},
        {"deflate without a checksum", coded("deflate", zlib.substr(0, zlib.size() - 4)), "200 !"},
        {"deflate with a damaged checksum", coded("deflate", damaged(zlib, 1)), "200 !"},
        {"half of raw deflate", coded("deflate", raw.substr(0, raw.size() / 2)), "200 !"},
        {"a lot behind raw deflate", coded("deflate", raw + "12345"), "200 !"},
        {"one byte of deflate", coded("deflate", zlib.substr(0, 1)), "200 !"},
        {"half of the inner of two", coded("gzip, deflate", packed(gzip.substr(0, gzip.size() / 2), k_zlib)), "200 !"},
        {"not packed", coded("gzip", "abc"), "200 !"},
        {"a coding that was not offered", coded("br", "abc"), "200 !"},
        {"six codings", coded("gzip,gzip,gzip,gzip,gzip,gzip", gzip), "200 !"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.label);
        for (const bool is_dripped : {false, true}) {
            if (is_dripped && each.response.size() > 20'000) continue;
            const LyingServer server([&](Client& client) {
                if (!is_dripped) client.say(each.response);
                for (size_t i = 0; is_dripped && i < each.response.size() && client.say({each.response[i]}); ++i)
                    client.await_arrival();
            });
            const std::string answer = outcome(ask(server.url()));
            EXPECT_EQ(answer == each.answer ? "as it should" : answer.substr(0, 100), "as it should");
            const TemporaryFolder folder;
            const LogCapture log;
            const bool is_loaded = vl_http_socket::ReadFile(server.url().c_str(), (folder / "file").c_str());
            EXPECT_EQ(is_loaded, each.answer.size() > std::string("200 -").size());
        }
    }
    const std::string response = coded("gzip", gzip);
    const LyingServer server([&response](Client& client) { client.say(response); });
    const std::string url = server.url();
    Download download(url);
    EXPECT_EQ(vl_http_download(download), VL_HTTP_DONE);
    EXPECT_TRUE(download.got == gzip) << "a download is the file as the server has it";
}

// ----------------------------------------------------------------------------------------------------- partial content

TEST(HttpConformance, PartsThatDoNotFitAreNotUsed) {
    const std::string whole = k_ok + "ETag: \"v1\"\r\nContent-Length: 10\r\n\r\n0123456789";
    const auto part = [](const std::string& fields, const std::string& body, const std::string& length = "") {
        return "HTTP/1.1 206 Partial Content\r\n" + fields +
               "Content-Length: " + (length.empty() ? std::to_string(body.size()) : length) + "\r\n\r\n" + body;
    };
    const std::string right = "Content-Range: bytes 4-9/10\r\n";
    const struct {
        const char* what;
        std::string said;
        int32_t result;
        std::string got;  // behind the four bytes "abcd" that were there; without them when it began anew
    } cases[] = {
        {"right", part(right + "ETag: \"v1\"\r\n", "456789"), VL_HTTP_DONE, "abcd456789"},
        {"no version", part(right, "456789"), VL_HTTP_DONE, "abcd456789"},
        {"short", part("Content-Range: bytes 4-5/10\r\n", "45"), VL_HTTP_CUT, "abcd45"},
        {"longer than the whole", part(right, "456789AB"), VL_HTTP_DONE, "0123456789"},
        {"longer than the part", part("Content-Range: bytes 4-5/10\r\n", "456"), VL_HTTP_DONE, "0123456789"},
        {"chunks longer than the part",
         "HTTP/1.1 206 Part\r\nContent-Range: bytes 4-5/10\r\nTransfer-Encoding: chunked\r\n\r\n3\r\n456\r\n0\r\n\r\n",
         VL_HTTP_FAILED, "abcd"},
        {"another version", part(right + "ETag: \"v2\"\r\n", "456789"), VL_HTTP_DONE, "0123456789"},
        {"another size", part("Content-Range: bytes 4-10/11\r\n", "456789A"), VL_HTTP_DONE, "0123456789"},
        {"another place", part("Content-Range: bytes 3-9/10\r\n", "3456789"), VL_HTTP_DONE, "0123456789"},
        {"no place", part("", "456789"), VL_HTTP_DONE, "0123456789"},
        {"a place that is none", part("Content-Range: bytes 9-4/10\r\n", "456789"), VL_HTTP_DONE, "0123456789"},
        {"a place with a sign", part("Content-Range: bytes +4-9/10\r\n", "456789"), VL_HTTP_DONE, "0123456789"},
        {"two places", part(right + "Content-Range: bytes 3-9/10\r\n", "456789"), VL_HTTP_DONE, "0123456789"},
        {"a length that is none", part(right, "456789", "6x"), VL_HTTP_FAILED, "abcd"},
        {"the whole", whole, VL_HTTP_DONE, "0123456789"},
        {"beyond the end", "HTTP/1.1 416 No\r\nContent-Range: bytes */2\r\nContent-Length: 0\r\n\r\n", VL_HTTP_DONE,
         "0123456789"},
        {"at the end", "HTTP/1.1 416 No\r\nContent-Range: bytes */4\r\nContent-Length: 2\r\n\r\nno", VL_HTTP_DONE,
         "0123456789"},
        {"an error", "HTTP/1.1 503 No\r\nContent-Length: 2\r\n\r\nno", VL_HTTP_REFUSED, "abcd"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
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
        EXPECT_EQ(vl_http_download(download), each.result);
        EXPECT_EQ(download.got, each.got);
        EXPECT_EQ(download.offset, each.got.size());
    }
}

TEST(HttpConformance, AVersionIsOneLineOfText) {
    const struct {
        const char *label, *fields, *version;
    } cases[] = {
        {"strong", "ETag: \"v1\"\r\n", "\"v1\""},
        {"weak", "ETag: W/\"v1\"\r\n", ""},
        {"beyond ASCII", "ETag: \"\xC3\xA4\"\r\n", "\"\xC3\xA4\""},
        {"an escape", "ETag: \"\x1b[2J\"\r\n", ""},
        {"a carriage return", "ETag: \"a\rX-Field: b\"\r\n", ""},
        {"a time", "Last-Modified: Mon, 02 Jan 2006 15:04:05 GMT\r\n", "Mon, 02 Jan 2006 15:04:05 GMT"},
        {"a time with an escape", "Last-Modified: Mon\x1b\r\n", ""},
    };
    for (const auto& each : cases) {
        const std::string response = k_ok + each.fields + "Content-Length: 2\r\n\r\nhi";
        const LyingServer server([&response](Client& client) { client.say(response); });
        const std::string url = server.url();
        Download download(url);
        EXPECT_EQ(vl_http_download(download), VL_HTTP_DONE) << each.label;
        EXPECT_STREQ(download.version, each.version) << each.label;
    }
    std::string request;
    const LyingServer server([&request](Client& client) {
        request = client.request();
        client.say(k_ok + "Content-Length: 2\r\n\r\nhi");
    });
    const std::string url = server.url();
    Download download(url);
    download.offset = 1;
    std::strcpy(download.version, "\"a\"\r\nX-Field: b");
    EXPECT_EQ(vl_http_download(download), VL_HTTP_DONE);
    EXPECT_EQ(request.find("X-Field"), std::string::npos) << request;
    EXPECT_EQ(request.find("Range"), std::string::npos) << request;
}

// ----------------------------------------------------------------------------------------------------- kept
// connections

TEST(HttpConformance, ResponsesToNoRequestAreNeverUsed) {
    const std::string first = k_ok + "Content-Length: 5\r\n\r\nfirst", stale = k_ok + "Content-Length: 5\r\n\r\nstale",
                      fresh = k_ok + "Content-Length: 5\r\n\r\nfresh";
    const struct {
        const char *label, *method;
        std::string at_once, later;
        bool closes;
    } cases[] = {
        {"nothing", "the same connection", first, "", false},
        {"a response while idle", "another", first, stale, false},
        {"half a response while idle", "another", first, stale.substr(0, 20), false},
        {"a line end while idle", "another", first, "\r\n", false},
        {"an end while idle", "another", first, "", true},
        {"a response in one piece", "any", first + stale, "", false},
        {"a response and a half", "any", first + stale + stale.substr(0, 30), stale.substr(30), false},
        {"behind chunks", "any", k_ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n0\r\n\r\n" + stale, stale,
         false},
        {"behind no content", "any", "HTTP/1.1 204 No\r\n\r\n" + stale, stale, false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        std::atomic<bool> is_idle{false}, is_said{false};
        std::atomic<int> connections{0};
        const LyingServer server([&](Client& client) {
            if (++connections > 1) return static_cast<void>(client.say(fresh));
            client.say(each.at_once);
            while (!is_idle)
                std::this_thread::yield();
            client.say(each.later);
            if (each.closes) client.end_speech();
            client.await_arrival();
            is_said = true;
            if (client.read_next_request()) client.say(fresh);
        });
        vl_http_socket http;
        const std::string url = server.url();
        EXPECT_TRUE(http.OpenUrl(url.c_str())) << http.LastErrorString();
        is_idle = true;
        while (!is_said)
            std::this_thread::yield();
        unsigned long long size = 0;
        const unsigned char* body = http.GetHttpData(url.c_str(), VL_HTTP_GET, nullptr, 0, nullptr, &size);
        EXPECT_EQ(std::string(body != nullptr ? reinterpret_cast<const char*>(body) : "", size), "fresh")
            << http.LastErrorString();
        if (each.method != "any"s) {
            EXPECT_EQ(connections, each.method == "another"s ? 2 : 1);
        }
    }
}

TEST(HttpConformance, KeptConnectionsAreClosedWithTheLibrary) {
    for (const bool by_closedown : {false, true}) {
        std::atomic<bool> is_closed{false};
        std::atomic<int> connections{0};
        const LyingServer server([&](Client& client) {
            const bool is_first = ++connections == 1;
            client.say(k_ok + "Content-Length: 2\r\n\r\nok");
            if (!is_first) return;
            client.stall();
            is_closed = true;
        });
        vl_fast_initialize(nullptr, /*allocate_heaps*/ false);
        vl_http_socket http;
        const std::string url = server.url();
        EXPECT_TRUE(http.OpenUrl(url.c_str()));
        EXPECT_FALSE(is_closed);
        by_closedown ? vl_closedown() : vl_http_close_connections();
        while (!is_closed)
            std::this_thread::yield();
        EXPECT_TRUE(http.OpenUrl(url.c_str())) << http.LastErrorString();
        EXPECT_EQ(connections, 2);
    }
}

TEST(HttpConformance, WhatASinkThrowsIsReportedAsItIs) {
    struct ThrowingSink final : vell::HttpSink {
        void do_throw() const {
            if (is_memory) throw std::bad_alloc();
            throw std::runtime_error("the sink is odd");
        }
        bool begin(const vell::HttpHead&) override {
            if (is_begin) do_throw();
            return true;
        }
        bool take(const void*, size_t) override {
            do_throw();
            return true;
        }
        bool is_begin = false, is_memory = false;
    } sink;
    const LyingServer server([](Client& client) { client.say(k_ok + "Content-Length: 2\r\n\r\nok"); });
    const std::unique_ptr<vell::HttpTransport> transport = vell::make_http_transport();
    vell::HttpRequest request;
    request.url = server.url();
    request.idle_limit_ms = 30'000;
    for (sink.is_begin = false;; sink.is_begin = true) {
        for (const bool is_memory : {false, true}) {
            sink.is_memory = is_memory;
            const vell::HttpResult result = transport->send(request, sink);
            EXPECT_EQ(result.end, vell::HttpEnd::failed);
            EXPECT_EQ(result.error, is_memory ? "Out of memory" : "the sink is odd");
        }
        if (sink.is_begin) break;
    }
}

// -------------------------------------------------------------------------------------------------------------- limits

TEST(HttpConformance, LimitsOfTheHostHold) {
    const std::string body(1000, 'x'), large = packed(std::string(64 << 20, '\0'), k_gzip);
    ASSERT_LT(large.size(), 70'000U);
    const std::string plain = k_ok + "Content-Length: 1000\r\n\r\n" + body, until_end = k_ok + "\r\n" + body,
                      bomb = coded("gzip", large), fields = k_ok + "A: b\r\nA: b\r\nContent-Length: 2\r\n\r\nhi",
                      interim = "HTTP/1.1 103 Early\r\nA: b\r\n\r\n" + fields,
                      trailer = k_ok + "Transfer-Encoding: chunked\r\n\r\n2\r\nhi\r\n0\r\nA: b\r\nA: b\r\n\r\n";
    const struct {
        const char* label;
        vl_http_limits limits;
        std::string response, answer;
        int32_t download = VL_HTTP_DONE;
    } cases[] = {
        {"none", {}, plain, "200 " + body},
        {"a body as large as the limit", {.body_bytes = 1000}, plain, "200 " + body},
        {"a body above the limit", {.body_bytes = 999}, plain, "200 !"},
        {"a body of no length above the limit", {.body_bytes = 999}, until_end, "200 !"},
        {"a body above the largest limit",
         {.body_bytes = ~0ULL},
         k_ok + "Content-Length: 4294967296\r\n\r\n",
         "200 -",
         VL_HTTP_CUT},
        {"a packed body far above the limit", {.body_bytes = 1 << 20}, bomb, "200 !"},
        {"no body at all", {.body_bytes = 0}, plain, "200 !"},
        {"as many fields as allowed", {.header_lines = 3}, fields, "200 hi"},
        {"one field more", {.header_lines = 2}, fields, "0 !", VL_HTTP_FAILED},
        {"with those of an interim response", {.header_lines = 4}, interim, "200 hi"},
        {"one more with those", {.header_lines = 3}, interim, "0 !", VL_HTTP_FAILED},
        {"fields behind a body", {.header_lines = 3}, trailer, "200 hi"},
        {"one more behind a body", {.header_lines = 2}, trailer, "200 !", VL_HTTP_CUT},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        vl_http_set_limits(each.limits);
        const LyingServer server([&each](Client& client) { client.say(each.response); });
        const std::string url = server.url();
        EXPECT_EQ(outcome(ask(url)), each.answer);
        Download download(url);
        EXPECT_EQ(vl_http_download(download), each.download) << download.error_text;
    }
    EXPECT_EQ(vl_http_get_limits().header_lines, 2U);
}

TEST(HttpConformance, ARequestTakesNoLongerThanAllowed) {
    const struct {
        const char *label, *first, *again;
    } cases[] = {
        {"a body without an end", "HTTP/1.1 200 OK\r\n\r\n", "x"},
        {"a header without an end", "HTTP/1.1 200 OK\r\n", "A: b\r\n"},
        {"redirects that take their time", "HTTP/1.1 302 Found\r\nLocation: /\r\nContent-Length: 40\r\n\r\n", "x"},
    };
    vl_http_set_limits({.total_ms = 100});
    for (const auto& each : cases) {
        const LyingServer server([&each](Client& client) {
            for (int i = 0; client.say(i == 0 ? each.first : each.again) && (i < 40 || each.first[9] == '2'); ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
        const std::string answer = ask(server.url());
        EXPECT_NE(answer.find("Timed out: the request took longer than its limit"), std::string::npos)
            << each.label << ": " << answer;
    }
}

}  // namespace
