#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace renderkit {

/// What a person should know of a bundle that renders all the same: a light left out, a
/// texture that cannot be used. They are kept back here and shown once, after the bundle
/// has succeeded; a bundle that fails shows its failure alone. Any thread may add.
class Notices {
 public:
  /// Keeps one line; the same line is kept once.
  void add(std::string line);
  /// The lines in the order of their arrival; none are left behind.
  std::vector<std::string> take();

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace renderkit
