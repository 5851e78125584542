/// @file
/// An installation address found by a search, with the site that serves it.
/// Address dictionaries come in two spellings: lower-case keys with the site
/// nested under "site", and flat capitalised keys (an action-form order's
/// info); every property tries the lower-case one first.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// An installation address found by a search, with the site that serves it.
class Address : public RawRecord {
public:
    /// A new, empty, writable dictionary.
    Address() = default;
    /// Keeps a one-level copy of the dictionary.
    explicit Address(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::copy) {}

    /// The value under "addressID", or when that key is absent under
    /// "AddressID": its integer value when it is a number; 0 for anything
    /// else (text, JSON null, nothing). The key's presence decides: an
    /// "addressID" holding null hides an "AddressID".
    int32_t ID() const;
    /// "addressDesc", else "AddressDesc", as text (a number as its decimal
    /// text); nothing when both are absent or the value is JSON null.
    std::optional<std::string> title() const;
    /// Always stored under "addressDesc", which is read first from then on.
    void setTitle(std::optional<Value> v) { raw_.setValue("addressDesc", std::move(v)); }
    /// With a "site" key (any value), "siteID" / "siteName" of the dictionary
    /// under it; without, "SiteID" / "SiteName" of the address itself. A "site"
    /// that is not a dictionary throws ValueError.
    ///@{
    int32_t siteID() const;
    std::optional<std::string> siteName() const;
    ///@}

    /// The address of an action-form order's info (all its keys).
    static Address loadFromActionOrderInfo(const Dictionary& info) { return Address(info); }

    /// GET "getQueryAddress" with "areaCode" and "subAreaID" (32-bit), and
    /// "addressKey" when keywords are given (percent-encoded with the URL-path
    /// set, an empty text sent as it is).
    static void listWithAreaID(int32_t areaID, int32_t andSubAreaID, std::optional<std::string> andKeywords,
                               ResultCallback<std::vector<Address>> callback);

private:
    /// The site dictionary, when there is a "site" key.
    std::optional<Dictionary> site() const;
};

} // namespace veltrane
