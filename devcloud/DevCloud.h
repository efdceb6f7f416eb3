#pragma once

#include "base/Date.h"
#include "base/tasks/Task.h"
#include "devcloud/Services.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
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
/// start and stop belong to one thread. The rest throws Failure while the cloud does not run.
class DevCloud {
 public:
  explicit DevCloud(DevCloudOptions options);
  /// As stop.
  ~DevCloud();
  DevCloud(const DevCloud&) = delete;
  DevCloud& operator=(const DevCloud&) = delete;

  /// Opens the folder, takes the ports, writes the deployment file and serves.
  /// Throws Failure naming what is in the way: a folder in use, a port taken, an
  /// unreadable state file.
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

  /// An operation of a service, run on the server's thread; blocks until it has ended:
  /// `cloud.call(&Sheets::put, sheet)`. What it returns by reference is copied. Of a
  /// task the result is awaited. Callable from any thread.
  template <class S, class R, class... P>
  std::remove_cvref_t<R> call(R (S::*operation)(P...), std::type_identity_t<P>... arguments) {
    return result<R>(
        [&](const Services& to) -> R { return (to.get<S>().*operation)(std::forward<P>(arguments)...); });
  }
  template <class S, class R, class... P>
  std::remove_cvref_t<R> call(R (S::*operation)(P...) const, std::type_identity_t<P>... arguments) {
    return result<R>(
        [&](const Services& to) -> R { return (to.get<S>().*operation)(std::forward<P>(arguments)...); });
  }
  template <class S, class T, class... P>
  T call(Task<T> (S::*operation)(P...), std::type_identity_t<P>... arguments) {
    auto task = [&] { return (services().template get<S>().*operation)(std::forward<P>(arguments)...); };
    return boost::asio::co_spawn(executor(), std::move(task), boost::asio::use_future).get();
  }

 private:
  struct Running;

  template <class R, class Action>
  std::remove_cvref_t<R> result(Action action) {
    if constexpr (std::is_void_v<R>) {
      onServer(action);
    } else {
      std::optional<std::remove_cvref_t<R>> given;
      onServer([&](const Services& to) { given.emplace(action(to)); });
      return std::move(*given);
    }
  }
  /// Runs `action` on the server's thread and waits for its end; throws what it throws.
  void onServer(const std::function<void(const Services&)>& action);
  Running& running() const;
  const Services& services() const;
  Executor executor() const;
  void writeDeployment() const;

  DevCloudOptions options_;
  std::unique_ptr<Running> running_;
};

}  // namespace vorlane::devcloud
