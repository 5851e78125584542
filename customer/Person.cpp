// Person's emptiness.
#include "veltrane/customer/Person.h"

#include "veltrane/platform/Encodings.h"

namespace veltrane {

Person::Person()
    : name_(""), address_(""), idCardNumber_(""), idCardPhotoFrontCachePath_(""), idCardPhotoBackCachePath_(""), idCardPhotoFrontUrl_(""),
      idCardPhotoBackUrl_("") {}

bool Person::isEmpty() const {
    // Length in characters (UTF-16 units); only whether the sum is 0 matters.
    auto length = [](const std::optional<Value>& v) -> size_t {
        if (!v || v->isNull()) return 0;
        if (std::optional<std::string_view> text = v->stringIf()) return utf16Length(*text);
        return 1;
    };
    return length(name_) + length(address_) + length(idCardNumber_) + length(idCardPhotoFrontUrl_) + length(idCardPhotoBackUrl_) == 0;
}

} // namespace veltrane
