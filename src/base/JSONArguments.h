#pragma once

#include "base/JSON.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// How values are read out of JSON that others wrote: leniently by type,
/// in one place. A missing key and a value of another type read alike, as
/// absent. A boolean is never a number. A double with an exact integer value
/// counts as a whole number, another double does not.
namespace vorlane::json {

const JSONValue* find(const JSONMap& map, std::string_view key);

std::optional<std::string> string(const JSONMap& map, std::string_view key);
std::string stringOr(const JSONMap& map, std::string_view key, std::string_view fallback = "");
/// The string under `key`, when it is there and not empty.
std::optional<std::string> nonEmptyString(const JSONMap& map, std::string_view key);
std::optional<bool> boolean(const JSONMap& map, std::string_view key);
bool booleanOr(const JSONMap& map, std::string_view key, bool fallback);
std::optional<std::int64_t> integer(const JSONMap& map, std::string_view key);
std::optional<double> number(const JSONMap& map, std::string_view key);

/// A copy of the object under `key`, empty when there is none.
JSONMap objectOrEmpty(const JSONMap& map, std::string_view key);
/// The object or array under `key` itself, or null. The pointer lives as long
/// as the map is not changed.
const JSONMap* object(const JSONMap& map, std::string_view key);
const JSONArray* array(const JSONMap& map, std::string_view key);
/// The array under `key` when every element of it is an object, else null: an
/// array that mixes objects with other values reads as no array at all.
const JSONArray* arrayOfObjects(const JSONMap& map, std::string_view key);
JSONArray* arrayOfObjects(JSONMap& map, std::string_view key);

std::optional<std::int64_t> integer(const JSONValue& value);
std::optional<double> number(const JSONValue& value);

}  // namespace vorlane::json
