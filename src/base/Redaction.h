#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vorlane {

/// Strikes secrets out of texts that a log or a person is about to get: as they are, and as they
/// look within JSON and within an address or a form. A text has to be struck before it is cut,
/// since a part of a secret is not recognised. Callable from any thread.
class Redaction {
 public:
  Redaction() = default;
  /// Empty secrets count for nothing.
  explicit Redaction(const std::vector<std::string>& secrets);

  /// `text` with "(token)" in place of each secret.
  std::string applied(std::string text) const;

 private:
  std::vector<std::string> forms_;  // longest first, so that none leaves the rest of another
};

/// Keeps a secret that this process has come to hold out of what it logs and shows. The last
/// ones are remembered, so that a token that was just replaced is struck out too. One of fewer
/// than eight bytes is none. Callable from any thread.
void keepSecret(std::string_view secret);

/// `text` without the secrets of this process. Callable from any thread.
std::string redacted(std::string text);

}  // namespace vorlane
