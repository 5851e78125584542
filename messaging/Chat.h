/// @file
/// One message of the dealer company's staff chat, and the class operations
/// that post a message and fetch the company's messages after a given one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Date.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// Names under which the application announces a chat push and a chat update
/// between its own parts; the library never posts or observes them.
///@{
extern std::string RemoteChatPushNotification;
extern std::string RemoteChatUpdateNotification;
///@}

/// One message of the dealer company's staff chat, and the class operations that post a
/// message and fetch the company's messages after a given one.
class Chat {
public:
    /// Reads "ID" (word-sized), "UserID" and "CompanyID" (32-bit) as integers
    /// and "CreateTime" as seconds (numbers or numeric text; absent is 0),
    /// "Type" and "Content" as they stand. Throws ValueError, naming the key,
    /// for JSON null (or a container) where a number is read.
    explicit Chat(const Dictionary& dictionary);

    /// "ID".
    ///@{
    long ID() const noexcept { return ID_; }
    void setID(long v) noexcept { ID_ = v; }
    ///@}
    /// "UserID".
    ///@{
    int32_t UserID() const noexcept { return UserID_; }
    void setUserID(int32_t v) noexcept { UserID_ = v; }
    ///@}
    /// "CompanyID".
    ///@{
    int32_t CompanyID() const noexcept { return CompanyID_; }
    void setCompanyID(int32_t v) noexcept { CompanyID_ = v; }
    ///@}
    /// "CreateTime".
    ///@{
    const Date& CreateTime() const noexcept { return CreateTime_; }
    void setCreateTime(Date v) noexcept { CreateTime_ = v; }
    ///@}
    /// "Type".
    ///@{
    const std::optional<Value>& Type() const noexcept { return Type_; }
    void setType(std::optional<Value> v) { Type_ = std::move(v); }
    ///@}
    /// "Content".
    ///@{
    const std::optional<Value>& Content() const noexcept { return Content_; }
    void setContent(std::optional<Value> v) { Content_ = std::move(v); }
    ///@}

    /// POST "postChat" with "userid" (32-bit) and "message", the compact JSON
    /// text of [{"Type": type, "Content": content}]; the completion gets (flag,
    /// message, flag). Without a type or content, or with an empty one, it
    /// gets (false, "postChat: a message needs a type and a content", false)
    /// and nothing is sent.
    static void sendAsUser(int32_t userID, std::optional<std::string> withContent, std::optional<std::string> ofType, FlagCallback callback);

    /// GET "getChatMessages" with "companyid" (32-bit) and "lastMessageID" (the
    /// last chat's identifier, word-sized; 0 for all): the newer messages, a
    /// bad one dropped with its log line.
    static void listForCompany(int32_t companyID, long withLastChatID, ResultCallback<std::vector<Chat>> callback);

private:
    long ID_ = 0;
    int32_t UserID_ = 0;
    int32_t CompanyID_ = 0;
    Date CreateTime_;
    std::optional<Value> Type_;
    std::optional<Value> Content_;
};

} // namespace veltrane
