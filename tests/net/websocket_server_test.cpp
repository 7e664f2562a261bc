// The client against a real server: messages, pings, closing, TLS, a server that freezes or dies, the end of the
// process.

#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "tests/net/websocket_peer.h"
#include "vellcore/startup.h"

namespace {

using std::string_literals::operator""s;
constexpr size_t k_mib = 1 << 20;

TEST(WebSocket, ReceivesEveryKindOfMessage) {
    const PythonServer server;
    Client client(server.url("/kinds"));
    for (const char* wanted : {"text: h\xC3\xA9llo", "binary: 0001ff", "text: ", "binary: ", "text: fragments",
                               "binary: 0100", "text: zero"})
        EXPECT_EQ(client.receive(), wanted);
}

TEST(WebSocket, MessagesOfAllSizesComeBackAsTheyWere) {
    const PythonServer server;
    Client client(server.url("/echo"));
    ASSERT_TRUE(client.socket->SetMaxDataSize(16 * k_mib));
    for (const size_t size : {size_t{0}, size_t{1}, size_t{125}, size_t{126}, size_t{4096}, size_t{65535},
                              size_t{65536}, k_mib + 1, 16 * k_mib}) {
        std::string bytes(size, '\0');
        for (size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<char>(i * 7 + i / 251);
        ASSERT_TRUE(client.send(bytes));
        VlWebSocketData* message = nullptr;
        ASSERT_TRUE(client.socket->ReceiveData(message)) << size;
        EXPECT_EQ(message->GetType(), VL_WEBSOCKET_BINARY);
        ASSERT_EQ(message->GetSize(), size);
        EXPECT_TRUE(size == 0 || std::memcmp(message->GetData(), bytes.data(), size) == 0) << size;
        message->Release();
    }
    EXPECT_TRUE(client.socket->SendText("\xF0\x9F\x8E\xAC"));
    EXPECT_EQ(client.receive(), "text: \xF0\x9F\x8E\xAC");
}

TEST(WebSocket, AMessageAboveTheLimitFailsTheReceiveAndTellsTheServer) {
    const PythonServer server;
    const LogCapture log;
    const struct {
        unsigned long limit;  // 0: as it is at first
        size_t size;
        bool is_received;
    } cases[] = {{0, k_mib, true}, {0, k_mib + 1, false}, {10, 10, true}, {10, 11, false}, {70000, 70001, false}};
    for (const auto& each : cases) {
        Client client(server.url("/sizes"));
        if (each.limit != 0) {
            ASSERT_TRUE(client.socket->SetMaxDataSize(each.limit));
        }
        ASSERT_TRUE(client.socket->SendText(std::to_string(each.size).c_str()));
        EXPECT_EQ(client.receive() != "failed", each.is_received) << each.limit << " " << each.size;
        EXPECT_EQ(client.socket->SendText("0"), each.is_received) << "the task is dropped with the failure";
    }
    EXPECT_TRUE(log.contains("Message too long")) << log.text();
}

TEST(WebSocket, ALimitRaisedBeforeTheReceiveHoldsForWhatHasComeAlready) {
    const PythonServer server;
    Client client(server.url("/sizes")), witness(server.url("/echo"));
    ASSERT_TRUE(client.socket->SendText(std::to_string(2 * k_mib).c_str()));
    for (int i = 0; i < 20; ++i) {  // gives the message time to come
        ASSERT_TRUE(witness.socket->SendText("x"));
        ASSERT_EQ(witness.receive(), "text: x");
    }
    ASSERT_TRUE(client.socket->SetMaxDataSize(2 * k_mib));
    EXPECT_EQ(client.receive().size(), 4 * k_mib + std::strlen("binary: "));
}

TEST(WebSocket, PingsAreAnsweredWhileNobodyReceives) {
    const PythonServer server;
    Client client(server.url("/pings")), witness(server.url("/tell"));
    EXPECT_EQ(witness.receive(), "text: answered");
    EXPECT_EQ(client.receive(), "text: first");
}

TEST(WebSocket, AServerIsHeldUpWhileNobodyReceivesAndNothingIsLost) {
    const PythonServer server;
    Client client(server.url("/many")), witness(server.url("/echo"));
    ASSERT_TRUE(witness.socket->SendText("x"));
    ASSERT_EQ(witness.receive(), "text: x");
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(client.receive().rfind("text: " + std::to_string(i) + " ", 0), 0U) << i;
}

TEST(WebSocket, AClosedConnectionFailsWithTheServersCodeAndWords) {
    const PythonServer server;
    const struct {
        const char* path;
        int code;
        const char* reason;
    } cases[] = {{"/close/1000/bye", 1000, "bye"}, {"/close/1001/", 1001, ""}, {"/close/4321/own", 4321, "own"}};
    for (const auto& each : cases) {
        const LogCapture log;
        Client client(server.url(each.path));
        EXPECT_EQ(client.receive(), "text: last words");
        EXPECT_EQ(client.close_code(), 0);
        EXPECT_EQ(client.receive(), "failed");
        EXPECT_EQ(client.close_code(), each.code);
        const std::string code = "ERROR: WebSocket::ReceiveData: code: " + std::to_string(each.code);
        const std::vector<std::string> lines = log.lines();
        ASSERT_EQ(lines.size(), *each.reason != '\0' ? 3U : 2U) << log.text();
        EXPECT_EQ(lines[0], code);
        EXPECT_EQ(lines[1].rfind("ERROR: description: ", 0), 0U);
        if (*each.reason != '\0') {
            EXPECT_EQ(lines[2], "ERROR: reason: "s + each.reason);
        }
        EXPECT_FALSE(client.socket->SendText("x") || client.send("x"));
        EXPECT_EQ(client.receive(), "failed");
        EXPECT_EQ(log.lines(), lines) << "without a task nothing is logged";
    }
}

TEST(WebSocket, AServerThatDiesOrFreezesEndsTheCall) {
    const struct {
        const char* label;
        const char* path;
        int signal_number;
        bool is_sending;
    } cases[] = {{"reset", "/reset", 0, false},
                 {"killed while receiving", "/echo", SIGKILL, false},
                 {"killed while sending", "/echo", SIGKILL, true},
                 {"frozen while receiving", "/echo", SIGSTOP, false},
                 {"frozen while sending", "/echo", SIGSTOP, true}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        PythonServer server;
        const LogCapture log;
        Client client(server.url(each.path), {.handshake_ms = 20'000, .close_ms = 100, .idle_ms = 100});
        ASSERT_TRUE(client.socket->SendText("x"));
        if (each.signal_number != 0) {
            ASSERT_EQ(client.receive(), "text: x");
            server.signal_now(each.signal_number);
        }
        if (each.is_sending) {
            EXPECT_FALSE(client.send(std::string(64 * k_mib, 'x')));
        } else {
            EXPECT_EQ(client.receive(), "failed");
        }
        EXPECT_EQ(client.close_code(), 1006);
        EXPECT_EQ(log.line_count(), 3) << log.text();
        if (each.signal_number == SIGSTOP) {
            EXPECT_TRUE(log.contains("timed out")) << log.text();
        }
    }
}

TEST(WebSocket, AnIdleServerThatAnswersPingsIsKept) {
    const PythonServer server;
    Client client(server.url("/echo"), {.handshake_ms = 20'000, .close_ms = 1000, .idle_ms = 300});
    VlWebSocket::SetReceiveTimeOut(1000);
    EXPECT_EQ(client.receive(), "failed");
    VlWebSocket::SetReceiveTimeOut(0);
    EXPECT_EQ(client.close_code(), 0);
    ASSERT_TRUE(client.socket->SendText("still there"));
    EXPECT_EQ(client.receive(), "text: still there");
}

TEST(WebSocket, AReceiveThatTimesOutLosesNothing) {
    const PythonServer server;
    const LogCapture log;
    Client client(server.url("/echo"));
    VlWebSocket::SetReceiveTimeOut(30);
    EXPECT_EQ(client.receive(), "failed");
    EXPECT_EQ(client.receive(), "failed");
    VlWebSocket::SetReceiveTimeOut(0);
    for (const char* text : {"one", "two"})
        ASSERT_TRUE(client.socket->SendText(text));
    EXPECT_EQ(client.receive(), "text: one");
    EXPECT_EQ(client.receive(), "text: two");
    EXPECT_EQ(log.line_count(), 0) << log.text();
}

TEST(WebSocket, GoodbyesReachTheServerAfterEverythingSent) {
    const PythonServer server;
    const auto ended = [&server] { return Client(server.url("/tell")).receive(); };
    {
        Client client(server.url("/goodbye"));
        for (int i = 0; i < 3; ++i)
            ASSERT_TRUE(client.socket->SendText("x"));
    }
    EXPECT_EQ(ended(), "text: 3 messages, code 1000");
    Client client(server.url("/goodbye"));
    ASSERT_TRUE(client.send("x"));
    ASSERT_TRUE(client.connect(server.url("/echo"))) << "closes the first connection";
    EXPECT_EQ(ended(), "text: 1 messages, code 1000");
    EXPECT_TRUE(client.socket->Disconnect() && client.socket->Disconnect());
    EXPECT_FALSE(client.socket->SetMaxDataSize(1));
    EXPECT_EQ(client.receive(), "failed");
    ASSERT_TRUE(client.connect(server.url("/echo")));
    EXPECT_TRUE(client.socket->SendText("again"));
    EXPECT_EQ(client.receive(), "text: again");
}

TEST(WebSocket, CredentialsOfTheUrlBecomeAnAuthorization) {
    const PythonServer server;
    Client client("ws://user:p%40ss@127.0.0.1:" + server.port() + "/headers?a=b");
    const std::string headers = client.receive();
    EXPECT_NE(headers.find("Authorization: Basic dXNlcjpwQHNz"), std::string::npos) << headers;
    EXPECT_NE(headers.find("Host: 127.0.0.1:" + server.port() + "\n"), std::string::npos) << headers;
}

TEST(WebSocket, CertificatesAreVerifiedNameIncluded) {
    const TemporaryFolder folder;
    const auto make = [&folder](const std::string& name, const char* subject) {
        return std::system(("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj "
                            "/CN=test -addext subjectAltName=" +
                            std::string(subject) + " -keyout " + (folder / (name + ".key")) + " -out " +
                            (folder / (name + ".pem")) + " 2>/dev/null")
                               .c_str());
    };
    ASSERT_EQ(make("name", "DNS:localhost"), 0);
    ASSERT_EQ(make("address", "IP:127.0.0.1"), 0);
    const PythonServer by_name({folder / "name.pem", folder / "name.key"});
    const PythonServer by_address({folder / "address.pem", folder / "address.key"});
    const struct {
        const char *trusted, *host;
        const PythonServer& server;
        const char* reason;  // empty: works
    } cases[] = {{"name.pem", "localhost", by_name, ""},
                 {"address.pem", "127.0.0.1", by_address, ""},
                 {"name.pem", "127.0.0.1", by_name, "IP address mismatch"},
                 {"address.pem", "localhost", by_address, "hostname mismatch"},
                 {"address.pem", "localhost", by_name, "self-signed certificate"},
                 {"missing.pem", "localhost", by_name, "self-signed certificate"}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.host + " trusting "s + each.trusted);
        setenv("SSL_CERT_FILE", (folder / each.trusted).c_str(), 1);
        const LogCapture log;
        Client client("wss://"s + each.host + ":" + each.server.port() + "/echo");
        const bool is_sent = client.send(std::string(100'000, 'x'));
        EXPECT_EQ(is_sent, *each.reason == '\0') << log.text();
        if (is_sent) {
            EXPECT_EQ(client.receive().size(), 200'000 + std::strlen("binary: "));
            EXPECT_TRUE(client.socket->Disconnect());
        }
        EXPECT_TRUE(log.contains(each.reason)) << log.text();
    }
    // Without TLS on the one side.
    const LogCapture log;
    Client to_secure(by_name.url("/echo"));
    EXPECT_FALSE(to_secure.send("x"));
    const PythonServer plain;
    Client to_plain("wss://localhost:" + plain.port() + "/echo");
    EXPECT_EQ(to_plain.receive(), "failed");
}

TEST(WebSocket, AnotherThreadMayEndAWaitingCall) {
    const PythonServer server;
    const Listener silent;
    const LogCapture log;
    for (const bool is_destroyed : {false, true})
        for (const std::string& url : {server.url("/echo"), silent.url()}) {
            const bool is_open = url != silent.url();
            VlWebSocket* socket = VlWebSocket::Create();
            ASSERT_TRUE(socket->Connect(url.c_str()));
            if (is_open) {
                ASSERT_TRUE(socket->SendText("x"));
            }
            std::atomic<int> received{0};
            std::atomic<bool> is_inside{false};
            std::thread waiting([&] {
                VlWebSocketData* message = nullptr;
                is_inside = !is_open;
                while (socket->ReceiveData(message)) {
                    message->Release();
                    ++received;
                    is_inside = true;
                }
            });
            while (!is_inside)
                std::this_thread::yield();
            EXPECT_TRUE(is_destroyed || socket->Disconnect());
            if (is_destroyed) VlWebSocket::Destroy(socket);
            waiting.join();
            EXPECT_EQ(received, is_open ? 1 : 0);
            if (!is_destroyed) VlWebSocket::Destroy(socket);
        }
}

TEST(WebSocket, TwoThreadsSendAndReceiveAtOnce) {
    const PythonServer server;
    Client client(server.url("/echo"));
    constexpr int k_messages = 500;
    std::thread sending([&client] {
        for (int i = 0; i < k_messages; ++i)
            EXPECT_TRUE(client.socket->SendText(std::to_string(i).c_str()));
    });
    for (int i = 0; i < k_messages; ++i)
        EXPECT_EQ(client.receive(), "text: " + std::to_string(i));
    sending.join();
}

/// Runs in a process of its own, which has to end with 0 within a few seconds.
int ends_with(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(10);
        body();
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

TEST(WebSocket, TheProcessMayExitAndForkWithOpenConnections) {
    const PythonServer server;
    static Client* client_at_exit = nullptr;
    const auto open_one = [&server] {
        client_at_exit = new Client(server.url("/echo"));
        client_at_exit->socket->SendText("x");
        return client_at_exit;
    };
    EXPECT_EQ(ends_with([&] { open_one(); }), 0);
    EXPECT_EQ(ends_with([&] { open_one()->receive(); }), 0);
    EXPECT_EQ(ends_with([&] {
                  std::thread([client = open_one()] {
                      while (client->receive() != "failed") {
                      }
                  }).detach();
              }),
              0);
    static struct AtExit {
        ~AtExit() {
            if (client == nullptr) return;
            delete client;
            waiting.join();
        }
        Client* client = nullptr;
        std::thread waiting;
    } at_exit;
    EXPECT_EQ(ends_with([&] {
                  at_exit.client = open_one();
                  at_exit.client->receive();
                  at_exit.waiting = std::thread([] { at_exit.client->receive(); });
                  usleep(20'000);  // either order must do
              }),
              0)
        << "what a host destroys last";
    EXPECT_EQ(ends_with([&] {
                  vl_fast_initialize(nullptr, /*allocate_heaps*/ false);
                  open_one()->receive();
                  vl_closedown();
              }),
              0);
    EXPECT_EQ(ends_with([&] {
                  Client* client = open_one();
                  const int status = ends_with([client] {
                      if (client->socket->SendText("x") || client->receive() != "failed") _exit(3);
                      delete client;
                  });
                  if (status != 0 || client->receive() != "text: x") _exit(4);
              }),
              0)
        << "a child has no part in its parent's connection";
    EXPECT_EQ(ends_with([&] { Client(server.url("/goodbye")).socket->SendText("x"); }), 0);
    EXPECT_EQ(Client(server.url("/tell")).receive(), "text: 1 messages, code 1000") << "said while the process exits";
}

}  // namespace
