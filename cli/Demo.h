// The demo: a counter sale walked through the library's class operations,
// step by step, with a short transcript of each step and what came back.
#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "catalogue/NumberInfo.h"
#include "catalogue/PlanInfo.h"
#include "catalogue/PlanItem.h"
#include "catalogue/ProductInfo.h"

namespace veltrane::cli {

// What the steps of one sale hand on to the next.
struct Sale {
    std::optional<NumberInfo> number;
    std::optional<ProductInfo> device;
    std::optional<PlanInfo> plan;
    std::optional<PlanItem> planItem;
};

class Transcript {
public:
    explicit Transcript(std::ostream& out) : out_(out) {}
    void line(const std::string& text);  // one indented line of what came back
    // Reports a failed step and marks the run as failed.
    void failed(const std::string& what, const std::optional<std::string>& message);
    bool ok() const { return ok_; }

private:
    std::ostream& out_;
    bool ok_ = true;
};

struct Step {
    std::string title;
    std::function<void(Sale&, Transcript&)> run;
};

// The steps in the order of a sale; each subsystem contributes its own.
std::vector<Step> demoSteps();
std::vector<Step> catalogueSteps();

// Runs every step against server (the embedded sandbox when empty).
// Returns the process's exit status: 0 when every step succeeded.
int runDemo(const std::string& server, std::ostream& out);

} // namespace veltrane::cli
