// Sockets on the loopback interface, on ports that the system chooses, and child processes that end with the test.
#pragma once

#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// A listening socket.
class LoopbackPort {
public:
    explicit LoopbackPort(int flags = SOCK_CLOEXEC, int backlog = 128)
        : socket_(socket(AF_INET, SOCK_STREAM | flags, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(socket_, generic, length) == 0 && listen(socket_, backlog) == 0 &&
            getsockname(socket_, generic, &length) == 0)
            port_ = ntohs(address.sin_port);
    }
    ~LoopbackPort() { close_socket(); }
    LoopbackPort(const LoopbackPort&) = delete;
    LoopbackPort& operator=(const LoopbackPort&) = delete;

    int socket_number() const { return socket_; }
    std::string number() const { return std::to_string(port_); }
    void close_socket() {
        if (socket_ >= 0) close(std::exchange(socket_, -1));
    }

private:
    int socket_;
    uint16_t port_ = 0;
};

/// A program that is told to end with the test, also when the test dies.
class ServerProcess {
public:
    void start(std::vector<std::string> arguments, const std::string& variable = "") {
        const pid_t parent = getpid();
        child_ = fork();
        if (child_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent) _exit(1);
        std::string text = variable;
        if (!text.empty()) putenv(text.data());
        std::vector<char*> texts;
        for (std::string& argument : arguments)
            texts.push_back(argument.data());
        texts.push_back(nullptr);
        execvp(texts[0], texts.data());
        _exit(127);
    }
    ~ServerProcess() { stop(); }
    ServerProcess() = default;
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    void stop() {
        if (child_ <= 0) return;
        kill(child_, SIGTERM);
        waitpid(std::exchange(child_, -1), nullptr, 0);
    }

private:
    pid_t child_ = -1;
};
