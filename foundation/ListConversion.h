/// @file
/// Tolerant conversion of a server list into records, element by element.
#pragma once

#include <exception>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "veltrane/foundation/Log.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// Visits the elements of an array in order, or the keys (as strings) of a
/// dictionary. Any other value cannot be enumerated: throws ValueError.
template <class Visit>
void forEachElement(const Value& receiver, Visit&& visit) {
    if (const Array* array = receiver.arrayIf()) {
        for (const Value& element : *array) visit(element);
    } else if (const Dictionary* dictionary = receiver.dictionaryIf()) {
        for (const auto& entry : *dictionary) visit(Value(entry.first));
    } else {
        throw ValueError(std::string(receiver.kindName()) + " cannot be enumerated");
    }
}

/// Converts every element with block (a function from const Value& to
/// std::optional<T>). An element for which block returns nothing is dropped
/// silently; one for which it throws is dropped with the log line
/// "array convert error:<description>". Throws only when the receiver cannot
/// be enumerated (see forEachElement), before any element is converted.
template <class Block, class Result = std::invoke_result_t<Block&, const Value&>>
std::vector<typename Result::value_type> arrayByConvertElementsUsingBlock(const Value& receiver, Block&& block) {
    std::vector<typename Result::value_type> result;
    if (const Array* array = receiver.arrayIf()) result.reserve(array->size());
    forEachElement(receiver, [&](const Value& element) {
        try {
            if (Result converted = block(element)) result.push_back(std::move(*converted));
        } catch (const std::exception& e) {
            log(std::string("array convert error:") + e.what());
        }
    });
    return result;
}

/// The record conversion of the server's lists: a record of type R built from
/// the element, which must be a dictionary (anything else throws ValueError).
template <class R>
std::optional<R> makeRecord(const Value& element) {
    return R(element.asDictionary());
}

} // namespace veltrane
