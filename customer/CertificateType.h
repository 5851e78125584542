/// @file
/// A kind of identity certificate the server offers for choice, with its sort
/// position.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// A kind of identity certificate the server offers for choice, with its sort position.
class CertificateType : public RawRecord {
public:
    /// A new, empty, writable dictionary.
    CertificateType() = default;
    /// Keeps a one-level copy of the dictionary: the caller's later changes do
    /// not reach the record, nor its writes the caller.
    explicit CertificateType(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::copy) {}
    /// Replaces the dictionary behind the record with a one-level copy of dictionary.
    void setRaw(const Dictionary& dictionary) { keep(dictionary, Keeps::copy); }

    /// Read as 32 bits and sign-extended; written whole.
    ///@{
    long ID() const { return raw_.optInt("ID"); }
    void setID(long v) { raw_.set("ID", NSBoxLong(v)); }
    ///@}
    /// Setting nothing removes the key.
    ///@{
    std::optional<std::string> Name() const { return text("Name"); }
    void setName(std::optional<std::string> v) { setText("Name", std::move(v)); }
    ///@}
    /// "Sort", a 32-bit integer.
    ///@{
    int32_t Sort() const { return raw_.optInt("Sort"); }
    void setSort(int32_t v) { raw_.set("Sort", NSBoxInt(v)); }
    ///@}

    /// GET "getCertificateList" with no parameter dictionary at all: one type
    /// per element of the reply, in order; one bad element fails the list.
    static void list(ResultCallback<std::vector<CertificateType>> callback);
};

} // namespace veltrane
