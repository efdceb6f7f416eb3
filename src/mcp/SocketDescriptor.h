#pragma once

#include <unistd.h>

#include <utility>

namespace vorlane {

/// Owns one open descriptor of the operating system, or none.
class SocketDescriptor {
 public:
  SocketDescriptor() = default;
  explicit SocketDescriptor(int value) : value_(value) {}
  ~SocketDescriptor() { reset(); }
  SocketDescriptor(SocketDescriptor&& other) noexcept : value_(other.release()) {}
  SocketDescriptor& operator=(SocketDescriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }

  int get() const { return value_; }
  explicit operator bool() const { return value_ >= 0; }
  /// Gives the descriptor to the caller, who has to close it.
  int release() { return std::exchange(value_, -1); }
  void reset(int value = -1) {
    if (value_ >= 0) ::close(value_);
    value_ = value;
  }

 private:
  int value_ = -1;
};

}  // namespace vorlane
