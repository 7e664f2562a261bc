// Round trips of a small message, and messages of 1 and 16 MiB sent and echoed, on loopback with the same echo server:
// VlWebSocket, a plain blocking Beast client, and the Python client of python3-websockets.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "vellcore/websocket_client.h"
#include "websocket_peers.h"

namespace {

const std::string& server_port() {
    static const std::string port = bench::start_echo_server();
    return port;
}

class OurClient {
public:
    explicit OurClient(const std::string& port) : socket_(VlWebSocket::Create()) {
        if (!socket_->Connect(("ws://127.0.0.1:" + port + "/").c_str()) || !socket_->SetMaxDataSize(256 << 20))
            std::abort();
    }
    ~OurClient() { VlWebSocket::Destroy(socket_); }
    OurClient(const OurClient&) = delete;
    OurClient& operator=(const OurClient&) = delete;

    void send(void* bytes, size_t size) {
        if (!socket_->SendData(bytes, size)) std::abort();
    }
    size_t receive() {
        VlWebSocketData* message = nullptr;
        if (!socket_->ReceiveData(message)) std::abort();
        const size_t size = message->GetSize();
        message->Release();
        return size;
    }

private:
    VlWebSocket* socket_;
};

template <class Client>
void round_trips(benchmark::State& state) {
    std::string bytes(static_cast<size_t>(state.range(0)), 'x');
    Client client(server_port());
    for (auto _ : state) {
        client.send(bytes.data(), bytes.size());
        if (client.receive() != bytes.size()) std::abort();
    }
    state.SetBytesProcessed(static_cast<int64_t>(2 * bytes.size()) * state.iterations());
    state.counters["trips/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

/// The Python client measures itself: seconds of one round trip.
void python_round_trips(benchmark::State& state) {
    const auto trips = state.range(0) < 4096 ? 5000 : state.range(0) < 4 << 20 ? 50 : 8;
    const std::string command =
        "/usr/bin/python3 -c '\n"
        "import asyncio, time, websockets\n"
        "async def main():\n"
        "    async with websockets.connect(\"ws://127.0.0.1:" +
        server_port() + "/\", max_size=None, compression=None) as socket:\n        data = b\"x\" * " +
        std::to_string(state.range(0)) + "\n        start = time.monotonic()\n        for _ in range(" +
        std::to_string(trips) +
        "):\n            await socket.send(data)\n            await socket.recv()\n"
        "        print((time.monotonic() - start) / " +
        std::to_string(trips) + ")\nasyncio.run(main())'";
    for (auto _ : state) {
        FILE* output = popen(command.c_str(), "r");
        double seconds = 0;
        if (output == nullptr || std::fscanf(output, "%lf", &seconds) != 1) {
            state.SkipWithError("there is no python3-websockets");
            return;
        }
        pclose(output);
        state.SetIterationTime(seconds);
    }
}

void sizes(benchmark::internal::Benchmark* wanted) {
    wanted->Arg(32)->Arg(1 << 20)->Arg(16 << 20);
}

BENCHMARK(round_trips<OurClient>)->Name("websocket_echo/vellcore")->Apply(sizes)->UseRealTime();
BENCHMARK(round_trips<bench::BeastClient>)->Name("websocket_echo/beast")->Apply(sizes)->UseRealTime();
BENCHMARK(python_round_trips)->Name("websocket_echo/python")->Apply(sizes)->UseManualTime()->Iterations(1);

}  // namespace
