// Privacy of the log: names, identity numbers, phones, addresses and photos
// are masked in every entry before the application's sink sees it, unless a
// development build opts in.
#include <veltrane/Veltrane.h>

#include <cstdio>
#include <string>

using namespace veltrane;

int main() {
    std::string seen;
    setLogSink([&](std::string_view line) { seen.append(line).append("\n"); });  // the application's logger

    Dictionary customer{{"CTUserName", "林小满"}, {"CTCardNumber", "440106199001011234"}, {"Tel", "13910001234"}, {"Amount", 6999}};
    logValue("order:", customer);
    log("calling 13910001234 about the order");

    logPersonalDataInClear(true);  // development builds only
    log("calling 13910001234 about the order");
    logPersonalDataInClear(false);

    std::fputs(seen.c_str(), stdout);
    return seen.find("44**************34") != std::string::npos && seen.find("139****1234") != std::string::npos ? 0 : 1;
}
