// Dates as text.
#include "veltrane/foundation/Date.h"

#include <cmath>
#include <cstdio>

namespace veltrane {

std::string Date::iso8601() const {
    // Years 0 to 9999 only; outside them (or for NaN) the seconds themselves.
    constexpr double kFirst = -62167219200.0, kLast = 253402300800.0;
    if (!(seconds_ >= kFirst && seconds_ < kLast)) {
        char text[64];
        std::snprintf(text, sizeof text, "%.17g s since 1970", seconds_);
        return text;
    }
    double whole = std::floor(seconds_);
    auto day = std::chrono::floor<std::chrono::days>(std::chrono::sys_seconds(std::chrono::seconds(static_cast<long long>(whole))));
    std::chrono::year_month_day ymd(day);
    long long inDay = static_cast<long long>(whole) - day.time_since_epoch().count() * 86400LL;
    int millis = static_cast<int>(std::lround((seconds_ - whole) * 1000));
    if (millis == 1000) millis = 999;
    char text[48];
    int n = std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02lld:%02lld:%02lld", static_cast<int>(ymd.year()),
                          static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()), inDay / 3600, inDay / 60 % 60, inDay % 60);
    if (millis) std::snprintf(text + n, sizeof text - n, ".%03d", millis);
    return std::string(text) + "Z";
}

} // namespace veltrane
