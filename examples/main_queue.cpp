// Threads: a completion runs on the thread that delivers the reply (the
// transport's); a screen hands what it shows to the UI thread through the
// main queue, which the application's loop drives. Runs on its own, with an
// in-memory transport standing in for the server.
#include <veltrane/Veltrane.h>

#include <cstdio>
#include <thread>

using namespace veltrane;

int main() {
    auto transport = std::make_shared<MemoryTransport>();
    transport->setDeferred(true);  // answers come later, from another thread, as over the network
    transport->script("getLabel", {true, "ok", parseJSON(R"([{"ID":1,"Type":1,"Title":"加急","Content":"当天办结"}])")});
    Server::setTransport(transport);

    const std::thread::id ui = std::this_thread::get_id();
    bool shown = false;
    Tag::listWithCompany(1, 1, [&](bool ok, std::optional<std::string> message, std::optional<std::vector<Tag>> tags) {
        // Here: the transport's thread. Do no UI work; hand it over.
        std::printf("completion on the UI thread: %s\n", std::this_thread::get_id() == ui ? "yes" : "no");
        Dispatch::mainQueue().async([&, ok, message, tags] {
            std::printf("shown on the UI thread: %s; %zu tag(s), first \"%s\"\n", std::this_thread::get_id() == ui ? "yes" : "no",
                        ok && tags ? tags->size() : 0, ok && tags && !tags->empty() ? describeOrNull(tags->front().title()).c_str() : message.value_or("").c_str());
            shown = true;
        });
    });
    std::thread network([&] { transport->deliver(); });  // the reply arrives

    // The application's main loop: here, drive the main queue until the tags are shown.
    Dispatch::mainQueue().runFor(std::chrono::seconds(5), [&] { return shown; });
    network.join();
    return shown ? 0 : 1;
}
