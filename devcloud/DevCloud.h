#pragma once

#include "base/Date.h"
#include "devcloud/AILists.h"
#include "devcloud/Attachment.h"
#include "devcloud/Faults.h"
#include "devcloud/Identity.h"
#include "devcloud/People.h"
#include "devcloud/Projects.h"
#include "devcloud/RequestLog.h"
#include "devcloud/Sheets.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

struct DevCloudOptions {
  /// Holds everything that outlives a run: keys, certificates, state. Made,
  /// with its parents and mode 0700, when missing.
  std::filesystem::path directory;
  /// Of HTTPS; plain HTTP takes the next one. 0 takes a free pair.
  std::uint16_t port = 0;
  /// Dates tokens, snapshots and sheets. Called on the server's thread.
  Clock clock = now;
  /// The deployment's administrators, lower case.
  std::vector<std::string> adminEmails = {"admin@vorlane.test"};
  std::string adminClaimHost = "vorlane.test";
};

/// The suite's cloud on this machine: identity provider and web APIs behind one
/// server, with people, sheets, projects, attachments, lists and refresh tokens
/// that survive a restart, and a kill.
///
/// start and stop belong to one thread; the rest may be called from any thread
/// while the cloud runs (it hops onto the server's thread and waits) and throws
/// Failure while it does not. Each call does what the control route of that
/// name does, see Control.h.
class DevCloud {
 public:
  explicit DevCloud(DevCloudOptions options);
  /// As stop.
  ~DevCloud();
  DevCloud(const DevCloud&) = delete;
  DevCloud& operator=(const DevCloud&) = delete;

  /// Opens the folder, takes the ports, writes the deployment file and serves.
  /// Throws Failure naming what is in the way: a folder in use, a port taken, a
  /// state file that is none.
  void start();
  /// Drops every connection and writes the state. Harmless when not running.
  void stop();

  std::uint16_t port() const;
  std::uint16_t plainPort() const;
  /// "https://127.0.0.1:PORT" and "http://127.0.0.1:PORT+1".
  std::string base() const;
  std::string plainBase() const;
  std::filesystem::path caFile() const;
  std::filesystem::path deploymentFile() const;

  void putPerson(Person person);
  void removePerson(std::string_view sub);
  /// Whether the person may save projects; throws Failure when there is no such person.
  void setCapability(std::string_view sub, bool cloudProjectWrite);
  /// A gone account's saves of projects get 410. Throws Failure when there is no such person.
  void setGone(std::string_view sub, bool gone);

  IssuedTokens issueTokens(std::string_view sub, std::optional<std::int64_t> lifetime = std::nullopt);
  void revokeTokens(std::string_view sub);

  std::vector<Sheet> sheets(std::string_view sub);
  Sheet putSheet(Sheet sheet);
  /// False when the person has no such sheet.
  bool removeSheet(std::string_view sub, std::int64_t id);

  std::vector<Project> projects(std::string_view sub);
  /// Of all the person's projects, in the order in which they were made.
  std::vector<Commit> commits(std::string_view sub);
  Project putProject(Project project);
  bool removeProject(std::string_view sub, std::string_view id);

  /// What the person can reach, the samples first.
  std::vector<Attachment> attachments(std::string_view sub);
  Attachment putAttachment(Attachment attachment);

  /// The newest first.
  std::vector<AIList> aiLists(std::string_view sub);
  AIList putAIList(AIList list);

  std::int64_t addFault(Fault fault);
  std::vector<Fault> faults();
  void clearFaults();
  /// Lets go the requests that a fault holds now.
  void release();

  std::vector<RecordedRequest> requests(RequestFilter filter = {});
  void clearRequests();
  /// Blocks until so many matching requests have arrived; throws TimeoutFailure.
  std::vector<RecordedRequest> waitForRequests(RequestFilter filter, std::size_t count,
                                               std::chrono::milliseconds limit = std::chrono::seconds(10));

 private:
  struct Running;

  /// Runs `action(running)` on the server's thread and gives its result.
  template <class Action>
  auto onServer(Action action);
  Running& running() const;
  void writeDeployment() const;

  DevCloudOptions options_;
  std::unique_ptr<Running> running_;
};

}  // namespace vorlane::devcloud
