// Address's two spellings and its search.
#include "veltrane/customer/Address.h"

#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/platform/Encodings.h"

namespace veltrane {

namespace {
// The value under the first key present.
const Value* firstPresent(const Dictionary& d, const char* key, const char* otherwise) {
    const Value* v = d.find(key);
    return v ? v : d.find(otherwise);
}
} // namespace

int32_t Address::ID() const {
    const Value* v = firstPresent(raw_, "addressID", "AddressID");
    std::optional<Number> n = v ? v->numberIf() : std::nullopt;
    return n ? n->intValue() : 0;
}

std::optional<std::string> Address::title() const {
    const Value* v = firstPresent(raw_, "addressDesc", "AddressDesc");
    if (!v || v->isNull()) return std::nullopt;
    if (std::optional<std::string_view> text = v->stringIf()) return std::string(*text);
    return describe(*v);
}

std::optional<Dictionary> Address::site() const {
    const Value* site = raw_.find("site");
    if (!site) return std::nullopt;
    return locatedAt("site", [&] { return site->asDictionary(); });
}

int32_t Address::siteID() const {
    std::optional<Dictionary> s = site();
    return s ? s->optInt("siteID") : raw_.optInt("SiteID");
}

std::optional<std::string> Address::siteName() const {
    std::optional<Dictionary> s = site();
    return s ? s->optString("siteName") : raw_.optString("SiteName");
}

void Address::listWithAreaID(int32_t areaID, int32_t andSubAreaID, std::optional<std::string> andKeywords,
                             ResultCallback<std::vector<Address>> callback) {
    Dictionary params{{"areaCode", NSBoxInt(areaID)}, {"subAreaID", NSBoxInt(andSubAreaID)}};
    if (andKeywords) params.set("addressKey", percentEncodeURLPath(*andKeywords));
    reply::get("getQueryAddress", std::move(params), reply::convertList<Address>(std::move(callback)));
}

} // namespace veltrane
