// Debian's nginx on loopback, started and stopped by a test or a benchmark:
// two TLS sites in front of one plain HTTP server, each with a certificate
// and key that openssl makes here. Site 0 speaks HTTP/2 and HTTP/1.1 (ALPN),
// site 1 HTTP/1.1 only. Both certificates are self-signed for 127.0.0.1 and
// gathered in trust(), the file a client trusts them by.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/Loopback.h"

namespace veltrane::test {

class Nginx {
public:
    // Why nginx cannot run here, or nothing.
    static std::optional<std::string> missing() {
        for (const char* tool : {"/usr/sbin/nginx", "/usr/bin/openssl"})
            if (::access(tool, X_OK) != 0) return std::string(tool) + " is missing: scripts/bootstrap installs nginx and openssl";
        return std::nullopt;
    }

    // Serves upstream ("127.0.0.1:<port>") on two TLS ports; throws
    // std::runtime_error, with nginx's own error log, when it cannot.
    explicit Nginx(const std::string& upstream)
        : folder_(std::filesystem::temp_directory_path() / ("veltrane-nginx-" + std::to_string(::getpid()) + "-" + std::to_string(counter()++))) {
        if (auto why = missing()) throw std::runtime_error(*why);
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_);
        std::string trust;
        for (int site = 0; site < 2; ++site) {
            std::string key = file(site, "key.pem"), certificate = file(site, "certificate.pem");
            run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=127.0.0.1 "
                "-addext subjectAltName=IP:127.0.0.1 -keyout " + key + " -out " + certificate);
            pins_[site] = "sha256//" + run("openssl pkey -in " + key + " -pubout -outform der | openssl dgst -sha256 -binary | openssl base64 -A");
            ports_[site] = closedPort();
            std::ifstream in(certificate);
            trust.append(std::istreambuf_iterator<char>(in), {});
        }
        std::ofstream(trustFile()) << trust;
        std::string site0 = server(0, "ssl http2"), site1 = server(1, "ssl");
        std::string f = folder_.string();
        std::ofstream(f + "/nginx.conf")
            << "daemon off;\nmaster_process off;\npid " << f << "/nginx.pid;\nerror_log " << f << "/error.log warn;\n"
            << "events { worker_connections 512; }\n"
            << "http {\n  log_format sites '$server_port $connection $server_protocol $request_method $uri $status';\n"
            << "  access_log " << f << "/access.log sites;\n  client_max_body_size 16m;\n"
            << "  client_body_temp_path " << f << "/body;\n  proxy_temp_path " << f << "/proxy;\n  fastcgi_temp_path " << f << "/fastcgi;\n"
            << "  uwsgi_temp_path " << f << "/uwsgi;\n  scgi_temp_path " << f << "/scgi;\n"
            << "  upstream sandbox { server " << upstream << "; keepalive 32; }\n" << site0 << site1 << "}\n";
        pid_ = ::fork();
        if (pid_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);  // never outlives the test, even one that crashes
            int null = ::open("/dev/null", O_RDWR);
            ::dup2(null, STDOUT_FILENO);
            ::dup2(null, STDERR_FILENO);
            ::execl("/usr/sbin/nginx", "nginx", "-p", f.c_str(), "-c", (f + "/nginx.conf").c_str(), nullptr);
            ::_exit(127);
        }
        for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10); !listening();) {
            if (std::chrono::steady_clock::now() > end || ::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                stop();
                std::ifstream log(f + "/error.log");
                throw std::runtime_error("nginx did not start: " + std::string(std::istreambuf_iterator<char>(log), {}));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    ~Nginx() {
        stop();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    Nginx(const Nginx&) = delete;
    Nginx& operator=(const Nginx&) = delete;

    std::string address(int site) const { return "https://127.0.0.1:" + std::to_string(ports_[site]); }
    // The site's public key as a pin: "sha256//<base64>".
    const std::string& pin(int site) const { return pins_[site]; }
    // Both certificates, as a file of authorities to trust.
    std::string trustFile() const { return (folder_ / "trust.pem").string(); }

private:
    static int& counter() {
        static int n = 0;
        return n;
    }
    std::string file(int site, const char* name) const { return (folder_ / ("site" + std::to_string(site) + "-" + name)).string(); }

    std::string server(int site, const char* listen) const {
        return "  server {\n    listen 127.0.0.1:" + std::to_string(ports_[site]) + " " + listen + ";\n    ssl_certificate " +
               file(site, "certificate.pem") + ";\n    ssl_certificate_key " + file(site, "key.pem") + ";\n" +
               "    location / { proxy_pass http://sandbox; proxy_http_version 1.1; proxy_set_header Connection \"\"; }\n  }\n";
    }

    // Runs a shell command; its standard output; throws when it fails.
    static std::string run(const std::string& command) {
        FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
        std::string out;
        std::array<char, 4096> buffer;
        while (size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe)) out.append(buffer.data(), n);
        if (::pclose(pipe) != 0) throw std::runtime_error("failed: " + command);
        return out;
    }

    bool listening() const {
        for (int port : ports_) {
            int fd = ::socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in addr{};
            addr.sin_family = AF_INET;
            addr.sin_port = htons(static_cast<uint16_t>(port));
            addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            bool up = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
            ::close(fd);
            if (!up) return false;
        }
        return true;
    }

    void stop() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

    std::filesystem::path folder_;
    std::array<std::string, 2> pins_;
    std::array<int, 2> ports_{};
    pid_t pid_ = -1;
};

} // namespace veltrane::test
