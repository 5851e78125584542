// Headless chromium driven through WebDriver (chromium-driver): a session,
// pages, elements, scripts, the console and screenshots.
#pragma once

#include <httplib.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>

#include "veltrane/foundation/JSON.h"
#include "veltrane/platform/Encodings.h"
#include "support/Loopback.h"
#include "support/Process.h"

namespace veltrane::test {

// One browser session on its own chromedriver; both end with the object.
// Every call throws std::runtime_error naming the command that failed.
// Thread rules: one thread at a time.
class Browser {
public:
    // Throws when chromium or chromedriver is missing or does not start.
    Browser() {
        for (const char* program : {"/usr/bin/chromium", "/usr/bin/chromedriver"})
            if (!std::filesystem::exists(program))
                throw std::runtime_error(std::string(program) + " is missing: scripts/bootstrap installs chromium and chromium-driver");
        int port = closedPort();  // free now; chromedriver takes it
        driver_ = std::make_unique<Process>("chromedriver", std::vector<std::string>{"--port=" + std::to_string(port)});
        if (!driver_->waitFor("started successfully")) throw std::runtime_error("chromedriver did not start: " + driver_->output);
        client_ = std::make_unique<httplib::Client>("127.0.0.1", port);
        client_->set_read_timeout(60, 0);
        Value session = command("POST", "/session", parseJSON(R"({"capabilities":{"alwaysMatch":{"browserName":"chrome",
            "goog:chromeOptions":{"binary":"/usr/bin/chromium","args":["--headless=new","--no-sandbox","--disable-gpu",
            "--disable-dev-shm-usage","--window-size=1280,1500","--lang=zh-CN"]},"goog:loggingPrefs":{"browser":"ALL"}}}})"));
        session_ = std::string(session.asDictionary().optString("sessionId").value_or(""));
        if (session_.empty()) throw std::runtime_error("no WebDriver session: " + writeJSON(session));
    }
    ~Browser() {
        if (!session_.empty()) client_->Delete("/session/" + session_);
    }

    void open(const std::string& url) { command("POST", at("/url"), Dictionary{{"url", url}}); }
    // Runs script (a function body; arguments[0..]) in the page; its return value.
    Value run(const std::string& script, Array arguments = {}) {
        return command("POST", at("/execute/sync"), Dictionary{{"script", script}, {"args", arguments}});
    }
    // Waits until script returns true; false after within.
    bool waitUntil(const std::string& script, std::chrono::milliseconds within = std::chrono::seconds(15)) {
        for (auto end = std::chrono::steady_clock::now() + within; std::chrono::steady_clock::now() < end;) {
            Value answer = run(script);
            if (answer.isBool() && answer.asBool()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return false;
    }
    // Types text into the element matched by a CSS selector, after clearing it.
    void type(const std::string& selector, const std::string& text) {
        std::string element = find(selector);
        command("POST", at("/element/" + element + "/clear"), Dictionary());
        command("POST", at("/element/" + element + "/value"), Dictionary{{"text", text}});
    }
    void click(const std::string& selector) { command("POST", at("/element/" + find(selector) + "/click"), Dictionary()); }
    // The console's messages at level SEVERE: script errors, failed loads.
    std::vector<std::string> consoleErrors() {
        std::vector<std::string> errors;
        Value log = command("POST", at("/se/log"), Dictionary{{"type", "browser"}});
        for (const Value& e : log.asArray())
            if (e.asDictionary().optString("level") == "SEVERE") errors.emplace_back(e.asDictionary().optString("message").value_or(""));
        return errors;
    }
    // Writes a PNG of the window to file.
    void screenshot(const std::filesystem::path& file) {
        std::optional<std::string> png = base64DecodeStrict(command("GET", at("/screenshot"), std::nullopt).asString());
        if (!png) throw std::runtime_error("screenshot: not base64");
        std::ofstream(file, std::ios::binary) << *png;
    }

private:
    std::string at(const std::string& path) const { return "/session/" + session_ + path; }
    std::string find(const std::string& selector) {
        Value found = command("POST", at("/element"), Dictionary{{"using", "css selector"}, {"value", selector}});
        for (const auto& [key, id] : found.asDictionary()) return std::string(id.asString());
        throw std::runtime_error("no element " + selector);
    }
    // One WebDriver command: its "value".
    Value command(const std::string& method, const std::string& path, std::optional<Value> body) {
        httplib::Result res = method == "GET" ? client_->Get(path) : client_->Post(path, body ? writeJSON(*body) : "{}", "application/json");
        if (!res) throw std::runtime_error(method + " " + path + ": no answer from chromedriver");
        Value reply = parseJSON(res->body);
        if (res->status != 200) throw std::runtime_error(method + " " + path + ": " + res->body.substr(0, 500));
        return reply.asDictionary().valueOrNull("value");
    }
    std::unique_ptr<Process> driver_;
    std::unique_ptr<httplib::Client> client_;
    std::string session_;
};

} // namespace veltrane::test
