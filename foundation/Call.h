/// @file
/// Calls that an application can cancel together and give a deadline, without
/// any change to the operations that start them: a CallScope, alive on the
/// thread that starts the calls (a screen's, while it makes its requests),
/// makes every call started there join its CallGroup. Cancelling the group
/// ends each of its calls that has not completed, at once, through its own
/// completion with (false, "<name>: cancelled"); a call started into a group
/// already cancelled fails the same way without any request. A group's
/// timeout or deadline ends a call that has not been answered in time with
/// (false, "<name>: no answer within N ms"). The name is the API name of a
/// gateway call ("getPhonePages"), or the operation's ("uploadSignaturePDF",
/// "checkWithPListURL").
///
///     CallGroup screen;
///     screen.setTimeout(std::chrono::seconds(8));
///     {
///         CallScope scope(screen);
///         NumberInfo::listWithCompany(1, 0, 0, 0, std::nullopt, 1, onPage);
///         Order::listWithStatus(0, 1, 7, std::nullopt, 1, onOrders);
///     }
///     ...
///     screen.cancel();  // the screen closes: both end now, if still under way
///
/// Thread and lifetime rules: groups, scopes and calls are safe from any
/// thread; copies of a CallGroup are the same group. A scope belongs to the
/// thread that made it (scopes nest; the innermost wins) and must end there.
/// Calls started on another thread (from a completion, say) join no group
/// unless a scope is alive there too.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace veltrane {

class Call;

/// Calls cancelled together, with a common timeout or deadline: one per
/// screen, say. Copies are the same group.
class CallGroup {
public:
    /// A new group, with no deadline.
    CallGroup();

    /// Ends every call of the group that has not completed, each through its
    /// completion with (false, "<name>: cancelled"), and every call started
    /// into the group from now on, without a request. Returns once none of
    /// the group's requests can reach a server any more. Safe to call twice,
    /// from several threads at once, and from a completion.
    void cancel() const;
    /// Whether cancel() has been called.
    bool isCancelled() const;

    /// Each call of the group must be answered within timeout of its start
    /// (waiting for a connection, redirects and the transfer included).
    void setTimeout(std::chrono::milliseconds timeout) const;
    /// Every call of the group must be answered by deadline.
    void setDeadline(std::chrono::steady_clock::time_point deadline) const;

    /// How many of its calls are under way.
    size_t pending() const;

    struct State;

private:
    friend class Call;
    friend class CallScope;
    explicit CallGroup(std::shared_ptr<State> state) : state_(std::move(state)) {}
    std::shared_ptr<State> state_;
};

/// Makes the calls started on its thread, while it lives, join a group.
class CallScope {
public:
    /// Calls started on this thread while the scope is alive join group.
    explicit CallScope(CallGroup group);
    ~CallScope();
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

    /// The group of the innermost scope alive on this thread, if any.
    static std::optional<CallGroup> current();

private:
    std::shared_ptr<CallGroup::State> previous_;
};

/// One call under way, as the code that carries it sees it: a gateway
/// request, an upload, an update check. Whoever delivers the call's
/// completion asks finish() first, and delivers only when it says true: so
/// the answer, the cancellation and the deadline reach the completion once,
/// whichever comes first.
class Call {
public:
    using Clock = std::chrono::steady_clock;  ///< the clock of starts and deadlines

    /// A call named name, starting now, in the current scope's group (if any):
    /// cancelled from the start when that group is; its deadline the earlier
    /// of the group's deadline and now plus the group's timeout.
    static std::shared_ptr<Call> begin(std::string name);

    /// The API name or operation, for messages.
    const std::string& name() const noexcept { return name_; }
    /// When the call began.
    Clock::time_point startedAt() const noexcept { return startedAt_; }
    /// When it must be answered by; nothing for no deadline.
    std::optional<Clock::time_point> deadline() const noexcept { return deadline_; }
    /// Whether it was cancelled (alone or with its group).
    bool isCancelled() const;
    /// "<name>: cancelled" and "<name>: no answer within N ms", N being
    /// the time the call was given.
    ///@{
    std::string cancelledMessage() const;
    std::string expiredMessage() const;
    ///@}

    /// Adds what to do when the call is cancelled (stop its request, answer
    /// at once...): run on the cancelling thread, in the order added, once;
    /// at once when the call is already cancelled. A key, when given, adds
    /// the canceller only once.
    void onCancel(std::function<void()> canceller, const void* key = nullptr);
    /// The same in two steps: start asks for the stop, settle waits until it
    /// is done. A group cancels all its calls' starts first, then settles
    /// them, so that calls carried by one thread are stopped in one round.
    void onCancel(std::function<void()> start, std::function<void()> settle, const void* key);
    /// Cancels this call alone.
    void cancel();
    /// True for the first caller only: the one that delivers the completion.
    bool finish();
    /// Whether finish() has been asked.
    bool isFinished() const;

    /// Made by begin() (the group's state is the library's).
    Call(std::string name, std::shared_ptr<CallGroup::State> group);
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

private:
    friend class CallGroup;
    struct Canceller {
        const void* key;
        std::function<void()> start, settle;
    };
    /// Marks the call cancelled and runs every start; returns the settles.
    std::vector<std::function<void()>> startCancel();

    const std::string name_;
    const Clock::time_point startedAt_ = Clock::now();
    std::optional<Clock::time_point> deadline_;
    std::shared_ptr<CallGroup::State> group_;
    mutable std::mutex mutex_;
    bool cancelled_ = false, finished_ = false;
    std::vector<Canceller> cancellers_;
};

} // namespace veltrane
