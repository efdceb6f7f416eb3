#include "base/JSONArguments.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vorlane::json {

const JSONValue* find(const JSONMap& map, std::string_view key) {
  return map.if_contains(key);
}

std::optional<std::string> string(const JSONMap& map, std::string_view key) {
  const auto* value = find(map, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

std::string stringOr(const JSONMap& map, std::string_view key, std::string_view fallback) {
  const auto* value = find(map, key);
  if (value == nullptr || !value->is_string()) return std::string(fallback);
  return std::string(value->get_string());
}

std::optional<std::string> nonEmptyString(const JSONMap& map, std::string_view key) {
  auto text = string(map, key);
  if (text && text->empty()) text.reset();
  return text;
}

std::optional<bool> boolean(const JSONMap& map, std::string_view key) {
  const auto* value = find(map, key);
  if (value == nullptr || !value->is_bool()) return std::nullopt;
  return value->get_bool();
}

bool booleanOr(const JSONMap& map, std::string_view key, bool fallback) {
  return boolean(map, key).value_or(fallback);
}

std::optional<std::int64_t> integer(const JSONValue& value) {
  if (value.is_int64()) return value.get_int64();
  if (value.is_double()) {
    const double real = value.get_double();
    // Both bounds are exact doubles; the upper one is the first beyond the range.
    constexpr double low = -0x1p63, beyond = 0x1p63;
    if (real >= low && real < beyond && std::trunc(real) == real) return static_cast<std::int64_t>(real);
  }
  return std::nullopt;
}

std::optional<double> number(const JSONValue& value) {
  if (value.is_double()) return value.get_double();
  if (value.is_int64()) return static_cast<double>(value.get_int64());
  if (value.is_uint64()) return static_cast<double>(value.get_uint64());
  return std::nullopt;
}

std::optional<std::int64_t> integer(const JSONMap& map, std::string_view key) {
  const auto* value = find(map, key);
  return value == nullptr ? std::nullopt : integer(*value);
}

std::optional<double> number(const JSONMap& map, std::string_view key) {
  const auto* value = find(map, key);
  return value == nullptr ? std::nullopt : number(*value);
}

const JSONMap* object(const JSONMap& map, std::string_view key) {
  const auto* value = find(map, key);
  return value == nullptr ? nullptr : value->if_object();
}

JSONMap objectOrEmpty(const JSONMap& map, std::string_view key) {
  const auto* found = object(map, key);
  return found == nullptr ? JSONMap() : *found;
}

const JSONArray* array(const JSONMap& map, std::string_view key) {
  const auto* value = find(map, key);
  return value == nullptr ? nullptr : value->if_array();
}

const JSONArray* arrayOfObjects(const JSONMap& map, std::string_view key) {
  const auto* values = array(map, key);
  if (values == nullptr) return nullptr;
  return std::ranges::all_of(*values, [](const auto& value) { return value.is_object(); }) ? values : nullptr;
}

JSONArray* arrayOfObjects(JSONMap& map, std::string_view key) {
  return const_cast<JSONArray*>(arrayOfObjects(static_cast<const JSONMap&>(map), key));
}

}  // namespace vorlane::json
