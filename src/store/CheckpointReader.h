#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// What a checkpoint's payload says in the places that are checked, read in one pass
/// without a tree of the document and without a copy of its asset. As of a tree, of a
/// repeated key the last value stands, with all that is inside of it.
class CheckpointReader {
 public:
  /// The places, each directly before those inside of it.
  enum class Place {
    payload,
    operationID,
    expectedRevision,
    checkpoint,
    schemaVersion,
    checkpointID,
    contentHash,
    projectDocument,
    documentID,
    scenes,
    assets,
    // Inside the first asset.
    assetKind,
    assetID,
    assetData,
    assetBytes,
    assetSHA256,
  };
  static constexpr std::size_t placeCount = static_cast<std::size_t>(Place::assetSHA256) + 1;

  struct Value {
    /// `other` is also an integer beyond int64, and a text too long to be expected anywhere.
    enum class Kind { missing, object, array, text, integer, other };
    Kind kind = Kind::missing;
    /// Empty for the asset's data.
    std::string text;
    std::int64_t integer = 0;
    /// Of an array: its elements, and how many of them are objects.
    std::size_t elements = 0;
    std::size_t objects = 0;
  };

  /// What the asset's data stands for.
  struct Decoded {
    std::int64_t bytes = 0;
    /// Lower-case hexadecimal.
    std::string sha256;
  };

  /// Throws JSONParseFailure for what parseJSON refuses.
  static CheckpointReader read(std::string_view payload);

  const Value& operator[](Place place) const { return values_[static_cast<std::size_t>(place)]; }
  /// Nothing when the data is missing or no standard base64.
  const std::optional<Decoded>& asset() const { return asset_; }

  /// The name of a place for a person: the keys that lead to it.
  static std::string_view name(Place place);

 private:
  class Handler;

  /// Forgets the place and all inside of it.
  void clear(Place place);
  Value& at(Place place) { return values_[static_cast<std::size_t>(place)]; }

  std::array<Value, placeCount> values_;
  std::optional<Decoded> asset_;
};

}  // namespace vorlane
