#pragma once

#include "base/tasks/Task.h"
#include "cloud/Account.h"
#include "cloud/CloudRequest.h"
#include "platform/URLSession.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// A fresh access token; nothing when there is none to be had.
using BearerSource = std::function<Task<std::optional<std::string>>()>;

namespace cloud {

/// One of the suite's web APIs: where it is, how it is reached, and for whom. What every client
/// of one is made with. A value that copies freely; callable from any thread.
struct API {
  /// The origin, without a path; empty where the deployment names none.
  std::string base;
  /// Runs a request. Throws TransportFailure, also where there is no base.
  NetworkRunner send;
  BearerSource bearer;
  /// Whose the tokens of `bearer` are.
  std::shared_ptr<const Account> account;

  /// The API at the `base` that the deployment names under `key`. Without one the requests fail
  /// with a TransportFailure that says so, and nothing goes out.
  static API at(const std::optional<std::string>& base, std::string_view key, NetworkRunner network,
                BearerSource bearer, std::shared_ptr<const Account> account);

  bool isNamed() const { return !base.empty(); }

  /// A request for `path` (which begins with a slash), without a token. It is given up when
  /// nothing has moved for a minute. It follows no redirect: what a person wrote, and who they
  /// are, goes to the API that the deployment names or nowhere, and an answer from elsewhere is
  /// no receipt.
  URLRequest request(std::string method, std::string_view path) const;
};

}  // namespace cloud
}  // namespace vorlane
