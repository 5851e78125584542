/// @file
/// What the application adds to, and learns from, every request the library
/// sends over HTTP: the gateway's calls, the signature upload and the manifest
/// fetch. Request adapters add headers (a token, a trace identifier) and, for
/// gateway calls, parameters, before a request is sent; the request observer
/// hears of every attempt, with where its time went.
///
/// Thread rules: registering and removing are safe from any thread. Adapters
/// run on the thread that starts the call (the update check's on a global
/// queue thread), in the order registered; the observer runs on the thread
/// that carries the request. Both must return promptly.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "veltrane/foundation/Value.h"

namespace veltrane {

/// A request about to be sent, as an adapter sees it.
struct OutgoingRequest {
    const std::string& name;    ///< the API name, or the operation ("uploadSignaturePDF", "checkWithPListURL")
    const std::string& method;  ///< "GET" or "POST"
    std::vector<std::pair<std::string, std::string>>& headers;  ///< what the adapters add
    Dictionary* parameters;     ///< a gateway call's parameters (a copy of the caller's); nullptr elsewhere
};

/// Adds what the request needs; an exception it throws ends the call before
/// any request, through its completion with (false, "<name>: <what>").
using RequestAdapter = std::function<void(OutgoingRequest& request)>;

/// Registers adapter after those registered before; returns its number, for
/// removeRequestAdapter.
uint64_t addRequestAdapter(RequestAdapter adapter);
/// Removes the adapter of that number (nothing for an unknown number).
void removeRequestAdapter(uint64_t number);
/// Removes every adapter.
void removeAllRequestAdapters();
/// Runs every adapter on request, in order; lets an adapter's exception out.
/// The header values they add are masked wherever the log would show them.
void adaptRequest(OutgoingRequest& request);
/// Whether any adapter is registered, cheaply.
bool hasRequestAdapters() noexcept;

/// One attempt of a request, as it went. Times run from the attempt's start on
/// its connection (libcurl's timing information): name lookup done, connected,
/// TLS handshake done, first byte of the reply, all done; 0 where a step did
/// not happen.
struct RequestEvent {
    std::string name;    ///< the API name, or the operation
    std::string method;  ///< "GET" or "POST"
    int attempt = 1;     ///< a retry is 2, 3...; a redirect's request counts as the next attempt
    long status = 0;     ///< the HTTP status; 0 when no answer came
    uint64_t bytesSent = 0;      ///< headers included
    uint64_t bytesReceived = 0;  ///< headers included
    std::chrono::microseconds nameLookup{0};    ///< until the name was looked up
    std::chrono::microseconds connect{0};       ///< until connected
    std::chrono::microseconds tlsHandshake{0};  ///< until the TLS handshake was done
    std::chrono::microseconds firstByte{0};     ///< until the reply's first byte
    std::chrono::microseconds total{0};         ///< until the attempt ended
    bool connectionReused = false;              ///< whether it went on a connection already open
    std::string httpVersion;           ///< "1.1", "2"; empty when no answer came
    std::optional<std::string> error;  ///< why the attempt failed, when it did
};

/// Hears of every attempt, on the thread that carries the request.
using RequestObserver = std::function<void(const RequestEvent& event)>;

/// Sets the observer of every attempt (empty: none); returns the one before.
/// An observer that throws is logged and changes nothing of the call.
RequestObserver setRequestObserver(RequestObserver observer);
/// Tells the observer, if there is one.
void observeRequest(const RequestEvent& event) noexcept;
/// Whether an observer is set, cheaply.
bool hasRequestObserver() noexcept;

} // namespace veltrane
