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

/// The method of a gateway request: each API name has its own.
enum class HTTPMethod { GET, POST };

/// Request parameters. nullopt means "no parameter dictionary at all", which is
/// not the same as an empty dictionary and is handed to the transport as such.
using Parameters = std::optional<Dictionary>;

/// What a transport hands back for one request.
struct GatewayReply {
    bool success = true;                 ///< the envelope's "status" (false for any failure)
    std::optional<std::string> message;  ///< the envelope's "info", or what went wrong ("getLabel: Server returned nothing")
    std::optional<Value> data;  ///< nothing when the reply carried no data; JSON null is a value
};

/// Carries one request to the server and answers it. A transport calls each
/// completion exactly once, on a thread of its choosing, and never before send
/// has been entered. It must survive an exception that leaves a completion.
class Transport {
public:
    virtual ~Transport() = default;
    /// Sends one request of api with params, and answers completion once.
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

/// The gateway: where every class operation sends its request.
class Server {
public:
    /// Send a GET or POST request for api. They return at once; the completion
    /// gets (success, the server's message, the reply's data). With no transport
    /// installed it is called at once with (false, "no server transport installed").
    /// The request joins the group of the CallScope alive on this thread, if
    /// any: in a group already cancelled, the completion is called at once
    /// with (false, "<api>: cancelled") and nothing is sent.
    ///@{
    static void httpGet(const std::string& api, Parameters params, GatewayCallback callback);
    static void httpPost(const std::string& api, Parameters params, GatewayCallback callback);
    ///@}

    /// The server's base address: scheme, host and any leading path.
    ///@{
    static std::string address();
    static void setAddress(std::string address);
    ///@}

    /// The transport every request goes through; nothing until one is set
    /// (HTTPTransport::install() sets the platform's). Requests already sent
    /// finish on the transport they were given to.
    ///@{
    static void setTransport(std::shared_ptr<Transport> transport);
    static std::shared_ptr<Transport> transport();
    ///@}
};

/// The signed-in user of the application.
class User {
public:
    /// A user with their ID, their company's (the dealer's) and their login.
    User(long ID, long companyID, std::string loginAccount)
        : ID_(ID), companyID_(companyID), loginAccount_(std::move(loginAccount)) {}
    /// The user's ID ("userid" in requests).
    long ID() const noexcept { return ID_; }
    /// The dealer's company ID ("companyid" in requests).
    long companyID() const noexcept { return companyID_; }
    /// The account the user signed in with ("username" in requests).
    const std::string& loginAccount() const noexcept { return loginAccount_; }

private:
    long ID_;
    long companyID_;
    std::string loginAccount_;
};

/// Who is signed in: operations that act for the user read it. Safe from any thread.
class Account {
public:
    /// The signed-in user, or nothing when nobody is signed in.
    static std::optional<User> getCurrentUser();
    /// Makes user the signed-in one (replacing any other).
    static void signIn(User user);
    /// Nobody is signed in from now on.
    static void signOut();
};

} // namespace veltrane
