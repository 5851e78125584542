/// @file
/// A kind of compound package (data, voice, video...), identified by its ID.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// A kind of compound package (data, voice, video...), identified by its ID.
class CompoundType : public RawRecord {
public:
    /// Keeps a one-level copy of the dictionary.
    explicit CompoundType(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::copy) {}
    /// Replaces the dictionary behind the record with a one-level copy of dictionary.
    void setRaw(const Dictionary& dictionary) { keep(dictionary, Keeps::copy); }

    /// "ID", a 32-bit integer.
    ///@{
    int32_t ID() const { return raw_.optInt("ID"); }
    void setID(int32_t v) { raw_.set("ID", NSBoxInt(v)); }
    ///@}
    /// "Name", text.
    ///@{
    std::optional<std::string> name() const { return text("Name"); }
    void setName(std::optional<std::string> v) { setText("Name", std::move(v)); }
    ///@}

    /// Package types are the same when their IDs are; names are not compared.
    bool isEqual(const CompoundType& other) const { return this == &other || ID() == other.ID(); }
    /// The ID: equal records hash alike.
    long hash() const { return ID(); }
    /// A new type with its own copy of this one's dictionary.
    CompoundType copy() const { return CompoundType(raw_); }
    /// Whether isEqual() says so.
    friend bool operator==(const CompoundType& a, const CompoundType& b) { return a.isEqual(b); }

    /// GET "listCompoundTypes" with no parameter dictionary at all.
    static void listWithCallback(ResultCallback<std::vector<CompoundType>> callback);
};

} // namespace veltrane

/// @cond
// Hashes a record by its hash(), for unordered containers.
template <>
struct std::hash<veltrane::CompoundType> {
    size_t operator()(const veltrane::CompoundType& t) const noexcept { return static_cast<size_t>(t.hash()); }
};
/// @endcond
