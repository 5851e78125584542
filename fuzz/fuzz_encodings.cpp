// Any bytes through the text encodings: base64 and percent-encoding round
// trips, and UTF-16 slicing that is total and keeps its length rule.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "veltrane/platform/Encodings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace veltrane;
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (base64DecodeStrict(base64Encode(bytes)) != std::string(bytes)) std::abort();
    if (std::optional<std::string> decoded = base64DecodeStrict(bytes); decoded && base64Encode(*decoded) != bytes) std::abort();
    for (auto encode : {percentEncodeURLPath, percentEncodeLegacyURL})
        if (percentDecode(encode(bytes)) != bytes) std::abort();
    if (percentDecode(formURLEncode(bytes), true) != bytes) std::abort();
    (void)percentDecode(bytes, true);

    // The first two bytes choose a range of UTF-16 units of the rest.
    if (size < 2) return 0;
    std::string_view text = bytes.substr(2);
    size_t units = utf16Length(text), location = data[0] % (units + 2), length = data[1] % (units + 2);
    std::string slice = utf16Substring(text, location, length);
    size_t kept = location >= units ? 0 : std::min(length, units - location);
    if (utf16Length(slice) != kept) std::abort();
    if (location == 0 && length >= units && slice != text) std::abort();  // the whole text comes back as it is
    return 0;
}
