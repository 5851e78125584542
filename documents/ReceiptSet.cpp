// ReceiptSet's reading.
#include "veltrane/documents/ReceiptSet.h"

namespace veltrane {

ReceiptSet::ReceiptSet(const Dictionary& d)
    : raw_(d), displayIndex_(d.optInt("DisplayIndex")), orderID_(d.optLong("OrderID")), SN_(d.optString("SN")) {
    if (std::optional<Array> files = d.optArray("Files")) {
        files_.reserve(files->size());
        for (const Value& file : *files)
            files_.push_back(locatedAtElement("Files", files_.size(), [&] { return Receipt(file.asDictionary()); }));
    }
}

} // namespace veltrane
