#pragma once

#include "base/Date.h"
#include "base/JSON.h"

#include <boost/json/monotonic_resource.hpp>

#include <cstddef>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace vorlane {

/// What an edit may change of a row.
struct EditedRow {
  std::string title;
  /// Lies in memory of its own, as do copies of its parts unless they are put elsewhere.
  JSONMap document;
};

/// A row of a table of documents from its reading to its writing. The document is read once,
/// edited and dropped, so that it lies in a few large blocks that go together: its parts need
/// neither be allocated nor freed one by one.
class OpenedRow {
 public:
  OpenedRow() = default;
  OpenedRow(const OpenedRow&) = delete;
  OpenedRow& operator=(const OpenedRow&) = delete;

  /// Reads the document, once. Throws what SnapshotCodec::decode throws.
  void read(std::string title, std::string_view data);
  EditedRow& row() { return *row_; }
  const EditedRow& row() const { return *row_; }

  /// As they are stored.
  std::string id, ownerID;
  Date updatedAt;
  /// Whether all that is here of the cloud's document is a title.
  bool isStub = false;
  /// The title before the edit.
  std::string storedTitle;

 private:
  std::optional<boost::json::monotonic_resource> memory_;
  std::optional<EditedRow> row_;
};

/// What an edit reports, in memory that outlives the document.
template <class Report>
  requires std::is_arithmetic_v<Report>
Report detachedReport(Report report) {
  return report;
}
inline JSONMap detachedReport(JSONMap&& report) {
  return JSONMap(std::move(report), boost::json::storage_ptr());
}
/// What the edit did, or why it did nothing.
using EditReport = std::expected<JSONMap, std::string>;
inline EditReport detachedReport(EditReport&& report) {
  if (!report) return std::unexpected(std::move(report.error()));
  return detachedReport(*std::move(report));
}

}  // namespace vorlane
