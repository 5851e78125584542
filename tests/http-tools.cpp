// The command line and the sandbox as tools: arguments, exit statuses and
// messages; uploads that stay in their folder; data folders and seeds;
// request bodies, idle connections, faults and the request log.
#include <httplib.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "sandbox/Sandbox.h"
#include "veltrane/Version.h"
#include "support/Heap.h"
#include "support/SandboxTest.h"
#include "veltrane/foundation/Tag.h"

namespace veltrane {
namespace {

using namespace std::chrono_literals;

// Runs the veltrane command line; returns its exit status and what it wrote.
std::pair<int, std::string> veltrane(const std::string& arguments) {
    std::string command = std::string(VELTRANE_CLI) + " " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    char buffer[4096];
    while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
    int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), output};
}

// A TCP connection to a loopback port, or -1.
int connectTo(int port) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) return fd;
    ::close(fd);
    return -1;
}

struct CommandCase {
    std::string arguments;  // "{server}" stands for the sandbox's address, "{port}" for its port
    int status;
    const char* output;  // a part of what it writes
};

class Tools : public test::SandboxTest {};

TEST_F(Tools, TheCommandLineBehavesLikeOne) {
    const CommandCase cases[] = {
        {"--help", 0, "Subcommands:"},
        {"sandbox --help", 0, "/sandbox/fault"},
        {"--version", 0, "veltrane " VELTRANE_VERSION_STRING "\nlibcurl "},
        {"--version", 0, "\nlibplist 2."},
        {"", 2, "subcommand"},
        {"frob", 2, "unknown command \"frob\""},
        {"sandbox --port 99999", 2, "--port"},
        {"sandbox --frob", 2, "--frob"},
        {"sandbox --data /no/such/folder", 2, "--data: no such folder: /no/such/folder"},
        {"sandbox --port {port}", 1, "cannot listen on 127.0.0.1:{port}"},
        {"sandbox --dump-seed -", 0, "\"certificateTypes\""},
        {"call", 2, "an API name is needed"},
        {"call nosuchapi", 2, "unknown API name \"nosuchapi\""},
        {"call getLabel notapair --server {server}", 2, "\"notapair\" is not key=value"},
        {"call --list", 0, "GET  getLabel  type=integer companyid=integer"},
        {"call getLabel companyid=1 type=1 --server {server}", 0, R"("success":true,"message":"ok","data":[{"ID":1)"},
        {"call postLockPhone companyid=1 phone=1 --server {server}", 1, "号码不存在: 1"},
        {"call getLabel companyID=1 type=1 --server {server}", 1, "缺少参数: companyid"},
        {"call getLabel companyid=1 type=1 --timing --server {server}", 0, "timing: attempt 1: HTTP 200 over HTTP/1.1 on a new connection, sent "},
        {"call getLabel companyid=1 type=1 --timeout 0 --server {server}", 2, "--timeout"},
    };
    auto fill = [&](std::string text) {
        for (auto [field, value] : {std::pair<std::string, std::string>{"{server}", sandbox->address()}, {"{port}", std::to_string(sandbox->port())}})
            for (size_t at; (at = text.find(field)) != std::string::npos;) text.replace(at, field.size(), value);
        return text;
    };
    for (const CommandCase& c : cases) {
        SCOPED_TRACE(c.arguments);
        auto [status, output] = veltrane(fill(c.arguments));
        EXPECT_EQ(status, c.status) << output;
        EXPECT_NE(output.find(fill(c.output)), std::string::npos) << output;
    }
}

// ---- The sandbox ---------------------------------------------------------------

using test::SandboxFolder;

TEST_F(SandboxFolder, UploadsNeverLeaveTheirFolder) {
    sandbox::Options options;
    options.dataDirectory = dir / "data";
    sandbox::Sandbox server(options);
    server.start();
    struct {
        const char* SN;
        const char* ID;
        const char* message;
    } cases[] = {
        {"/tmp/escaped", "1", "参数格式错误"}, {"../../escaped", "1", "参数格式错误"}, {"a/b", "1", "参数格式错误"},
        {"", "1", "参数格式错误"},             {"SN1", "1; rm -rf /", "参数格式错误"}, {"SN1", "../1", "参数格式错误"},
        {"SN1", "", "参数格式错误"},           {"SN1", "9999999999999999999", "参数格式错误"}, {"AF20261120001", "811", "上传成功"},
        {"AF-2026_x", "-5", "上传成功"},
    };
    httplib::Client client(server.address());
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.SN) + " / " + c.ID);
        httplib::MultipartFormDataItems items{{"pdf", "%PDF-1.4", "../../../escaped.pdf", "application/pdf"}, {"SN", c.SN, "", ""}, {"ID", c.ID, "", ""}};
        auto res = client.Post("/index.php/api/common/upload", items);
        ASSERT_TRUE(res);
        Dictionary reply = parseJSON(res->body).asDictionary();
        EXPECT_EQ(reply.optString("info").value_or("").rfind(c.message, 0), 0u) << res->body;
        EXPECT_EQ(reply.optBool("status"), std::string(c.message) == "上传成功");
    }
    std::vector<std::string> stored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir))
        if (entry.path().filename().string().rfind("sandbox.sqlite", 0) != 0) stored.push_back(std::filesystem::relative(entry.path(), dir));
    std::sort(stored.begin(), stored.end());
    EXPECT_EQ(stored, (std::vector<std::string>{"data", "data/uploads", "data/uploads/AF-2026_x--5.pdf", "data/uploads/AF20261120001-811.pdf"}));
    EXPECT_FALSE(std::filesystem::exists("/tmp/escaped-1.pdf"));
    EXPECT_EQ(server.uploads().size(), 2u) << "only what was stored is listed";
    // Served from the folder, not from memory.
    EXPECT_EQ(client.Get("/uploads/sign/AF-2026_x--5.pdf")->body, "%PDF-1.4");
    std::filesystem::remove(dir / "data" / "uploads" / "AF-2026_x--5.pdf");
    EXPECT_EQ(client.Get("/uploads/sign/AF-2026_x--5.pdf")->status, 404);
}

// Sends a request whose body goes chunked, as much as the server takes, and
// returns the status line of its answer; *peak gets the most heap this
// process held meanwhile.
std::string chunkedRequest(int port, const std::string& head, const std::string& opening, size_t bodyBytes, size_t* peak = nullptr) {
    int fd = connectTo(port);
    std::string request = head + "Transfer-Encoding: chunked\r\n\r\n";
    auto chunk = [](const std::string& data) {
        char size[16];
        std::snprintf(size, sizeof size, "%zx\r\n", data.size());
        return size + data + "\r\n";
    };
    std::string first = request + chunk(opening), block = chunk(std::string(64 << 10, 'x'));  // made once: the test's own memory stays put
    ::send(fd, first.data(), first.size(), MSG_NOSIGNAL);
    for (size_t sent = 0; sent < bodyBytes; sent += 64 << 10) {
        if (::send(fd, block.data(), block.size(), MSG_NOSIGNAL) < 0) break;
        if (peak) *peak = std::max(*peak, test::heapInUse());
    }
    char reply[64] = {};
    ::recv(fd, reply, sizeof reply - 1, 0);
    ::close(fd);
    return std::string(reply).substr(0, std::string(reply).find('\r'));
}

// No body is kept past 8 MiB, chunked or not, wherever it is sent.
TEST_F(SandboxFolder, BodiesAreBoundedChunkedOrNot) {
    sandbox::Options options;
    options.dataDirectory = dir / "data";
    std::filesystem::create_directories(dir / "data");
    sandbox::Sandbox server(options);
    server.start();
    size_t before = test::heapInUse(), peak = before;
    std::string multipart = "--b\r\nContent-Disposition: form-data; name=\"pdf\"; filename=\"a.pdf\"\r\n\r\n";
    EXPECT_EQ(chunkedRequest(server.port(), "POST /index.php/api/common/upload HTTP/1.1\r\nHost: x\r\nContent-Type: multipart/form-data; boundary=b\r\n",
                             multipart, 48 << 20, &peak),
              "HTTP/1.1 413 Payload Too Large");
    EXPECT_LT(peak - before, 4u << 20) << "the body was not kept";
    EXPECT_EQ(server.uploads().size(), 0u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "data" / "uploads"), {}), 0) << "nothing left on disk";
    EXPECT_EQ(chunkedRequest(server.port(), "GET /index.php/api/getLabel?type=1&companyid=1 HTTP/1.1\r\nHost: x\r\n", "x", 16 << 20),
              "HTTP/1.1 400 Bad Request");
    EXPECT_EQ(chunkedRequest(server.port(), "POST /nowhere HTTP/1.1\r\nHost: x\r\n", "x", 16 << 20), "HTTP/1.1 404 Not Found");
}

TEST_F(SandboxFolder, DataFoldersAndSeedsAreChecked) {
    auto refusal = [](sandbox::Options options) {
        try {
            sandbox::Sandbox server(options);
        } catch (const std::invalid_argument& e) {
            return std::string(e.what());
        }
        return std::string("accepted");
    };
    sandbox::Options options;
    options.dataDirectory = dir / "missing";
    EXPECT_EQ(refusal(options), "--data: no such folder: " + (dir / "missing").string());
    std::ofstream(dir / "file") << "x";
    options.dataDirectory = dir / "file";
    EXPECT_EQ(refusal(options), "--data: not a folder: " + (dir / "file").string());
    options.dataDirectory = dir / "data";
    std::ofstream(dir / "data" / "seed.json") << "{\n  \"labels\": [1,\n    2 x]\n}";
    EXPECT_EQ(refusal(options).rfind((dir / "data" / "seed.json").string() + ": line 3, column 7: malformed JSON", 0), 0u) << refusal(options);
    std::ofstream(dir / "data" / "seed.json") << "[]";
    EXPECT_NE(refusal(options).find("the seed is an array, not a JSON object"), std::string::npos);

    // The built-in seed, dumped and edited, is a seed.
    auto [status, output] = veltrane("sandbox --dump-seed " + (dir / "data" / "seed.json").string());
    ASSERT_EQ(status, 0) << output;
    std::string seed;
    std::getline(std::ifstream(dir / "data" / "seed.json"), seed, '\0');
    seed.replace(seed.find("加急"), 6, "特急");
    std::ofstream(dir / "data" / "seed.json") << seed;
    sandbox::Sandbox server(options);
    server.start();
    httplib::Client client(server.address());
    auto res = client.Get("/index.php/api/getLabel?type=1&companyid=1");
    EXPECT_NE(res->body.find("特急"), std::string::npos);
}

TEST_F(Tools, LargeFormBodiesPassAndTooLargeOnesAreRefusedUnread) {
    httplib::Client client(sandbox->address());
    std::string picture(2 << 20, 'A');
    auto res = client.Post("/index.php/api/postIdcard", "username=gz_tianhe_07&idcard=Name%3D%E5%BC%A0%26Picture%3D" + picture,
                           "application/x-www-form-urlencoded");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 200);
    EXPECT_EQ(parseJSON(res->body).asDictionary().optString("info"), "上传成功") << res->body.substr(0, 200);

    // A body past the limit is refused by its declared length, before it is read.
    int fd = connectTo(sandbox->port());
    ASSERT_GE(fd, 0);
    std::string head = "POST /index.php/api/postIdcard HTTP/1.1\r\nHost: x\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                       "Content-Length: 268435456\r\n\r\nusername=";
    ASSERT_EQ(::send(fd, head.data(), head.size(), 0), static_cast<ssize_t>(head.size()));
    char reply[64] = {};
    ASSERT_GT(::recv(fd, reply, sizeof reply - 1, 0), 0);
    ::close(fd);
    EXPECT_EQ(std::string(reply).rfind("HTTP/1.1 413", 0), 0u) << reply;
}

TEST_F(Tools, IdleConnectionsDoNotStarveTheServer) {
    HTTPTransportOptions patient;  // a loaded machine may be slow; a starved server takes 5 s and more
    patient.timeout = 20s;
    Server::setTransport(std::make_shared<HTTPTransport>(patient));
    std::vector<int> idle;
    for (int i = 0; i < 64; ++i) {
        int fd = connectTo(sandbox->port());
        ASSERT_GE(fd, 0);
        idle.push_back(fd);
    }
    auto start = std::chrono::steady_clock::now();
    auto tags = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
    EXPECT_TRUE(tags.success) << tags.message.value_or("");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
    for (int fd : idle) ::close(fd);
}

TEST(SandboxLog, OneLinePerRequestThatNoValueCanForge) {
    std::vector<std::string> lines;
    std::mutex mutex;
    LogSink previous = setLogSink([&](std::string_view line) {
        std::lock_guard lock(mutex);
        lines.emplace_back(line);
    });
    {
        sandbox::Options options;
        options.logRequests = true;
        sandbox::Sandbox server(options);
        server.start();
        server.setFault("getPlanList", {.message = "busy", .times = 1});
        httplib::Client client(server.address());
        client.Get("/index.php/api/getLabel?type=1&companyid=1");
        client.Get("/index.php/api/getPlanList?companyid=1");
        client.Get("/index.php/api/forged%0Asandbox:%20GET%20getLabel%20200");
        server.stop();
    }
    setLogSink(previous);
    ASSERT_EQ(lines.size(), 3u);
    // Workers log as they finish, not necessarily in the order of the requests.
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines[0].rfind("sandbox: GET forged\\nsandbox: GET getLabel 200 404 ", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1].rfind("sandbox: GET getLabel 200 ", 0), 0u) << lines[1];
    EXPECT_EQ(lines[1].substr(lines[1].size() - 2), "ms");
    EXPECT_EQ(lines[2].rfind("sandbox: GET getPlanList 200 ", 0), 0u) << lines[2];
    EXPECT_NE(lines[2].find(" fault=failure"), std::string::npos) << lines[2];
    EXPECT_EQ(sandbox::escapedForLog("a\r\n\x1b[31m\\ 张"), "a\\r\\n\\x1b[31m\\\\ \\xe5\\xbc\\xa0");
}

} // namespace
} // namespace veltrane
