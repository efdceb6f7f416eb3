#pragma once

#include "auth/AccountMark.h"
#include "auth/AuthRefreshClient.h"
#include "auth/AuthTokenStore.h"
#include "auth/JWTClaims.h"
#include "base/NotificationCenter.h"
#include "base/ShellLog.h"
#include "base/tasks/SharedTask.h"

#include <boost/asio/strand.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vorlane {

/// Why a refresh brought no tokens.
class AuthSessionError : public Failure {
 public:
  enum class Kind {
    signedOut,           ///< the provider rejected the grant, and the stored tokens are cleared
    refreshUnavailable,  ///< it could not be completed; the stored tokens are as they were
    sessionChanged,      ///< the account or the stored tokens changed meanwhile
  };

  static AuthSessionError signedOut(std::string reason);
  static AuthSessionError refreshUnavailable(std::string reason);
  static AuthSessionError sessionChanged();

  Kind kind() const noexcept { return kind_; }
  const std::string& reason() const noexcept { return reason_; }

 private:
  AuthSessionError(Kind kind, std::string description, std::string reason)
      : Failure(std::move(description)), kind_(kind), reason_(std::move(reason)) {}

  Kind kind_;
  std::string reason_;
};

/// Turns the stored tokens into a usable access token, and is the only place that
/// refreshes them. However many tasks ask at once, one request is sent. A refresh
/// is fenced before and after that request: tokens won for somebody who has gone
/// are dropped, and the rejection of an old grant signs nobody else out.
///
/// Made as a shared_ptr. Callable from any thread and executor; a caller that is
/// cancelled stops waiting, and the refresh that it began runs to its end.
class AuthSession : public std::enable_shared_from_this<AuthSession> {
 public:
  /// The token store, seen through what is needed of it.
  struct Storage {
    std::function<std::shared_ptr<const StoredTokens>()> load;
    std::function<void(const AuthTokens&)> persist;
    std::function<void()> clear;

    /// `store` has to outlive the session.
    static Storage of(AuthTokenStore& store);
  };

  /// `executor` carries the refreshes (the concurrent one); `epoch` reads the account epoch.
  AuthSession(const Executor& executor, AuthRefreshClient client, Storage storage,
              std::function<std::int64_t()> epoch, const NotificationCenter& notifications, Clock clock,
              Log log);

  /// A token that is good for another minute at least; nothing for every reason
  /// of having none, each already logged. Never fails.
  Task<std::optional<std::string>> freshAccessToken();

  /// Refreshes `current`, or joins the refresh that runs for the same credentials
  /// under the same epoch. Throws AuthSessionError, or what storing threw.
  Task<AuthTokens> refresh(AuthTokens current);

  /// Whether the person counts as signed in: the tokens are good, or can be
  /// refreshed. Asks no network.
  bool hasUsableSession() const;

  /// The owner of the stored tokens while hasUsableSession holds. One reading of
  /// the store, so that both answers come from the same record.
  std::optional<std::string> currentUser() const;

  /// Whether the signed-in person's tokens name an administrator.
  bool isAdminToken(const AdministratorRule& rule) const;

 private:
  using Refresh = SharedTask<AuthTokens>;

  std::shared_ptr<Refresh> startOrJoin(AuthTokens current);
  Task<AuthTokens> leadRefresh(std::shared_ptr<Refresh> running);
  Task<AuthTokens> runRefresh(AuthTokens current, AccountMark mark);
  void checkFence(const AuthTokens& current, const AccountMark& mark) const;
  AuthTokens settle(AuthRefreshOutcome outcome);
  std::shared_ptr<const StoredTokens> usableRecord() const;
  bool isDue(const AuthTokens& tokens) const;

  const boost::asio::strand<Executor> strand_;
  const AuthRefreshClient client_;
  const Storage storage_;
  const std::shared_ptr<const Account> account_;
  const NotificationCenter notifications_;  // a handle on the one centre
  const Clock clock_;
  const Log log_;

  // All three set or all empty; touched on the strand alone.
  std::shared_ptr<Refresh> inFlight_;
  std::optional<AuthTokens::Credentials> inFlightCredentials_;
  std::optional<AccountMark> inFlightMark_;
};

}  // namespace vorlane
