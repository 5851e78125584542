// The sandbox server: routing, parameter checks, faults and scenarios,
// uploads, manifest, limits, the request log and journal, and the state's
// store.
#include "sandbox/Sandbox.h"

#include <httplib.h>
#include <plist/plist.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <variant>

#include "sandbox/Faults.h"
#include "sandbox/Journal.h"
#include "sandbox/Page.h"
#include "sandbox/Routes.h"
#include "sandbox/Seed.h"
#include "sandbox/Store.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/PersonalData.h"
#include "veltrane/orders/ActionFormOrderRecord.h"
#include "veltrane/orders/Order.h"
#include "veltrane/platform/Encodings.h"
#include "veltrane/platform/ThreadPool.h"

namespace veltrane::sandbox {

namespace {

constexpr size_t kMaxBodyBytes = 8u << 20;
// An upload's parts: how many, and how long a text part may be.
constexpr size_t kMaxParts = 8;
constexpr size_t kMaxTextPart = 1024;

// cpp-httplib as Debian builds it listens with a backlog of 5, so a burst of
// new connections loses SYNs and waits a second for each retry. Listening
// again on the bound socket widens the backlog.
class Listener : public httplib::Server {
public:
    void widenBacklog() { ::listen(svr_sock_, SOMAXCONN); }
};

// Connections are served on a pool that grows with them: a keep-alive
// connection holds its thread while it is open, so a fixed pool smaller than
// the clients' connections makes the others wait for an idle one to time out.
class ConnectionPool : public httplib::TaskQueue {
public:
    void enqueue(std::function<void()> fn) override { pool_.submit(std::move(fn)); }
    void shutdown() override { pool_.shutdown(); }

private:
    ThreadPool pool_{"sandbox", 8, 1024, std::chrono::seconds(10)};
};

// A folder of the sandbox's own under the system's temporary folder.
std::filesystem::path temporaryFolder() {
    static std::atomic<int> count{0};
    std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("veltrane-sandbox-" + std::to_string(::getpid()) + "-" + std::to_string(++count));
    std::filesystem::create_directories(folder);
    return folder;
}

std::string envelope(const Answer& a) {
    Dictionary reply{{"status", a.ok ? 1 : 0}, {"info", a.info}};
    if (a.data) reply.set("data", *a.data);
    return writeJSON(reply);
}

// What the journal learns of the request being served on this thread, as
// its handlers go.
struct Note {
    std::chrono::steady_clock::time_point start;
    double time = 0;
    bool journaled = true;               // the sandbox's own control routes are not
    bool logged = false;                 // in the journal and the log already
    std::optional<std::string> api{};      // the API name; the path when absent
    std::optional<Dictionary> params{};    // as parsed
    std::optional<std::string> applied{};  // the fault or scenario step
    std::optional<std::pair<size_t, std::string>> reply{};  // size and text, when not the body itself
};
thread_local Note note;

// Sets the reply's body, and notes it for the journal as it is before any
// compression: text in full (the journal keeps its start), anything else by
// its size and type.
void send(httplib::Response& res, std::string body, const char* type) {
    std::string_view t(type);
    bool text = t.rfind("text/", 0) == 0 || t.rfind("application/json", 0) == 0 || t.rfind("application/xml", 0) == 0;
    note.reply = std::pair(body.size(), text ? body.substr(0, Journal::kReplyKept) : "(" + std::to_string(body.size()) + " bytes of " + type + ")");
    res.set_content(std::move(body), type);
}

void answer(httplib::Response& res, const Answer& a) { send(res, envelope(a), "application/json; charset=utf-8"); }

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

// A one-page PDF that shows title: the documents the sandbox generates.
std::string generatedPdf(const std::string& title) {
    std::string page = "BT /F1 18 Tf 72 720 Td (" + title + ") Tj ET";
    std::string pdf = "%PDF-1.4\n";
    std::vector<size_t> offsets;
    auto object = [&](const std::string& body) {
        offsets.push_back(pdf.size());
        pdf += std::to_string(offsets.size()) + " 0 obj\n" + body + "\nendobj\n";
    };
    object("<< /Type /Catalog /Pages 2 0 R >>");
    object("<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    object("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Contents 4 0 R /Resources << /Font << /F1 5 0 R >> >> >>");
    object("<< /Length " + std::to_string(page.size()) + " >>\nstream\n" + page + "\nendstream");
    object("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
    size_t xref = pdf.size();
    pdf += "xref\n0 " + std::to_string(offsets.size() + 1) + "\n0000000000 65535 f \n";
    for (size_t at : offsets) {
        char line[24];
        std::snprintf(line, sizeof line, "%010zu 00000 n \n", at);
        pdf += line;
    }
    pdf += "trailer\n<< /Size " + std::to_string(offsets.size() + 1) + " /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    return pdf;
}

// The fields of a form body ("a=1&b=x+y"), decoded.
std::map<std::string, std::string> formFields(std::string_view body) {
    std::map<std::string, std::string> fields;
    for (size_t start = 0; start < body.size();) {
        size_t end = std::min(body.find('&', start), body.size());
        std::string_view pair = body.substr(start, end - start);
        size_t eq = pair.find('=');
        if (!pair.empty()) fields[percentDecode(pair.substr(0, eq), true)] = eq == std::string_view::npos ? "" : percentDecode(pair.substr(eq + 1), true);
        start = end + 1;
    }
    return fields;
}

// A count of 1 to 999,999,999.
bool isCount(const std::string& text, int& value) {
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    value = std::stoi(text);
    return true;
}

// SHA-256 as bytes arrive: an upload's, for the journal.
class Sha256 {
public:
    Sha256() : context_(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
        if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) throw std::bad_alloc();
    }
    void update(std::string_view bytes) { EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()); }
    // The digest in hexadecimal; the same each time it is asked.
    const std::string& hex() {
        if (!hex_.empty()) return hex_;
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_DigestFinal_ex(context_.get(), digest, &length);
        static const char* digits = "0123456789abcdef";
        for (unsigned int i = 0; i < length; ++i) hex_ += {digits[digest[i] >> 4], digits[digest[i] & 15]};
        return hex_;
    }

private:
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
    std::string hex_;
};

double secondsSince1970() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}


// The socket of the connection req came on, found by its two ends: cpp-httplib
// does not hand it to handlers, and a reset or an empty reply needs it.
int socketOf(const httplib::Request& req) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        int fd = std::atoi(entry.path().filename().c_str());
        sockaddr_storage local{}, remote{};
        socklen_t localLength = sizeof local, remoteLength = sizeof remote;
        if (::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0 || local.ss_family != AF_INET ||
            ::getpeername(fd, reinterpret_cast<sockaddr*>(&remote), &remoteLength) != 0)
            continue;
        auto* l = reinterpret_cast<sockaddr_in*>(&local);
        auto* r = reinterpret_cast<sockaddr_in*>(&remote);
        if (ntohs(l->sin_port) == req.local_port && ntohs(r->sin_port) == req.remote_port) return fd;
    }
    return -1;
}

// The faults that go below HTTP are written on the request's connection by
// hand, and the connection is then closed under cpp-httplib, which has nothing
// left to write on (and would compress a reply, sending a dribble at once and
// ending a truncated one cleanly).
//   reset     the connection reset, nothing sent
//   empty     closed without a byte
//   truncate  a 200 that promises the whole reply, half of it, then closed
//   dribble   the whole reply, 16 bytes at a time over duration ms, then closed
void closeByHand(const httplib::Request& req, Fault::Kind kind, const std::string& reply, int duration) {
    int fd = socketOf(req);
    if (fd < 0) return;
    if (kind == Fault::Kind::reset) {
        sockaddr unspecified{};
        unspecified.sa_family = AF_UNSPEC;  // disconnects with a reset
        ::connect(fd, &unspecified, sizeof unspecified);
        return;
    }
    auto write = [fd](std::string_view bytes) { return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()); };
    if (kind != Fault::Kind::empty) {
        std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/json; charset=utf-8\r\nContent-Length: " + std::to_string(reply.size()) +
                           "\r\nConnection: close\r\n\r\n";
        constexpr size_t kPiece = 16;
        size_t pieces = (reply.size() + kPiece - 1) / kPiece;
        auto pause = std::chrono::milliseconds(duration) / std::max<size_t>(pieces, 1);
        bool sent = write(head);
        if (kind == Fault::Kind::truncate) sent = sent && write(std::string_view(reply).substr(0, reply.size() / 2));
        for (size_t at = 0; kind == Fault::Kind::dribble && sent && at < reply.size(); at += kPiece) {
            std::this_thread::sleep_for(pause);
            sent = write(std::string_view(reply).substr(at, kPiece));
        }
    }
    ::shutdown(fd, SHUT_RDWR);
}

} // namespace

std::string escapedForLog(std::string_view text) {
    static const char* hex = "0123456789abcdef";
    std::string out;
    for (unsigned char c : text) {
        if (c == '\n') out += "\\n";
        else if (c == '\r') out += "\\r";
        else if (c == '\t') out += "\\t";
        else if (c == '\\') out += "\\\\";
        else if (c < 0x20 || c >= 0x7F) out += std::string("\\x") + hex[c >> 4] + hex[c & 15];
        else out += static_cast<char>(c);
    }
    return out;
}

std::optional<std::string> uploadFileName(std::string_view SN, std::string_view ID) {
    auto snChar = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_'; };
    if (SN.empty() || SN.size() > 64 || !std::all_of(SN.begin(), SN.end(), snChar)) return std::nullopt;
    long id = 0;
    auto [end, error] = std::from_chars(ID.data(), ID.data() + ID.size(), id);
    if (ID.empty() || ID.front() == '+' || error != std::errc() || end != ID.data() + ID.size()) return std::nullopt;
    return std::string(SN) + "-" + std::string(ID) + ".pdf";
}

struct Sandbox::Impl {
    Options options;
    Listener server;
    std::thread thread;
    int port = 0;

    std::unique_ptr<Store> store;  // with --data
    std::unique_ptr<Journal> journal;

    mutable std::mutex mutex;  // guards everything below
    Dictionary seed;           // as loaded: what a reset goes back to
    State state;
    Array uploads;
    FaultTable faults;
    std::map<std::string, size_t> arrived;  // requests per API name, answered or not
    std::condition_variable arrival;
    // Where uploads are kept: DIR/uploads, or a temporary folder removed
    // with the sandbox. Their bytes never stay in memory.
    std::filesystem::path uploadsFolder;
    bool temporaryUploads = false;
    std::atomic<long> incoming{0};
    std::string manifestVersion;
    std::optional<std::string> manifestNote;

    explicit Impl(Options o) : options(std::move(o)) {
        std::string text = seedText();
        if (options.reset && !options.dataDirectory) throw std::invalid_argument("--reset: needs --data DIR (without it the state starts from the seed anyway)");
        if (options.dataDirectory) {
            const std::filesystem::path& dir = *options.dataDirectory;
            std::error_code error;
            if (!std::filesystem::exists(dir, error)) throw std::invalid_argument("--data: no such folder: " + dir.string());
            if (!std::filesystem::is_directory(dir, error)) throw std::invalid_argument("--data: not a folder: " + dir.string());
            if (std::ifstream custom(dir / "seed.json"); custom) text.assign(std::istreambuf_iterator<char>(custom), {});
        }
        try {
            seed = loadSeed(text);
        } catch (const std::invalid_argument& e) {
            throw std::invalid_argument((options.dataDirectory ? (*options.dataDirectory / "seed.json").string() : "the built-in seed") + ": " +
                                        e.what());
        }
        std::error_code error;
        if (options.dataDirectory) {
            store = std::make_unique<Store>(*options.dataDirectory / "sandbox.sqlite", options.reset);
            uploadsFolder = *options.dataDirectory / "uploads";
            if (!std::filesystem::create_directories(uploadsFolder, error) && error)
                throw std::invalid_argument("--data: cannot make " + uploadsFolder.string() + ": " + error.message());
        } else {
            uploadsFolder = temporaryFolder();
            temporaryUploads = true;
        }
        if (store && store->hasState()) std::tie(state, uploads) = store->load();
        else startOver();
        journal = std::make_unique<Journal>(options.revealPersonalData, store.get());
        Dictionary manifest = state.seed.optDictionary("manifest");
        manifestVersion = options.manifestVersion.value_or(manifest.optString("version").value_or("1.0"));
        manifestNote = options.manifestNote ? options.manifestNote : options.manifestVersion ? std::nullopt : manifest.optString("note");
        configure();
    }

    ~Impl() {
        std::error_code ignored;
        if (temporaryUploads) std::filesystem::remove_all(uploadsFolder, ignored);
    }

    // The state back to the seed, uploads forgotten (their files stay); saved. Under the lock.
    void startOver() {
        state = State();
        state.seed = seed.detached();
        uploads = Array();
        save();
    }

    // Commits the state before the request that changed it is answered. Under the lock.
    void save() {
        if (store) store->save(state, uploads);
    }

    void serve(const Route& route, const httplib::Request& req, httplib::Response& res, std::map<std::string, std::string> params) {
        note.api = route.api;
        Dictionary parsed;
        for (const auto& [key, value] : params) parsed.set(key, value);
        note.params = parsed;
        std::optional<std::pair<Fault, std::string>> taken;
        {
            std::lock_guard lock(mutex);
            taken = faults.take(route.api);
            ++arrived[route.api];
            arrival.notify_all();
        }
        std::optional<Fault> fault = taken ? std::optional(taken->first) : std::nullopt;
        if (taken) note.applied = taken->second;
        using K = Fault::Kind;
        if (fault) {
            switch (fault->kind) {
            case K::failure: return answer(res, Answer::failure(fault->message));
            case K::malformed: return send(res, R"({"status":1,"info":"ok","data":[{"ID":)", "application/json");
            case K::status:
                res.status = fault->status;
                return send(res, fault->body, "text/plain; charset=utf-8");
            case K::drop:
                // Promises a body and closes the connection before sending it.
                note.reply = std::pair<size_t, std::string>(0, "");
                return res.set_content_provider(64, "application/json", [](size_t, size_t, httplib::DataSink&) { return false; });
            case K::reset:
            case K::empty:
                closeByHand(req, fault->kind, "", 0);
                return journalByHand(req, res, 0, "");
            case K::delay: std::this_thread::sleep_for(std::chrono::milliseconds(fault->delayMilliseconds)); break;
            case K::dribble:
            case K::truncate:
            case K::normal: break;
            }
        }
        if (req.method != route.method) return answer(res, Answer::failure(std::string("请求方法错误: ") + route.api + " 需要 " + route.method));
        if (std::optional<std::string> problem = checkParameters(route, params)) return answer(res, Answer::failure(*problem));
        std::string reply;
        {
            std::lock_guard lock(mutex);
            try {
                reply = envelope(route.handler(Call{std::move(params)}, state));
                if (route.method == std::string("POST")) save();
            } catch (const std::exception& e) {
                reply = envelope(Answer::failure(std::string("服务器内部错误: ") + e.what()));
            }
        }
        if (fault && (fault->kind == K::dribble || fault->kind == K::truncate)) {
            closeByHand(req, fault->kind, reply, fault->delayMilliseconds);
            return journalByHand(req, res, 200, reply.substr(0, fault->kind == K::truncate ? reply.size() / 2 : reply.size()));
        }
        send(res, std::move(reply), "application/json; charset=utf-8");
    }

    // A form body, read here rather than by cpp-httplib (which refuses forms
    // past 8 KB); nothing when it is too large.
    static std::optional<std::map<std::string, std::string>> bodyFields(const httplib::Request& req, const httplib::ContentReader& read) {
        std::string body;
        bool whole = read([&](const char* data, size_t n) {
            if (body.size() + n > kMaxBodyBytes) return false;
            body.append(data, n);
            return true;
        });
        if (!whole) return std::nullopt;
        std::map<std::string, std::string> fields = formFields(body);
        for (const auto& [k, v] : req.params) fields.emplace(k, v);  // query parameters too
        return fields;
    }

    // The signature upload, read as it arrives: the file part goes straight
    // to a temporary file in the uploads folder, text parts stay in memory
    // (at most kMaxParts of kMaxTextPart bytes), and the body stops at
    // kMaxBodyBytes, chunked or not. Everything is checked before the file
    // takes its name and the state changes.
    void upload(const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& read) {
        note.api = "common/upload";
        if (!req.is_multipart_form_data()) return answer(res, Answer::failure("上传格式错误: 需要 multipart/form-data"));
        struct Part {
            std::string name, fileName, contentType, text;
            bool isFile = false;
        };
        std::vector<Part> parts;
        std::filesystem::path temporary = uploadsFolder / (".incoming-" + std::to_string(++incoming));
        std::ofstream file;
        Sha256 hash;
        size_t bytes = 0, fileSize = 0;
        std::optional<std::string> refusal;
        bool whole = read(
            [&](const httplib::MultipartFormData& f) {
                if (parts.size() == kMaxParts) refusal = "上传格式错误: 最多 " + std::to_string(kMaxParts) + " 个部分";
                if (refusal) return false;
                bool isFile = f.name == "pdf" && !file.is_open();  // the first "pdf" part
                parts.push_back({f.name, f.filename, f.content_type, {}, isFile});
                if (isFile) file.open(temporary, std::ios::binary);
                return true;
            },
            [&](const char* data, size_t n) {
                if ((bytes += n) > kMaxBodyBytes) refusal = "请求体过大: 最多 " + std::to_string(kMaxBodyBytes) + " 字节";
                else if (!parts.back().isFile && parts.back().text.size() + n > kMaxTextPart) refusal = "参数过长: " + escapedForLog(parts.back().name);
                if (refusal) return false;
                if (!parts.back().isFile) return parts.back().text.append(data, n), true;
                fileSize += n;
                hash.update(std::string_view(data, n));
                if (!file.write(data, static_cast<std::streamsize>(n))) refusal = "保存失败: 写入上传文件出错";
                return !refusal;
            });
        file.close();
        auto refuse = [&](std::string message) {
            std::error_code ignored;
            std::filesystem::remove(temporary, ignored);
            if (bytes > kMaxBodyBytes) res.status = 413;
            answer(res, Answer::failure(std::move(message)));
        };
        if (refusal) return refuse(*refusal);
        if (!whole) return refuse("上传不完整");
        auto part = [&](const char* name) -> const Part* {
            for (const Part& p : parts)
                if (p.name == name && (p.isFile || std::string_view(name) != "pdf")) return &p;
            return nullptr;
        };
        const Part *pdf = part("pdf"), *sn = part("SN"), *id = part("ID");
        // Journaled by name, size and hash: never the bytes.
        Dictionary params;
        for (const Part& p : parts)
            params.set(p.name, p.isFile ? Value(Dictionary{{"name", p.fileName}, {"size", static_cast<long>(fileSize)}, {"sha256", hash.hex()}})
                                        : Value(p.text));
        note.params = params;
        if (!pdf || pdf->fileName.empty()) return refuse("缺少文件: pdf");
        if (!sn) return refuse("缺少参数: SN");
        if (!id) return refuse("缺少参数: ID");
        std::optional<std::string> name = uploadFileName(sn->text, id->text);
        if (!name) return refuse("参数格式错误: SN 应为字母数字, ID 应为整数");
        std::lock_guard lock(mutex);
        std::error_code error;
        std::filesystem::rename(temporary, uploadsFolder / *name, error);
        if (error) return refuse("保存失败: " + *name);
        std::string path = "/uploads/sign/" + *name;
        size_t receipts = attachSignedCopy(state, sn->text, std::stol(id->text), path);
        uploads.push_back(Dictionary{{"SN", sn->text}, {"ID", id->text}, {"fileName", pdf->fileName}, {"storedAs", *name},
                                     {"contentType", pdf->contentType}, {"size", static_cast<long>(fileSize)}, {"sha256", hash.hex()},
                                     {"receipts", static_cast<long>(receipts)}, {"time", secondsSince1970()}});
        save();
        answer(res, Answer::success(Dictionary{{"path", path}}, "上传成功"));
    }

    // Serves a stored upload from its file, a piece at a time.
    void serveUpload(const std::string& name, httplib::Response& res) {
        auto in = std::make_shared<std::ifstream>(uploadsFolder / name, std::ios::binary | std::ios::ate);
        if (!*in) return void(res.status = 404);
        size_t size = static_cast<size_t>(in->tellg());
        note.reply = std::pair<size_t, std::string>(size, "(" + std::to_string(size) + " bytes of application/pdf)");
        res.set_content_provider(size, "application/pdf", [in](size_t offset, size_t length, httplib::DataSink& sink) {
            char buffer[64 * 1024];
            in->seekg(static_cast<std::streamoff>(offset));
            in->read(buffer, static_cast<std::streamsize>(std::min(length, sizeof buffer)));
            return in->gcount() > 0 && sink.write(buffer, static_cast<size_t>(in->gcount()));
        });
    }

    // A field of a control request, when given.
    using Fields = std::map<std::string, std::string>;
    static std::optional<std::string> field(const Fields& f, const char* name) {
        auto it = f.find(name);
        return it == f.end() ? std::nullopt : std::optional(it->second);
    }

    // The API name a control request names, or the failure that says why not.
    static std::variant<std::string, Answer> knownAPI(const Fields& f) {
        std::optional<std::string> api = field(f, "api");
        if (!api) return Answer::failure("缺少参数: api");
        if (!route(*api))
            return Answer::failure("未知接口: " + escapedForLog(*api));
        return *api;
    }

    Answer setFaultFromRequest(const Fields& f) {
        std::variant<std::string, Answer> api = knownAPI(f);
        if (Answer* refused = std::get_if<Answer>(&api)) return *refused;
        std::variant<Fault, std::string> fault = faultFromFields([&](const char* name) { return field(f, name); }, false);
        if (std::string* problem = std::get_if<std::string>(&fault)) return Answer::failure(*problem);
        std::lock_guard lock(mutex);
        faults.setFault(std::get<std::string>(api), std::get<Fault>(fault));
        return Answer::success(Value(), "fault set");
    }

    Answer setScenarioFromRequest(const Fields& f) {
        std::variant<std::string, Answer> api = knownAPI(f);
        if (Answer* refused = std::get_if<Answer>(&api)) return *refused;
        std::optional<std::string> steps = field(f, "steps");
        if (!steps) return Answer::failure("缺少参数: steps");
        std::variant<std::vector<Fault>, std::string> scenario = scenarioFromJSON(*steps);
        if (std::string* problem = std::get_if<std::string>(&scenario)) return Answer::failure(*problem);
        std::lock_guard lock(mutex);
        faults.setScenario(std::get<std::string>(api), std::get<std::vector<Fault>>(scenario));
        return Answer::success(Value(), "scenario set");
    }

    // GET /sandbox/requests: api, since (an entry number or, with a decimal
    // point, seconds since 1970), limit.
    std::variant<JournalQuery, Answer> journalQuery(const httplib::Request& req) const {
        JournalQuery q;
        if (req.has_param("api")) q.api = req.get_param_value("api");
        if (req.has_param("since")) {
            std::string since = req.get_param_value("since");
            char* end = nullptr;
            double value = std::strtod(since.c_str(), &end);
            if (since.empty() || *end || !(value >= 0)) return Answer::failure("参数格式错误: since 应为记录号或时间 (1970 年以来的秒数)");
            if (since.find('.') != std::string::npos) q.sinceTime = value;
            else q.after = static_cast<long>(value);
        }
        if (req.has_param("limit")) {
            int limit = 0;
            if (!isCount(req.get_param_value("limit"), limit) || limit == 0) return Answer::failure("参数格式错误: limit 应为正整数");
            q.limit = static_cast<size_t>(limit);
        }
        return q;
    }

    // What the sale holds, for the dashboard and the command line.
    // The names the library gives to order and action-form order statuses,
    // by code, for the page.
    static Dictionary statusNames() {
        Dictionary orders, actionOrders;
        for (long code = 0; code <= 10; ++code) {
            orders.set(std::to_string(code), stringOfOrderStatusName(static_cast<unsigned long>(code)));
            actionOrders.set(std::to_string(code), ActionFormOrderRecord(Dictionary{{"Status", code}}).statusName());
        }
        return Dictionary{{"orders", orders}, {"actionOrders", actionOrders}};
    }

    // Whether a Host header (or an origin's host) names this sandbox: its
    // address, or the loopback names, with its port.
    bool ownHost(const std::string& host) const {
        std::string p = ":" + std::to_string(port);
        for (const std::string& name : {options.host, std::string("127.0.0.1"), std::string("localhost"), std::string("[::1]")})
            if (host == name + p) return true;
        return false;
    }

    Dictionary snapshot() {
        std::lock_guard lock(mutex);
        Array phones, imeis;
        for (const std::string& p : state.lockedPhones) phones.push_back(p);
        for (const std::string& i : state.lockedImeis) imeis.push_back(i);
        Dictionary out{{"orders", state.list("orders").copy()},       {"actionOrders", state.list("actionOrders").copy()},
                       {"chats", state.list("chats").copy()},         {"pushMessages", state.list("pushMessages").copy()},
                       {"printRequests", state.list("printRequests").copy()}, {"uploads", uploads.copy()},
                       {"lockedPhones", phones},                      {"lockedImeis", imeis},
                       {"statusNames", statusNames()}};
        return options.revealPersonalData ? out : maskPersonalValue(out).asDictionary();
    }

    // Routes whose body is a form: read by hand, then handled. Control
    // routes (journaled false) stay out of the journal.
    template <class Handle>
    void postForm(const std::string& path, bool journaled, Handle handle) {
        server.Post(path, [handle, journaled](const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& read) {
            note.journaled = journaled;
            std::optional<std::map<std::string, std::string>> fields = bodyFields(req, read);
            if (!fields) {
                res.status = 413;
                return answer(res, Answer::failure("请求体过大"));
            }
            handle(req, res, std::move(*fields));
        });
    }
    template <class Handle>
    void control(const std::string& path, Handle handle) {
        server.Get(path, [handle](const httplib::Request& req, httplib::Response& res) {
            note.journaled = false;
            handle(req, res);
        });
    }

    // The journal's entry of a reply written by hand, now: cpp-httplib may
    // not log a request whose connection is gone. Status 0: no reply.
    void journalByHand(const httplib::Request& req, httplib::Response& res, int status, std::string sent) {
        res.status = status;
        note.reply = std::pair(sent.size(), std::move(sent));
        journaled(req, res);
    }

    // One entry of the journal, and the request log's line; once per request.
    void journaled(const httplib::Request& req, const httplib::Response& res) {
        if (note.logged) return;
        note.logged = true;
        auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - note.start).count();
        std::string path = req.path.rfind("/index.php/api/", 0) == 0 ? req.path.substr(15) : req.path;
        if (options.logRequests)
            log("sandbox: " + escapedForLog(req.method) + " " + escapedForLog(path) + " " + std::to_string(res.status) + " " + std::to_string(ms) + "ms" +
                (note.applied ? " " + *note.applied : ""));
        if (!note.journaled) return;
        JournalEntry e;
        e.time = note.time;
        e.method = req.method;
        e.api = note.api.value_or(path);
        if (note.params) e.params = *note.params;
        e.status = res.status;
        if (note.reply) {
            e.replyBytes = note.reply->first;
            e.reply = std::move(note.reply->second);
        }
        e.applied = note.applied;
        e.milliseconds = ms;
        journal->add(std::move(e));
    }

    void configure() {
        server.set_tcp_nodelay(true);
        server.set_keep_alive_max_count(1000);
        server.set_keep_alive_timeout(2);
        server.set_read_timeout(5, 0);
        server.set_write_timeout(5, 0);
        server.set_payload_max_length(kMaxBodyBytes);
        server.new_task_queue = [] { return new ConnectionPool(); };
        // Not SO_REUSEPORT: a second server on the same port is refused.
        server.set_socket_options([](socket_t sock) {
            int yes = 1;
            setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        });
        server.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
            note = Note{.start = std::chrono::steady_clock::now(), .time = secondsSince1970()};
            // Refused at once, without reading the body: a body declared too
            // large, and a body on anything but a POST (every POST route reads
            // its body itself, within the limit; cpp-httplib would read any
            // other whole, chunked ones without a limit).
            auto refuse = [&](int status, std::string message) {
                res.status = status;
                res.set_header("Connection", "close");
                answer(res, Answer::failure(std::move(message)));
                return httplib::Server::HandlerResponse::Handled;
            };
            const std::string& length = req.get_header_value("Content-Length");
            bool digits = !length.empty() && length.find_first_not_of("0123456789") == std::string::npos;
            if (digits && (length.size() > 18 || std::stoull(length) > kMaxBodyBytes))
                return refuse(413, "请求体过大: 最多 " + std::to_string(kMaxBodyBytes) + " 字节");
            bool body = (!length.empty() && length.find_first_not_of('0') != std::string::npos) || req.has_header("Transfer-Encoding");
            if (req.method != "POST" && body) return refuse(400, "请求格式错误: " + escapedForLog(req.method) + " 请求不带请求体");
            // The page and the control routes answer only under the address
            // the sandbox listens on (no other site's name resolving to it),
            // and take POSTs from its own page only.
            if (req.path.rfind("/sandbox", 0) == 0) {
                note.journaled = false;
                if (!ownHost(req.get_header_value("Host"))) return refuse(403, "拒绝访问: 只在本机地址上回答");
                const std::string& origin = req.get_header_value("Origin");
                if (req.method == "POST" && !origin.empty() && (origin.rfind("http://", 0) != 0 || !ownHost(origin.substr(7))))
                    return refuse(403, "拒绝访问: 只接受本页的请求");
            }
            return httplib::Server::HandlerResponse::Unhandled;
        });
        // Journaled as the reply is about to be written, so that a client
        // that has its reply finds its request in the journal; the logger
        // catches what never reaches that point.
        server.set_post_routing_handler([this](const httplib::Request& req, httplib::Response& res) { journaled(req, res); });
        server.set_logger([this](const httplib::Request& req, const httplib::Response& res) { journaled(req, res); });

        for (const Route& route : routes()) {
            std::string path = "/index.php/api/" + route.api;
            server.Get(path, [this, &route](const httplib::Request& req, httplib::Response& res) {
                serve(route, req, res, {req.params.begin(), req.params.end()});
            });
            postForm(path, true, [this, &route](const httplib::Request& req, httplib::Response& res, Fields fields) {
                serve(route, req, res, std::move(fields));
            });
        }
        server.Post("/index.php/api/common/upload",
                    [this](const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& read) { upload(req, res, read); });
        // The signed copies uploaded, and the documents the server generates.
        server.Get(R"(/uploads/sign/([A-Za-z0-9_-]+--?[0-9]+\.pdf))",
                   [this](const httplib::Request& req, httplib::Response& res) { serveUpload(req.matches[1], res); });
        server.Get(R"(/(receipts|sheets)/([A-Za-z0-9_-]+)\.pdf)", [](const httplib::Request& req, httplib::Response& res) {
            send(res, generatedPdf(std::string(req.matches[1]) + " " + std::string(req.matches[2])), "application/pdf");
        });
        server.Get("/manifest.plist", [this](const httplib::Request&, httplib::Response& res) {
            std::lock_guard lock(mutex);
            send(res, manifestPlist(manifestVersion, manifestNote), "application/xml");
        });

        // The page, from the files built in.
        server.Get("/sandbox", [](const httplib::Request&, httplib::Response& res) { res.set_redirect("/sandbox/"); });
        server.Get(R"(/sandbox/(|page\.css|page\.js|favicon\.svg))", [](const httplib::Request& req, httplib::Response& res) {
            std::string name = req.matches[1].length() ? std::string(req.matches[1]) : "index.html";
            auto [content, type] = *pageFile(name);
            res.set_header("Content-Security-Policy", "default-src 'self'; object-src 'none'; frame-ancestors 'none'; base-uri 'none'");
            res.set_header("X-Content-Type-Options", "nosniff");
            res.set_header("Cache-Control", "no-cache");
            send(res, std::string(content), type);
        });

        // The control routes: answers in the envelope, not journaled.
        control("/sandbox/print-requests", [this](const httplib::Request&, httplib::Response& res) {
            std::lock_guard lock(mutex);
            answer(res, Answer::success(state.list("printRequests").copy()));
        });
        control("/sandbox/state", [this](const httplib::Request&, httplib::Response& res) { answer(res, Answer::success(snapshot())); });
        control("/sandbox/requests", [this](const httplib::Request& req, httplib::Response& res) {
            std::variant<JournalQuery, Answer> q = journalQuery(req);
            if (Answer* refused = std::get_if<Answer>(&q)) return answer(res, *refused);
            answer(res, Answer::success(journal->entries(std::get<JournalQuery>(q))));
        });
        control("/sandbox/faults", [this](const httplib::Request&, httplib::Response& res) {
            std::lock_guard lock(mutex);
            answer(res, Answer::success(faults.list()));
        });
        postForm("/sandbox/fault", false, [this](const httplib::Request&, httplib::Response& res, Fields f) { answer(res, setFaultFromRequest(f)); });
        postForm("/sandbox/scenario", false,
                 [this](const httplib::Request&, httplib::Response& res, Fields f) { answer(res, setScenarioFromRequest(f)); });
        postForm("/sandbox/clear-faults", false, [this](const httplib::Request&, httplib::Response& res, Fields f) {
            std::optional<std::string> api = field(f, "api");
            std::lock_guard lock(mutex);
            faults.clear(api);
            answer(res, Answer::success(Value(), api ? "faults and scenario of " + escapedForLog(*api) + " cleared" : "faults cleared"));
        });
        postForm("/sandbox/push", false, [this](const httplib::Request&, httplib::Response& res, Fields p) {
            int user = 0;
            if (!isCount(p["userID"], user)) return answer(res, Answer::failure("参数格式错误: userID 应为整数"));
            if (p["Content"].empty()) return answer(res, Answer::failure("缺少参数: Content"));
            long id = pushMessage(user, p["Type"].empty() ? "notice" : p["Type"], p["Content"]);
            answer(res, Answer::success(Dictionary{{"ID", id}}, "queued"));
        });
        postForm("/sandbox/reset", false, [this](const httplib::Request&, httplib::Response& res, Fields) {
            {
                std::lock_guard lock(mutex);
                startOver();
                faults.clear();
            }
            answer(res, Answer::success(Value(), "state back to the seed"));
        });
        // Any other POST: not found, its body left unread.
        server.Post(".*", [](const httplib::Request&, httplib::Response& res, const httplib::ContentReader&) {
            res.status = 404;
            res.set_header("Connection", "close");
        });
    }

    long pushMessage(int32_t receiver, std::string type, std::string content) {
        std::lock_guard lock(mutex);
        long id = state.nextPushID++;
        state.list("pushMessages").push_back(Dictionary{{"ID", id}, {"Type", std::move(type)}, {"ReceiverID", receiver},
                                                        {"Content", std::move(content)}, {"CreateTime", static_cast<long>(std::time(nullptr))}});
        save();
        return id;
    }
};

Sandbox::Sandbox(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Sandbox::~Sandbox() { stop(); }

void Sandbox::start() {
    Impl& i = *impl_;
    i.port = i.options.port ? (i.server.bind_to_port(i.options.host, i.options.port) ? i.options.port : -1)
                            : i.server.bind_to_any_port(i.options.host);
    if (i.port <= 0)
        throw std::runtime_error("cannot listen on " + i.options.host + ":" + std::to_string(i.options.port) + " (is another server using it?)");
    i.server.widenBacklog();
    i.thread = std::thread([&i] { i.server.listen_after_bind(); });
    while (!i.server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void Sandbox::stop() {
    impl_->server.stop();
    if (impl_->thread.joinable() && impl_->thread.get_id() != std::this_thread::get_id()) impl_->thread.join();
}

int Sandbox::port() const { return impl_->port; }
std::string Sandbox::address() const { return "http://" + impl_->options.host + ":" + std::to_string(impl_->port); }

void Sandbox::setFault(const std::string& api, Fault fault) {
    std::lock_guard lock(impl_->mutex);
    impl_->faults.setFault(api, std::move(fault));
}

void Sandbox::setScenario(const std::string& api, std::vector<Fault> steps) {
    std::lock_guard lock(impl_->mutex);
    impl_->faults.setScenario(api, std::move(steps));
}

void Sandbox::clearFaults(const std::optional<std::string>& api) {
    std::lock_guard lock(impl_->mutex);
    impl_->faults.clear(api);
}

Array Sandbox::faults() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->faults.list();
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

Array Sandbox::journal(const JournalQuery& query) const { return impl_->journal->entries(query); }

size_t Sandbox::received(const std::string& api, const std::map<std::string, std::string>& withParams) const {
    return impl_->journal->count(api, withParams);
}

bool Sandbox::waitForRequest(const std::string& api, size_t count, std::chrono::milliseconds within) const {
    std::unique_lock lock(impl_->mutex);
    return impl_->arrival.wait_for(lock, within, [&] { return impl_->arrived[api] >= count; });
}

Dictionary Sandbox::state() const { return impl_->snapshot(); }

void Sandbox::reset() {
    std::lock_guard lock(impl_->mutex);
    impl_->startOver();
    impl_->faults.clear();
}

std::string Sandbox::builtInSeed() { return seedText(); }

} // namespace veltrane::sandbox
