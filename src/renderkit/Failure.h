#pragma once

#include <exception>
#include <stop_token>
#include <string>
#include <utility>

namespace renderkit {

/// The base of every failure that this library throws on purpose. Its text is for
/// a person; where it comes from is told by a bracketed area at its front.
class Failure : public std::exception {
 public:
  explicit Failure(std::string text) : text_(std::move(text)) {}
  const char* what() const noexcept override { return text_.c_str(); }
  const std::string& text() const noexcept { return text_; }

 private:
  std::string text_;
};

/// The work was cancelled by whoever asked for it.
class CancelledFailure : public Failure {
 public:
  CancelledFailure() : Failure("The operation was cancelled.") {}
};

/// Throws CancelledFailure once a stop was requested.
inline void checkCancellation(const std::stop_token& stop) {
  if (stop.stop_requested()) throw CancelledFailure();
}

}  // namespace renderkit
