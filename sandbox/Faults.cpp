// Faults and scenarios: reading them, listing them, and choosing one for a request.
#include "sandbox/Faults.h"

#include <charconv>

#include "veltrane/foundation/JSON.h"

namespace veltrane::sandbox {

namespace {

const std::pair<const char*, Fault::Kind> kKinds[] = {
    {"failure", Fault::Kind::failure}, {"malformed", Fault::Kind::malformed}, {"delay", Fault::Kind::delay},
    {"drop", Fault::Kind::drop},       {"reset", Fault::Kind::reset},         {"empty", Fault::Kind::empty},
    {"status", Fault::Kind::status},   {"dribble", Fault::Kind::dribble},     {"truncate", Fault::Kind::truncate},
    {"normal", Fault::Kind::normal},
};

// A whole number from 0 to limit, or nothing.
std::optional<long> count(const std::string& text, long limit) {
    long value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || value < 0 || value > limit) return std::nullopt;
    return value;
}

} // namespace

const char* kindName(Fault::Kind kind) {
    for (const auto& [name, k] : kKinds)
        if (k == kind) return name;
    return "?";
}

std::variant<Fault, std::string> faultFromFields(const FaultField& field, bool step) {
    Fault f;
    std::optional<std::string> kind = field("kind");
    auto known = std::find_if(std::begin(kKinds), std::end(kKinds), [&](const auto& k) { return kind && *kind == k.first; });
    if (!kind || known == std::end(kKinds) || (!step && known->second == Fault::Kind::normal))
        return std::string("参数格式错误: kind 应为 failure|malformed|delay|drop|reset|empty|status|dribble|truncate") + (step ? "|normal" : "");
    f.kind = known->second;
    if (step) {
        if (field("times") || field("probability")) return std::string("参数格式错误: 场景的每一步只用于一次请求 (不带 times 或 probability)");
        f.times = 1;
    } else {
        std::optional<std::string> times = field("times");
        if (!times) return std::string("缺少参数: times (次数或 all)");
        std::optional<long> n = *times == "all" ? std::optional<long>(-1) : count(*times, 1'000'000'000);
        if (!n || *n == 0) return std::string("参数格式错误: times 应为正整数或 all");
        f.times = static_cast<int>(*n);
    }
    if (f.kind == Fault::Kind::delay || f.kind == Fault::Kind::dribble) {
        std::optional<long> ms = field("delay") ? count(*field("delay"), 600'000) : std::nullopt;
        if (!ms) return std::string("参数格式错误: delay 应为毫秒数 (至多 600000)");
        f.delayMilliseconds = static_cast<int>(*ms);
    }
    if (f.kind == Fault::Kind::status) {
        std::optional<long> status = field("status") ? count(*field("status"), 599) : std::nullopt;
        if (!status || *status < 100) return std::string("参数格式错误: status 应为 100 至 599 的 HTTP 状态");
        f.status = static_cast<int>(*status);
        f.body = field("body").value_or("");
    }
    if (std::optional<std::string> message = field("message")) f.message = *message;
    if (std::optional<std::string> probability = field("probability")) {
        double p = -1;
        auto [end, error] = std::from_chars(probability->data(), probability->data() + probability->size(), p);
        if (error != std::errc() || end != probability->data() + probability->size() || !(p >= 0 && p <= 1))
            return std::string("参数格式错误: probability 应为 0 至 1 的数");
        f.probability = p;
        if (std::optional<std::string> seed = field("seed")) {
            std::optional<long> s = count(*seed, std::numeric_limits<long>::max());
            if (!s) return std::string("参数格式错误: seed 应为非负整数");
            f.seed = static_cast<uint64_t>(*s);
        }
    }
    return f;
}

std::variant<std::vector<Fault>, std::string> scenarioFromJSON(std::string_view text) {
    Value parsed;
    try {
        parsed = parseJSON(text);
    } catch (const JSONError& e) {
        return std::string("参数格式错误: steps 应为 JSON 数组 (") + e.what() + ")";
    }
    if (!parsed.isArray() || parsed.asArray().empty()) return std::string("参数格式错误: steps 应为非空 JSON 数组");
    if (parsed.asArray().size() > 1000) return std::string("参数格式错误: steps 至多 1000 步");
    std::vector<Fault> steps;
    for (size_t i = 0; i < parsed.asArray().size(); ++i) {
        const Dictionary* step = parsed.asArray()[i].dictionaryIf();
        std::string where = "steps[" + std::to_string(i) + "]";
        if (!step) return "参数格式错误: " + where + " 应为对象";
        std::variant<Fault, std::string> f = faultFromFields(
            [&](const char* name) -> std::optional<std::string> {
                const Value* v = step->find(name);
                if (!v) return std::nullopt;
                return v->isString() ? std::string(v->asString()) : writeJSON(*v);
            },
            true);
        if (std::string* problem = std::get_if<std::string>(&f)) return *problem + " (" + where + ")";
        steps.push_back(std::get<Fault>(f));
    }
    return steps;
}

Dictionary describeFault(const Fault& f) {
    Dictionary d{{"kind", kindName(f.kind)}};
    if (f.kind == Fault::Kind::failure) d.set("message", f.message);
    if (f.kind == Fault::Kind::delay || f.kind == Fault::Kind::dribble) d.set("delay", f.delayMilliseconds);
    if (f.kind == Fault::Kind::status) {
        d.set("status", f.status);
        d.set("body", f.body);
    }
    if (f.probability) {
        d.set("probability", *f.probability);
        d.set("seed", static_cast<unsigned long>(f.seed));
    }
    return d;
}

void FaultTable::setFault(const std::string& api, Fault fault) {
    Set& set = sets_[api];
    set.random.seed(fault.seed);
    set.fault = std::move(fault);
}

void FaultTable::setScenario(const std::string& api, std::vector<Fault> steps) {
    Set& set = sets_[api];
    set.steps.assign(steps.begin(), steps.end());
    set.stepsGiven = steps.size();
    set.stepsTaken = 0;
}

void FaultTable::clear(const std::optional<std::string>& api) {
    if (api) sets_.erase(*api);
    else sets_.clear();
}

std::optional<std::pair<Fault, std::string>> FaultTable::take(const std::string& api) {
    auto it = sets_.find(api);
    if (it == sets_.end()) return std::nullopt;
    Set& set = it->second;
    std::optional<std::pair<Fault, std::string>> taken;
    if (!set.steps.empty()) {
        taken.emplace(set.steps.front(), "scenario=" + std::to_string(++set.stepsTaken) + "/" + std::to_string(set.stepsGiven) + ":" +
                                             kindName(set.steps.front().kind));
        set.steps.pop_front();
    } else if (set.fault) {
        Fault& f = *set.fault;
        if (f.probability && std::uniform_real_distribution<double>(0, 1)(set.random) >= *f.probability) return std::nullopt;
        taken.emplace(f, std::string("fault=") + kindName(f.kind));
        if (f.times > 0 && --f.times == 0) set.fault.reset();
    }
    if (!set.fault && set.steps.empty()) sets_.erase(it);
    return taken;
}

Array FaultTable::list() const {
    Array out;
    for (const auto& [api, set] : sets_) {
        if (set.fault) {
            Dictionary d{{"api", api}};
            for (const auto& [key, value] : describeFault(*set.fault)) {
                d.set(key, value);
                if (key == "kind") d.set("times", set.fault->times < 0 ? Value("all") : Value(set.fault->times));
            }
            out.push_back(d);
        }
        if (!set.steps.empty()) {
            Array steps;
            for (const Fault& step : set.steps) steps.push_back(describeFault(step));
            out.push_back(Dictionary{{"api", api}, {"scenario", steps}});
        }
    }
    return out;
}

} // namespace veltrane::sandbox
