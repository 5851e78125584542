/// @file
/// A home-screen tile as the signed-in user's company has it, read live from
/// the server's very dictionary.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// A home-screen tile as the signed-in user's company has it, read live from the server's
/// very dictionary.
class SubApp : public RawRecord {
public:
    /// Keeps the very dictionary given.
    explicit SubApp(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::shared) {}

    /// "name", as text.
    std::optional<std::string> name() const { return text("name"); }
    /// "icon", as text.
    std::optional<std::string> icon() const { return text("icon"); }
    /// "color", as text.
    std::optional<std::string> color() const { return text("color"); }
    /// "link", as text.
    std::optional<std::string> link() const { return text("link"); }

    /// GET "getAppsID" with "CompanyID", the signed-in user's (word-sized; 0
    /// when nobody is signed in): the tiles in order, those whose "name" is
    /// JSON null left out (an absent name is kept). One bad tile fails the
    /// list; no data is an empty list.
    static void list(ResultCallback<std::vector<SubApp>> callback);
};

} // namespace veltrane
