// Any bytes read as a property list: refused with a reason or read into
// values, never an abort, a hang or unbounded memory.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "veltrane/foundation/JSON.h"
#include "veltrane/platform/PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace veltrane;
    std::string why;
    Value kinds;
    std::optional<Value> value = propertyListWithData(std::string_view(reinterpret_cast<const char*>(data), size), &why, &kinds);
    if (!value && why.empty()) std::abort();
    if (value && kinds.isNull()) std::abort();  // every value read has its kind
    if (value) (void)describe(*value);
    return 0;
}
