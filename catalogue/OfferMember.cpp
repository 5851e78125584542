// OfferMember: paired writes, one-sided equality, its listing and loader.
#include "veltrane/catalogue/OfferMember.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

OfferMember::OfferMember(const Dictionary& dictionary) : RawRecord(dictionary, Keeps::copy), isLoadedFromDict_(true) {
    raw_.setValue("subProdAccNbr", dictionary.optValue("accNbr"));
}

void OfferMember::setAccountNumber(std::optional<std::string> v) {
    setText("accNbr", v);
    setText("subProdAccNbr", std::move(v));
}

std::optional<Value> OfferMember::uim() const {
    if (std::optional<Value> uim = raw_.optValue("UIM")) return uim;
    return raw_.optValue("UimCode");
}

void OfferMember::setUim(std::optional<Value> v) {
    raw_.setValue("UIM", v);
    raw_.setValue("UimCode", std::move(v));
}

bool OfferMember::isEqual(const OfferMember& other) const {
    if (this == &other) return true;
    for (const auto& [key, value] : raw_) {
        const Value* theirs = other.raw_.find(key);
        if (!theirs || !(*theirs == value)) return false;
    }
    return true;
}

void OfferMember::getWithCompanyID(int32_t companyID, std::optional<std::string> andAcctNbr, ResultCallback<std::vector<OfferMember>> callback) {
    Dictionary params{{"CompanyID", NSBoxInt(companyID)}};
    if (andAcctNbr) params.set("AcctNbr", *andAcctNbr);
    reply::get("getOfferMembers", params, reply::convertList<OfferMember>(std::move(callback)));
}

// Moves the info's account number, area code, number type and order ID into
// the member's keys; a member without a number type is named "手动输入"
// (manual entry) with type 0. A missing source removes the target key.
OfferMember OfferMember::loadFromActionFormOrder(const Dictionary& info) {
    Dictionary copy = info.mutableCopy();
    copy.setValue("accNbr", info.optValue("AccountNumber"));
    copy.setValue("areaCode", info.optValue("AreaCode"));
    const Dictionary* nameSource = &info;
    if (copy.optInt("NumberTypeID") != 0) {
        copy.setValue("prodSpecId", info.optValue("NumberTypeID"));
    } else {
        copy.set("NumberTypeName", "手动输入");
        copy.set("prodSpecId", NSBoxInt(0));
        nameSource = &copy;
    }
    copy.setValue("prodSpecName", nameSource->optValue("NumberTypeName"));
    copy.setValue("prodId", info.optValue("ID"));
    return OfferMember(copy);
}

} // namespace veltrane
