// NumberInfo, its server calls and the phone-number text operations.
#include "veltrane/catalogue/NumberInfo.h"

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/platform/Encodings.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

NumberInfo::NumberInfo(const Dictionary& dictionary)
    : dictionary_(dictionary),
      phoneNumber_(dictionary.optValue("Phone")),
      rank_(dictionary.intValue("Rank")),
      prefund_(dictionary.floatValue("Prestore")),
      UIM_(dictionary.optValue("UIM")) {}

Dictionary NumberInfo::raw() const {
    Dictionary sent = dictionary_.mutableCopy();
    sent.set("Prestore", NSBoxFloat(prefund_));
    sent.set("Price", NSBoxFloat(prefund_));
    sent.setValue("Phone", phoneNumber_);
    sent.setValue("AccountNumber", phoneNumber_);
    if (UIM_) {
        sent.set("UIM", *UIM_);
        sent.set("UimCode", *UIM_);
    }
    return sent.immutableCopy();
}

bool NumberInfo::isEqual(const NumberInfo& other) const {
    std::optional<std::string_view> mine = phoneNumber_ ? phoneNumber_->stringIf() : std::nullopt;
    std::optional<std::string_view> theirs = other.phoneNumber_ ? other.phoneNumber_->stringIf() : std::nullopt;
    return mine && theirs && *mine == *theirs;
}

void NumberInfo::listWithCompany(int32_t company, unsigned long andNetwork, unsigned long andDevice, int32_t andRank,
                                 std::optional<std::string> byKeywords, int32_t atPage, ResultCallback<DataPage<NumberInfo>> callback) {
    Dictionary params{{"companyid", NSBoxInt(company)}, {"rank", NSBoxInt(andRank)}};
    if (andNetwork == 1 || andNetwork == 2) params.set("PlanType", NSBoxInt(static_cast<int32_t>(andNetwork)));
    params.set("NetType", NSBoxUnsignedLong(andDevice));
    params.set("p", NSBoxInt(atPage));
    if (byKeywords) params.set("keyword", *byKeywords);
    reply::get("getPhonePages", params, reply::page<NumberInfo>(std::move(callback)));
}

namespace {
Dictionary lockParameters(std::string phoneNumber, int32_t company) {
    return Dictionary{{"companyid", NSBoxInt(company)}, {"phone", std::move(phoneNumber)}};
}
} // namespace

void NumberInfo::lockPhoneNumber(std::string phoneNumber, int32_t ofCompany, FlagCallback callback) {
    reply::post("postLockPhone", lockParameters(std::move(phoneNumber), ofCompany), reply::flag(std::move(callback)));
}

void NumberInfo::unlockPhoneNumber(std::string phoneNumber, int32_t ofCompany, FlagCallback callback) {
    reply::post("postUnLockPhone", lockParameters(std::move(phoneNumber), ofCompany), reply::flag(std::move(callback)));
}

NumberInfo NumberInfo::loadFromActionOrderInfo(const Dictionary& info) {
    Dictionary copy = info.mutableCopy();
    copy.setValue("Phone", info.optValue("AccountNumber"));
    copy.setValue("Prestore", info.optValue("Price"));
    copy.setValue("UIM", info.optString("UimCode"));
    return NumberInfo(copy);
}

std::string stringFormattedAsPhoneNumber(std::string_view phoneNumber) {
    size_t length = utf16Length(phoneNumber);
    if (length < 7) return std::string(phoneNumber);
    return utf16Substring(phoneNumber, 0, 3) + " " + utf16Substring(phoneNumber, 3, 4) + " " + utf16Substring(phoneNumber, 7, length - 7);
}

std::optional<std::string> stringForNumberType(unsigned long type) {
    switch (type) {
    case 0: return "全部网络";
    case 1: return "省内CRM(3G)";
    case 2: return "集团CRM(4G)";
    default: return std::nullopt;
    }
}

} // namespace veltrane
