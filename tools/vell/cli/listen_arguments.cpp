// vell listen

#include <memory>

#include "cli/arguments.h"
#include "commands/listen.h"
#include "ui/translation.h"

namespace tool {

void describe_listen(Arguments& program) {
    const auto options = std::make_shared<ListenOptions>();
    Arguments listen = program.command("listen", tr("help", "print the messages of a WebSocket server"));
    listen.value("URL", options->url, tr("help", "ws://host[:port]/path or wss://host[:port]/path"));
    listen.repeated_option("--send", options->sent, tr("help", "a text that the server gets first; may be repeated"));
    listen.flag("--json", options->is_json, tr("help", "one JSON object per message"));
    listen.footer(tr("help",
                     "A text is a line, a binary message its size and first bytes. Proxies are taken from the\n"
                     "environment, trusted certificates from the system.\n"
                     "\n"
                     "Exit codes:\n"
                     "  0  the server closed the connection, or interrupted\n"
                     "  1  a message cannot be printed\n"
                     "  2  wrong command line\n"
                     "  3  the connection cannot be made, was lost, or the server closed it with an error"));
    listen.run([options] { return listen_to_server(*options); });
}

}  // namespace tool
