// A plain HTTP/1.1 server on loopback, written on sockets, for what no HTTP
// library does on purpose. It counts the attempts at each API
// (/index.php/api/<api>) and answers by the API's name:
//   ok...       200 with {"status": 1, "info": "ok"}, keeping the connection
//   drop...     closes the connection once the request and its body are in,
//               without a byte of answer
//   busy<N>...  503 to the first N attempts, then as ok
//   limit...    429 with "Retry-After: 1" to the first attempt, then as ok
//   silent...   nothing, until the client gives up
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <mutex>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace veltrane::test {

class RawServer {
public:
    RawServer() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof addr;
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || ::listen(listener_, 64) != 0 ||
            ::getsockname(listener_, reinterpret_cast<sockaddr*>(&addr), &length) != 0)
            throw std::runtime_error("cannot listen on loopback");
        port_ = ntohs(addr.sin_port);
        acceptor_ = std::thread([this] {
            for (;;) {
                int fd = ::accept(listener_, nullptr, nullptr);
                if (fd < 0) return;
                std::lock_guard lock(mutex_);
                connections_.emplace_back([this, fd] { serve(fd); });
            }
        });
    }
    ~RawServer() {
        stopping_ = true;
        ::shutdown(listener_, SHUT_RDWR);
        ::close(listener_);
        acceptor_.join();
        std::lock_guard lock(mutex_);
        for (std::thread& t : connections_) t.join();
    }

    std::string address() const { return "http://127.0.0.1:" + std::to_string(port_); }
    size_t attempts(const std::string& api) const {
        std::lock_guard lock(mutex_);
        auto it = attempts_.find(api);
        return it == attempts_.end() ? 0 : it->second;
    }

private:
    // Reads into buffer until it holds a whole request; false when the peer
    // closed or the server stops.
    bool readRequest(int fd, std::string& buffer, std::string& api) {
        for (;;) {
            size_t head = buffer.find("\r\n\r\n");
            if (head != std::string::npos) {
                std::smatch m;
                std::string headers = buffer.substr(0, head);
                size_t body = 0;
                if (std::regex_search(headers, m, std::regex("Content-Length: *([0-9]+)", std::regex::icase))) body = std::stoul(m[1]);
                if (buffer.size() >= head + 4 + body) {
                    std::regex_search(headers, m, std::regex("/index\\.php/api/(\\w+)"));
                    api = m.size() > 1 ? m[1].str() : "";
                    buffer.erase(0, head + 4 + body);
                    return true;
                }
            }
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 50) == 0) {
                if (stopping_) return false;
                continue;
            }
            char chunk[4096];
            ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
            if (n <= 0) return false;
            buffer.append(chunk, static_cast<size_t>(n));
        }
    }

    void serve(int fd) {
        std::string buffer, api;
        while (readRequest(fd, buffer, api)) {
            size_t attempt;
            {
                std::lock_guard lock(mutex_);
                attempt = ++attempts_[api];
            }
            std::smatch busy;
            if (api.rfind("drop", 0) == 0) break;
            if (api.rfind("silent", 0) == 0) {  // until the client closes
                for (char c; !stopping_;) {
                    pollfd p{fd, POLLIN, 0};
                    if (::poll(&p, 1, 50) > 0 && ::recv(fd, &c, 1, MSG_PEEK) <= 0) break;
                }
                break;
            }
            std::string status = "200 OK", extra, body = R"({"status":1,"info":"ok"})";
            if (std::regex_search(api, busy, std::regex("^busy(\\d)")) && attempt <= std::stoul(busy[1])) {
                status = "503 Service Unavailable";
                body = "busy";
            } else if (api.rfind("limit", 0) == 0 && attempt == 1) {
                status = "429 Too Many Requests";
                extra = "Retry-After: 1\r\n";
                body = "slow down";
            }
            std::string reply = "HTTP/1.1 " + status + "\r\nContent-Type: application/json\r\n" + extra +
                                "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
            ::send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
        }
        ::close(fd);
    }

    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::thread acceptor_;
    mutable std::mutex mutex_;
    std::vector<std::thread> connections_;
    std::map<std::string, size_t> attempts_;
};

} // namespace veltrane::test
