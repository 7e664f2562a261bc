// vell get: what it leaves behind when all goes well, and when it does not.

#include <sys/file.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <thread>

#include "offload/digest.h"
#include "run_vell.h"
#include "support/lying_server.h"
#include "support/nginx_server.h"

namespace {

std::string md5_of(const std::string& text) {
    tool::Digester digester(tool::DigestKind::md5);
    digester.add(text.data(), text.size());
    return digester.finish();
}

std::string clip_of(size_t bytes, char first) {
    std::string clip(bytes, first);
    for (size_t i = 1; i < bytes; ++i)
        clip[i] = static_cast<char>(i * i >> 7);
    return clip;
}

class VellGet : public testing::Test {
protected:
    VellGet() {
        for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "HTTPS_PROXY", "ALL_PROXY"})
            unsetenv(name);
    }
    RunResult get(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "get");
        return run_vell(prints, arguments);
    }
    /// The names in the folder.
    std::string names() const {
        std::vector<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            all.push_back(entry.path().filename());
        std::sort(all.begin(), all.end());
        std::string text;
        for (const std::string& name : all)
            text += name + " ";
        return text;
    }
    /// Starts a download and waits until so much of it is on the disk.
    pid_t start_and_wait_for(uint64_t bytes, const std::string& url) const {
        const pid_t child = start_vell(prints, {"get", url, file});
        while (std::filesystem::exists(file + ".vell-part") ? std::filesystem::file_size(file + ".vell-part") < bytes
                                                            : true)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return child;
    }
    const TemporaryFolder folder, prints;
    const std::string file = folder / "clip.mov";
};

TEST_F(VellGet, LeavesTheWholeFileOrSaysWhyNot) {
    const NginxServer server("location = /500 { return 500; }");
    const std::string clip = clip_of(2'500'000, 'a'), url = server.url("/clip.mov");
    server.folder().write("www/clip.mov", clip);
    server.folder().write("www/empty", "");
    RunResult run = get({url, file, "--md5", md5_of(clip), "--json"});
    EXPECT_EQ(run.code, 0) << run.errors;
    EXPECT_NE(run.output.find(R"({"event":"end","exit_code":0,"bytes":2500000,"md5":")" + md5_of(clip) + "\"}"),
              std::string::npos)
        << run.output;
    EXPECT_TRUE(read_whole_file(file) == clip);
    EXPECT_EQ(get({server.url("/empty"), folder / "empty"}).code, 0);
    EXPECT_EQ(names(), "clip.mov empty ");

    const std::string nobody = "http://127.0.0.1:" + LoopbackPort().number() + "/";
    const struct {
        std::vector<std::string> arguments;
        int code;
        std::string error;
    } cases[] = {
        {{url, file}, 2, file + ": is there already"},
        {{url, folder.path()}, 2, "the download needs the name of a file"},
        {{url, "-"}, 2, "the download needs the name of a file"},
        {{url, folder / "x", "--md5", "12"}, 2, "a digest of 32 hexadecimal digits is expected"},
        {{url}, 2, "FILE"},
        {{url, folder / "absent/x"}, 1, "No such file or directory"},
        {{server.url("/missing"), folder / "x"}, 1, "/missing: the server answers with status 404"},
        {{server.url("/500"), folder / "x"}, 1, "status 500"},
        {{"file:///etc/passwd", folder / "x"}, 1, "Unsupported URL"},
        {{"http://me:secret@[", folder / "x"}, 1, "vell: http://["},
        {{nobody, folder / "x"}, 1, "connect to server"},
    };
    for (const auto& each : cases) {
        run = get(each.arguments);
        EXPECT_EQ(run.code, each.code) << each.error;
        EXPECT_NE(run.errors.find(each.error), std::string::npos) << run.errors;
    }
    EXPECT_EQ(names(), "clip.mov empty ") << "nothing is left of what failed";

    chmod(file.c_str(), 0640);
    run = get({url, file, "--overwrite", "--xxh128", std::string(32, '0')});
    EXPECT_EQ(run.code, 4);
    EXPECT_NE(run.errors.find("instead of 00000000000000000000000000000000"), std::string::npos) << run.errors;
    EXPECT_EQ(names(), "clip.mov clip.mov.vell-part empty ") << "it is not gone on with";
    const std::string shorter = clip_of(1'000'000, 'b');
    server.folder().write("www/clip.mov", shorter);
    EXPECT_EQ(get({url, file, "--overwrite"}).code, 0);
    EXPECT_TRUE(read_whole_file(file) == shorter);
    struct stat facts {};
    stat(file.c_str(), &facts);
    EXPECT_EQ(facts.st_mode & 0777U, 0640U) << "of the file that was replaced";
    EXPECT_EQ(names(), "clip.mov empty ");
}

/// A file on a server that falls silent in the middle of it.
struct StallingFile {
    std::mutex lock;  // guards what follows
    std::string clip, version, requests;
    size_t silent_at = 0;
    LyingServer server{[this](Client& client) { answer(client); }};

    /// What stands behind "name: " in the request; empty when there is none.
    static std::string field(const std::string& request, const std::string& name) {
        const size_t at = request.find(name + ": ");
        if (at == std::string::npos) return "";
        const size_t from = at + name.size() + 2;
        return request.substr(from, request.find('\r', from) - from);
    }
    void become(const std::string& its_clip, const std::string& its_version, size_t its_silent_at) {
        const std::lock_guard guard(lock);
        clip = its_clip;
        version = its_version;
        silent_at = its_silent_at;
    }
    std::string requests_so_far() {
        const std::lock_guard guard(lock);
        return requests;
    }
    void answer(Client& client) {
        std::unique_lock guard(lock);
        const std::string range = field(client.request(), "Range");
        const bool is_rest = !range.empty() && field(client.request(), "If-Range") == version;
        const size_t first = is_rest ? std::stoul(range.substr(range.find('=') + 1)) : 0;
        requests += is_rest ? "rest " : "all ";
        std::string head = is_rest ? "HTTP/1.1 206 OK\r\n" : "HTTP/1.1 200 OK\r\n";
        if (is_rest) {
            head += "Content-Range: bytes " + std::to_string(first) + "-" + std::to_string(clip.size() - 1) + "/" +
                    std::to_string(clip.size()) + "\r\n";
        }
        const std::string said = head + "ETag: " + version +
                                 "\r\nContent-Length: " + std::to_string(clip.size() - first) + "\r\n\r\n" +
                                 clip.substr(first, silent_at - first);
        const bool stalls = silent_at < clip.size();
        guard.unlock();
        client.say(said);
        if (stalls) client.stall();
    }
};

TEST_F(VellGet, GoesOnWhereItWasKilledUnlessTheFileChanged) {
    constexpr size_t k_mib = 1 << 20;
    StallingFile stalling;
    const std::string url = stalling.server.url();
    const std::string clip = clip_of(5 * k_mib, 'a'), changed = clip_of(5 * k_mib, 'b');
    stalling.become(clip, "\"1\"", 2 * k_mib + 77);
    pid_t child = start_and_wait_for(2 * k_mib, url);
    kill(child, SIGKILL);
    await_vell(prints, child);
    EXPECT_EQ(names(), "clip.mov.vell-part clip.mov.vell-part-origin ");

    stalling.become(clip, "\"1\"", 4 * k_mib + 77);
    child = start_and_wait_for(4 * k_mib, url);
    EXPECT_EQ(get({url, file}).errors, "vell: " + file + ".vell-part: another download is at work here\n");
    kill(child, SIGINT);
    EXPECT_EQ(await_vell(prints, child).code, 3);

    stalling.become(clip, "\"1\"", clip.size());
    RunResult run = get({url, file, "--md5", md5_of(clip)});
    EXPECT_EQ(run.code, 0) << run.errors;
    EXPECT_TRUE(read_whole_file(file) == clip);
    EXPECT_EQ(names(), "clip.mov ");
    EXPECT_EQ(stalling.requests_so_far(), "all rest rest ");

    std::filesystem::remove(file);
    stalling.become(clip, "\"1\"", 3 * k_mib);
    child = start_and_wait_for(2 * k_mib, url);
    kill(child, SIGKILL);
    await_vell(prints, child);
    stalling.become(changed, "\"2\"", changed.size());
    run = get({url, file});
    EXPECT_EQ(run.code, 0) << run.errors;
    EXPECT_NE(run.errors.find("the download begins anew"), std::string::npos) << run.errors;
    EXPECT_TRUE(read_whole_file(file) == changed) << "the two files are not glued together";
    EXPECT_EQ(stalling.requests_so_far(), "all rest rest all all ");
}

TEST_F(VellGet, IsBesideAnExampleThatWorks) {
    const NginxServer server("");
    const std::string command = VELL_HTTP_EXAMPLE " " + server.url("/index.html") + " >" + (folder / "printed");
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_TRUE(read_whole_file(folder / "printed").starts_with("status 200, 5 bytes \nresult 0, 5 bytes, version \""));
}

TEST_F(VellGet, TriesAgainWhenItIsCut) {
    const std::string clip = clip_of(300'000, 'a');
    std::atomic<int> requests{0}, rests{0};
    const LyingServer server([&](Client& client) {
        if (++requests == 1) {
            client.say("HTTP/1.1 200 OK\r\nETag: \"1\"\r\nContent-Length: 300000\r\n\r\n" + clip.substr(0, 100'000));
            return;
        }
        rests += client.request().find("Range: bytes=100000-\r") != std::string::npos ? 1 : 0;
        client.say("HTTP/1.1 206 OK\r\nContent-Range: bytes 100000-299999/300000\r\nContent-Length: 200000\r\n\r\n" +
                   clip.substr(100'000));
    });
    const RunResult run = get({server.url(), file});
    EXPECT_EQ(run.code, 0) << run.errors;
    EXPECT_EQ(rests, 1);
    EXPECT_NE(run.errors.find("; trying again\n"), std::string::npos) << run.errors;
    EXPECT_TRUE(read_whole_file(file) == clip);
}

TEST_F(VellGet, KeepsWhatTheVolumeTook) {
    const NginxServer server("");
    const std::string clip = clip_of(4 << 20, 'a'), url = server.url("/clip.mov");
    server.folder().write("www/clip.mov", clip);
    // A file may not grow beyond 2.5 MiB: the third block is written in part.
    const std::string command =
        "trap '' XFSZ; ulimit -f 2560; exec " VELL_PROGRAM " get " + url + " " + file + " 2>" + (prints / "errors");
    const int status = std::system(("bash -c \"" + command + "\"").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_NE(read_whole_file(prints / "errors").find("clip.mov.vell-part: "), std::string::npos);
    EXPECT_EQ(std::filesystem::file_size(file + ".vell-part"), 2560U * 1024);
    EXPECT_EQ(get({url, file, "--md5", md5_of(clip)}).code, 0);
    EXPECT_TRUE(read_whole_file(file) == clip);
}

TEST_F(VellGet, TellsOfAFullVolumeBeforeItLoads) {
    const LyingServer server([](Client& client) {
        client.say("HTTP/1.1 200 OK\r\nETag: \"1\"\r\nContent-Length: 9000000000000000000\r\n\r\n");
        client.stall();
    });
    const RunResult run = get({server.url(), file});
    EXPECT_EQ(run.code, 5) << run.errors;
    EXPECT_NE(run.errors.find("are needed on this volume"), std::string::npos) << run.errors;
    EXPECT_EQ(names(), "");
}

}  // namespace
