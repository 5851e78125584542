// Any keys and values: the form encoding of a parameter dictionary decodes
// back to the same keys and texts, in order.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "veltrane/platform/Encodings.h"
#include "veltrane/platform/HTTPTransport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace veltrane;
    // The input, cut at each 0xFF byte, gives keys and values in turn.
    std::string_view input(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> pieces;
    for (size_t start = 0;;) {
        size_t cut = input.find('\xFF', start);
        pieces.emplace_back(input.substr(start, cut == std::string_view::npos ? std::string_view::npos : cut - start));
        if (cut == std::string_view::npos) break;
        start = cut + 1;
    }
    Dictionary params;
    std::vector<std::pair<std::string, std::string>> expected;
    for (size_t i = 0; i + 1 < pieces.size(); i += 2) {
        if (params.contains(pieces[i])) continue;
        params.set(pieces[i], pieces[i + 1]);
        expected.emplace_back(pieces[i], pieces[i + 1]);
    }
    std::string encoded = encodeParameters(params);
    std::vector<std::pair<std::string, std::string>> decoded;
    for (size_t start = 0; !encoded.empty() && start <= encoded.size();) {
        size_t end = std::min(encoded.find('&', start), encoded.size());
        std::string_view pair(encoded.data() + start, end - start);
        size_t eq = pair.find('=');
        if (eq == std::string_view::npos) std::abort();
        decoded.emplace_back(percentDecode(pair.substr(0, eq), true), percentDecode(pair.substr(eq + 1), true));
        start = end + 1;
    }
    if (decoded != expected) std::abort();
    return 0;
}
