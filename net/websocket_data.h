// The received message that hosts get.
#pragma once

#include "platform/websocket_transport.h"
#include "vellcore/websocket_client.h"

class WebSocketData final : public VlWebSocketData {
public:
    explicit WebSocketData(vell::WebSocketMessage&& received) noexcept : message(std::move(received)) {}

    void Release() noexcept override;
    [[nodiscard]] int GetType() const noexcept override;
    [[nodiscard]] const void* GetData() const noexcept override;
    [[nodiscard]] const char* GetText() const noexcept override;
    [[nodiscard]] unsigned long GetSize() const noexcept override;

    vell::WebSocketMessage message;
};
