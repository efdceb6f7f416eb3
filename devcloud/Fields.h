#pragma once

#include "base/Date.h"
#include "base/Failure.h"
#include "base/JSON.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace vorlane::devcloud {

/// A field is missing, unknown or not what it has to be; the description names it.
class FieldFailure : public Failure {
 public:
  FieldFailure(std::string field, const std::string& complaint);
  const std::string& field() const { return field_; }
  /// The same complaint about a field that lies within `outer`.
  FieldFailure within(const std::string& outer) const { return {outer + "." + field_, complaint_}; }

 private:
  std::string field_;
  std::string complaint_;
};

/// Reads the fields of one JSON object strictly by type: absent is nothing, a
/// value of another type throws FieldFailure. The object outlives the reader.
class Fields {
 public:
  explicit Fields(const JSONMap& map) : map_(map) {}

  /// Present, a string, not empty.
  std::string requiredString(std::string_view key);
  const JSONMap& requiredObject(std::string_view key);
  const JSONArray& requiredArray(std::string_view key);

  std::optional<std::string> string(std::string_view key);
  std::optional<bool> boolean(std::string_view key);
  std::optional<std::int64_t> integer(std::string_view key, std::int64_t least, std::int64_t most);
  /// An ISO 8601 date-time.
  std::optional<Date> date(std::string_view key);
  /// Null when absent.
  const JSONValue* value(std::string_view key) { return find(key); }
  const JSONMap* object(std::string_view key);
  const JSONArray* array(std::string_view key);

  /// Throws for a key that none of the calls above has asked for.
  void refuseOthers() const;

 private:
  const JSONValue* find(std::string_view key);

  const JSONMap& map_;
  std::set<std::string, std::less<>> asked_;
};

}  // namespace vorlane::devcloud
