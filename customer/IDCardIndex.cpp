// IDCardIndex's listing.
#include "veltrane/customer/IDCardIndex.h"

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void IDCardIndex::listWithCompanyID(int32_t companyID, ResultCallback<DataPage<IDCardIndex>> callback) {
    reply::get("getIdcardPages", Dictionary{{"companyid", NSBoxInt(companyID)}}, reply::page<IDCardIndex>(std::move(callback)));
}

} // namespace veltrane
