// Sends two messages to a WebSocket server and prints what comes back.
//
//     websocket_echo ws://localhost:8765/    a server that sends back what it gets
//     websocket_echo                         no server: shows how a failed connection is told

#include <vellcore/vellcore.h>

#include <cstdio>

int main(int argument_count, char** arguments) {
    vl_fast_initialize(arguments[0], /*allocate_heaps*/ false);
    const char* url = argument_count > 1 ? arguments[1] : "ws://127.0.0.1:1/";
    char bytes[] = {0, 1, 2};
    int messages = 0;

    VlWebSocket* socket = VlWebSocket::Create();
    VlWebSocket::SetReceiveTimeOut(10'000);
    if (socket != nullptr && socket->Connect(url) && socket->SendText("h\xC3\xA9llo") && socket->SendData(bytes, 3)) {
        VlWebSocketData* message = nullptr;
        while (messages < 2 && socket->ReceiveData(message)) {
            ++messages;
            std::printf("%s message, %lu bytes\n", message->GetType() == VL_WEBSOCKET_TEXT ? "text" : "binary",
                        message->GetSize());
            message->Release();
        }
    }
    const int close_code = VlWebSocket::GetCloseCode(socket);
    VlWebSocket::Destroy(socket);
    vl_closedown();
    return messages == (argument_count > 1 ? 2 : 0) && close_code == (argument_count > 1 ? 0 : 1006) ? 0 : 1;
}
