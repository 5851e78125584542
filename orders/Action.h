/// @file
/// One business action of the server's menu (a transfer of ownership, a SIM
/// replacement, a broadband installation...): its name, tile colour, price,
/// type and status, read and written live in a dictionary of its own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veltrane/foundation/Callbacks.h"
#include "veltrane/foundation/RawRecord.h"

namespace veltrane {

/// One business action of the server's menu (a transfer of ownership, a SIM replacement, a
/// broadband installation...): its name, tile colour, price, type and status, read and
/// written live in a dictionary of its own.
class Action : public RawRecord {
public:
    /// A new, empty, writable dictionary.
    Action() = default;
    /// Keeps a one-level copy of the dictionary, as setRaw does.
    explicit Action(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::copy) {}
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
    /// The colour of the action's tile, as the server writes it ("#43A047").
    ///@{
    std::optional<std::string> backgroundColor() const { return text("Background"); }
    void setBackgroundColor(std::optional<std::string> v) { setText("Background", std::move(v)); }
    ///@}
    /// Read as a float; written as a whole number, truncated toward zero
    /// (12.75 is stored as 12; NaN as 0; beyond the word-sized range clamped).
    ///@{
    float price() const { return raw_.optFloat("Price"); }
    void setPrice(float v);
    ///@}
    /// "Remarks", text.
    ///@{
    std::optional<std::string> remarks() const { return text("Remarks"); }
    void setRemarks(std::optional<std::string> v) { setText("Remarks", std::move(v)); }
    ///@}
    /// "SN", text.
    ///@{
    std::optional<std::string> SN() const { return text("SN"); }
    void setSN(std::optional<std::string> v) { setText("SN", std::move(v)); }
    ///@}
    /// "Status", a 32-bit integer.
    ///@{
    int32_t status() const { return raw_.optInt("Status"); }
    void setStatus(int32_t v) { raw_.set("Status", NSBoxInt(v)); }
    ///@}
    /// "Type", a 32-bit integer.
    ///@{
    int32_t type() const { return raw_.optInt("Type"); }
    void setType(int32_t v) { raw_.set("Type", NSBoxInt(v)); }
    ///@}
    /// "TypeName", text.
    ///@{
    std::optional<std::string> typeName() const { return text("TypeName"); }
    void setTypeName(std::optional<std::string> v) { setText("TypeName", std::move(v)); }
    ///@}

    /// GET "getActionList" with no parameters: the whole menu. Data that is not
    /// an array gives (false, "服务器数据错误", nothing); an element that is not
    /// a dictionary throws ValueError out of the completion.
    static void list(ResultCallback<std::vector<Action>> callback);
};

} // namespace veltrane
