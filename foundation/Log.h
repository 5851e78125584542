// The library's log: plain one-line entries, no levels. By default they go to
// standard error; the application can route them elsewhere or silence them.
#pragma once

#include <functional>
#include <string_view>

namespace veltrane {

using LogSink = std::function<void(std::string_view line)>;

// Writes one entry. Safe from any thread; entries are never interleaved.
void log(std::string_view line);

// Replaces the sink; an empty function silences the log. Returns the old sink.
LogSink setLogSink(LogSink sink);

} // namespace veltrane
