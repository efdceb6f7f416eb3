#pragma once

#include "base/JSON.h"
#include "devcloud/AILists.h"
#include "devcloud/Attachments.h"
#include "devcloud/DevCloud.h"
#include "devcloud/Faults.h"
#include "devcloud/Identity.h"
#include "devcloud/People.h"
#include "devcloud/Projects.h"
#include "devcloud/RequestLog.h"
#include "devcloud/Sheets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

namespace vorlane::devcloud {

using testing::HasSubstr;

/// One answer; `failed` when the transfer did not come to its end.
struct Reply {
  long status = 0;
  std::string head;
  std::string body;
  bool failed = false;

  /// The text at "a/0/b" of the body, "" when there is none; other values in their JSON form.
  std::string at(std::string_view path) const;
};

struct Call {
  std::string method = "GET";
  std::string path;
  std::string body;
  std::vector<std::string> headers;
};

/// A running cloud with one person, and a client that trusts its certificate.
class CloudFixture : public testing::Test {
 protected:
  static constexpr const char* demo = "auth0|demo";

  CloudFixture();
  ~CloudFixture() override;

  /// One transfer on a connection of its own, from any thread.
  Reply send(const Call& call, bool secure = true);
  Reply sendAs(const std::string& accessToken, Call call);
  Reply control(const std::string& method, const std::string& path, const std::string& body = "");
  Reply refresh(const std::string& refreshToken);
  /// Starts the cloud, anew after a stop, on ports that the client learns.
  void start();

  /// Gone with the test; the cloud lives in `directory` below it.
  const std::filesystem::path folder;
  const std::filesystem::path directory = folder / "cloud";
  std::atomic<Date> time = now();
  DevCloud cloud{{.directory = directory, .clock = [this] { return time.load(); }}};
  /// The person's access token.
  std::string token;

 private:
  // Kept here, so that a client's thread need not ask a cloud that is being stopped.
  std::string secureBase_;
  std::string plainBase_;
};

}  // namespace vorlane::devcloud
