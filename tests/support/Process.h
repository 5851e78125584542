// The veltrane command line (or another program) run in the background by a
// test, its output read as it comes, and stopped with a signal.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace veltrane::test {

// The veltrane command line running in the background, its output read as
// it comes.
class Process {
public:
    explicit Process(const std::vector<std::string>& arguments) : Process(VELTRANE_CLI, arguments) {}
    // Any program, found on the PATH.
    Process(const std::string& program, const std::vector<std::string>& arguments) {
        int out[2];
        if (pipe(out) != 0) throw std::runtime_error("pipe");
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            dup2(out[1], STDERR_FILENO);
            close(out[0]);
            std::vector<char*> argv{const_cast<char*>(program.c_str())};
            for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
            argv.push_back(nullptr);
            execvp(program.c_str(), argv.data());
            _exit(127);
        }
        close(out[1]);
        fd_ = out[0];
    }
    ~Process() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(fd_);
    }
    // Reads until the output holds text, or the time is up.
    bool waitFor(const std::string& text, std::chrono::milliseconds within = std::chrono::seconds(10)) {
        for (auto end = std::chrono::steady_clock::now() + within; output.find(text) == std::string::npos && std::chrono::steady_clock::now() < end;) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, 50) <= 0) continue;
            char buffer[4096];
            ssize_t n = read(fd_, buffer, sizeof buffer);
            if (n <= 0) break;
            output.append(buffer, static_cast<size_t>(n));
        }
        return output.find(text) != std::string::npos;
    }
    // Sends sig and returns the exit status.
    int stop(int sig) {
        kill(pid_, sig);
        return finish();
    }
    // Waits for the process to end by itself; returns the exit status.
    int finish() {
        waitFor("\x01", std::chrono::seconds(5));  // drains what is left
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    std::string output;

private:
    pid_t pid_ = -1;
    int fd_ = -1;
};

} // namespace veltrane::test
