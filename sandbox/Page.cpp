// Looks up the page's built-in files.
#include "sandbox/Page.h"

#include <utility>

namespace veltrane::sandbox {

std::optional<std::pair<std::string_view, const char*>> pageFile(std::string_view name) {
    for (size_t i = 0; i < kPageFileCount; ++i) {
        const PageFile& f = kPageFiles[i];
        if (name != f.name) continue;
        std::string_view type = name.substr(name.rfind('.') + 1);
        const char* contentType = type == "html"  ? "text/html; charset=utf-8"
                                  : type == "css" ? "text/css; charset=utf-8"
                                  : type == "svg" ? "image/svg+xml"
                                                  : "text/javascript; charset=utf-8";
        return std::pair(std::string_view(reinterpret_cast<const char*>(f.data), f.size), contentType);
    }
    return std::nullopt;
}

} // namespace veltrane::sandbox
