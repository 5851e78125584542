// The demo's driver and the foundation's steps.
#include "cli/Demo.h"

#include <iostream>

#include "foundation/Await.h"
#include "foundation/JSON.h"
#include "foundation/Tag.h"
#include "platform/Server.h"
#include "sandbox/Sandbox.h"

namespace veltrane::cli {

void Transcript::line(const std::string& text) { out_ << "   " << text << '\n'; }

void Transcript::failed(const std::string& what, const std::optional<std::string>& message) {
    ok_ = false;
    out_ << "   FAILED: " << what << ": " << message.value_or("(no message)") << '\n';
}

std::vector<Step> demoSteps() {
    std::vector<Step> steps{
        {"Sign in", [](Sale&, Transcript& t) {
             Account::signIn(User(7, 1, "gz_tianhe_07"));
             t.line("agent gz_tianhe_07 (user 7) of company 1");
         }},
        {"Order tags", [](Sale&, Transcript& t) {
             auto tags = await<std::vector<Tag>>([](auto done) { Tag::listWithCompany(1, 1, done); });
             if (!tags.success) return t.failed("getLabel", tags.message);
             for (const Tag& tag : *tags.result) t.line(describeOrNull(tag.title()) + " — " + describeOrNull(tag.content()));
         }},
    };
    for (Step& s : catalogueSteps()) steps.push_back(std::move(s));
    return steps;
}

int runDemo(const std::string& server, std::ostream& out) {
    std::optional<sandbox::Sandbox> embedded;
    std::string address = server;
    if (address.empty()) {
        embedded.emplace();
        embedded->start();
        address = embedded->address();
    }
    Server::setAddress(address);
    out << "Veltrane demo: a counter sale against " << address << (embedded ? " (embedded sandbox)" : "") << "\n\n";

    Transcript transcript(out);
    Sale sale;
    int number = 0;
    for (const Step& step : demoSteps()) {
        out << ++number << ". " << step.title << '\n';
        step.run(sale, transcript);
    }
    out << '\n' << (transcript.ok() ? "Sale walked through: every step succeeded." : "Some steps failed.") << '\n';
    Server::setTransport(nullptr);
    return transcript.ok() ? 0 : 1;
}

} // namespace veltrane::cli
