/// @file
/// An in-memory transport: records every request and answers from a script,
/// at once or later, on whichever thread delivers. For tests of code that
/// calls Server, in this library and in applications.
///
/// Thread rules: every member may be called from any thread. Completions run
/// outside the transport's lock, so they may send further requests; an
/// exception that leaves a completion reaches whoever made it run (send() when
/// answering at once, deliver() otherwise).
#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Server.h"

namespace veltrane {

/// A transport that answers from a script (see the top of this file).
class MemoryTransport : public Transport {
public:
    /// A request as it was sent.
    struct Request {
        HTTPMethod method;  ///< GET or POST
        std::string api;    ///< the API name
        Parameters params;  ///< the parameters as sent (nothing: none at all)
    };
    /// What a request is answered with.
    using Reply = GatewayReply;

    /// Queues the reply for the next request to api (first in, first out).
    void script(const std::string& api, Reply reply);
    /// Answers any request that has no scripted reply; without one, such a
    /// request gets (false, "no reply scripted for <api>").
    void setHandler(std::function<Reply(const Request&)> handler);
    /// Holds completions until deliver() instead of answering inside send().
    /// A held request whose call is cancelled is answered at once with
    /// (false, "<api>: cancelled"), on the cancelling thread; one whose
    /// deadline has passed when deliver() comes is answered (false, "<api>:
    /// no answer within <N> ms").
    void setDeferred(bool deferred);
    /// Runs the held completions, in order, on the calling thread; returns how many.
    size_t deliver();
    /// How many completions are held.
    size_t held() const;

    /// Every request so far, in order.
    std::vector<Request> requests() const;
    /// The latest request; throws std::logic_error when there is none.
    Request lastRequest() const;
    /// Forgets the requests, the scripted replies and the held completions
    /// (which then never run); the handler stays.
    void clear();

    void send(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion) override;
    void sendCall(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion, std::shared_ptr<Call> call) override;

private:
    /// Replies held until deliver(). A call's canceller refers to them weakly,
    /// so that nothing keeps an undelivered call alive but this.
    struct Answer {
        std::shared_ptr<Call> call;
        GatewayCallback completion;
        Reply reply;
    };
    struct Held {
        std::mutex mutex;
        std::deque<Answer> answers;
    };
    mutable std::mutex mutex_;
    std::vector<Request> requests_;
    std::vector<std::pair<std::string, Reply>> scripted_;
    std::function<Reply(const Request&)> handler_;
    bool deferred_ = false;
    std::shared_ptr<Held> held_ = std::make_shared<Held>();
};

} // namespace veltrane
