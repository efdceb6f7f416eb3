#pragma once

#include "store/Connection.h"

#include <array>
#include <concepts>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorlane {

/// A plain record of one table: its first column is the primary key.
template <class T>
concept TableRecord = requires(const Row& row, const T& record) {
  { T::table } -> std::convertible_to<std::string_view>;
  { T::columns.size() } -> std::convertible_to<std::size_t>;
  { T::fromRow(row) } -> std::same_as<T>;
  { record.arguments()[0] } -> std::convertible_to<SQLArgument>;
};

/// A value that can be made of a row, whether or not it is a record of a table.
template <class T>
concept RowValue = requires(const Row& row) {
  { T::fromRow(row) } -> std::same_as<T>;
};

/// What a piece of work on the store is given: one connection within one
/// transaction. It must not be kept beyond the work, nor used on another thread.
class Database {
 public:
  enum class Statements { any, one };

  /// With Statements::one a second statement throws DatabaseFailure: there is no transaction,
  /// and it might see another state of the database than the first.
  explicit Database(Connection& connection, Statements allowed = Statements::any)
      : connection_(connection), allowed_(allowed) {}
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Runs one statement; each `?` takes an argument (see SQLArgument).
  template <class... Arguments>
  void execute(std::string_view sql, const Arguments&... arguments) {
    run(sql, nullptr, arguments...);
  }

  /// Hands each row to `visit` until it answers false. For columns that are too
  /// large to be copied.
  template <class... Arguments>
  void forEachRow(std::string_view sql, const RowVisitor& visit, const Arguments&... arguments) {
    run(sql, &visit, arguments...);
  }

  /// The first row as a T: by T::fromRow, or its first column when T is a plain value.
  template <class T, class... Arguments>
  std::optional<T> fetchOne(std::string_view sql, const Arguments&... arguments) {
    std::optional<T> found;
    const RowVisitor visit = [&](const Row& row) {
      found.emplace(valueOf<T>(row));
      return false;
    };
    run(sql, &visit, arguments...);
    return found;
  }

  template <class T, class... Arguments>
  std::vector<T> fetchAll(std::string_view sql, const Arguments&... arguments) {
    std::vector<T> found;
    const RowVisitor visit = [&](const Row& row) {
      found.push_back(valueOf<T>(row));
      return true;
    };
    run(sql, &visit, arguments...);
    return found;
  }

  /// The integer of a "SELECT COUNT(*)" or "SELECT EXISTS" query; 0 without a row.
  template <class... Arguments>
  std::int64_t fetchCount(std::string_view sql, const Arguments&... arguments) {
    return fetchOne<std::int64_t>(sql, arguments...).value_or(0);
  }

  template <TableRecord T>
  std::optional<T> fetchRecord(const SQLArgument& key) {
    static const std::string sql = selectSQL(T::table, T::columns, std::string(T::columns[0]) + " = ?");
    return fetchOne<T>(sql, key);
  }

  /// Inserts the record, or updates the columns that it knows. Columns that a newer
  /// build has added keep their values.
  template <TableRecord T>
  void saveRecord(const T& record) {
    static const std::string sql = saveSQL(T::table, T::columns);
    const auto arguments = record.arguments();
    connection_.run(sql, arguments, nullptr);
  }

  /// True when there was such a record.
  template <TableRecord T>
  bool deleteRecord(const SQLArgument& key) {
    static const std::string sql =
        "DELETE FROM " + std::string(T::table) + " WHERE " + std::string(T::columns[0]) + " = ?";
    execute(sql, key);
    return changes() > 0;
  }

  /// Rows that the last INSERT, UPDATE or DELETE touched.
  std::int64_t changes() const { return connection_.changes(); }

  /// Has `call` run once the transaction is committed, on the side that asked for
  /// the write, and never when it fails. It must not throw.
  void afterCommit(std::function<void()> call) { afterCommit_.push_back(std::move(call)); }
  std::vector<std::function<void()>> takeAfterCommit() { return std::move(afterCommit_); }

  /// "SELECT columns FROM table WHERE condition".
  static std::string selectSQL(std::string_view table, std::span<const std::string_view> columns,
                               std::string_view condition);

 private:
  static std::string saveSQL(std::string_view table, std::span<const std::string_view> columns);

  template <class T>
  static T valueOf(const Row& row) {
    if constexpr (RowValue<T>) {
      return T::fromRow(row);
    } else {
      static_assert(!std::same_as<T, std::string_view> && !std::same_as<T, Blob>, "the row does not live on");
      return row.at<T>(0);
    }
  }

  template <class... Arguments>
  void run(std::string_view sql, const RowVisitor* visit, const Arguments&... arguments) {
    if (allowed_ == Statements::one && std::exchange(hasRun_, true)) failSecond();
    const std::array<SQLArgument, sizeof...(Arguments)> bound{SQLArgument(arguments)...};
    connection_.run(sql, bound, visit);
  }
  [[noreturn]] static void failSecond();

  Connection& connection_;
  const Statements allowed_;
  bool hasRun_ = false;
  std::vector<std::function<void()>> afterCommit_;
};

}  // namespace vorlane
