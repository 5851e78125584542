// What the route files share: the routes of each subsystem, and the small
// queries their handlers are made of. Every function here runs under the
// sandbox's lock, on the state it is given.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "sandbox/Routes.h"

namespace veltrane::sandbox {

std::vector<Route> catalogueRoutes();
std::vector<Route> customerRoutes();
std::vector<Route> orderRoutes();
std::vector<Route> documentRoutes();
std::vector<Route> messagingRoutes();

// The rows (dictionaries) that keep accepts, in order.
template <class Keep>
Array where(const Array& rows, Keep keep) {
    Array out;
    for (const Value& row : rows)
        if (keep(row.asDictionary())) out.push_back(row);
    return out;
}

// A copy of d with only the given keys, and one without them.
Dictionary pick(const Dictionary& d, std::initializer_list<const char*> keys);
Dictionary omit(const Dictionary& d, std::initializer_list<const char*> keys);
// Every row picked down to the given keys.
Array project(const Array& rows, std::initializer_list<const char*> keys);
// True when needle is empty or stands in the text.
bool contains(const std::optional<std::string>& haystack, const std::string& needle);
// True when the array under key of row holds id.
bool listed(const Dictionary& row, const char* key, long id);
// The first row whose key holds value.
std::optional<Dictionary> findBy(const Array& rows, const char* key, const Value& value);
// The stored action-form order whose "orderInfo" holds value under key.
std::optional<Dictionary> actionOrderWhere(State& s, const char* key, const Value& value);

} // namespace veltrane::sandbox
