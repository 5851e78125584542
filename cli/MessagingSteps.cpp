// The demo's messaging and home content: the home screen's tiles and banners
// first; at the end a chat message sent and read back, an update check
// against the server's installation manifest, and the push-message poller
// receiving a message queued between two of its polls.
#include <algorithm>
#include <mutex>
#include <typeindex>
#include <variant>

#include "cli/Demo.h"
#include "veltrane/foundation/Server.h"
#include "veltrane/messaging/Advertisment.h"
#include "veltrane/messaging/Chat.h"
#include "veltrane/messaging/GuideItem.h"
#include "veltrane/messaging/PushMessage.h"
#include "veltrane/messaging/SubApp.h"
#include "veltrane/messaging/Updater.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/HTTPSession.h"
#include "veltrane/platform/HTTPTransport.h"
#include "veltrane/platform/NotificationCenter.h"
#include "veltrane/platform/PropertyList.h"

namespace veltrane::cli {

namespace {

constexpr int32_t kUser = 7;
constexpr int32_t kCompany = 1;
constexpr auto kWait = std::chrono::seconds(5);

std::string show(const std::vector<PushMessage>& batch) {
    if (batch.empty()) return "(none)";
    std::string out;
    for (const PushMessage& m : batch) out += (out.empty() ? "#" : ", #") + std::to_string(m.ID()) + " " + text(m.Content());
    return out;
}

} // namespace

std::variant<long, std::string> queuePushOnSandbox(const std::string& server, int32_t user, const std::string& type, const std::string& content) {
    HTTPRequest request{server + "/sandbox/push", "POST", {{"Content-Type", "application/x-www-form-urlencoded; charset=utf-8"}}, "", {}};
    request.body = encodeParameters(Dictionary{{"userID", std::to_string(user)}, {"Type", type}, {"Content", content}});
    HTTPSession::Outcome outcome = HTTPSession::perform(request);
    std::optional<Dictionary> reply = outcome.data ? jsonDictionary(*outcome.data) : std::nullopt;
    if (!reply) return "no sandbox answered at " + server + (outcome.error ? " (" + outcome.error->description + ")" : std::string());
    if (!reply->optBool("status")) return reply->optString("info").value_or("refused");
    return reply->optDictionary("data").optLong("ID");
}

std::vector<Step> homeSteps() {
    return {
        {"The home screen's tiles and banners", [](Sale&, Transcript& t) {
             auto tiles = await<std::vector<GuideItem>>([](auto done) { GuideItem::loadWithCompany(kCompany, done); });
             if (!received(t, "getAppsID", tiles)) return;
             auto apps = await<std::vector<SubApp>>([](auto done) { SubApp::list(done); });
             if (!received(t, "getAppsID", apps)) return;
             auto banners = await<std::vector<Advertisment>>([](auto done) { Advertisment::listWithCallback(done); });
             if (!received(t, "getHeadAd", banners)) return;
             for (const GuideItem& tile : *tiles.result) {
                 bool shown = std::any_of(apps.result->begin(), apps.result->end(), [&](const SubApp& a) { return a.link() == text(tile.Link()); });
                 t.line("tile " + text(tile.Name()) + " → " + text(tile.Link()) + (tile.ShowBanner() ? "  (in the bar)" : "") + (shown ? "" : "  (hidden)"));
             }
             for (const Advertisment& ad : *banners.result) t.line("banner " + text(ad.Name()) + ": " + text(ad.ImageUrl()) + " → " + text(ad.Link()));
         }},
    };
}

std::vector<Step> messagingSteps() {
    return {
        {"A chat message sent and read back", [](Sale&, Transcript& t) {
             auto before = await<std::vector<Chat>>([](auto done) { Chat::listForCompany(kCompany, 0, done); });
             if (!received(t, "getChatMessages", before)) return;
             long last = 0;
             for (const Chat& c : *before.result) last = std::max(last, c.ID());
             t.line(std::to_string(before.result->size()) + " messages in the company's chat");
             auto sent = awaitFlag([](auto done) { Chat::sendAsUser(kUser, "客户已签字，单据已上传", "text", done); });
             if (!sent.success) return t.failed("postChat", sent.message);
             auto after = await<std::vector<Chat>>([&](auto done) { Chat::listForCompany(kCompany, last, done); });
             if (!received(t, "getChatMessages", after)) return;
             for (const Chat& c : *after.result) t.line("#" + std::to_string(c.ID()) + " user " + std::to_string(c.UserID()) + ": " + text(c.Content()));
         }},
        {"An update check", [](Sale&, Transcript& t) {
             Bundle::mainBundle().setShortVersionString("1.0");
             std::optional<std::pair<bool, std::optional<std::string>>> outcome;
             Updater::checkWithPListURL(Server::address() + "/manifest.plist", [&](bool newer, std::optional<std::string> m) { outcome.emplace(newer, m); });
             Dispatch::mainQueue().runFor(std::chrono::seconds(30), [&] { return outcome.has_value(); });
             if (!outcome || !outcome->second) return t.failed("manifest.plist", std::string("no installation manifest could be read"));
             // The message holds a line break before the note.
             std::string message = *outcome->second;
             t.line(std::string(outcome->first ? "newer than 1.0: " : "not newer than 1.0: ") + message.substr(0, message.find('\n')));
             if (message.find('\n') != std::string::npos) t.line("  " + message.substr(message.find('\n') + 1));
         }},
        {"Push messages: two polls, a message queued in between", [](Sale&, Transcript& t) {
             // What is waiting, asked once by hand; then the poller.
             PushMessage::reset();
             auto waiting = await<std::vector<PushMessage>>([](auto done) { PushMessage::fetch(kUser, 0, done); });
             if (!waiting.success) return t.failed("fetchPushMessage", waiting.message);
             // Batches arrive on the transport's thread; the main queue runs here.
             std::mutex mutex;
             std::vector<std::vector<PushMessage>> batches;
             auto token = NotificationCenter::defaultCenter().addObserverForName(PushMessageNotification, [&](const Notification& n) {
                 std::lock_guard lock(mutex);
                 batches.push_back(std::any_cast<const std::vector<PushMessage>&>(n.userInfo.at(PushMessageKey)));
             });
             // Drives the main queue until a batch satisfies found.
             auto waitFor = [&](auto found) -> std::optional<std::vector<PushMessage>> {
                 for (auto end = Clock::now() + kWait; Clock::now() < end; Dispatch::mainQueue().runFor(std::chrono::milliseconds(10))) {
                     std::lock_guard lock(mutex);
                     for (const auto& batch : batches)
                         if (found(batch)) return batch;
                 }
                 return std::nullopt;
             };
             PushMessage::start();
             std::optional<std::vector<PushMessage>> first = waitFor([](const auto&) { return true; });
             std::variant<long, std::string> queued = first ? queuePushOnSandbox(Server::address(), kUser, "order", "订单已转收银，请提醒客户付款") : std::string();
             std::optional<std::vector<PushMessage>> second;
             if (const long* id = std::get_if<long>(&queued))
                 second = waitFor([id](const std::vector<PushMessage>& batch) {
                     return std::any_of(batch.begin(), batch.end(), [id](const PushMessage& m) { return m.ID() == *id; });
                 });
             PushMessage::stop();
             NotificationCenter::defaultCenter().removeObserver(token);
             if (!first) return t.failed("fetchPushMessage", std::string("no poll answered within 5 s"));
             t.line("first poll: " + show(*first));
             if (const std::string* why = std::get_if<std::string>(&queued)) return t.failed("sandbox/push", *why);
             t.line("queued #" + std::to_string(std::get<long>(queued)) + " on the server");
             if (!second) return t.failed("fetchPushMessage", std::string("the queued message did not arrive within 5 s"));
             t.line("a later poll: " + show(*second) + "; last identifier " + std::to_string(PushMessage::lastMessageID()));
         }},
    };
}

} // namespace veltrane::cli
