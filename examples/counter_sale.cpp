// A small counter sale through Veltrane: sign in, list the order tags and the
// numbers on offer, lock one number and let it go again.
//
//   counter_sale http://127.0.0.1:8080      (a dealer server, or `veltrane sandbox`)
#include <veltrane/Veltrane.h>

#include <cstdio>
#include <string>

using namespace veltrane;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: counter_sale SERVER_URL\n");
        return 2;
    }
    std::printf("Veltrane %s\n", VELTRANE_VERSION_STRING);
    HTTPTransport::install();
    Server::setAddress(argv[1]);
    Account::signIn(User(/*ID*/ 7, /*companyID*/ 1, "gz_tianhe_07"));

    // Completions run on the transport's thread; a command-line tool waits for them.
    auto tags = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
    if (!tags.success) {
        std::fprintf(stderr, "getLabel failed: %s\n", tags.message.value_or("").c_str());
        return 1;
    }
    for (const Tag& tag : *tags.result) std::printf("tag %d: %s\n", tag.ID(), describeOrNull(tag.title()).c_str());

    auto page = await<DataPage<NumberInfo>>([](auto done) { NumberInfo::listWithCompany(1, 2, 0, 0, std::nullopt, 1, done); });
    if (!page.success || !page.result->data() || page.result->data()->empty()) {
        std::fprintf(stderr, "getPhonePages failed: %s\n", page.message.value_or("no numbers").c_str());
        return 1;
    }
    std::string phone(page.result->data()->front().phoneNumber()->asString());
    std::printf("%d numbers on offer; first %s\n", page.result->totalRows(), stringFormattedAsPhoneNumber(phone).c_str());

    for (bool lock : {true, false}) {
        auto done = awaitFlag([&](auto completion) {
            if (lock) NumberInfo::lockPhoneNumber(phone, 1, completion);
            else NumberInfo::unlockPhoneNumber(phone, 1, completion);
        });
        if (!done.success) {
            std::fprintf(stderr, "%s failed: %s\n", lock ? "postLockPhone" : "postUnLockPhone", done.message.value_or("").c_str());
            return 1;
        }
        std::printf("%s %s: %s\n", lock ? "locked" : "unlocked", phone.c_str(), done.message.value_or("").c_str());
    }
    return 0;
}
