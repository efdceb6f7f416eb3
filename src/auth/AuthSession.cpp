#include "auth/AuthSession.h"

#include "auth/AuthNotifications.h"
#include "base/tasks/Timing.h"

namespace vorlane {
namespace {

/// Tokens are refreshed this long before they expire, so that one that is handed
/// out is still good when it arrives.
constexpr std::chrono::seconds expiryMargin{60};

/// "yyyy-MM-dd HH:mm:ss +0000".
std::string logText(Date date) {
  auto text = iso8601Text(date);
  text.replace(text.find('T'), 1, " ");
  text.replace(text.find('Z'), 1, " +0000");
  return text;
}

}  // namespace

AuthSessionError AuthSessionError::signedOut(std::string reason) {
  return {Kind::signedOut, "Signed out: " + reason, reason};
}

AuthSessionError AuthSessionError::refreshUnavailable(std::string reason) {
  return {Kind::refreshUnavailable, "The session could not be refreshed: " + reason, reason};
}

AuthSessionError AuthSessionError::sessionChanged() {
  return {Kind::sessionChanged, "The session changed meanwhile.", {}};
}

AuthSession::Storage AuthSession::Storage::of(AuthTokenStore& store) {
  return {[&store] { return store.load(); }, [&store](const AuthTokens& tokens) { store.save(tokens); },
          [&store] { store.clear(); }};
}

AuthSession::AuthSession(const Executor& executor, AuthRefreshClient client, Storage storage,
                         std::function<std::int64_t()> epoch, const NotificationCenter& notifications,
                         Clock clock, Log log)
    : strand_(boost::asio::make_strand(executor)),
      client_(std::move(client)),
      storage_(std::move(storage)),
      account_(std::make_shared<const Account>(
          Account{.currentUser = [this] { return currentUser(); }, .epoch = std::move(epoch)})),
      notifications_(notifications),
      clock_(std::move(clock)),
      log_(std::move(log)) {}

bool AuthSession::isDue(const AuthTokens& tokens) const {
  return clock_() >= tokens.expiresAt - expiryMargin;
}

std::shared_ptr<const StoredTokens> AuthSession::usableRecord() const {
  auto record = storage_.load();
  if (!record) return nullptr;
  const auto& refreshToken = record->tokens.refreshToken;
  const bool refreshable = refreshToken && !refreshToken->empty();
  return refreshable || !isDue(record->tokens) ? record : nullptr;
}

bool AuthSession::hasUsableSession() const {
  return usableRecord() != nullptr;
}

std::optional<std::string> AuthSession::currentUser() const {
  const auto record = usableRecord();
  return record ? record->owner : std::nullopt;
}

bool AuthSession::isAdminToken(const AdministratorRule& rule) const {
  const auto record = usableRecord();
  return record && namesAdministrator(record->tokens, rule);
}

Task<std::optional<std::string>> AuthSession::freshAccessToken() {
  // Touches no field, so the many callers whose token is good need not queue up.
  const auto self = shared_from_this();
  const auto record = storage_.load();
  if (!record) co_return std::nullopt;
  if (!isDue(record->tokens)) co_return record->tokens.accessToken;
  try {
    co_return (co_await refresh(record->tokens)).accessToken;
  } catch (...) {
    // A token about to expire is no substitute, and the reason is in the log.
    co_return std::nullopt;
  }
}

Task<AuthTokens> AuthSession::refresh(AuthTokens current) {
  const auto self = shared_from_this();
  const auto result =
      co_await onExecutor(strand_, [self, current = std::move(current)]() -> Task<std::shared_ptr<Refresh>> {
        co_return self->startOrJoin(current);
      });
  co_return co_await result->value();
}

/// On the strand and without a suspension, so that no second caller slips in
/// between the look at the fields and their setting.
std::shared_ptr<AuthSession::Refresh> AuthSession::startOrJoin(AuthTokens current) {
  const auto credentials = current.credentials();
  if (inFlight_) {
    if (inFlightCredentials_ == credentials && inFlightMark_->isSameEpoch()) return inFlight_;
    throw AuthSessionError::sessionChanged();
  }
  const auto self = shared_from_this();
  const AccountMark mark(account_, ownerOf(current));
  inFlight_ = Refresh::start(
      strand_, [self, current = std::move(current), mark] { return self->runRefresh(current, mark); });
  inFlightCredentials_ = credentials;
  inFlightMark_ = mark;
  // The first caller's part is a task too: it has to empty the fields when the
  // refresh has ended, and not before, even if that caller is cancelled.
  return Refresh::start(strand_, [self, running = inFlight_] { return self->leadRefresh(running); });
}

Task<AuthTokens> AuthSession::leadRefresh(std::shared_ptr<Refresh> running) {
  std::optional<AuthTokens> tokens;
  std::exception_ptr failure;
  try {
    tokens = co_await running->value();
  } catch (...) {
    failure = std::current_exception();
  }
  inFlight_.reset();
  inFlightCredentials_.reset();
  inFlightMark_.reset();
  if (failure) std::rethrow_exception(failure);
  co_return std::move(*tokens);
}

Task<AuthTokens> AuthSession::runRefresh(AuthTokens current, AccountMark mark) {
  checkFence(current, mark);
  auto outcome = co_await client_.refresh(current);
  checkFence(current, mark);
  co_return settle(std::move(outcome));
}

/// Twice, because another process may change the account or the vault between
/// any two steps.
void AuthSession::checkFence(const AuthTokens& current, const AccountMark& mark) const {
  const auto record = storage_.load();
  const auto stored = record ? record->tokens.credentials() : AuthTokens::Credentials();
  // The credentials tell the owner, and more.
  if (!mark.isSameEpoch() || stored != current.credentials()) throw AuthSessionError::sessionChanged();
}

AuthTokens AuthSession::settle(AuthRefreshOutcome outcome) {
  if (auto* refreshed = std::get_if<refresh_outcome::Refreshed>(&outcome)) {
    storage_.persist(refreshed->tokens);
    log_("AuthSession: refreshed OK, expires " + logText(refreshed->tokens.expiresAt));
    notifications_.post(auth::changed);
    return std::move(refreshed->tokens);
  }
  if (auto* rejected = std::get_if<refresh_outcome::Rejected>(&outcome)) {
    log_("AuthSession: SIGNED OUT — " + rejected->reason);
    storage_.clear();
    notifications_.post(auth::changed);
    throw AuthSessionError::signedOut(std::move(rejected->reason));
  }
  auto& reason = std::get<refresh_outcome::Transient>(outcome).reason;
  log_("AuthSession: refresh deferred — " + reason);
  throw AuthSessionError::refreshUnavailable(std::move(reason));
}

}  // namespace vorlane
