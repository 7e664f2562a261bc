// What a ws or wss URL says, and which proxy leads there.
#pragma once

#include "platform/websocket_transport.h"

namespace vell {

/// Fills the request from a URL and from the proxy variables of the environment (http_proxy for ws; https_proxy and
/// HTTPS_PROXY for wss; all_proxy, ALL_PROXY; no_proxy, NO_PROXY). Proxies that are not HTTP proxies are not used.
/// @return  false for a URL that is malformed, has a character outside ASCII, or another scheme; and short of memory.
[[nodiscard]] bool read_websocket_url(const char* url, WebSocketRequest& request) noexcept;

}  // namespace vell
