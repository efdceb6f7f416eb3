#include "store/Row.h"

#include "store/DatabaseFailure.h"

#include <fmt/format.h>
#include <sqlite3.h>

namespace vorlane {

int Row::index(std::string_view column) const {
  const int count = sqlite3_column_count(statement_);
  for (int i = 0; i < count; ++i) {
    const int candidate = (next_ + i) % count;
    if (column != sqlite3_column_name(statement_, candidate)) continue;
    next_ = candidate + 1;
    return candidate;
  }
  throw DatabaseFailure(SQLITE_RANGE, fmt::format("the query has no column {}", column));
}

bool Row::isNull(int column) const {
  return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

void Row::mismatch(int column, std::string_view wanted) const {
  const char* name = sqlite3_column_name(statement_, column);
  throw DatabaseFailure(SQLITE_MISMATCH, fmt::format("the column {} holds {} where {} is expected",
                                                     name == nullptr ? "?" : name,
                                                     isNull(column) ? "nothing" : "a value", wanted));
}

void Row::read(int column, std::string_view& value) const {
  if (isNull(column)) mismatch(column, "a text");
  const auto* text = sqlite3_column_text(statement_, column);
  if (text == nullptr) throw DatabaseFailure(SQLITE_NOMEM, "out of memory");
  // The length is asked for after the text, which may have been converted.
  value = std::string_view(reinterpret_cast<const char*>(text),
                           static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
}

void Row::read(int column, std::string& value) const {
  std::string_view text;
  read(column, text);
  value = text;
}

void Row::read(int column, Blob& value) const {
  if (isNull(column)) mismatch(column, "a blob");
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
  value.bytes = bytes == nullptr ? std::string_view() : std::string_view(bytes, size);
}

void Row::read(int column, std::int64_t& value) const {
  if (sqlite3_column_type(statement_, column) != SQLITE_INTEGER) mismatch(column, "an integer");
  value = sqlite3_column_int64(statement_, column);
}

void Row::read(int column, double& value) const {
  const int type = sqlite3_column_type(statement_, column);
  if (type != SQLITE_INTEGER && type != SQLITE_FLOAT) mismatch(column, "a number");
  value = sqlite3_column_double(statement_, column);
}

void Row::read(int column, bool& value) const {
  std::int64_t number = 0;
  read(column, number);
  value = number != 0;
}

void Row::read(int column, Date& value) const {
  if (isNull(column)) mismatch(column, "a date");
  std::string_view text;
  read(column, text);
  const auto date = dateFromStorage(text);
  if (!date) mismatch(column, "a date");
  value = *date;
}

}  // namespace vorlane
