// The demo's driver and the foundation's steps.
#include "cli/Demo.h"

#include <atomic>
#include <ctime>
#include <iostream>

#include "sandbox/Sandbox.h"
#include "veltrane/foundation/Await.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/Server.h"
#include "veltrane/foundation/Tag.h"
#include "veltrane/platform/HTTPTransport.h"

namespace veltrane::cli {

std::string text(const std::optional<Value>& v) {
    if (!v) return "(none)";
    return v->isString() ? std::string(v->asString()) : describe(*v);
}
std::string text(const std::optional<std::string>& v) { return v.value_or("(none)"); }

std::string chinaTime(const Date& date, const char* format) {
    std::time_t t = static_cast<std::time_t>(date.timeIntervalSince1970()) + 8 * 3600;
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, format, &tm));
}

void Transcript::begin(int number, const std::string& title) {
    step_ = "step " + std::to_string(number) + " (" + title + ")";
    out_ << number << ". " << title << '\n';
}

void Transcript::line(const std::string& text) { out_ << "   " << text << '\n'; }

void Transcript::failed(const std::string& api, const std::optional<std::string>& message) {
    // Transport failures name the API already.
    std::string text = message.value_or("(no message)");
    if (text.rfind(api + ": ", 0) != 0) text = api + ": " + text;
    out_ << "   FAILED: " << text << '\n';
    failures_.push_back(step_ + ": " + text);
}

bool Transcript::needs(bool present, const std::string& what) {
    if (!present) out_ << "   skipped: needs " << what << '\n';
    return present;
}

std::vector<Step> demoSteps() {
    std::vector<Step> steps{
        {"Sign in", [](Sale&, Transcript& t) {
             Account::signIn(User(7, 1, "gz_tianhe_07"));
             t.line("agent gz_tianhe_07 (user 7) of company 1");
         }},
        {"Order tags", [](Sale&, Transcript& t) {
             auto tags = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
             if (!received(t, "getLabel", tags)) return;
             for (const Tag& tag : *tags.result) t.line(describeOrNull(tag.title()) + " — " + describeOrNull(tag.content()));
         }},
    };
    for (auto part : {homeSteps, catalogueSteps, customerSteps, orderSteps, actionSteps, documentSteps, messagingSteps})
        for (Step& s : part()) steps.push_back(std::move(s));
    return steps;
}

int runDemo(const std::string& server, std::ostream& out, bool verbose) {
    // The library's own log lines would cut through the transcript: they are
    // counted, and shown on standard error only when asked for.
    std::atomic<size_t> heldBack{0};
    LogSink previousSink;
    if (!verbose) previousSink = setLogSink([&](std::string_view) { ++heldBack; });
    std::optional<sandbox::Sandbox> embedded;
    std::string address = server;
    if (address.empty()) {
        embedded.emplace();
        embedded->start();
        address = embedded->address();
    }
    HTTPTransportOptions options;
    options.connectTimeout = std::chrono::seconds(5);
    options.timeout = std::chrono::seconds(15);
    HTTPTransport::install(options);
    Server::setAddress(address);
    out << "Veltrane demo: a counter sale against " << address << (embedded ? " (embedded sandbox)" : "") << "\n\n";

    Transcript transcript(out);
    Sale sale;
    int number = 0;
    for (const Step& step : demoSteps()) {
        transcript.begin(++number, step.title);
        step.run(sale, transcript);
    }
    if (transcript.ok()) {
        out << "\nSale walked through: every step succeeded.\n";
    } else {
        out << "\nThe sale stopped short:\n";
        for (const std::string& failure : transcript.failures()) out << "  " << failure << '\n';
    }
    Server::setTransport(nullptr);
    Account::signOut();
    if (!verbose) {
        setLogSink(previousSink);
        out << "(" << heldBack << " lines of the library's log held back; --verbose shows them)\n";
    }
    return transcript.ok() ? 0 : 1;
}

} // namespace veltrane::cli
