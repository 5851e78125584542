/// @file
/// A message the server holds for an agent, and the poller that fetches them:
/// while it runs, it asks for the signed-in user's messages newer than the
/// last one seen, one second after each answer, keeps the highest identifier
/// in the settings store and posts each batch on the default notification
/// centre.
///
/// Thread rules: start, stop and reset may be called from any thread. The
/// first poll runs on the thread that calls start, every later one on the main
/// queue (which the application drives). A batch is stored and posted on the
/// thread that delivers the reply, so observers run there.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Date.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// The notification posted after each successful poll, and the key of its
/// batch (a std::vector<PushMessage>, in the server's order) in userInfo. Its
/// sender is std::type_index(typeid(PushMessage)).
///@{
inline constexpr const char* PushMessageNotification = "PushMessageNotification";
inline constexpr const char* PushMessageKey = "PushMessage";
///@}

/// The poller's running flag. Atomic, so that start, stop and the polls may
/// touch it from any thread; start sets it by exchange, so two racing starts
/// still make one chain of polls.
extern std::atomic<bool> _running;

/// A message the server holds for an agent, and the poller that fetches them: while it runs,
/// it asks for the signed-in user's messages newer than the last one seen, one second after
/// each answer, keeps the highest identifier in the settings store and posts each batch on
/// the default notification centre.
class PushMessage {
public:
    /// Reads "ID" (word-sized) and "ReceiverID" (32-bit) as integers and
    /// "CreateTime" as seconds (numbers or numeric text; absent is 0), "Type"
    /// and "Content" as they stand. Throws ValueError, naming the key, for
    /// JSON null (or a container) where a number is read.
    explicit PushMessage(const Dictionary& dictionary);

    /// "ID".
    ///@{
    long ID() const noexcept { return ID_; }
    void setID(long v) noexcept { ID_ = v; }
    ///@}
    /// "Type".
    ///@{
    const std::optional<Value>& Type() const noexcept { return Type_; }
    void setType(std::optional<Value> v) { Type_ = std::move(v); }
    ///@}
    /// "ReceiverID".
    ///@{
    int32_t ReceiverID() const noexcept { return ReceiverID_; }
    void setReceiverID(int32_t v) noexcept { ReceiverID_ = v; }
    ///@}
    /// "Content".
    ///@{
    const std::optional<Value>& Content() const noexcept { return Content_; }
    void setContent(std::optional<Value> v) { Content_ = std::move(v); }
    ///@}
    /// "CreateTime".
    ///@{
    const Date& CreateTime() const noexcept { return CreateTime_; }
    void setCreateTime(Date v) noexcept { CreateTime_ = v; }
    ///@}

    /// The highest identifier seen, from the settings store ("LastMessageID");
    /// 0 when absent or not a number.
    static long lastMessageID();
    /// Stores it as a number and forces the store to disk.
    static void setLastMessageID(long ID);

    /// GET "fetchPushMessage" with "userID" (32-bit) and "lastMessageID"
    /// (word-sized). An array becomes messages (a bad one dropped with its log
    /// line); any other data is a success with nothing.
    static void fetch(int32_t userID, long withLastMessageID, ResultCallback<std::vector<PushMessage>> callback);

    /// Starts polling when it is not running (the first poll at once, on this
    /// thread); does nothing when it is.
    static void start();
    /// Lets the chain end at its next poll; a query in flight still posts.
    static void stop();
    /// Sets the last identifier to 0: the next poll asks for everything.
    static void reset();
    /// One poll: ends the chain when stopped, or stops it when nobody is
    /// signed in; otherwise fetches, stores and posts a batch (nothing on a
    /// failure or without a list), and polls again one second after the answer.
    static void loop();

private:
    long ID_ = 0;
    std::optional<Value> Type_;
    int32_t ReceiverID_ = 0;
    std::optional<Value> Content_;
    Date CreateTime_;
};

} // namespace veltrane
