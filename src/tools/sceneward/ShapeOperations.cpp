#include "tools/sceneward/ShapeOperations.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "store/ScenewardSceneSeed.h"
#include "tools/sceneward/ScenewardTool.h"

#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vorlane {
namespace {

std::string_view textOr(const JSONMap& map, std::string_view key, std::string_view fallback = {}) {
  const auto* value = json::find(map, key);
  return value != nullptr && value->is_string() ? std::string_view(value->get_string()) : fallback;
}

bool hasText(const JSONMap& map, std::string_view key) {
  const auto* value = json::find(map, key);
  return value != nullptr && value->is_string();
}

/// The shapes of a scene while a batch works on them. They are found by an index of the
/// ids that the batch names, and removed together at the end, so that a batch costs the
/// sum of its operations and of the shapes, not their product.
class ShapeBatch {
 public:
  ShapeBatch(JSONMap& document, const JSONArray& operations)
      : document_(document), shapes_(json::arrayOfObjects(document, "shapes")) {
    for (const auto& operation : operations) {
      const auto id = textOr(operation.get_object(), "shapeId");
      positions_.try_emplace(id);
    }
    for (std::size_t i = 0; shapes_ != nullptr && i < shapes_->size(); ++i) index(i);
  }

  bool apply(JSONMap& operation) {
    const auto name = textOr(operation, "op");
    if (name == "create_shape") return create(operation);
    if (!hasText(operation, "shapeId")) return false;
    auto& found = positions_.at(textOr(operation, "shapeId"));
    if (name == "update_shape") return update(found, json::object(operation, "patch"));
    if (name == "delete_shape") return remove(found);
    return false;
  }

  void finish() {
    if (removedCount_ == 0) return;
    auto& shapes = *shapes_;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < shapes.size(); ++i) {
      if (i < removed_.size() && removed_[i]) continue;
      if (kept != i) shapes[kept] = std::move(shapes[i]);
      ++kept;
    }
    shapes.erase(shapes.begin() + static_cast<std::ptrdiff_t>(kept), shapes.end());
  }

 private:
  /// The positions of the shapes of one id that have not been removed, ascending.
  using Positions = std::vector<std::size_t>;

  void index(std::size_t position) {
    const auto& shape = (*shapes_)[position].get_object();
    if (!hasText(shape, "id")) return;
    const auto wanted = positions_.find(textOr(shape, "id"));
    if (wanted != positions_.end()) wanted->second.push_back(position);
  }

  bool create(JSONMap& operation) {
    auto* given = operation.if_contains("shape");
    if (given == nullptr || !given->is_object()) return false;
    auto shape = std::move(given->get_object());
    ShapeOperations::ensureID(shape);
    ShapeOperations::place(shape, document_);
    // Made only when something is added, so that a stub stays one.
    if (shapes_ == nullptr) shapes_ = &sceneward::appendableArray(document_, "shapes");
    shapes_->push_back(std::move(shape));
    index(shapes_->size() - 1);
    return true;
  }

  bool update(const Positions& found, const JSONMap* patch) {
    if (patch == nullptr || found.empty()) return false;
    ShapeOperations::merge((*shapes_)[found.front()].get_object(), *patch);
    return true;
  }

  bool remove(Positions& found) {
    if (!found.empty()) removed_.resize(shapes_->size());
    for (const auto position : found) removed_[position] = true;
    removedCount_ += found.size();
    found.clear();
    return true;
  }

  JSONMap& document_;
  /// Null while the scene has none that could be read.
  JSONArray* shapes_;
  /// By the ids that the operations name; the keys lie in the operations.
  std::unordered_map<std::string_view, Positions> positions_;
  std::vector<bool> removed_;
  std::size_t removedCount_ = 0;
};

}  // namespace

void ShapeOperations::ensureID(JSONMap& shape) {
  if (!shape.contains("id")) shape["id"] = newUppercaseUUID();
}

void ShapeOperations::place(JSONMap& shape, const JSONMap& document) {
  ScenewardSceneSeed::applyBuildingDefaults(shape);
  ScenewardSceneSeed::assignLayer(shape, document);
}

void ShapeOperations::merge(JSONMap& shape, const JSONMap& patch) {
  for (const auto& [key, value] : patch) {
    if (key != "id") shape[key] = value;
  }
}

std::int64_t ShapeOperations::apply(JSONMap& document, JSONArray operations) {
  if (operations.empty()) return 0;
  ShapeBatch batch(document, operations);
  std::int64_t applied = 0;
  for (auto& operation : operations) applied += batch.apply(operation.get_object()) ? 1 : 0;
  batch.finish();
  return applied;
}

}  // namespace vorlane
