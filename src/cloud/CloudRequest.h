#pragma once

#include "base/Failure.h"
#include "base/JSON.h"
#include "platform/URLSession.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace vorlane {

/// What the requests to the suite's web APIs, and their answers, have in common.
namespace cloud {

/// "Authorization" for a token; without one nothing is set.
void setBearer(URLRequest& request, const std::optional<std::string>& token);

/// A body of JSON and its "Content-Type". The whole exchange may then take a minute, and the
/// time that the body needs over a slow line.
void setJSONBody(URLRequest& request, std::string body);
void setJSONBody(URLRequest& request, const JSONMap& body);

bool isSuccess(const URLResponse& response);

/// A cloud's answer that is none that can be used: what was asked, as "METHOD path", the
/// status, and the body as text. Each API has a kind and a description of its own.
class AnswerFailure : public Failure {
 public:
  const std::string& step() const noexcept { return step_; }
  int status() const noexcept { return status_; }
  const std::string& body() const noexcept { return body_; }

 protected:
  AnswerFailure(std::string description, std::string step, int status, std::string body)
      : Failure(std::move(description)), step_(std::move(step)), status_(status), body_(std::move(body)) {}

 private:
  std::string step_;
  int status_;
  std::string body_;
};

/// The body as text, empty when it is not valid UTF-8.
std::string bodyText(const URLResponse& response);

/// `text` between double quotes on one line, control characters, quotes and backslashes escaped,
/// and cut after 1,000 bytes: a cloud's words as they may stand in a log.
std::string quoted(std::string_view text);

}  // namespace cloud
}  // namespace vorlane
