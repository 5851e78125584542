// Any bytes: parsing either fails with JSONError or gives a value that the
// writer prints and that reads back equal to itself; its containers can be
// written (growing out of the reply's arena, taking values of another reply)
// and a deep copy of it equals it and shares nothing.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "veltrane/foundation/JSON.h"

namespace {

using namespace veltrane;

// Writes into every container of v, down to a few levels.
void scribble(const Value& v, const Value& foreign, int depth) {
    if (depth > 3) return;
    if (const Dictionary* d = v.dictionaryIf()) {
        Dictionary writable = *d;
        std::vector<Value> children;
        for (auto [key, child] : writable) children.push_back(child);
        for (const Value& child : children) scribble(child, foreign, depth + 1);
        writable.set("added by the fuzzer", foreign);
        if (!children.empty()) writable.remove((*writable.begin()).first);
    } else if (const Array* a = v.arrayIf()) {
        Array writable = *a;
        for (const Value& child : writable) scribble(child, foreign, depth + 1);
        writable.push_back(v);  // a reply that holds itself
        if (writable.size() > 1) writable.set(0, foreign);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Value value;
    try {
        value = parseJSON(std::string_view(reinterpret_cast<const char*>(data), size));
    } catch (const JSONError&) {
        return 0;
    }
    std::string written = writeJSON(value);
    if (!(parseJSON(written) == value)) std::abort();
    (void)describe(value);
    Value copy = value.detached();
    if (!(copy == value)) std::abort();
    scribble(value, parseJSON(R"({"another":"reply, with a string long enough"})"), 0);
    if (!(parseJSON(written) == copy)) std::abort();  // the deep copy did not change
    return 0;
}
