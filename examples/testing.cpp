// Testing an application's code: with MemoryTransport in unit tests (scripted
// replies, and the requests as sent), and against the sandbox dealer server
// over HTTP in integration tests (a scenario set through its control routes,
// and its journal read back).
//
//   testing [SANDBOX_URL]     (without it, only the in-memory part runs)
#include <veltrane/Veltrane.h>

#include <cstdio>

using namespace veltrane;

// The application's code under test: locks a number, says whether it could.
static bool reserve(const std::string& phone) {
    return awaitFlag([&](auto done) { NumberInfo::lockPhoneNumber(phone, 1, done); }).success;
}

// POSTs a form to a sandbox control route; its envelope's "info".
static std::string control(const std::string& url, const std::string& form) {
    HTTPRequest request;
    request.url = url;
    request.method = "POST";
    request.headers = {{"Content-Type", "application/x-www-form-urlencoded"}};
    request.body = form;
    HTTPSession::Outcome outcome = HTTPSession::perform(request);
    std::optional<Dictionary> reply = outcome.data ? jsonDictionary(*outcome.data) : std::nullopt;
    return reply ? reply->optString("info").value_or("") : "no answer";
}

int main(int argc, char** argv) {
    setLogSink({});
    // Unit test: script the reply, run the code, check what it sent.
    auto memory = std::make_shared<MemoryTransport>();
    memory->script("postLockPhone", {true, "锁定成功", std::nullopt});
    Server::setTransport(memory);
    bool ok = reserve("13310001234");
    MemoryTransport::Request sent = memory->lastRequest();
    std::printf("in memory: %s, sent %s %s\n", ok ? "reserved" : "refused", sent.api.c_str(), writeJSON(*sent.params).c_str());
    if (!ok || sent.params->optString("phone") != "13310001234") return 1;
    if (argc < 2) return 0;

    // Integration test: the first lock fails as the server would when busy, the second passes.
    std::string sandbox = argv[1];
    HTTPTransport::install();
    Server::setAddress(sandbox);
    std::printf("scenario: %s\n", control(sandbox + "/sandbox/scenario",
        "api=postLockPhone&steps=" + formURLEncode(R"([{"kind":"failure","message":"系统繁忙"},{"kind":"normal"}])")).c_str());
    bool first = reserve("13310001234"), second = reserve("13310001234");
    HTTPRequest journal;
    journal.url = sandbox + "/sandbox/requests?api=postLockPhone&limit=2";
    std::optional<Dictionary> entries = jsonDictionary(HTTPSession::perform(journal).data.value_or(""));
    size_t journaled = entries ? entries->optArray("data").value_or(Array()).size() : 0;
    std::printf("with the sandbox: first %s, second %s, %zu requests in its journal\n", first ? "reserved" : "refused",
                second ? "reserved" : "refused", journaled);
    control(sandbox + "/sandbox/reset", "");
    return !first && second && journaled == 2 ? 0 : 1;
}
