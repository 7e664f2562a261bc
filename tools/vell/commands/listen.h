// vell listen: the messages of a WebSocket server.
//
// A text is a line, as it is; on a terminal, what could take it over is escaped as in names. A binary message is a line
// "binary, 5 bytes: 00 01 02 fe ff" with its first 32 bytes.
//
// With --json every message is one object:
//
//     {"type":"text","size":6,"text":"h\u00e9llo"}
//     {"type":"binary","size":2,"hex":"00ff"}
#pragma once

#include <string>
#include <vector>

#include "ui/failure.h"

namespace tool {

inline constexpr int k_exit_no_connection = 3;  ///< never made, lost, or ended by the server with an error

struct ListenOptions {
    std::string url;
    std::vector<std::string> sent;  ///< texts that the server gets first
    bool is_json = false;
};

/// Prints messages until the server closes the connection, or a signal comes. @return  the exit code.
int listen_to_server(const ListenOptions& options);

}  // namespace tool
