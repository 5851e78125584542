// CertificateType's listing.
#include "veltrane/customer/CertificateType.h"

#include "veltrane/foundation/RequestPattern.h"

namespace veltrane {

void CertificateType::list(ResultCallback<std::vector<CertificateType>> callback) {
    reply::get("getCertificateList", std::nullopt, reply::loopList<CertificateType>(std::move(callback)));
}

} // namespace veltrane
