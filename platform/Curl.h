/// @file
/// RAII owners of libcurl handles: one owner each, no copies, noexcept moves.
#pragma once

#include <curl/curl.h>

#include <string>
#include <utility>

namespace veltrane::curl {

/// Initialises libcurl once per process, before any handle is made.
void ensureGlobalInit();

template <class Handle, void (*Free)(Handle*)>
class Holder {
public:
    Holder() noexcept = default;
    explicit Holder(Handle* h) noexcept : h_(h) {}
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    Holder(Holder&& other) noexcept : h_(std::exchange(other.h_, nullptr)) {}
    Holder& operator=(Holder&& other) noexcept {
        if (this != &other) {
            reset();
            h_ = std::exchange(other.h_, nullptr);
        }
        return *this;
    }
    ~Holder() { reset(); }

    Handle* get() const noexcept { return h_; }
    explicit operator bool() const noexcept { return h_ != nullptr; }
    void reset(Handle* h = nullptr) noexcept {
        if (h_) Free(h_);
        h_ = h;
    }

private:
    Handle* h_ = nullptr;
};

namespace detail {
inline void freeEasy(CURL* h) { curl_easy_cleanup(h); }
inline void freeMulti(CURLM* h) { curl_multi_cleanup(h); }
inline void freeSlist(curl_slist* h) { curl_slist_free_all(h); }
inline void freeMime(curl_mime* h) { curl_mime_free(h); }
} // namespace detail

using Easy = Holder<CURL, detail::freeEasy>;
using Multi = Holder<CURLM, detail::freeMulti>;
using Slist = Holder<curl_slist, detail::freeSlist>;
using Mime = Holder<curl_mime, detail::freeMime>;

/// A new easy handle; throws std::runtime_error when libcurl cannot make one.
Easy makeEasy();

/// Appends one header line to a list (a null list starts a new one).
void appendHeader(Slist& list, const std::string& line);

/// "<libcurl's text for code>: <details>" — the message of a failed transfer.
std::string describe(CURLcode code, const char* errorBuffer);

/// Collects a response body into a std::string (CURLOPT_WRITEFUNCTION).
size_t appendToString(char* data, size_t size, size_t count, void* target);

} // namespace veltrane::curl
