// Tag and its listing.
#include "veltrane/foundation/Tag.h"

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Server.h"

namespace veltrane {

Tag::Tag(const Dictionary& dictionary)
    : ID_(dictionary.intValue("ID")), content_(dictionary.optValue("Content")), title_(dictionary.optValue("Title")) {}

void Tag::listWithCompany(int32_t company, unsigned long andOrderType, ResultCallback<std::vector<Tag>> callback) {
    Dictionary params{{"type", NSBoxUnsignedLong(andOrderType)}, {"companyid", NSBoxInt(company)}};
    reply::get("getLabel", params, reply::convertList<Tag>(std::move(callback)));
}

} // namespace veltrane
