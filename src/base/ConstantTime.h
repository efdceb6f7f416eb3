#pragma once

#include <cstddef>
#include <string_view>

namespace vorlane {

/// Compares secrets: the time depends on the lengths alone, never on where the
/// texts differ.
inline bool equalInConstantTime(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return difference == 0;
}

}  // namespace vorlane
