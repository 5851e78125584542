/// @file
/// A compound (bundle) package that can be added to a plan item, identified by
/// its ID.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// A compound (bundle) package that can be added to a plan item, identified by its ID.
class Compound : public RawRecord {
public:
    /// Keeps a one-level copy of the dictionary.
    explicit Compound(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::copy) {}
    /// Replaces the dictionary behind the record with a one-level copy of dictionary.
    void setRaw(const Dictionary& dictionary) { keep(dictionary, Keeps::copy); }

    /// "PackageID", a 32-bit integer.
    ///@{
    int32_t ID() const { return raw_.optInt("PackageID"); }
    void setID(int32_t v) { raw_.set("PackageID", NSBoxInt(v)); }
    ///@}
    /// "PackageName", text.
    ///@{
    std::optional<std::string> name() const { return text("PackageName"); }
    void setName(std::optional<std::string> v) { setText("PackageName", std::move(v)); }
    ///@}
    /// "Price", a number.
    float price() const { return raw_.optFloat("Price"); }
    /// Stored as a whole number: 19.9 is stored as 19.
    void setPrice(float v) { raw_.set("Price", NSBoxLong(truncateToLong(v))); }

    /// Packages are the same when their IDs are; names and prices are not compared.
    bool isEqual(const Compound& other) const { return this == &other || ID() == other.ID(); }
    /// The ID: equal records hash alike.
    long hash() const { return ID(); }
    /// A new package with its own copy of this one's dictionary.
    Compound copy() const { return Compound(raw_); }
    /// Whether isEqual() says so.
    friend bool operator==(const Compound& a, const Compound& b) { return a.isEqual(b); }

    /// GET "listCompounds" with "planItemID" and "typeID"; data JSON null
    /// means no packages (an empty list).
    static void listWithPlanItemID(int32_t planItemID, int32_t andTypeID, ResultCallback<std::vector<Compound>> callback);
    /// GET "getCompoundDetail" with "ID": the reply's data as it stands on
    /// success, nothing on failure.
    static void getDetailWithCompoundID(int32_t compoundID, ResultCallback<Value> callback);
};

} // namespace veltrane

/// @cond
// Hashes a record by its hash(), for unordered containers.
template <>
struct std::hash<veltrane::Compound> {
    size_t operator()(const veltrane::Compound& c) const noexcept { return static_cast<size_t>(c.hash()); }
};
/// @endcond
