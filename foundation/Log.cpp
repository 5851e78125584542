// The log sink, guarded so that entries from several threads stay whole.
#include "veltrane/foundation/Log.h"

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
    std::lock_guard lock(sinkMutex());
    if (LogSink& sink = currentSink()) sink(line);
}

LogSink setLogSink(LogSink sink) {
    std::lock_guard lock(sinkMutex());
    std::swap(currentSink(), sink);
    return sink;
}

} // namespace veltrane
