// The sandbox's API routes: what each API name takes and how it answers.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "veltrane/foundation/Value.h"

namespace veltrane::sandbox {

// What a parameter's text must read as.
enum class Kind { Int, Number, Text, Json };

struct Param {
    const char* name;
    Kind kind;
    bool required = true;
};

// One checked request: its parameters, decoded.
struct Call {
    std::map<std::string, std::string> params;

    bool has(const std::string& name) const { return params.count(name) != 0; }
    const std::string& text(const std::string& name) const;  // "" when absent
    long integer(const std::string& name) const;             // 0 when absent
    double number(const std::string& name) const;
    Value json(const std::string& name) const;
};

// The envelope's three parts.
struct Answer {
    bool ok = true;
    std::string info = "ok";
    std::optional<Value> data;

    static Answer success(Value data, std::string info = "ok") { return {true, std::move(info), std::move(data)}; }
    static Answer failure(std::string info) { return {false, std::move(info), std::nullopt}; }
};

// The state a counter sale changes, guarded by the sandbox's lock.
struct State {
    Dictionary seed;
    std::set<std::string> lockedPhones;
    std::set<std::string> lockedImeis;
    long nextOrderID = 6001;
    long nextActionOrderID = 7101;
    long nextChatID = 100;
    long nextPushID = 100;
    long nextCardID = 100;
    long nextReceiptID = 9001;

    Array list(const char* name);  // the seed's list under name (created when absent)
};

struct Route {
    std::string api;
    const char* method;                     // "GET" or "POST"
    std::vector<std::vector<Param>> shapes;  // the parameter sets it accepts (one or more)
    std::function<Answer(const Call&, State&)> handler;
};

const std::vector<Route>& routes();
// The route of an API name, or nothing.
const Route* route(std::string_view api);

// Checks decoded parameters against a route's shapes: nothing when one fits,
// else the failure message naming the first problem of the closest shape.
std::optional<std::string> checkParameters(const Route& route, const std::map<std::string, std::string>& params);

// A paging envelope of rows, ten to a page; page numbers start at 1.
Dictionary pageOf(const Array& rows, long page);

// Makes an uploaded signed copy visible: every receipt of SN whose "ID" is
// receiptID (catalogue orders' "ReceiptArr", action-form orders' "Receipt")
// gets "SignPath" = path, and the action-form order lists it under "Sign".
// Returns how many receipts it found.
size_t attachSignedCopy(State& state, const std::string& SN, long receiptID, const std::string& path);

} // namespace veltrane::sandbox
