/// @file
/// The properties that plans and plan items share, read and written live in
/// their dictionary: "ID", "Name" and "PlanType".
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// Record is the record type itself, so that plans and plan items stay
/// distinct types.
template <class Record>
class PlanFields : public RawRecord {
public:
    /// A new, empty, writable dictionary.
    PlanFields() = default;
    /// Keeps a one-level copy of the dictionary.
    explicit PlanFields(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::copy) {}
    /// Replaces the dictionary behind the record with a one-level copy of dictionary.
    void setRaw(const Dictionary& dictionary) { keep(dictionary, Keeps::copy); }

    /// "ID", a 32-bit integer.
    ///@{
    int32_t ID() const { return raw_.optInt("ID"); }
    /// Writes "ID" as a 32-bit number.
    void setID(int32_t v) { raw_.set("ID", NSBoxInt(v)); }
    ///@}
    /// "Name", text.
    ///@{
    std::optional<std::string> name() const { return text("Name"); }
    /// Writes "Name" (nothing removes it).
    void setName(std::optional<std::string> v) { setText("Name", std::move(v)); }
    ///@}
    /// Read as 32 bits and sign-extended; written narrowed to 32 bits.
    ///@{
    long type() const { return raw_.optInt("PlanType"); }
    /// Writes "PlanType", narrowed to 32 bits.
    void setType(long v) { raw_.set("PlanType", NSBoxInt(static_cast<int32_t>(v))); }
    ///@}
};

} // namespace veltrane
