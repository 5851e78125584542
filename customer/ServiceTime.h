/// @file
/// One installation date with its free time slots.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// One installation date with its free time slots.
class ServiceTime {
public:
    ServiceTime() = default;
    /// Copies "date" (text) and "time" (as it stands: the day's free slots).
    explicit ServiceTime(const Dictionary& dictionary) : date_(dictionary.optString("date")), time_(dictionary.optValue("time")) {}

    /// A day as the server writes it, never parsed.
    ///@{
    const std::optional<std::string>& date() const noexcept { return date_; }
    void setDate(std::optional<std::string> v) { date_ = std::move(v); }
    ///@}
    /// The day's free slots, "time", as they stand.
    ///@{
    const std::optional<Value>& time() const noexcept { return time_; }
    void setTime(std::optional<Value> v) { time_ = std::move(v); }
    ///@}

    /// GET "getInstallTime" with "SubAreaCode" when the code has text; with an
    /// empty or absent code, no parameter dictionary at all.
    static void listWithAreaCode(std::optional<std::string> areaCode, ResultCallback<std::vector<ServiceTime>> callback);

private:
    std::optional<std::string> date_;
    std::optional<Value> time_;
};

} // namespace veltrane
