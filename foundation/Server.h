/// @file
/// The server gateway: every server call goes through Server by an API name and
/// an optional parameter dictionary, and comes back through one completion.
///
/// Server only delegates to the installed Transport: the libcurl one of the
/// platform (HTTPTransport::install()), a MemoryTransport in tests, or the
/// application's own. All class operations are safe from any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "veltrane/foundation/Call.h"
#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

enum class HTTPMethod { GET, POST };

/// Request parameters. nullopt means "no parameter dictionary at all", which is
/// not the same as an empty dictionary and is handed to the transport as such.
using Parameters = std::optional<Dictionary>;

/// What a transport hands back for one request.
struct GatewayReply {
    bool success = true;
    std::optional<std::string> message;
    std::optional<Value> data;  ///< nothing when the reply carried no data; JSON null is a value
};

/// Carries one request to the server and answers it. A transport calls each
/// completion exactly once, on a thread of its choosing, and never before send
/// has been entered. It must survive an exception that leaves a completion.
class Transport {
public:
    virtual ~Transport() = default;
    virtual void send(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion) = 0;

    /// What the gateway calls: send() for a call that may be cancelled or
    /// have a deadline (see Call). The gateway's completion already delivers
    /// once, through call->finish(). A transport that can stop a request
    /// overrides this, registers how with call->onCancel(), and ends the call
    /// at its deadline; this default sends it with send() and, on
    /// cancellation, answers (false, "<api>: cancelled") at once, leaving the
    /// request to run its course unheard.
    virtual void sendCall(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion, std::shared_ptr<Call> call);
};

class Server {
public:
    /// Send a GET or POST request for api. They return at once; the completion
    /// gets (success, the server's message, the reply's data). With no transport
    /// installed it is called at once with (false, "no server transport installed").
    /// The request joins the group of the CallScope alive on this thread, if
    /// any: in a group already cancelled, the completion is called at once
    /// with (false, "<api>: cancelled") and nothing is sent.
    static void httpGet(const std::string& api, Parameters params, GatewayCallback callback);
    static void httpPost(const std::string& api, Parameters params, GatewayCallback callback);

    /// The server's base address: scheme, host and any leading path.
    static std::string address();
    static void setAddress(std::string address);

    static void setTransport(std::shared_ptr<Transport> transport);
    static std::shared_ptr<Transport> transport();
};

/// The signed-in user of the application.
class User {
public:
    User(long ID, long companyID, std::string loginAccount)
        : ID_(ID), companyID_(companyID), loginAccount_(std::move(loginAccount)) {}
    long ID() const noexcept { return ID_; }
    long companyID() const noexcept { return companyID_; }
    const std::string& loginAccount() const noexcept { return loginAccount_; }

private:
    long ID_;
    long companyID_;
    std::string loginAccount_;
};

class Account {
public:
    /// The signed-in user, or nothing when nobody is signed in.
    static std::optional<User> getCurrentUser();
    static void signIn(User user);
    static void signOut();
};

} // namespace veltrane
