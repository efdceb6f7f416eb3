#pragma once

#include "base/Failure.h"

#include <string>

namespace vorlane {

/// The database could not do what it was asked. Domain "SQLite"; the code is
/// SQLite's extended result code. The description holds SQLite's own message and
/// never a bound value.
class DatabaseFailure : public DomainFailure {
 public:
  DatabaseFailure(int extendedCode, std::string description)
      : DomainFailure("SQLite", extendedCode, std::move(description)) {}
  /// The result code without its extension: SQLITE_BUSY for SQLITE_BUSY_SNAPSHOT.
  int primaryCode() const noexcept { return static_cast<int>(code() & 0xff); }
};

}  // namespace vorlane
