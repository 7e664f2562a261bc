#include "net/websocket_data.h"

#include <cstring>

void WebSocketData::Release() noexcept {
    delete this;
}

int WebSocketData::GetType() const noexcept {
    return static_cast<int>(message.kind);
}

const void* WebSocketData::GetData() const noexcept {
    if (message.bytes.size() > 0) return message.bytes.data();
    return message.kind == vell::MessageKind::text ? "" : nullptr;
}

const char* WebSocketData::GetText() const noexcept {
    return static_cast<const char*>(GetData());
}

unsigned long WebSocketData::GetSize() const noexcept {
    if (message.bytes.size() == 0) return 0;
    return message.kind == vell::MessageKind::text ? std::strlen(message.bytes.data()) : message.bytes.size();
}
