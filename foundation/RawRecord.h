/// @file
/// The dictionary behind a raw-backed record: kept as a one-level copy or as
/// the caller's very dictionary, with the typed reads and writes that the
/// records' properties are made of.
///
/// Copying a record object copies the handle: both objects then work on one
/// dictionary, as two references to one record would. Records that offer
/// copy() make an independent one.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// The base of the records whose properties live in a dictionary.
class RawRecord {
public:
    /// How a record keeps the dictionary it is given: a one-level copy of its
    /// own, or the caller's very dictionary (whose later changes it sees, and
    /// which its setters change).
    enum class Keeps { copy, shared };

    /// The dictionary behind the record, as it stands.
    const Dictionary& raw() const noexcept { return raw_; }

protected:
    RawRecord() = default;  ///< a new, empty, writable dictionary
    /// Keeps dictionary as keeps says.
    ///@{
    RawRecord(const Dictionary& dictionary, Keeps keeps) : raw_(kept(dictionary, keeps)) {}
    void keep(const Dictionary& dictionary, Keeps keeps) { raw_ = kept(dictionary, keeps); }
    static Dictionary kept(const Dictionary& dictionary, Keeps keeps) { return keeps == Keeps::copy ? dictionary.mutableCopy() : dictionary; }
    ///@}

    /// The text under key (optString): nothing when absent or null.
    std::optional<std::string> text(std::string_view key) const { return raw_.optString(key); }
    /// Stores the text, or removes the key for nothing. Throws ValueError on a
    /// read-only dictionary.
    void setText(std::string_view key, std::optional<std::string> value) {
        raw_.setValue(key, value ? std::optional<Value>(std::move(*value)) : std::nullopt);
    }

    Dictionary raw_;  ///< the dictionary behind the record
};

} // namespace veltrane
