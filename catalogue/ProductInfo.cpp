// ProductInfo and its server calls.
#include "veltrane/catalogue/ProductInfo.h"

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/platform/Encodings.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

namespace {
std::optional<Value> firstPresent(const Dictionary& d, std::initializer_list<const char*> keys) {
    for (const char* key : keys)
        if (const Value* v = d.find(key)) return *v;
    return std::nullopt;
}

Dictionary companyAndIMEI(int32_t company, std::string IMEI) {
    return Dictionary{{"companyid", NSBoxInt(company)}, {"imei", std::move(IMEI)}};
}
} // namespace

ProductInfo::ProductInfo(const Dictionary& dictionary)
    : dictionary_(dictionary),
      ID_(dictionary.intValue("ID")),
      name_(firstPresent(dictionary, {"Name", "GoodsName", "Title"})),
      serial_(dictionary.optValue("IMEI")),
      picture_(dictionary.optValue("Picture")),
      price_(Number(dictionary.doubleValue("Price")).floatValue()),
      dealPrice_(price_) {}

Dictionary ProductInfo::raw() const {
    Dictionary sent = dictionary_.mutableCopy();
    sent.set("ID", NSBoxInt(ID_));
    sent.setValue("Name", name_);
    sent.setValue("Picture", picture_);
    sent.setValue("IMEI", serial_);
    Value whole = NSBoxLong(truncateToLong(dealPrice_));
    sent.set("dealPrice", whole);
    sent.set("Price", whole);
    return sent;
}

void ProductInfo::listForCompany(int32_t company, int32_t withPage, std::optional<std::string> andKeywords,
                                 ResultCallback<DataPage<ProductInfo>> callback) {
    Dictionary params{{"p", NSBoxInt(withPage)}, {"companyid", NSBoxInt(company)}};
    if (andKeywords && !andKeywords->empty()) params.set("keyword", percentEncodeLegacyURL(*andKeywords));
    reply::get("getGoodsPages", params, reply::page<ProductInfo>(std::move(callback)));
}

void ProductInfo::listForCompany(int32_t company, const std::optional<std::string>& withIMEI, int32_t restrictForGoodsID,
                                 ResultCallback<DataPage<ProductInfo>> callback) {
    if (!withIMEI || withIMEI->empty()) {
        callback(false, std::string("no IMEI"), std::nullopt);
        return;
    }
    Dictionary params = companyAndIMEI(company, *withIMEI);
    params.set("goodsid", NSBoxInt(restrictForGoodsID));
    reply::get("getGoodsPagesWithIMEI", params, reply::page<ProductInfo>(std::move(callback)));
}

void ProductInfo::listForCompany(int32_t company, const std::optional<std::string>& withIMEI, ResultCallback<DataPage<ProductInfo>> callback) {
    listForCompany(company, withIMEI, -1, std::move(callback));
}

void ProductInfo::checkIMEI(std::string IMEI, int32_t ofCompany, ResultCallback<ProductInfo> callback) {
    reply::get("getGoodsByIMEI", companyAndIMEI(ofCompany, std::move(IMEI)), reply::oneRecord<ProductInfo>(std::move(callback)));
}

void ProductInfo::lockIMEI(std::string IMEI, int32_t ofCompany, FlagCallback callback) {
    reply::post("postLockImei", companyAndIMEI(ofCompany, std::move(IMEI)), reply::flag(std::move(callback)));
}

void ProductInfo::unlockIMEI(std::string IMEI, int32_t ofCompany, FlagCallback callback) {
    reply::post("postUnLockImei", companyAndIMEI(ofCompany, std::move(IMEI)), reply::flag(std::move(callback)));
}

void ProductInfo::getInfoOfProduct(int32_t productID, int32_t withCompany, ResultCallback<Value> callback) {
    Dictionary params{{"goodsid", NSBoxInt(productID)}, {"companyid", NSBoxInt(withCompany)}};
    reply::get("getInfo", params, reply::dataOnSuccess(std::move(callback)));
}

} // namespace veltrane
