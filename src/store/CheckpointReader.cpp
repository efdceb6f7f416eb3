#include "store/CheckpointReader.h"

#include "base/Base64Decoder.h"
#include "base/JSONEvents.h"
#include "base/SHA256.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace vorlane {
namespace {

namespace json = boost::json;

using Place = CheckpointReader::Place;
using Kind = CheckpointReader::Value::Kind;

struct PlaceRule {
  /// The object, or the array's first object, in which it lies.
  Place within;
  std::string_view key;
  /// The last of the places inside of it.
  Place last;
  /// As it is told to a person.
  std::string_view name;
};

/// In the order of the places.
constexpr std::array<PlaceRule, CheckpointReader::placeCount> rules{{
    {Place::payload, "", Place::assetSHA256, "the payload"},
    {Place::payload, "operationId", Place::operationID, "operationId"},
    {Place::payload, "expectedRevision", Place::expectedRevision, "expectedRevision"},
    {Place::payload, "checkpoint", Place::assetSHA256, "checkpoint"},
    {Place::checkpoint, "schemaVersion", Place::schemaVersion, "checkpoint.schemaVersion"},
    {Place::checkpoint, "id", Place::checkpointID, "checkpoint.id"},
    {Place::checkpoint, "contentHash", Place::contentHash, "checkpoint.contentHash"},
    {Place::checkpoint, "projectDocument", Place::scenes, "checkpoint.projectDocument"},
    {Place::projectDocument, "id", Place::documentID, "checkpoint.projectDocument.id"},
    {Place::projectDocument, "scenes", Place::scenes, "checkpoint.projectDocument.scenes"},
    {Place::checkpoint, "assets", Place::assetSHA256, "checkpoint.assets"},
    {Place::assets, "kind", Place::assetKind, "checkpoint.assets[0].kind"},
    {Place::assets, "id", Place::assetID, "checkpoint.assets[0].id"},
    {Place::assets, "data", Place::assetData, "checkpoint.assets[0].data"},
    {Place::assets, "bytes", Place::assetBytes, "checkpoint.assets[0].bytes"},
    {Place::assets, "sha256", Place::assetSHA256, "checkpoint.assets[0].sha256"},
}};

constexpr const PlaceRule& ruleOf(Place place) {
  return rules[static_cast<std::size_t>(place)];
}

std::optional<Place> placeOf(Place within, std::string_view key) {
  for (std::size_t i = 1; i < rules.size(); ++i) {
    if (rules[i].within == within && rules[i].key == key) return static_cast<Place>(i);
  }
  return std::nullopt;
}

/// A key or a text that comes in parts. No expected one is longer than a digest, so that
/// no more is kept.
class ShortText {
 public:
  static constexpr std::size_t limit = 64;

  void add(std::string_view part) {
    const auto room = limit - std::min(limit, text_.size());
    tooLong_ = tooLong_ || part.size() > room;
    if (!tooLong_) text_ += part;
  }
  /// The whole, and a new beginning; nothing when it is too long.
  std::optional<std::string> finish() {
    auto text = std::exchange(text_, {});
    if (std::exchange(tooLong_, false)) return std::nullopt;
    return text;
  }

 private:
  std::string text_;
  bool tooLong_ = false;
};

/// Decodes and hashes the asset's data as it comes.
class DataReader {
 public:
  void add(std::string_view part) {
    // Small enough that what is decoded is hashed out of the nearest cache.
    constexpr std::size_t slice = 8192;
    std::array<char, Base64Decoder::maximumBytes(slice)> decoded;
    for (; !part.empty(); part.remove_prefix(std::min(slice, part.size()))) {
      const auto count = decoder_.decode(part.substr(0, slice), decoded.data());
      if (!count) return;
      hash_.add({decoded.data(), *count});
      bytes_ += static_cast<std::int64_t>(*count);
    }
  }
  std::optional<CheckpointReader::Decoded> finish() {
    if (!decoder_.complete()) return std::nullopt;
    return CheckpointReader::Decoded{bytes_, hash_.finish()};
  }

 private:
  Base64Decoder decoder_;
  SHA256 hash_;
  std::int64_t bytes_ = 0;
};

}  // namespace

/// Follows the document's events down to the places; what lies elsewhere is only counted
/// in and out of.
class CheckpointReader::Handler : public JSONEventLimits {
 public:
  CheckpointReader take() { return std::move(reader_); }

  bool on_document_begin(json::error_code&) { return true; }
  bool on_document_end(json::error_code&) { return true; }

  bool on_object_begin(json::error_code&) {
    enter(Kind::object);
    return true;
  }
  bool on_object_end(std::size_t, json::error_code&) { return leave(); }
  bool on_array_begin(json::error_code&) {
    enter(Kind::array);
    return true;
  }
  bool on_array_end(std::size_t, json::error_code&) { return leave(); }

  bool on_key_part(json::string_view part, std::size_t, json::error_code&) {
    if (elsewhere_ == 0) key_.add(part);
    return true;
  }
  bool on_key(json::string_view part, std::size_t, json::error_code&) {
    if (elsewhere_ > 0) return true;
    key_.add(part);
    const auto key = key_.finish();
    next_ = key ? placeOf(open_.back().place, *key) : std::nullopt;
    return true;
  }

  bool on_string_part(json::string_view part, std::size_t, json::error_code&) {
    addText(part);
    return true;
  }
  bool on_string(json::string_view part, std::size_t, json::error_code&) {
    addText(part);
    finishText();
    return true;
  }

  bool on_number_part(json::string_view, json::error_code&) { return true; }
  bool on_int64(std::int64_t number, json::string_view, json::error_code&) {
    if (const auto place = arrive(Kind::integer)) reader_.at(*place).integer = number;
    return true;
  }
  bool on_uint64(std::uint64_t, json::string_view, json::error_code&) { return other(); }
  bool on_double(double rough, json::string_view text, json::error_code& ec) {
    if (exactJSONDouble(rough, text)) return other();
    ec = json::error::exponent_overflow;
    return false;
  }
  bool on_bool(bool, json::error_code&) { return other(); }
  bool on_null(json::error_code&) { return other(); }
  bool on_comment_part(json::string_view, json::error_code&) { return true; }
  bool on_comment(json::string_view, json::error_code&) { return true; }

 private:
  struct Open {
    Place place;
    Kind kind;
  };

  /// Notes a value where it stands and returns the place that it fills, if any.
  std::optional<Place> arrive(Kind kind) {
    if (elsewhere_ > 0) return std::nullopt;
    if (!open_.empty() && open_.back().kind == Kind::array) {
      auto& array = reader_.at(open_.back().place);
      ++array.elements;
      if (kind == Kind::object) ++array.objects;
      return std::nullopt;
    }
    const auto place = open_.empty() ? Place::payload : next_;
    if (!place) return std::nullopt;
    reader_.clear(*place);
    reader_.at(*place).kind = kind;
    return place;
  }

  void enter(Kind kind) {
    const auto place = arrive(kind);
    if (elsewhere_ == 0 && isFollowed(place, kind)) {
      open_.push_back({place.value_or(Place::assets), kind});
    } else {
      ++elsewhere_;
    }
  }

  /// Whether there are places inside of the value that has just arrived.
  bool isFollowed(std::optional<Place> place, Kind kind) const {
    if (!place) {
      return kind == Kind::object && !open_.empty() && open_.back().kind == Kind::array &&
             open_.back().place == Place::assets && reader_[Place::assets].elements == 1;
    }
    if (*place == Place::scenes || *place == Place::assets) return kind == Kind::array;
    return kind == Kind::object && ruleOf(*place).last != *place;
  }

  bool leave() {
    if (elsewhere_ > 0) {
      --elsewhere_;
    } else {
      open_.pop_back();
    }
    return true;
  }

  void addText(std::string_view part) {
    if (elsewhere_ > 0) return;
    if (!inText_) {
      inText_ = true;
      filling_ = arrive(Kind::text);
      if (filling_ == Place::assetData) data_.emplace();
    }
    if (!filling_) return;
    if (filling_ == Place::assetData) {
      data_->add(part);
    } else {
      text_.add(part);
    }
  }

  void finishText() {
    inText_ = false;
    const auto place = std::exchange(filling_, std::nullopt);
    if (!place) return;
    if (place == Place::assetData) {
      reader_.asset_ = data_->finish();
      return;
    }
    auto text = text_.finish();
    auto& value = reader_.at(*place);
    value.kind = text ? Kind::text : Kind::other;
    value.text = std::move(text).value_or("");
  }

  bool other() {
    arrive(Kind::other);
    return true;
  }

  CheckpointReader reader_;
  /// The containers on the way to where the reading stands, of those with places inside.
  std::vector<Open> open_;
  /// How deep the reading stands in a container without places.
  std::size_t elsewhere_ = 0;
  /// The place of the key that was read last.
  std::optional<Place> next_;
  ShortText key_;
  bool inText_ = false;
  std::optional<Place> filling_;
  ShortText text_;
  std::optional<DataReader> data_;
};

CheckpointReader CheckpointReader::read(std::string_view payload) {
  JSONEventReader<Handler> events;
  return events.read(payload).take();
}

std::string_view CheckpointReader::name(Place place) {
  return ruleOf(place).name;
}

void CheckpointReader::clear(Place place) {
  const auto last = static_cast<std::size_t>(ruleOf(place).last);
  for (auto i = static_cast<std::size_t>(place); i <= last; ++i) values_[i] = {};
  if (place <= Place::assetData && Place::assetData <= ruleOf(place).last) asset_.reset();
}

}  // namespace vorlane
