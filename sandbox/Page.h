// The sandbox's page at /sandbox/: its files (HTML, CSS, JavaScript from
// sandbox/page), built into the binary, and how they are served.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace veltrane::sandbox {

struct PageFile {
    const char* name;  // "index.html"
    const unsigned char* data;
    size_t size;
};
extern const PageFile kPageFiles[];
extern const size_t kPageFileCount;

// The file of the page called name, and its content type; nothing for any
// other name.
std::optional<std::pair<std::string_view, const char*>> pageFile(std::string_view name);

} // namespace veltrane::sandbox
