#pragma once

#include "base/Failure.h"
#include "base/JSON.h"
#include "base/tasks/Task.h"
#include "cloud/API.h"

#include <cstdint>
#include <string>

namespace vorlane {

/// The requests that carry sheets to the Ledgerly web API. A value record; it has to
/// outlive the requests that it runs, each of which goes out on its caller's task.
struct LedgerlyPushClient {
  /// The answer was no receipt: its status, or what the body lacks.
  class HTTPFailure : public cloud::AnswerFailure {
   public:
    HTTPFailure(const std::string& step, int status, const std::string& body);
  };

  /// The person has deleted the sheet in the cloud.
  class SheetGone : public Failure {
   public:
    explicit SheetGone(std::int64_t remoteID);
    std::int64_t remoteID() const noexcept { return remoteID_; }

   private:
    std::int64_t remoteID_;
  };

  /// Without a token of its `bearer` a request goes out all the same.
  cloud::API api;

  // What the two requests carry of a document in its cloud form.
  static std::string createBody(const std::string& title, JSONMap data);
  static std::string updateBody(const std::string& title, JSONMap data);

  /// Makes a new sheet; its number in the cloud. Throws HTTPFailure, or what the
  /// API throws.
  Task<std::int64_t> create(std::string body) const;
  /// Replaces the cloud's sheet. Throws also SheetGone.
  Task<> update(std::int64_t remoteID, std::string body) const;

 private:
  Task<URLResponse> exchange(std::string method, std::string path, std::string body) const;
};

}  // namespace vorlane
