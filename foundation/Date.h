/// @file
/// The library's one date type: an instant as seconds since 1970-01-01
/// 00:00:00 UTC, kept as a double so that a fraction given by the server stays
/// (records that read whole seconds make whole-second dates).
#pragma once

#include <chrono>
#include <compare>
#include <string>

namespace veltrane {

/// A moment, as seconds since 1970 (UTC) with their fraction.
class Date {
public:
    /// Seconds with their fraction.
    using Seconds = std::chrono::duration<double>;
    /// A moment on the system clock.
    using TimePoint = std::chrono::time_point<std::chrono::system_clock, Seconds>;

    /// 1970-01-01 00:00:00 UTC.
    constexpr Date() noexcept = default;
    /// The moment seconds after 1970-01-01 00:00:00 UTC (before it when negative).
    static constexpr Date dateWithTimeIntervalSince1970(double seconds) noexcept { return Date(seconds); }

    /// Seconds since 1970-01-01 00:00:00 UTC.
    constexpr double timeIntervalSince1970() const noexcept { return seconds_; }
    /// The same moment on the system clock.
    constexpr TimePoint timePoint() const noexcept { return TimePoint(Seconds(seconds_)); }

    /// "2017-07-14T02:40:00Z" (fractions of a second as ".250" when present),
    /// UTC; dates beyond years 0 to 9999 print their seconds instead.
    std::string iso8601() const;

    /// Earlier dates order first.
    friend constexpr auto operator<=>(const Date&, const Date&) = default;

private:
    explicit constexpr Date(double seconds) noexcept : seconds_(seconds) {}
    double seconds_ = 0;
};

} // namespace veltrane
