#include "store/Database.h"

#include "store/DatabaseFailure.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sqlite3.h>

namespace vorlane {

std::string Database::selectSQL(std::string_view table, std::span<const std::string_view> columns,
                                std::string_view condition) {
  return fmt::format("SELECT {} FROM {} WHERE {}", fmt::join(columns, ", "), table, condition);
}

void Database::failSecond() {
  throw DatabaseFailure(SQLITE_MISUSE, "a read that was to run one statement ran a second one");
}

std::string Database::saveSQL(std::string_view table, std::span<const std::string_view> columns) {
  std::string placeholders, updates;
  for (const auto column : columns) {
    placeholders += placeholders.empty() ? "?" : ", ?";
    if (column == columns.front()) continue;
    if (!updates.empty()) updates += ", ";
    updates += fmt::format("{0} = excluded.{0}", column);
  }
  return fmt::format("INSERT INTO {} ({}) VALUES ({}) ON CONFLICT ({}) DO UPDATE SET {}", table,
                     fmt::join(columns, ", "), placeholders, columns.front(), updates);
}

}  // namespace vorlane
