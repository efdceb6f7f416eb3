#pragma once

#include "renderkit/Failure.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace renderkit {

/// The bundle is not what the format asks for.
class BakeBundleError : public Failure {
 public:
  /// `text` is the version's printed form, "null", or "undefined" when there is none.
  static BakeBundleError unsupportedVersion(const std::string& text);
  static BakeBundleError invalidNumberField(const std::string& name);
  static BakeBundleError invalidStringField(const std::string& name);
  static BakeBundleError missingEntry(const std::string& name);
  static BakeBundleError misalignedRange(std::int64_t byteOffset);
  static BakeBundleError rangeOutOfBounds(std::int64_t byteOffset, std::int64_t count, std::size_t binSize);
  static BakeBundleError manifestNotAnObject();
  static BakeBundleError malformedSlates();
  static BakeBundleError malformedBurnIn();

 private:
  using Failure::Failure;
};

/// A document is no JSON, or a value in it is missing or of another type. The text names the
/// entry and where in it: "[bakeBundle] meshes.json: records[2].material.opacity is not a number".
class BundleDocumentError : public Failure {
 public:
  using Failure::Failure;
};

}  // namespace renderkit
