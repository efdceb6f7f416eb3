#pragma once

#include <bit>
#include <cstdint>

namespace renderkit::picture {

struct Sample2 {
  float u, v;  // 0 to below 1
};

/// Well spread random numbers that depend on nothing but pixel, sample and purpose: a scrambled
/// (0,2) sequence, anew for each pair of dimensions.
class Sampler {
 public:
  /// What a pair is drawn for. A light's place follows at lights + its index; those of a bounce
  /// follow at bounceLights.
  enum Dimension : std::uint32_t { pixel, lens, time, bounce, lights = 16, bounceLights = 0x8000 };

  /// `samples` is how many a pixel has.
  explicit Sampler(std::uint32_t samples) : mask_(std::bit_ceil(samples) - 1) {}

  static std::uint32_t seed(std::uint32_t x, std::uint32_t y, std::uint32_t frame) {
    return hash(x ^ hash(y ^ hash(frame)));
  }

  Sample2 pair(std::uint32_t seed, std::uint32_t index, std::uint32_t dimension) const {
    const auto mixed = hash(seed ^ (dimension * 0x9e3779b9u));
    index = scramble(index, mixed) & mask_;
    return {unit(scrambleReversed(index, mixed ^ 0x68bc21ebu)),
            unit(scramble(secondDimension(index), mixed ^ 0x02e5be93u))};
  }

 private:
  static std::uint32_t hash(std::uint32_t x) {
    x ^= x >> 16;
    x *= 0x21f0aaadu;
    x ^= x >> 15;
    x *= 0xd35a2d97u;
    return x ^ (x >> 15);
  }
  static std::uint32_t reversed(std::uint32_t x) { return __builtin_bitreverse32(x); }
  /// Flips each bit by a hash of those below it.
  static std::uint32_t flip(std::uint32_t x, std::uint32_t seed) {
    x += seed;
    x ^= x * 0x6c50b47cu;
    x ^= x * 0xb82f1e52u;
    x ^= x * 0xc7afe638u;
    return x ^ (x * 0x8d22f6e6u);
  }
  static std::uint32_t scramble(std::uint32_t x, std::uint32_t seed) {
    return reversed(flip(reversed(x), seed));
  }
  /// Scrambles the bit-reversed x, which is the first dimension.
  static std::uint32_t scrambleReversed(std::uint32_t x, std::uint32_t seed) {
    return reversed(flip(x, seed));
  }
  static std::uint32_t secondDimension(std::uint32_t index) {
    std::uint32_t result = 0;
    for (std::uint32_t v = 0x80000000u; index != 0; index >>= 1, v ^= v >> 1) {
      if (index & 1) result ^= v;
    }
    return result;
  }
  static float unit(std::uint32_t x) { return static_cast<float>(x >> 8) * 0x1p-24f; }

  std::uint32_t mask_;
};

}  // namespace renderkit::picture
