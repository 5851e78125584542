// Errors: every failure reaches the completion as (false, a message), never
// as an exception, and the message says where: the API name, and for a reply
// that does not read, the key and element at fault.
#include <veltrane/Veltrane.h>

#include <cstdio>

using namespace veltrane;

int main() {
    auto transport = std::make_shared<MemoryTransport>();
    Server::setTransport(transport);
    setLogSink({});

    // The server refuses: its message, unchanged.
    transport->script("postLockPhone", {false, "号码已被锁定: 13910001234", std::nullopt});
    auto lock = awaitFlag([](auto done) { NumberInfo::lockPhoneNumber("13910001234", 1, done); });
    std::printf("refused: %s\n", lock.message.value_or("").c_str());

    // A reply that does not read as records: the API, then the key and element.
    transport->script("getPhonePages", {true, "ok", parseJSON(R"({"count":1,"totalPages":1,"totalRows":1,"nowPage":1,
        "data":[{"Phone":"13910001234","Rank":null,"Prestore":50}]})")});
    auto page = await<DataPage<NumberInfo>>([](auto done) { NumberInfo::listWithCompany(1, 2, 0, 0, std::nullopt, 1, done); });
    std::printf("unreadable: %s\n", page.message.value_or("").c_str());

    // No transport at all: the same way.
    Server::setTransport(nullptr);
    auto none = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
    std::printf("no transport: %s\n", none.message.value_or("").c_str());
    return !lock.success && !page.success && !none.success ? 0 : 1;
}
