#pragma once

#include "base/Json.h"
#include "devcloud/DevCloud.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vorlane::devcloud {

/// One answer, or the reason why there was none.
struct Reply {
  long status = 0;
  std::string head;
  std::string body;
  /// Set when the transfer failed.
  std::optional<std::string> failure;

  JSONMap json() const { return parseJSONMap(body); }
  /// The text at "a.b" of the body, "" when there is none; other values in their JSON form.
  std::string at(std::string_view path) const;
};

struct Call {
  std::string method = "GET";
  std::string path;
  std::vector<std::string> headers;
  std::string body;
};

/// A folder that goes with the object.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  std::filesystem::path path;
};

/// A running cloud with one person, and a client that trusts its certificate.
class CloudFixture : public testing::Test {
 protected:
  static constexpr const char* demo = "auth0|demo";

  CloudFixture();

  /// One transfer on a connection of its own.
  Reply send(const Call& call, bool secure = true);
  Reply control(const std::string& method, const std::string& path, const std::string& body = "");
  /// The call with the person's access token.
  Reply sendAs(const std::string& accessToken, Call call);
  Reply refresh(const std::string& refreshToken);
  std::string accessToken() { return cloud.issueTokens(demo).accessToken; }

  /// Starts the cloud, anew after a stop, on ports that the client learns.
  void start();

  TemporaryFolder folder;
  std::atomic<Date> time = now();
  DevCloud cloud;

 private:
  // Kept here, so that a client's thread need not ask a cloud that is being stopped.
  std::string secureBase_;
  std::string plainBase_;
};

}  // namespace vorlane::devcloud
