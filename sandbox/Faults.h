// What the sandbox does to a request instead of answering it plainly: the
// faults of real networks, set per API name for a count of requests or for
// all (each with a probability, drawn from a seed so that a flaky run can be
// replayed), and scenarios: a sequence of outcomes for one API name,
// consumed one per request, then back to normal.
//
// Thread rules: a FaultTable is used under the sandbox's lock.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "veltrane/foundation/Value.h"

namespace veltrane::sandbox {

struct Fault {
    enum class Kind {
        failure,    // a failure envelope with message
        malformed,  // a reply that is not JSON
        delay,      // answers normally after delayMilliseconds
        drop,       // promises a body, closes before sending it
        reset,      // the connection reset before any reply
        empty,      // the connection closed without a reply
        status,     // HTTP status, with body
        dribble,    // the normal reply in small chunks over delayMilliseconds
        truncate,   // half the normal reply, then closed
        normal,     // a scenario's step that answers normally
    };
    Kind kind = Kind::failure;
    std::string message = "服务器繁忙";  // failure
    int delayMilliseconds = 0;           // delay, dribble
    int times = -1;                      // how many requests it hits; -1 for all
    int status = 503;                    // status
    std::string body{};                  // status
    std::optional<double> probability{}; // of hitting a request, from 0 to 1; always when absent
    uint64_t seed = 1;                   // of the draws
};

const char* kindName(Fault::Kind kind);

// The fields of a fault ("kind", "times", "message", "delay", "status",
// "body", "probability", "seed") read into one; the problem, naming the
// field, when they do not read. A scenario's step takes no "times", nor a
// probability.
using FaultField = std::function<std::optional<std::string>(const char* name)>;
std::variant<Fault, std::string> faultFromFields(const FaultField& field, bool step);

// A scenario's steps from JSON text: an array of objects of the fields
// above; the problem, naming the step, when they do not read.
std::variant<std::vector<Fault>, std::string> scenarioFromJSON(std::string_view text);

// A fault or step as it is listed.
Dictionary describeFault(const Fault& fault);

// The faults and scenarios set, per API name.
class FaultTable {
public:
    void setFault(const std::string& api, Fault fault);
    void setScenario(const std::string& api, std::vector<Fault> steps);
    // Clears the API's fault and scenario, or every one.
    void clear(const std::optional<std::string>& api = std::nullopt);

    // What to do to this request of api, and what it is called in the
    // journal and the log ("fault=delay", "scenario=2/3:failure"), or nothing.
    std::optional<std::pair<Fault, std::string>> take(const std::string& api);
    // Every fault and scenario, for listing.
    Array list() const;

private:
    struct Set {
        std::optional<Fault> fault;
        std::mt19937_64 random;
        std::deque<Fault> steps;
        size_t stepsGiven = 0, stepsTaken = 0;
    };
    std::map<std::string, Set> sets_;
};

} // namespace veltrane::sandbox
