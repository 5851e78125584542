// IDCardInfo, its loader, its dictionary, and the card upload.
#include "veltrane/customer/IDCardInfo.h"

#include <stdexcept>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/platform/Encodings.h"

namespace veltrane {

IDCardInfo::IDCardInfo() { log("new init"); }

IDCardInfo::IDCardInfo(const Dictionary& d)
    : name_(d.optString("Name")),
      gender_(d.optString("Gender")),
      nationality_(d.optString("Nation")),
      birthday_(d.optString("Birthday")),
      address_(d.optString("Address")),
      serial_(d.optString("Number")),
      issuingAuthority_(d.optString("IssuingAuthority")),
      validityPeriod_(d.optString("ValidityPeriod")),
      frontCardImageUrl_(d.optString("CardFrontUrl")),
      backCardImageUrl_(d.optString("CardBackUrl")) {
    if (std::optional<std::string> picture = d.optString("Picture")) photo_ = base64DecodeStrict(*picture);
}

IDCardInfo IDCardInfo::loadFromActionOrderInfo(const Dictionary& info) {
    Dictionary copy = info.mutableCopy();
    auto text = [&](const char* key) -> std::optional<Value> {
        std::optional<std::string> t = info.optString(key);
        return t ? std::optional<Value>(*t) : std::nullopt;
    };
    copy.setValue("Address", text("CustomerAddress"));
    copy.setValue("Name", text("CustomerName"));
    copy.setValue("Number", text("CustomerIdentity"));
    copy.setValue("CardFrontUrl", text("CustomerPhotoFront"));
    copy.setValue("CardBackUrl", text("CustomerPhotoBack"));
    return IDCardInfo(copy);
}

void IDCardInfo::getCardInfoWithIndex(int32_t index, ResultCallback<IDCardInfo> callback) {
    reply::get("getIdcardInfo", Dictionary{{"idcardid", NSBoxInt(index)}}, reply::oneRecord<IDCardInfo>(std::move(callback)));
}

Dictionary IDCardInfo::dictionaryWithIDCardInfo() const {
    return Dictionary{{"name", NSGuardNil(name_)},       {"gender", NSGuardNil(gender_)},   {"nationality", NSGuardNil(nationality_)},
                      {"address", NSGuardNil(address_)}, {"idNumber", NSGuardNil(serial_)}, {"issuingAuthority", NSGuardNil(issuingAuthority_)}};
}

void IDCardInfo::uploadCardInfo(const IDCardInfo& card, FlagCallback callback) {
    std::string text;
    auto append = [&](std::string_view key, const std::optional<std::string>& value) {
        if (!value) return;
        text.append(key).append("=").append(percentEncodeURLPath(*value)).append("&");
    };
    append("Name", card.name_);
    append("Gender", card.gender_);
    append("Nation", card.nationality_);
    append("Birthday", card.birthday_);
    append("Address", card.address_);
    append("Number", card.serial_);
    append("IssuingAuthority", card.issuingAuthority_);
    append("ValidityPeriod", card.validityPeriod_);
    if (card.photo_) append("Picture", stringEncodedWithDataUsingBase64(*card.photo_));
    if (text.empty()) throw std::out_of_range("uploadCardInfo: the card has no field to upload");
    text.pop_back();  // the last "&"

    std::optional<User> user = Account::getCurrentUser();
    if (!user) return;
    Dictionary params{{"username", user->loginAccount()}, {"idcard", std::move(text)}};
    reply::post("postIdcard", std::move(params), reply::flag(std::move(callback)));
}

} // namespace veltrane
