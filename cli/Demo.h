// The demo: a counter sale walked through the library's class operations,
// step by step, with a short transcript of each step and what came back.
// A step that fails says so (the step, the API name, the server's message)
// and the run ends with a non-zero status; steps that need what a failed step
// would have given are skipped, the others go on.
#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "veltrane/catalogue/NumberInfo.h"
#include "veltrane/catalogue/PlanInfo.h"
#include "veltrane/catalogue/PlanItem.h"
#include "veltrane/catalogue/ProductInfo.h"
#include "veltrane/customer/Address.h"
#include "veltrane/customer/Area.h"
#include "veltrane/customer/IDCardInfo.h"
#include "veltrane/customer/ServiceTime.h"
#include "veltrane/foundation/Await.h"
#include "veltrane/foundation/Date.h"
#include "veltrane/orders/ActionFormOrderSubmitResult.h"

namespace veltrane::cli {

// What the steps of one sale hand on to the next.
struct Sale {
    std::optional<NumberInfo> number;
    std::optional<ProductInfo> device;
    std::optional<PlanInfo> plan;
    std::optional<PlanItem> planItem;
    std::optional<IDCardInfo> card;  // the customer's, as read back from the server
    std::optional<Area> city;
    std::optional<Area> district;
    std::optional<Address> address;
    std::optional<ServiceTime> installation;
    std::optional<Value> orderCustomer;  // the submitted order's customer
    std::optional<ActionFormOrderSubmitResult> actionOrder;  // the business action submitted
};

class Transcript {
public:
    explicit Transcript(std::ostream& out) : out_(out) {}
    void begin(int number, const std::string& title);  // a step's heading
    void line(const std::string& text);                // one indented line of what came back
    // Reports a failed call of the current step and marks the run as failed.
    void failed(const std::string& api, const std::optional<std::string>& message);
    // Whether what a step needs is there; when not, says the step is skipped.
    bool needs(bool present, const std::string& what);
    bool ok() const { return failures_.empty(); }
    // One line per failed call: "step 3 (Lock the chosen number): postLockPhone: ...".
    const std::vector<std::string>& failures() const { return failures_; }

private:
    std::ostream& out_;
    std::string step_;
    std::vector<std::string> failures_;
};

// Whether a call of api gave a result; when not, reports it failed (a success
// without data counts as a failure here: every step needs its data).
template <class T>
bool received(Transcript& t, const std::string& api, const Outcome<T>& outcome) {
    if (outcome.success && outcome.result) return true;
    t.failed(api, outcome.success ? std::optional<std::string>("a success with no data") : outcome.message);
    return false;
}

struct Step {
    std::string title;
    std::function<void(Sale&, Transcript&)> run;
};

// The steps in the order of a sale; each subsystem contributes its own.
std::vector<Step> demoSteps();
std::vector<Step> homeSteps();
std::vector<Step> catalogueSteps();
std::vector<Step> customerSteps();
std::vector<Step> orderSteps();
std::vector<Step> actionSteps();
std::vector<Step> documentSteps();
std::vector<Step> messagingSteps();

// Display helpers the steps share.
std::string text(const std::optional<Value>& v);        // a value as text; "(none)" for nothing
std::string text(const std::optional<std::string>& v);  // "(none)" for nothing
// A date in China time (UTC+8), by a strftime format.
std::string chinaTime(const Date& date, const char* format = "%Y-%m-%d %H:%M:%S");

// Queues a push message on a sandbox at server (its /sandbox/push route):
// the message's identifier, or why it could not.
std::variant<long, std::string> queuePushOnSandbox(const std::string& server, int32_t user, const std::string& type, const std::string& content);

// Runs every step against server (the embedded sandbox when empty), through
// the HTTP transport; the library's log goes to its sink only when verbose.
// Returns the process's exit status: 0 when every step succeeded, 1 otherwise.
int runDemo(const std::string& server, std::ostream& out, bool verbose = false);

} // namespace veltrane::cli
