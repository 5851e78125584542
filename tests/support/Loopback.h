// A cpp-httplib server on a free loopback port, started and stopped by a test.
#pragma once

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

namespace veltrane::test {

class LoopbackServer {
public:
    // configure adds the routes before the server starts listening.
    explicit LoopbackServer(const std::function<void(httplib::Server&)>& configure) {
        server_.set_logger([this](const httplib::Request& req, const httplib::Response&) {
            std::lock_guard lock(mutex_);
            clientPorts_.insert(req.remote_port);
            ++requests_;
        });
        server_.set_keep_alive_max_count(1000);
        server_.set_tcp_nodelay(true);
        configure(server_);
        port_ = server_.bind_to_any_port("127.0.0.1");
        if (port_ <= 0) throw std::runtime_error("cannot bind a loopback port");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~LoopbackServer() {
        server_.stop();
        thread_.join();
    }

    int port() const { return port_; }
    std::string address() const { return "http://127.0.0.1:" + std::to_string(port_); }
    // How many connections (distinct client ports) have carried requests.
    size_t connections() const {
        std::lock_guard lock(mutex_);
        return clientPorts_.size();
    }
    size_t requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::set<int> clientPorts_;
    size_t requests_ = 0;
};

// A loopback port on which nothing listens: bound, read, closed.
inline int closedPort() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    ::close(fd);
    return ntohs(addr.sin_port);
}

} // namespace veltrane::test
