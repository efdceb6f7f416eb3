#pragma once

#include "base/Date.h"

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vorlane {

/// Bytes to be bound, or read, as a blob.
struct Blob {
  std::string_view bytes;
};

/// One value for a `?` of a statement. Texts and blobs are not copied: what they
/// point to must live until the statement has run, as the arguments of the call do.
class SQLArgument {
 public:
  using Value = std::variant<std::nullptr_t, std::int64_t, double, std::string_view, Blob, std::string>;

  SQLArgument(std::nullptr_t) : value_(nullptr) {}
  SQLArgument(std::nullopt_t) : value_(nullptr) {}
  /// Integers, and booleans as 0 or 1.
  template <std::integral Integer>
  SQLArgument(Integer number) : value_(static_cast<std::int64_t>(number)) {}
  SQLArgument(double number) : value_(number) {}
  SQLArgument(std::string_view text) : value_(text) {}
  SQLArgument(const std::string& text) : value_(std::string_view(text)) {}
  SQLArgument(const char* text) : value_(std::string_view(text)) {}
  SQLArgument(Blob blob) : value_(blob) {}
  /// A date, in its storage form.
  SQLArgument(Date date) : value_(storageText(date)) {}
  template <class T>
  SQLArgument(const std::optional<T>& maybe) : value_(maybe ? SQLArgument(*maybe).value_ : Value(nullptr)) {}

  const Value& value() const { return value_; }

 private:
  Value value_;
};

}  // namespace vorlane
