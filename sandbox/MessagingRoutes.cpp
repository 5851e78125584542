// The messaging APIs: push messages, chat, and the home screen's apps and
// banners.
#include <ctime>

#include "sandbox/Handlers.h"

namespace veltrane::sandbox {

std::vector<Route> messagingRoutes() {
    using K = Kind;
    return {
        {"getAppsID", "GET", {{{"CompanyID", K::Int}}}, [](const Call&, State& s) { return Answer::success(s.list("apps")); }},
        {"getHeadAd", "GET", {{}}, [](const Call&, State& s) { return Answer::success(s.list("ads")); }},
        {"fetchPushMessage", "GET", {{{"userID", K::Int}, {"lastMessageID", K::Int}}}, [](const Call& c, State& s) {
             return Answer::success(where(s.list("pushMessages"), [&](const Dictionary& m) {
                 return m.optLong("ReceiverID") == c.integer("userID") && m.optLong("ID") > c.integer("lastMessageID");
             }));
         }},
        {"postChat", "POST", {{{"userid", K::Int}, {"message", K::Json}}}, [](const Call& c, State& s) {
             Value messages = c.json("message");
             if (!messages.isArray()) return Answer::failure("消息格式错误: message 应为数组");
             auto user = findBy(s.list("users"), "ID", c.integer("userid"));
             for (const Value& m : messages.asArray()) {
                 const Dictionary* d = m.dictionaryIf();
                 if (!d || !d->contains("Type") || !d->contains("Content")) return Answer::failure("消息格式错误: 需要 Type 和 Content");
                 s.list("chats").push_back(Dictionary{{"ID", s.nextChatID++}, {"UserID", c.integer("userid")},
                                                      {"CompanyID", user ? user->optLong("CompanyID") : 0L}, {"CreateTime", static_cast<long>(std::time(nullptr))},
                                                      {"Type", d->valueOrNull("Type")}, {"Content", d->valueOrNull("Content")}});
             }
             return Answer::success(Value(), "发送成功");
         }},
        {"getChatMessages", "GET", {{{"companyid", K::Int}, {"lastMessageID", K::Int}}}, [](const Call& c, State& s) {
             return Answer::success(where(s.list("chats"), [&](const Dictionary& m) {
                 return m.optLong("CompanyID") == c.integer("companyid") && m.optLong("ID") > c.integer("lastMessageID");
             }));
         }},
    };
}

} // namespace veltrane::sandbox
