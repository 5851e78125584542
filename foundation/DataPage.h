/// @file
/// One page of a paged server list: the envelope's counters and its rows,
/// converted into records.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "veltrane/foundation/ListConversion.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// A page of records of type T, numbered as the server numbers pages.
template <class T>
class DataPage {
public:
    /// Turns one row into a record; returning nothing is an error.
    using Conversion = std::function<std::optional<T>(const Value&)>;

    /// An empty page: counters 0, no data.
    DataPage() = default;

    /// Reads "count", "totalPages", "totalRows" and "nowPage" (numbers or numeric
    /// text; absent gives 0; null throws ValueError). With a conversion and an
    /// array under "data", converts every row in order; an exception from the
    /// conversion ends construction (a ValueError located at its row,
    /// "data[3].Rank: ..."). Otherwise data() stays nothing, which is not the
    /// same as an empty page.
    DataPage(const Dictionary& dictionary, const Conversion& andDataConvertionBlock)
        : count_(dictionary.intValue("count")),
          totalPages_(dictionary.intValue("totalPages")),
          totalRows_(dictionary.intValue("totalRows")),
          currentPage_(dictionary.intValue("nowPage")) {
        if (!andDataConvertionBlock) return;
        const Value* rows = dictionary.find("data");
        if (!rows || !rows->isArray()) return;
        std::vector<T> result;
        result.reserve(rows->asArray().size());
        detail::BatchedCounts batch(&dictionary);
        // The common conversion, the record's own constructor, runs in place.
        constexpr bool isRecord = std::is_constructible_v<T, const Dictionary&>;
        bool inPlace = false;
        if constexpr (isRecord) {
            auto* conversion = andDataConvertionBlock.template target<std::optional<T> (*)(const Value&)>();
            inPlace = conversion && *conversion == &makeRecord<T>;
        }
        // One handler for the whole loop: the row that throws is the one
        // not yet kept.
        try {
            for (const Value& row : rows->asArray()) {
                if constexpr (isRecord)
                    if (inPlace) {
                        result.emplace_back(row.asDictionary());
                        continue;
                    }
                std::optional<T> record = andDataConvertionBlock(row);
                if (!record) throw ValueError("the row converted to nothing");
                result.push_back(std::move(*record));
            }
        } catch (const ValueError& e) {
            throw e.within("data[" + std::to_string(result.size()) + "]");
        }
        data_ = std::move(result);
    }

    /// Copies share the records' handles; moves take them.
    ///@{
    DataPage(const DataPage&) = default;
    DataPage(DataPage&&) noexcept = default;
    DataPage& operator=(const DataPage&) = default;
    DataPage& operator=(DataPage&&) noexcept = default;
    ///@}
    /// The records' counts on their reply are dropped at once.
    ~DataPage() {
        detail::BatchedCounts batch;
        data_.reset();
    }

    /// How many rows this page holds ("count").
    ///@{
    int32_t count() const noexcept { return count_; }
    void setCount(int32_t v) noexcept { count_ = v; }
    ///@}
    /// How many pages the whole list has ("totalPages").
    ///@{
    int32_t totalPages() const noexcept { return totalPages_; }
    void setTotalPages(int32_t v) noexcept { totalPages_ = v; }
    ///@}
    /// How many rows the whole list has ("totalRows").
    ///@{
    int32_t totalRows() const noexcept { return totalRows_; }
    void setTotalRows(int32_t v) noexcept { totalRows_ = v; }
    ///@}
    /// The number of this page ("nowPage").
    ///@{
    int32_t currentPage() const noexcept { return currentPage_; }
    void setCurrentPage(int32_t v) noexcept { currentPage_ = v; }
    ///@}
    /// The records, in the server's order; nothing when the reply had no array.
    ///@{
    const std::optional<std::vector<T>>& data() const noexcept { return data_; }
    void setData(std::optional<std::vector<T>> v) { data_ = std::move(v); }
    ///@}

private:
    int32_t count_ = 0;
    int32_t totalPages_ = 0;
    int32_t totalRows_ = 0;
    int32_t currentPage_ = 0;
    std::optional<std::vector<T>> data_;
};

} // namespace veltrane
