// The route table as a whole: parameter checks, the state's lists, paging,
// signed copies, and the queries every route file shares. The routes
// themselves stand in one file per subsystem.
#include "sandbox/Routes.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "sandbox/Handlers.h"
#include "veltrane/foundation/JSON.h"

namespace veltrane::sandbox {

// ---- Calls and checks ------------------------------------------------------------

const std::string& Call::text(const std::string& name) const {
    static const std::string none;
    auto it = params.find(name);
    return it == params.end() ? none : it->second;
}
long Call::integer(const std::string& name) const { return std::strtol(text(name).c_str(), nullptr, 10); }
double Call::number(const std::string& name) const { return std::strtod(text(name).c_str(), nullptr); }
Value Call::json(const std::string& name) const { return parseJSON(text(name)); }

namespace {

bool readsAs(Kind kind, const std::string& text) {
    char* end = nullptr;
    switch (kind) {
    case Kind::Int:
        std::strtol(text.c_str(), &end, 10);
        return !text.empty() && *end == '\0';
    case Kind::Number: {
        double d = std::strtod(text.c_str(), &end);
        return !text.empty() && *end == '\0' && std::isfinite(d);
    }
    case Kind::Json:
        try {
            parseJSON(text);
            return true;
        } catch (const JSONError&) {
            return false;
        }
    case Kind::Text: return true;
    }
    return false;
}

const char* kindName(Kind kind) {
    switch (kind) {
    case Kind::Int: return "整数";
    case Kind::Number: return "数字";
    case Kind::Json: return "JSON文本";
    case Kind::Text: return "文本";
    }
    return "";
}

// The problems of one shape, the first of them first.
std::vector<std::string> problems(const std::vector<Param>& shape, const std::map<std::string, std::string>& params) {
    std::vector<std::string> found;
    for (const Param& p : shape) {
        auto it = params.find(p.name);
        if (it == params.end()) {
            if (p.required) found.push_back(std::string("缺少参数: ") + p.name);
        } else if (!readsAs(p.kind, it->second)) {
            found.push_back(std::string("参数格式错误: ") + p.name + " 应为" + kindName(p.kind));
        }
    }
    for (const auto& param : params) {
        bool known = std::any_of(shape.begin(), shape.end(), [&](const Param& p) { return param.first == p.name; });
        if (!known) found.push_back("未知参数: " + param.first);
    }
    return found;
}

} // namespace

std::optional<std::string> checkParameters(const Route& route, const std::map<std::string, std::string>& params) {
    std::vector<std::string> closest;
    for (const auto& shape : route.shapes) {
        std::vector<std::string> p = problems(shape, params);
        if (p.empty()) return std::nullopt;
        if (closest.empty() || p.size() < closest.size()) closest = std::move(p);
    }
    return closest.front();
}

Array State::list(const char* name) {
    if (auto existing = seed.optArray(name)) return *existing;
    Array created;
    seed.set(name, created);
    return created;
}

size_t attachSignedCopy(State& s, const std::string& SN, long receiptID, const std::string& path) {
    size_t found = 0;
    auto sign = [&](Array receipts) {
        for (const Value& r : receipts) {
            Dictionary receipt = r.asDictionary();
            if (receipt.optLong("ID") != receiptID || receipt.optString("SN").value_or(SN) != SN) continue;
            receipt.set("SignPath", path);
            receipt.set("SignID", static_cast<long>(receiptID) * 10 + 1);
            ++found;
        }
    };
    for (const Value& o : s.list("orders"))
        if (o.asDictionary().optString("SN") == SN) sign(o.asDictionary().optArray("ReceiptArr").value_or(Array()));
    for (const Value& o : s.list("actionOrders")) {
        Dictionary order = o.asDictionary();
        if (order.optDictionary("orderInfo").optString("SN") != SN) continue;
        size_t before = found;
        sign(order.optArray("Receipt").value_or(Array()));
        if (found == before) continue;
        if (!order.optArray("Sign")) order.set("Sign", Array());
        Array signs = *order.optArray("Sign");
        bool listed = false;
        for (const Value& v : signs) {
            Dictionary signed_ = v.asDictionary();
            if (signed_.optLong("ID") == receiptID) {
                signed_.set("SignPath", path);
                listed = true;
            }
        }
        if (!listed) signs.push_back(Dictionary{{"ID", receiptID}, {"SN", SN}, {"SignPath", path}, {"SignID", receiptID * 10 + 1}});
    }
    return found;
}

Dictionary pageOf(const Array& rows, long page) {
    constexpr long kPageSize = 10;
    long totalRows = static_cast<long>(rows.size());
    long totalPages = (totalRows + kPageSize - 1) / kPageSize;
    long first = (std::max(page, 1L) - 1) * kPageSize;
    Array data;
    for (long i = first; i < std::min(totalRows, first + kPageSize); ++i) data.push_back(rows[static_cast<size_t>(i)]);
    return Dictionary{{"count", static_cast<long>(data.size())}, {"totalPages", totalPages}, {"totalRows", totalRows},
                      {"nowPage", std::max(page, 1L)}, {"data", data}};
}

// ---- Helpers for handlers ----------------------------------------------------------

Dictionary pick(const Dictionary& d, std::initializer_list<const char*> keys) {
    Dictionary out;
    for (const char* k : keys)
        if (const Value* v = d.find(k)) out.set(k, *v);
    return out;
}

Dictionary omit(const Dictionary& d, std::initializer_list<const char*> keys) {
    Dictionary out = d.mutableCopy();
    for (const char* k : keys) out.remove(k);
    return out;
}

Array project(const Array& rows, std::initializer_list<const char*> keys) {
    Array out;
    for (const Value& row : rows) out.push_back(pick(row.asDictionary(), keys));
    return out;
}

bool contains(const std::optional<std::string>& haystack, const std::string& needle) {
    return needle.empty() || (haystack && haystack->find(needle) != std::string::npos);
}

bool listed(const Dictionary& row, const char* key, long id) {
    auto ids = row.optArray(key);
    return ids && std::any_of(ids->begin(), ids->end(), [&](const Value& v) { return v.longValue() == id; });
}

std::optional<Dictionary> findBy(const Array& rows, const char* key, const Value& value) {
    for (const Value& row : rows)
        if (const Value* v = row.asDictionary().find(key); v && *v == value) return row.asDictionary();
    return std::nullopt;
}

std::optional<Dictionary> actionOrderWhere(State& s, const char* key, const Value& value) {
    for (const Value& order : s.list("actionOrders"))
        if (const Value* v = order.asDictionary().optDictionary("orderInfo").find(key); v && *v == value) return order.asDictionary();
    return std::nullopt;
}

const std::vector<Route>& routes() {
    static const std::vector<Route> table = [] {
        std::vector<Route> all;
        for (auto part : {catalogueRoutes, customerRoutes, orderRoutes, documentRoutes, messagingRoutes})
            for (Route& r : part()) all.push_back(std::move(r));
        return all;
    }();
    return table;
}

const Route* route(std::string_view api) {
    auto it = std::find_if(routes().begin(), routes().end(), [&](const Route& r) { return r.api == api; });
    return it == routes().end() ? nullptr : &*it;
}

} // namespace veltrane::sandbox
