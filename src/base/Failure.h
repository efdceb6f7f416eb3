#pragma once

#include <exception>
#include <string>

namespace vorlane {

/// The base of every failure that this program throws on purpose. Its
/// description is a whole sentence or phrase for a person; clients may see it.
class Failure : public std::exception {
 public:
  explicit Failure(std::string description) : description_(std::move(description)) {}
  const char* what() const noexcept override { return description_.c_str(); }
  const std::string& description() const noexcept { return description_; }

 private:
  std::string description_;
};

/// A failure that callers tell apart by a domain and a code within it.
class DomainFailure : public Failure {
 public:
  DomainFailure(std::string domain, long code, std::string description)
      : Failure(std::move(description)), domain_(std::move(domain)), code_(code) {}
  const std::string& domain() const noexcept { return domain_; }
  long code() const noexcept { return code_; }

 private:
  std::string domain_;
  long code_;
};

/// The work was cancelled by its caller.
class CancelledFailure : public Failure {
 public:
  CancelledFailure() : Failure("The operation was cancelled.") {}
};

/// The work did not end in the time that it was given.
class TimeoutFailure : public Failure {
 public:
  explicit TimeoutFailure(const std::string& what) : Failure(what + " timed out.") {}
};

/// The text to show a person for any exception: the description of a Failure,
/// the message of a system error, what() of the rest. Never throws.
std::string describe(const std::exception& error);
std::string describe(const std::exception_ptr& error);

/// True when the exception says that work was cancelled, in either of the
/// two forms it takes: our own, or Asio's operation_aborted.
bool isCancellation(const std::exception& error);

/// "text: reason of errno", for a system call that has just failed.
std::string withErrno(const std::string& text, int error);

}  // namespace vorlane
