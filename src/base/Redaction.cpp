#include "base/Redaction.h"

#include "base/JSON.h"
#include "base/Text.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>

namespace vorlane {
namespace {

constexpr std::string_view mark = "(token)";
constexpr std::size_t shortestSecret = 8;
/// Three tokens of an account, the bearer, and those before them.
constexpr std::size_t rememberedSecrets = 16;

std::string replaced(std::string text, std::string_view what, std::string_view with) {
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
  return text;
}

/// Within the quotes of a JSON string; as it is when it cannot be in one.
std::string escaped(const std::string& secret) {
  if (!isValidUTF8(secret)) return secret;
  std::string text;
  appendJSONString(text, secret);
  return text.substr(1, text.size() - 2);
}

/// Percent-encoded with small hexadecimal digits.
std::string percentEncodedSmall(const std::string& secret) {
  auto text = percentEncoded(secret);
  for (auto at = text.find('%'); at != std::string::npos; at = text.find('%', at + 3)) {
    const auto digits = asciiLowercased(text.substr(at, 3));
    text.replace(at, 3, digits);
  }
  return text;
}

/// What the process holds. Readers take the pointer and no lock beyond that.
struct Secrets {
  std::mutex lock;
  std::deque<std::string> held;
  std::shared_ptr<const Redaction> redaction = std::make_shared<const Redaction>();
};

Secrets& secrets() {
  // Never destroyed: threads may log until the process is gone.
  static auto* const kept = new Secrets;
  return *kept;
}

}  // namespace

Redaction::Redaction(const std::vector<std::string>& secrets) {
  for (const auto& secret : secrets) {
    if (secret.empty()) continue;
    const auto json = escaped(secret);
    for (auto form :
         {secret, json, replaced(json, "/", "\\/"), percentEncoded(secret), percentEncodedSmall(secret)})
      if (std::ranges::find(forms_, form) == forms_.end()) forms_.push_back(std::move(form));
  }
  std::ranges::sort(forms_, std::ranges::greater(), &std::string::size);
}

std::string Redaction::applied(std::string text) const {
  for (const auto& form : forms_) text = replaced(std::move(text), form, mark);
  return text;
}

void keepSecret(std::string_view secret) {
  if (secret.size() < shortestSecret) return;
  auto& all = secrets();
  const std::scoped_lock hold(all.lock);
  if (!all.held.empty() && all.held.back() == secret) return;
  std::erase(all.held, secret);
  all.held.emplace_back(secret);
  if (all.held.size() > rememberedSecrets) all.held.pop_front();
  all.redaction = std::make_shared<const Redaction>(std::vector(all.held.begin(), all.held.end()));
}

std::string redacted(std::string text) {
  if (text.size() < shortestSecret) return text;
  std::shared_ptr<const Redaction> redaction;
  {
    auto& all = secrets();
    const std::scoped_lock hold(all.lock);
    redaction = all.redaction;
  }
  return redaction->applied(std::move(text));
}

}  // namespace vorlane
