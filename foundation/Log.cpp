// The log sink, guarded so that entries from several threads stay whole, and what it masks.
#include "veltrane/foundation/Log.h"

#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/PersonalData.h"

#include <cstdio>
#include <mutex>
#include <string>

namespace veltrane {

namespace {
std::mutex& sinkMutex() {
    static std::mutex m;
    return m;
}
LogSink& currentSink() {
    static LogSink sink = [](std::string_view line) {
        std::string entry(line);
        entry += '\n';
        std::fwrite(entry.data(), 1, entry.size(), stderr);
    };
    return sink;
}
} // namespace

void log(std::string_view line) {
    bool clear = loggingPersonalDataInClear();
    std::string masked = clear ? std::string() : maskPersonalText(line);
    std::lock_guard lock(sinkMutex());
    if (LogSink& sink = currentSink()) sink(clear ? line : std::string_view(masked));
}

void logValue(std::string_view prefix, const Value& value, Rendering rendering) {
    Value shown = loggingPersonalDataInClear() ? value : maskPersonalValue(value);
    std::string text;
    try {
        text = rendering == Rendering::json ? writeJSON(shown) : describe(shown);
    } catch (const JSONError&) {  // what JSON cannot hold is still described
        text = describe(shown);
    }
    log(std::string(prefix) + text);
}

LogSink setLogSink(LogSink sink) {
    std::lock_guard lock(sinkMutex());
    std::swap(currentSink(), sink);
    return sink;
}

} // namespace veltrane
