#include "devcloud/Fields.h"

#include "base/JSONArguments.h"

#include <fmt/format.h>

namespace vorlane::devcloud {

FieldFailure::FieldFailure(std::string field, const std::string& complaint)
    : Failure(fmt::format("field \"{}\" {}", field, complaint)),
      field_(std::move(field)),
      complaint_(complaint) {}

const JSONValue* Fields::find(std::string_view key) {
  asked_.emplace(key);
  return json::find(map_, key);
}

std::string Fields::requiredString(std::string_view key) {
  auto text = string(key);
  if (!text) throw FieldFailure(std::string(key), "is missing");
  if (text->empty()) throw FieldFailure(std::string(key), "must not be empty");
  return std::move(*text);
}

const JSONMap& Fields::requiredObject(std::string_view key) {
  const JSONMap* map = object(key);
  if (!map) throw FieldFailure(std::string(key), "is missing");
  return *map;
}

const JSONArray& Fields::requiredArray(std::string_view key) {
  const JSONArray* list = array(key);
  if (!list) throw FieldFailure(std::string(key), "is missing");
  return *list;
}

std::optional<std::string> Fields::string(std::string_view key) {
  const JSONValue* value = find(key);
  if (!value) return std::nullopt;
  if (!value->is_string()) throw FieldFailure(std::string(key), "must be a string");
  return std::string(value->get_string());
}

std::optional<bool> Fields::boolean(std::string_view key) {
  const JSONValue* value = find(key);
  if (!value) return std::nullopt;
  if (!value->is_bool()) throw FieldFailure(std::string(key), "must be true or false");
  return value->get_bool();
}

std::optional<std::int64_t> Fields::integer(std::string_view key, std::int64_t least, std::int64_t most) {
  const JSONValue* value = find(key);
  if (!value) return std::nullopt;
  const auto number = json::integer(*value);
  if (!number || *number < least || *number > most) {
    throw FieldFailure(std::string(key), fmt::format("must be a whole number from {} to {}", least, most));
  }
  return number;
}

std::optional<Date> Fields::date(std::string_view key) {
  const auto text = string(key);
  if (!text) return std::nullopt;
  const auto date = dateFromISO8601(*text);
  if (!date) throw FieldFailure(std::string(key), "must be an ISO 8601 date-time");
  return date;
}

const JSONMap* Fields::object(std::string_view key) {
  const JSONValue* value = find(key);
  if (!value) return nullptr;
  if (!value->is_object()) throw FieldFailure(std::string(key), "must be an object");
  return &value->get_object();
}

const JSONArray* Fields::array(std::string_view key) {
  const JSONValue* value = find(key);
  if (!value) return nullptr;
  if (!value->is_array()) throw FieldFailure(std::string(key), "must be an array");
  return &value->get_array();
}

void Fields::refuseOthers() const {
  for (const auto& entry : map_) {
    if (!asked_.contains(std::string_view(entry.key()))) {
      throw FieldFailure(std::string(entry.key()), "is unknown");
    }
  }
}

}  // namespace vorlane::devcloud
