// Any bytes: parsing either fails with JSONError or gives a value that the
// writer prints and that reads back equal to itself.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "foundation/JSON.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace veltrane;
    Value value;
    try {
        value = parseJSON(std::string_view(reinterpret_cast<const char*>(data), size));
    } catch (const JSONError&) {
        return 0;
    }
    std::string written = writeJSON(value);
    if (!(parseJSON(written) == value)) std::abort();
    (void)describe(value);
    return 0;
}
