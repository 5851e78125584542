/// @file
/// The library's log: plain one-line entries, no levels. By default they go to
/// standard error; the application can route them elsewhere or silence them.
/// Personal data is masked in every entry before any sink sees it, unless the
/// application opts in (see veltrane/foundation/PersonalData.h).
#pragma once

#include <functional>
#include <string_view>

namespace veltrane {

class Value;

/// Where the log's entries go: each call is one entry, without its line feed.
using LogSink = std::function<void(std::string_view line)>;

/// Writes one entry. Safe from any thread; entries are never interleaved.
void log(std::string_view line);

/// How logValue writes a value: as its description ("%@"), or as compact JSON text.
enum class Rendering { description, json };
/// Writes prefix followed by value, rendered so; the values under keys that
/// hold a person's data are masked first.
void logValue(std::string_view prefix, const Value& value, Rendering rendering = Rendering::description);

/// Replaces the sink; an empty function silences the log. Returns the old sink.
LogSink setLogSink(LogSink sink);

} // namespace veltrane
