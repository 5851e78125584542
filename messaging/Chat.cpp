// Chat's reading and class operations.
#include "veltrane/messaging/Chat.h"

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

std::string RemoteChatPushNotification = "RemoteChatPushNotification";
std::string RemoteChatUpdateNotification = "RemoteChatUpdateNotification";

Chat::Chat(const Dictionary& d)
    : ID_(d.longValue("ID")),
      UserID_(d.intValue("UserID")),
      CompanyID_(d.intValue("CompanyID")),
      CreateTime_(Date::dateWithTimeIntervalSince1970(d.doubleValue("CreateTime"))),
      Type_(d.optValue("Type")),
      Content_(d.optValue("Content")) {}

void Chat::sendAsUser(int32_t userID, std::optional<std::string> withContent, std::optional<std::string> ofType, FlagCallback callback) {
    if (!withContent || withContent->empty() || !ofType || ofType->empty()) {
        callback(false, std::string("postChat: a message needs a type and a content"), false);
        return;
    }
    Value message(Array{Dictionary{{"Type", std::move(*ofType)}, {"Content", std::move(*withContent)}}});
    std::string text;
    try {
        text = writeJSON(message);
    } catch (const JSONError& e) {  // text that is not UTF-8
        callback(false, "postChat: " + std::string(e.what()), false);
        return;
    }
    reply::post("postChat", Dictionary{{"userid", NSBoxInt(userID)}, {"message", std::move(text)}}, reply::flag(std::move(callback)));
}

void Chat::listForCompany(int32_t companyID, long withLastChatID, ResultCallback<std::vector<Chat>> callback) {
    Dictionary params{{"companyid", NSBoxInt(companyID)}, {"lastMessageID", NSBoxLong(withLastChatID)}};
    reply::get("getChatMessages", std::move(params), reply::convertList<Chat>(std::move(callback)));
}

} // namespace veltrane
