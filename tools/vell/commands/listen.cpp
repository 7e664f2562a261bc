// The library's error lines are not shown: what they tell is in the message at the end.

#include "commands/listen.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string_view>

#include "ui/file_names.h"
#include "ui/interrupt.h"
#include "ui/screen.h"
#include "ui/translation.h"
#include "vellcore/message_log.h"
#include "vellcore/websocket_client.h"

namespace tool {
namespace {

constexpr unsigned k_look_interval_ms = 100;            // for interrupts
constexpr unsigned long k_largest_message = 256 << 20;  // bytes
constexpr size_t k_shown_bytes = 32;                    // of a binary message

struct Release {
    void operator()(VlWebSocketData* message) const { message->Release(); }
    void operator()(VlWebSocket* socket) const { VlWebSocket::Destroy(socket); }
};
using Message = std::unique_ptr<VlWebSocketData, Release>;
using Socket = std::unique_ptr<VlWebSocket, Release>;

std::string hex(std::string_view bytes, const char* separator) {
    constexpr char k_digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (!text.empty()) text += separator;
        text += {k_digits[byte >> 4], k_digits[byte & 15]};
    }
    return text;
}

std::string_view content(const VlWebSocketData& message) {
    return {message.GetSize() > 0 ? message.GetText() : "", message.GetSize()};
}

std::string json_line(const VlWebSocketData& message) {
    const bool is_text = message.GetType() == VL_WEBSOCKET_TEXT;
    return std::string("{\"type\":\"") + (is_text ? "text" : "binary") +
           "\",\"size\":" + std::to_string(message.GetSize()) +
           (is_text ? ",\"text\":" + json_string(content(message)) : ",\"hex\":\"" + hex(content(message), "") + "\"") +
           "}";
}

std::string plain_line(const VlWebSocketData& message, bool is_for_terminal) {
    const std::string_view bytes = content(message);
    if (message.GetType() == VL_WEBSOCKET_TEXT) return is_for_terminal ? printable_name(bytes) : std::string(bytes);
    const std::string shown = hex(bytes.substr(0, k_shown_bytes), " ");
    return formatted(tr("report", "binary, %llu bytes: %s"), number(bytes.size()), shown.c_str()) +
           (bytes.size() > k_shown_bytes ? " ..." : "");
}

/// True for the close codes of a server that is done: a normal end, going away, none given.
bool is_clean_end(int close_code) {
    return close_code == 1000 || close_code == 1001 || close_code == 1005;
}

[[noreturn]] void fail(const VlWebSocket* socket, const std::string& url) {
    std::string text(VlWebSocket::GetErrorText(socket, nullptr, 0), '\0');
    VlWebSocket::GetErrorText(socket, text.data(), text.size() + 1);
    // The reason is the transport's, which knows no language but English. It is fit to be shown.
    throw Failure{k_exit_no_connection,
                  printable_name(url) + ": " + formatted(tr("problem", "the connection failed: %s"), text.c_str())};
}

}  // namespace

int listen_to_server(const ListenOptions& options) {
    msg_setlevel(-1);
    catch_interrupts();
    const Socket socket(VlWebSocket::Create());
    if (socket == nullptr || !socket->Connect(options.url.c_str()))
        throw Failure{k_exit_command_line, printable_name(options.url) + ": " +
                                               tr("problem", "is not an address that begins with ws:// or wss://")};
    socket->SetMaxDataSize(k_largest_message);
    VlWebSocket::SetReceiveTimeOut(k_look_interval_ms);
    for (const std::string& text : options.sent)
        if (!socket->SendText(text.c_str())) {
            if (VlWebSocket::GetCloseCode(socket.get()) != 0) fail(socket.get(), options.url);
            throw Failure{k_exit_command_line, printable_name(text) + ": " + tr("problem", "is not UTF-8")};
        }
    const bool is_for_terminal = isatty(STDOUT_FILENO) == 1;
    while (!is_interrupted()) {
        VlWebSocketData* received = nullptr;
        if (socket->ReceiveData(received)) {
            const Message message(received);
            std::puts((options.is_json ? json_line(*message) : plain_line(*message, is_for_terminal)).c_str());
            if (!has_printed_all()) return k_exit_other;
        } else if (const int code = VlWebSocket::GetCloseCode(socket.get()); is_clean_end(code)) {
            break;
        } else if (code != 0) {
            fail(socket.get(), options.url);
        }
    }
    return k_exit_done;
}

}  // namespace tool
