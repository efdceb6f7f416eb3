#pragma once

#include "renderkit/Failure.h"

#include <cstdint>
#include <string>

namespace renderkit {

/// The bytes are no archive that this reader takes, or an entry is not there.
class ZipError : public Failure {
 public:
  enum class Case {
    truncated,
    entryNotFound,
    unsupportedCompressionMethod,
    inflateFailed,
    notAZipArchive,
    zip64Unsupported,
  };

  static ZipError truncated(const std::string& detail);
  static ZipError entryNotFound(const std::string& name);
  static ZipError unsupportedCompressionMethod(std::uint16_t method, const std::string& entry);
  static ZipError inflateFailed(const std::string& entry);
  static ZipError notAZipArchive();
  static ZipError zip64Unsupported();

  Case which() const noexcept { return which_; }

 private:
  ZipError(Case which, std::string text) : Failure("[zip] " + std::move(text)), which_(which) {}

  Case which_;
};

}  // namespace renderkit
