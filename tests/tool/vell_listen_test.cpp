// vell listen: what it prints, and how it ends.

#include <csignal>
#include <thread>

#include "net/websocket_server_process.h"
#include "run_vell.h"

namespace {

class VellListen : public testing::Test {
protected:
    static void SetUpTestSuite() { setenv("LC_ALL", "C", 1); }
    RunResult listen(const std::string& path, const std::vector<std::string>& options = {}) {
        std::vector<std::string> arguments = {"listen", server.url(path)};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return run_vell(prints, arguments);
    }
    const TemporaryFolder prints;
    PythonServer server;
};

TEST_F(VellListen, PrintsMessagesUntilTheServerCloses) {
    const RunResult lines = listen("/kinds/close");
    EXPECT_EQ(lines.code, 0) << lines.errors;
    EXPECT_EQ(
        lines.output,
        "h\xC3\xA9llo\nbinary, 3 bytes: 00 01 ff\n\nbinary, 0 bytes: \nfragments\nbinary, 2 bytes: 01 00\nzero\n");
    EXPECT_EQ(lines.errors, "");
    const RunResult json = listen("/kinds/close", {"--json"});
    EXPECT_EQ(json.output.substr(0, json.output.find("\n{\"type\":\"text\",\"size\":0")),
              "{\"type\":\"text\",\"size\":6,\"text\":\"h\xC3\xA9llo\"}\n{\"type\":\"binary\",\"size\":3,\"hex\":"
              "\"0001ff\"}");
    const RunResult long_one = listen("/sizes", {"--send", "33", "--send", "nonsense"});
    EXPECT_NE(long_one.output.find("binary, 33 bytes: 00 01 "), std::string::npos);
    EXPECT_NE(long_one.output.find(" 1e 1f ...\n"), std::string::npos) << long_one.output;
}

TEST_F(VellListen, SaysWhyAConnectionFailed) {
    const struct {
        std::vector<std::string> arguments;
        int code;
        const char* error;
    } cases[] = {{{server.url("/close/1011/oops")}, 3, ": The server closed the connection with code 1011 (oops)\n"},
                 {{server.url("/close/1011/a%1B%5B2J%0A\\b")}, 3, "(a\\x1b[2J\\n\\b)\n"},
                 {{server.url("/missing")}, 3, "HTTP status 404 Not Found"},
                 {{"ws://127.0.0.1:1/"}, 3, "Connection refused (connecting to 127.0.0.1 port 1)\n"},
                 {{server.url("/echo"), "--send", "\xFF"}, 2, "\\xff: is not UTF-8"},
                 {{"http://127.0.0.1/"}, 2, "is not an address that begins with ws:// or wss://"},
                 {{}, 2, "URL"}};
    for (const auto& each : cases) {
        std::vector<std::string> arguments = {"listen"};
        arguments.insert(arguments.end(), each.arguments.begin(), each.arguments.end());
        const RunResult run = run_vell(prints, arguments);
        EXPECT_EQ(run.code, each.code) << run.errors;
        EXPECT_NE(run.errors.find(each.error), std::string::npos) << run.errors;
    }
}

TEST_F(VellListen, EndsWithSuccessWhenInterruptedAndWithFailureWhenTheServerDies) {
    for (const bool is_interrupted : {true, false}) {
        const pid_t child = start_vell(prints, {"listen", server.url("/echo"), "--send", "ready"});
        while (read_whole_file(prints / "stdout") != "ready\n")
            std::this_thread::yield();
        is_interrupted ? static_cast<void>(kill(child, SIGINT)) : server.signal_now(SIGKILL);
        const RunResult run = await_vell(prints, child);
        EXPECT_EQ(run.code, is_interrupted ? 0 : 3) << run.errors;
        EXPECT_EQ(run.errors.empty(), is_interrupted) << run.errors;
    }
}

}  // namespace
