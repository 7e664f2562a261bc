// The Python server of the WebSocket tests.
#pragma once

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

/// websocket_server.py in a process of its own, gone with this object and with the test.
class PythonServer {
public:
    explicit PythonServer(const std::vector<std::string>& arguments = {}) {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
        std::vector<std::string> texts = {"/usr/bin/python3", VELL_WEBSOCKET_SERVER};
        texts.insert(texts.end(), arguments.begin(), arguments.end());
        std::vector<char*> pointers;
        for (std::string& text : texts)
            pointers.push_back(text.data());
        pointers.push_back(nullptr);
        process_ = fork();
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(ends[1], STDOUT_FILENO);
            execvp(pointers[0], pointers.data());
            _exit(127);
        }
        close(ends[1]);
        for (char c = 0; read(ends[0], &c, 1) == 1 && c != '\n';)
            port_ += c;
        close(ends[0]);
        if (port_.empty()) std::abort();  // it said why
    }
    ~PythonServer() { signal_now(SIGKILL); }
    PythonServer(const PythonServer&) = delete;
    PythonServer& operator=(const PythonServer&) = delete;

    /// SIGKILL also waits for the end.
    void signal_now(int signal_number) {
        if (process_ <= 0) return;
        kill(process_, signal_number);
        if (signal_number != SIGKILL) return;
        waitpid(process_, nullptr, 0);
        process_ = 0;
    }
    const std::string& port() const { return port_; }
    std::string url(const std::string& path) const { return "ws://127.0.0.1:" + port_ + path; }

private:
    pid_t process_;
    std::string port_;
};
