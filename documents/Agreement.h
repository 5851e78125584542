/// @file
/// An agreement of an order that the customer is shown and ticks; the tick is
/// kept in the record itself. Also the calls that list an order's agreements
/// and have the server produce their sheets.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// An agreement of an order that the customer is shown and ticks; the tick is kept in the
/// record itself.
class Agreement : public RawRecord {
public:
    /// A new, empty, writable dictionary.
    Agreement() = default;
    /// Keeps a one-level copy, as setRaw does.
    explicit Agreement(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::copy) {}
    /// Replaces the dictionary behind the record with a one-level copy of dictionary.
    void setRaw(const Dictionary& dictionary) { keep(dictionary, Keeps::copy); }

    /// Read through 32 bits (sign-extended); written whole, so a value beyond
    /// 32 bits is stored and sent on as it is but reads back narrowed.
    ///@{
    long ID() const { return raw_.optInt("ID"); }
    void setID(long v) { raw_.set("ID", NSBoxLong(v)); }
    ///@}
    /// "Name", text.
    ///@{
    std::optional<std::string> name() const { return text("Name"); }
    void setName(std::optional<std::string> v) { setText("Name", std::move(v)); }
    ///@}
    /// "IsChecked" equal to 1; written as 1 or 0.
    ///@{
    bool checked() const { return raw_.optInt("IsChecked") == 1; }
    void setChecked(bool v) { raw_.set("IsChecked", NSBoxInt(v ? 1 : 0)); }
    ///@}

    /// GET "getAgreementList" with "CompanyId" (that spelling: the signed-in
    /// user's company, word-sized; 0 with nobody signed in) and "SN".
    static void listWithSN(std::string SN, ResultCallback<std::vector<Agreement>> callback);
    /// POST "createAgreementSheet" with "SN" and "ID": the text form of every
    /// identifier followed by "," ("3,7,"; "" for none). The reply's data,
    /// or the JSON text it holds, must be an array of texts: the sheets'
    /// names. A text that is not JSON fails with the parser's description;
    /// anything else with "服务器数据格式错误".
    static void createSheetWithSN(std::string SN, const std::vector<Value>& andIDs, ResultCallback<std::vector<std::string>> callback);
};

} // namespace veltrane
