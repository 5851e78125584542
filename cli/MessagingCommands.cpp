// veltrane push, watch and update-check.
#include <atomic>
#include <csignal>
#include <iostream>
#include <memory>
#include <string>

#include "cli/Commands.h"
#include "cli/Demo.h"
#include "cli/Interrupt.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/Server.h"
#include "veltrane/messaging/PushMessage.h"
#include "veltrane/messaging/Updater.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/HTTPTransport.h"
#include "veltrane/platform/NotificationCenter.h"
#include "veltrane/platform/PropertyList.h"
#include "veltrane/platform/UserDefaults.h"

namespace veltrane::cli {

namespace {

struct PushArguments {
    std::string server = "http://127.0.0.1:8080";
    int32_t user = 7;
    std::string type = "notice";
    std::string content;
};

int push(const PushArguments& a) {
    std::variant<long, std::string> queued = queuePushOnSandbox(a.server, a.user, a.type, a.content);
    if (const std::string* why = std::get_if<std::string>(&queued)) {
        std::cerr << "veltrane push: " << *why << '\n';
        return 1;
    }
    std::cout << "queued message #" << std::get<long>(queued) << " for user " << a.user << std::endl;
    return 0;
}

struct WatchArguments {
    std::string server = "http://127.0.0.1:8080";
    int32_t user = 7;
    int32_t company = 1;
    std::string settings;
    bool fromStart = false;
};

int watch(const WatchArguments& a) {
    if (!a.settings.empty()) UserDefaults::setStandardPath(a.settings);
    HTTPTransportOptions options;
    options.timeout = std::chrono::seconds(10);
    HTTPTransport::install(options);
    Server::setAddress(a.server);
    Account::signIn(User(a.user, a.company, "watch"));
    if (a.fromStart) PushMessage::reset();

    size_t batches = 0, messages = 0;
    auto token = NotificationCenter::defaultCenter().addObserverForName(PushMessageNotification, [&](const Notification& n) {
        const auto& batch = std::any_cast<const std::vector<PushMessage>&>(n.userInfo.at(PushMessageKey));
        ++batches;
        if (batch.empty()) return;
        messages += batch.size();
        std::cout << batch.size() << (batch.size() == 1 ? " message" : " messages") << " (last identifier now " << PushMessage::lastMessageID()
                  << "):\n";
        for (const PushMessage& m : batch)
            std::cout << "  #" << m.ID() << "  [" << text(m.Type()) << "]  " << text(m.Content()) << "  " << chinaTime(m.CreateTime()) << '\n';
        std::cout << std::flush;
    });

    catchInterrupts();
    std::cout << "watching push messages for user " << a.user << " at " << a.server << " from identifier " << PushMessage::lastMessageID()
              << " (Ctrl-C stops)" << std::endl;
    PushMessage::start();
    // The application's main loop: the poller's next polls run here.
    while (!interrupted() && _running) Dispatch::mainQueue().runFor(std::chrono::milliseconds(100));
    PushMessage::stop();
    NotificationCenter::defaultCenter().removeObserver(token);
    Server::setTransport(nullptr);
    std::cout << "stopped: " << batches << " polls answered, " << messages << " messages; last identifier " << PushMessage::lastMessageID()
              << std::endl;
    if (!interrupted()) {
        std::cerr << "veltrane watch: the poller stopped by itself\n";
        return 1;
    }
    return 0;
}

struct UpdateCheckArguments {
    std::string url;
    std::string localVersion;
    bool verbose = false;
};

int updateCheck(const UpdateCheckArguments& a) {
    // Silenced for the rest of the run: a manifest read that was cancelled
    // may still log as it ends, after the answer.
    if (!a.verbose) setLogSink([](std::string_view) {});
    Bundle::mainBundle().setShortVersionString(a.localVersion);
    std::optional<std::pair<bool, std::optional<std::string>>> outcome;
    catchInterrupts();
    CallGroup group;
    {
        CallScope scope(group);
        Updater::checkWithPListURL(a.url, [&](bool newer, std::optional<std::string> message) { outcome.emplace(newer, std::move(message)); });
    }
    // The answer comes on the main queue, driven here.
    driveMainQueue([&] { return outcome.has_value(); }, group, std::chrono::minutes(3));
    if (interrupted()) {
        std::cerr << "veltrane update-check: interrupted (" << (outcome ? outcome->second.value_or("") : "") << ")\n";
        return kInterrupted;
    }
    if (!outcome) {
        std::cerr << "veltrane update-check: no answer within 3 minutes\n";
        return 1;
    }
    if (!outcome->second) {
        std::cerr << "veltrane update-check: no installation manifest could be read at " << a.url << '\n';
        return 1;
    }
    std::cout << (outcome->first ? "a newer version is available" : "up to date") << " (running " << a.localVersion << ")\n"
              << *outcome->second << std::endl;
    return 0;
}

} // namespace

std::vector<Command> addMessagingCommands(CLI::App& app) {
    auto pushArgs = std::make_shared<PushArguments>();
    CLI::App* pushApp = app.add_subcommand("push", "Queue a push message for a user on a sandbox dealer server");
    pushApp->add_option("content", pushArgs->content, "The message's text")->required();
    pushApp->add_option("--user", pushArgs->user, "The receiver's user identifier")->capture_default_str();
    pushApp->add_option("--type", pushArgs->type, "The message's type")->capture_default_str();
    pushApp->add_option("--server", pushArgs->server, "The sandbox's base address")->capture_default_str();

    auto watchArgs = std::make_shared<WatchArguments>();
    CLI::App* watchApp = app.add_subcommand("watch", "Sign in and print the push messages the poller receives, until Ctrl-C");
    watchApp->add_option("--server", watchArgs->server, "The dealer server's base address")->capture_default_str();
    watchApp->add_option("--user", watchArgs->user, "The user to sign in as")->capture_default_str();
    watchApp->add_option("--company", watchArgs->company, "The user's company")->capture_default_str();
    watchApp->add_option("--settings", watchArgs->settings, "The settings store that keeps the last identifier (default: the standard one)")
        ->type_name("FILE");
    watchApp->add_flag("--from-start", watchArgs->fromStart, "Forget the last identifier: ask for every message");

    auto checkArgs = std::make_shared<UpdateCheckArguments>();
    CLI::App* checkApp = app.add_subcommand("update-check", "Read an installation manifest and say whether it announces a newer version");
    checkApp->add_option("url", checkArgs->url, "The manifest's address: http, https or file, XML or binary")->required();
    checkApp->add_option("--local-version", checkArgs->localVersion, "The version running, as CFBundleShortVersionString")->required();
    checkApp->add_flag("--verbose", checkArgs->verbose, "Show the library's log lines");
    checkApp->footer("Exits 0 when the manifest was read (newer or not), 1 when it could not be, 130 when interrupted (Ctrl-C).");

    return {{pushApp, [pushArgs] { return push(*pushArgs); }},
            {watchApp, [watchArgs] { return watch(*watchArgs); }},
            {checkApp, [checkArgs] { return updateCheck(*checkArgs); }}};
}

} // namespace veltrane::cli
