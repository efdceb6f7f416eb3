#pragma once

#include "base/Date.h"
#include "store/SQLArgument.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3_stmt;

namespace vorlane {

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

/// The row that a query stands on. Valid, with the views that it gives out, until
/// the query moves on. A column that is missing, NULL where a value is asked for,
/// or of another type throws DatabaseFailure, which names the column.
class Row {
 public:
  explicit Row(sqlite3_stmt* statement) : statement_(statement) {}

  /// The column of that name, as std::string, std::string_view, Blob,
  /// std::int64_t, double, bool, Date, or an optional of these. Texts come as
  /// they are stored, which need not be valid UTF-8: other programs write too.
  template <class T>
  T get(std::string_view column) const {
    return at<T>(index(column));
  }
  /// The same, by position from 0.
  template <class T>
  T at(int column) const {
    if constexpr (IsOptional<T>::value) {
      if (isNull(column)) return std::nullopt;
      return at<typename T::value_type>(column);
    } else {
      T value{};
      read(column, value);
      return value;
    }
  }

 private:
  int index(std::string_view column) const;
  bool isNull(int column) const;
  void read(int column, std::string& value) const;
  void read(int column, std::string_view& value) const;
  void read(int column, Blob& value) const;
  void read(int column, std::int64_t& value) const;
  void read(int column, double& value) const;
  void read(int column, bool& value) const;
  void read(int column, Date& value) const;
  [[noreturn]] void mismatch(int column, std::string_view wanted) const;

  sqlite3_stmt* statement_;
  /// Where the next name is looked for first: columns are asked for in their order.
  mutable int next_ = 0;
};

}  // namespace vorlane
