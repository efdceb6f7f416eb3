#pragma once

#include <array>
#include <cstddef>

namespace renderkit {

/// A 4 by 4 matrix of 32-bit floats, column by column: entry 4 c + r is row r of column c.
/// The identity unless told otherwise.
struct Matrix4 {
  std::array<float, 16> m{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

  float& at(std::size_t row, std::size_t column) { return m[4 * column + row]; }
  float at(std::size_t row, std::size_t column) const { return m[4 * column + row]; }
  bool operator==(const Matrix4&) const = default;
};

/// The right one applies first.
inline Matrix4 operator*(const Matrix4& a, const Matrix4& b) {
  Matrix4 product;
  for (std::size_t column = 0; column < 4; ++column) {
    for (std::size_t row = 0; row < 4; ++row) {
      float sum = 0;
      for (std::size_t k = 0; k < 4; ++k) sum += a.at(row, k) * b.at(k, column);
      product.at(row, column) = sum;
    }
  }
  return product;
}

}  // namespace renderkit
