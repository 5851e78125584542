// The sandbox server: routing, parameter checks, faults, uploads, manifest.
#include "sandbox/Sandbox.h"

#include <httplib.h>
#include <plist/plist.h>

#include <chrono>
#include <fstream>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "foundation/JSON.h"
#include "foundation/Log.h"
#include "sandbox/Routes.h"
#include "sandbox/Seed.h"

namespace veltrane::sandbox {

namespace {

std::string envelope(const Answer& a) {
    Dictionary reply{{"status", a.ok ? 1 : 0}, {"info", a.info}};
    if (a.data) reply.set("data", *a.data);
    return writeJSON(reply);
}

std::string manifestPlist(const std::string& version, const std::optional<std::string>& note) {
    plist_t root = plist_new_dict();
    plist_t items = plist_new_array();
    plist_t item = plist_new_dict();
    plist_t assets = plist_new_array();
    plist_t asset = plist_new_dict();
    plist_dict_set_item(asset, "kind", plist_new_string("software-package"));
    plist_dict_set_item(asset, "url", plist_new_string("https://example.com/app/Veltrane-Counter.ipa"));
    plist_array_append_item(assets, asset);
    plist_t metadata = plist_new_dict();
    plist_dict_set_item(metadata, "bundle-identifier", plist_new_string("cn.example.veltrane.counter"));
    plist_dict_set_item(metadata, "bundle-version", plist_new_string(version.c_str()));
    plist_dict_set_item(metadata, "kind", plist_new_string("software"));
    plist_dict_set_item(metadata, "title", plist_new_string("营业厅助手"));
    if (note) plist_dict_set_item(metadata, "note", plist_new_string(note->c_str()));
    plist_dict_set_item(item, "assets", assets);
    plist_dict_set_item(item, "metadata", metadata);
    plist_array_append_item(items, item);
    plist_dict_set_item(root, "items", items);
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root, &xml, &length);
    std::string text(xml, length);
    free(xml);
    plist_free(root);
    return text;
}

} // namespace

struct Sandbox::Impl {
    Options options;
    httplib::Server server;
    std::thread thread;
    int port = 0;

    mutable std::mutex mutex;  // guards everything below
    State state;
    std::map<std::string, Fault> faults;
    Array uploads;
    std::string manifestVersion = "1.1";
    std::optional<std::string> manifestNote;

    explicit Impl(Options o) : options(std::move(o)) {
        std::string seed = seedText();
        if (options.dataDirectory) {
            std::ifstream custom(*options.dataDirectory / "seed.json");
            if (custom) seed.assign(std::istreambuf_iterator<char>(custom), {});
        }
        state.seed = loadSeed(seed);
        Dictionary manifest = state.seed.optDictionary("manifest");
        manifestVersion = manifest.optString("version").value_or("1.0");
        manifestNote = manifest.optString("note");
        configure();
    }

    // The fault to apply to this request of api, if any (counting it down).
    std::optional<Fault> takeFault(const std::string& api) {
        std::lock_guard lock(mutex);
        auto it = faults.find(api);
        if (it == faults.end()) return std::nullopt;
        Fault f = it->second;
        if (it->second.times > 0 && --it->second.times == 0) faults.erase(it);
        return f;
    }

    void serve(const Route& route, const httplib::Request& req, httplib::Response& res) {
        std::map<std::string, std::string> params;
        for (const auto& [k, v] : req.params) params[k] = v;

        if (std::optional<Fault> fault = takeFault(route.api)) {
            switch (fault->kind) {
            case Fault::Kind::failure: return reply(res, route, req, Answer::failure(fault->message));
            case Fault::Kind::malformed: return res.set_content(R"({"status":1,"info":"ok","data":[{"ID":)", "application/json");
            case Fault::Kind::delay: std::this_thread::sleep_for(std::chrono::milliseconds(fault->delayMilliseconds)); break;
            case Fault::Kind::drop:
                // Promises a body and closes the connection before sending it.
                return res.set_content_provider(64, "application/json", [](size_t, size_t, httplib::DataSink&) { return false; });
            }
        }
        Answer answer;
        if (req.method != route.method) {
            answer = Answer::failure(std::string("请求方法错误: ") + route.api + " 需要 " + route.method);
        } else if (std::optional<std::string> problem = checkParameters(route, params)) {
            answer = Answer::failure(*problem);
        } else {
            std::lock_guard lock(mutex);
            try {
                answer = route.handler(Call{std::move(params)}, state);
            } catch (const std::exception& e) {
                answer = Answer::failure(std::string("服务器内部错误: ") + e.what());
            }
        }
        reply(res, route, req, answer);
    }

    void reply(httplib::Response& res, const Route& route, const httplib::Request& req, const Answer& answer) {
        res.set_content(envelope(answer), "application/json; charset=utf-8");
        if (options.logRequests)
            log("sandbox: " + req.method + " " + route.api + " -> " + (answer.ok ? "ok " : "refused ") + answer.info);
    }

    void upload(const httplib::Request& req, httplib::Response& res) {
        auto field = [&](const char* name) -> std::optional<httplib::MultipartFormData> {
            if (!req.has_file(name)) return std::nullopt;
            return req.get_file_value(name);
        };
        auto pdf = field("pdf"), sn = field("SN"), id = field("ID");
        Answer answer;
        if (!req.is_multipart_form_data()) answer = Answer::failure("上传格式错误: 需要 multipart/form-data");
        else if (!pdf || pdf->filename.empty()) answer = Answer::failure("缺少文件: pdf");
        else if (!sn) answer = Answer::failure("缺少参数: SN");
        else if (!id) answer = Answer::failure("缺少参数: ID");
        else {
            std::string path = "/uploads/sign/" + sn->content + "-" + pdf->filename;
            std::lock_guard lock(mutex);
            uploads.push_back(Dictionary{{"SN", sn->content}, {"ID", id->content}, {"fileName", pdf->filename},
                                         {"contentType", pdf->content_type}, {"size", static_cast<long>(pdf->content.size())}});
            if (options.dataDirectory) {
                std::filesystem::create_directories(*options.dataDirectory / "uploads");
                std::ofstream(*options.dataDirectory / "uploads" / (sn->content + "-" + pdf->filename), std::ios::binary) << pdf->content;
            }
            answer = Answer::success(Dictionary{{"path", path}}, "上传成功");
        }
        res.set_content(envelope(answer), "application/json; charset=utf-8");
    }

    void configure() {
        server.set_tcp_nodelay(true);
        server.set_keep_alive_max_count(1000);
        for (const Route& route : routes()) {
            std::string path = "/index.php/api/" + route.api;
            auto handler = [this, &route](const httplib::Request& req, httplib::Response& res) { serve(route, req, res); };
            server.Get(path, handler);
            server.Post(path, handler);
        }
        server.Post("/index.php/api/common/upload", [this](const httplib::Request& req, httplib::Response& res) { upload(req, res); });
        server.Get("/manifest.plist", [this](const httplib::Request&, httplib::Response& res) {
            std::lock_guard lock(mutex);
            res.set_content(manifestPlist(manifestVersion, manifestNote), "application/xml");
        });
        server.Post("/sandbox/fault", [this](const httplib::Request& req, httplib::Response& res) {
            static const std::map<std::string, Fault::Kind> kinds{
                {"failure", Fault::Kind::failure}, {"malformed", Fault::Kind::malformed}, {"delay", Fault::Kind::delay}, {"drop", Fault::Kind::drop}};
            auto kind = kinds.find(req.get_param_value("kind"));
            if (!req.has_param("api") || kind == kinds.end()) {
                res.set_content(envelope(Answer::failure("需要 api 和 kind=failure|malformed|delay|drop")), "application/json");
                return;
            }
            Fault f;
            f.kind = kind->second;
            if (req.has_param("message")) f.message = req.get_param_value("message");
            f.delayMilliseconds = std::atoi(req.get_param_value("delay").c_str());
            if (req.has_param("times")) f.times = std::atoi(req.get_param_value("times").c_str());
            {
                std::lock_guard lock(mutex);
                faults[req.get_param_value("api")] = f;
            }
            res.set_content(envelope(Answer::success(Value(), "fault set")), "application/json");
        });
        server.Post("/sandbox/clear-faults", [this](const httplib::Request&, httplib::Response& res) {
            std::lock_guard lock(mutex);
            faults.clear();
            res.set_content(envelope(Answer::success(Value(), "faults cleared")), "application/json");
        });
        server.Post("/sandbox/push", [this](const httplib::Request& req, httplib::Response& res) {
            long id = pushMessage(std::atoi(req.get_param_value("userID").c_str()), req.get_param_value("Type"), req.get_param_value("Content"));
            res.set_content(envelope(Answer::success(Dictionary{{"ID", id}}, "queued")), "application/json");
        });
    }

    long pushMessage(int32_t receiver, std::string type, std::string content) {
        std::lock_guard lock(mutex);
        long id = state.nextPushID++;
        state.list("pushMessages").push_back(Dictionary{{"ID", id}, {"Type", std::move(type)}, {"ReceiverID", receiver},
                                                        {"Content", std::move(content)}, {"CreateTime", 1763700000L}});
        return id;
    }
};

Sandbox::Sandbox(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Sandbox::~Sandbox() { stop(); }

void Sandbox::start() {
    Impl& i = *impl_;
    i.port = i.options.port ? (i.server.bind_to_port(i.options.host, i.options.port) ? i.options.port : -1)
                            : i.server.bind_to_any_port(i.options.host);
    if (i.port <= 0) throw std::runtime_error("sandbox: cannot listen on " + i.options.host + ":" + std::to_string(i.options.port));
    i.thread = std::thread([&i] { i.server.listen_after_bind(); });
    while (!i.server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void Sandbox::run() {
    start();
    impl_->thread.join();
}

void Sandbox::stop() {
    impl_->server.stop();
    if (impl_->thread.joinable() && impl_->thread.get_id() != std::this_thread::get_id()) impl_->thread.join();
}

int Sandbox::port() const { return impl_->port; }
std::string Sandbox::address() const { return "http://" + impl_->options.host + ":" + std::to_string(impl_->port); }

void Sandbox::setFault(const std::string& api, Fault fault) {
    std::lock_guard lock(impl_->mutex);
    impl_->faults[api] = std::move(fault);
}

void Sandbox::clearFaults() {
    std::lock_guard lock(impl_->mutex);
    impl_->faults.clear();
}

long Sandbox::queuePushMessage(int32_t receiverID, std::string type, std::string content) {
    return impl_->pushMessage(receiverID, std::move(type), std::move(content));
}

void Sandbox::setManifestVersion(std::string version, std::optional<std::string> note) {
    std::lock_guard lock(impl_->mutex);
    impl_->manifestVersion = std::move(version);
    impl_->manifestNote = std::move(note);
}

Array Sandbox::uploads() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->uploads.copy();
}

std::string Sandbox::builtInSeed() { return seedText(); }

} // namespace veltrane::sandbox
