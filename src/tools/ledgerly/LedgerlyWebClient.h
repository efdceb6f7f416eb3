#pragma once

#include "base/Failure.h"
#include "base/JSON.h"
#include "base/tasks/Task.h"
#include "cloud/API.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace vorlane {

/// The Ledgerly web API as its clients for assistants use it: one JSON object out, one
/// back, with the person's own access. A value that copies freely; it has to outlive
/// the requests that it sends.
struct LedgerlyWebClient {
  /// The API's answer is none that can be used. The description is for the assistant.
  class Failure : public cloud::AnswerFailure {
   public:
    Failure(const std::string& step, int status, const std::string& body);
  };

  /// What becomes of a request that there is no token for.
  enum class WithoutToken {
    sent,     ///< it goes out unsigned, and the API's refusal is what the assistant sees
    refused,  ///< it is not sent, and fails with MCPRequestContext::Failure `signedOut`
  };

  cloud::API api;

  /// Posts `body` for the account `ownerID` and returns the answer. Never sent with
  /// another account's token: when the account, or that of the call around it, has changed by
  /// the time there is one, it fails with MCPRequestContext::Failure `accountChanged`.
  /// Throws Failure for an answer, TransportFailure when there is none.
  Task<JSONMap> post(std::string path, JSONMap body, std::string ownerID, WithoutToken rule) const;
};

/// The beginning of a text of valid UTF-8, cut after `count` characters.
std::string_view firstCharacters(std::string_view text, std::size_t count);

}  // namespace vorlane
