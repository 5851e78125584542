// libcurl set-up shared by the transports.
#include "veltrane/platform/Curl.h"

#include <mutex>
#include <stdexcept>

namespace veltrane::curl {

void ensureGlobalInit() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

Easy makeEasy() {
    ensureGlobalInit();
    Easy easy(curl_easy_init());
    if (!easy) throw std::runtime_error("libcurl could not create a transfer");
    return easy;
}

void appendHeader(Slist& list, const std::string& line) {
    curl_slist* grown = curl_slist_append(list.get(), line.c_str());
    if (!grown) throw std::bad_alloc();
    // curl_slist_append returns the same head when the list was not empty.
    if (grown != list.get()) {
        Slist replacement(grown);
        list = std::move(replacement);
    }
}

std::string describe(CURLcode code, const char* errorBuffer) {
    std::string message = curl_easy_strerror(code);
    if (errorBuffer && *errorBuffer) message += std::string(": ") + errorBuffer;
    return message;
}

size_t appendToString(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

} // namespace veltrane::curl
