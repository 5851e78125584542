// A loopback server that misbehaves on command, for tests of what goes wrong
// on a network. The API name of a gateway request says how it is answered:
//   ok...      at once, {"status": 1, "info": "ok", "data": "<api>"}
//   slow<N>... after N ms, the same
//   stall...   not until release()
//   drop...    never: the connection closes without an answer
// and so does the path: /manifest.plist answers a manifest announcing 9.9 at
// once, /drip.plist sends one a byte every 200 ms, and the signature upload
// stalls. It counts the requests of each API name and path.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <regex>
#include <string>

#include "support/Loopback.h"

namespace veltrane::test {

class ControlledServer {
public:
    ControlledServer()
        : server_([this](httplib::Server& s) {
              s.new_task_queue = [] { return new httplib::ThreadPool(32); };
              s.set_keep_alive_timeout(1);
              s.Get(R"(/index.php/api/(\w+))", [this](const httplib::Request& req, httplib::Response& res) { answer(req.matches[1], res); });
              s.Post(R"(/index.php/api/common/upload)", [this](const httplib::Request&, httplib::Response& res, const httplib::ContentReader& read) {
                  read([](const httplib::MultipartFormData&) { return true; }, [](const char*, size_t) { return true; });
                  count("upload");
                  stall();
                  res.set_content(R"({"released":true})", "application/json");
              });
              s.Post(R"(/index.php/api/(\w+))", [this](const httplib::Request& req, httplib::Response& res) { answer(req.matches[1], res); });
              s.Get("/manifest.plist", [this](const httplib::Request&, httplib::Response& res) {
                  count("manifest");
                  res.set_content(manifest(), "application/xml");
              });
              s.Get("/drip.plist", [this](const httplib::Request&, httplib::Response& res) {
                  count("drip");
                  res.set_chunked_content_provider("application/xml", [this, body = manifest()](size_t offset, httplib::DataSink& sink) {
                      std::unique_lock lock(mutex_);
                      if (released_ || offset >= body.size()) return sink.done(), true;
                      changed_.wait_for(lock, std::chrono::milliseconds(200), [&] { return released_; });
                      return sink.write(&body[offset], 1);
                  });
              });
          }) {}
    ~ControlledServer() { release(); }

    std::string address() const { return server_.address(); }

    // Lets every stalled request answer, and every drip end.
    void release() {
        std::lock_guard lock(mutex_);
        released_ = true;
        changed_.notify_all();
    }
    size_t received(const std::string& name) const {
        std::lock_guard lock(mutex_);
        auto it = counts_.find(name);
        return it == counts_.end() ? 0 : it->second;
    }
    // Waits until a request of name has arrived.
    bool waitForRequest(const std::string& name, std::chrono::milliseconds within = std::chrono::seconds(5)) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, within, [&] { return counts_.count(name) != 0; });
    }

private:
    static std::string manifest() {
        return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>items</key><array><dict><key>metadata</key>)"
               R"(<dict><key>bundle-version</key><string>9.9</string></dict></dict></array></dict></plist>)";
    }
    void count(const std::string& name) {
        std::lock_guard lock(mutex_);
        ++counts_[name];
        changed_.notify_all();
    }
    void stall() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return released_; });
    }
    void answer(const std::string& api, httplib::Response& res) {
        count(api);
        if (api.rfind("stall", 0) == 0) stall();
        if (api.rfind("drop", 0) == 0)
            return res.set_content_provider(64, "application/json", [](size_t, size_t, httplib::DataSink&) { return false; });
        if (std::smatch m; std::regex_search(api, m, std::regex("^slow(\\d+)")))
            std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(m[1])));
        res.set_content(R"({"status":1,"info":"ok","data":")" + api + "\"}", "application/json");
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool released_ = false;
    std::map<std::string, size_t> counts_;
    LoopbackServer server_;  // last: it stops first, while what its handlers use still stands
};

} // namespace veltrane::test
