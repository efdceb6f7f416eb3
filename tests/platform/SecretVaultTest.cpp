#include "base/Failure.h"
#include "base/ShellLog.h"
#include "platform/Platform.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <future>
#include <thread>

// Runs under dbus-run-session, against a real keyring daemon.
namespace vorlane {
namespace {

using namespace std::literals;
using ::testing::HasSubstr;

const SecretItem tokens{"com.vorlane.auth", "auth0-tokens"};

struct FileVaultTest : ::testing::Test {
  testing::TemporaryFolder folder;
  std::unique_ptr<SecretVault> secrets = makeFileVault(folder.path("vault"));
};

TEST_F(FileVaultTest, NoNameLeavesTheFolderOrMeetsAnother) {
  std::vector<SecretItem> items;
  for (const auto& name : {".."s, "."s, "a/b"s, "../../x"s, "%2E."s, ".lock"s, "\0"s}) {
    items.push_back({name, "account"});
    items.push_back({"service", name});
  }
  for (const auto& item : items)
    EXPECT_EQ(secrets->add(item, item.service + "|" + item.account), vault::success);
  for (const auto& item : items) EXPECT_EQ(secrets->read(item).bytes, item.service + "|" + item.account);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
  for (const SecretItem& item : {SecretItem{"", "a"}, {"s", ""}, {"s", std::string(300, 'x')}}) {
    EXPECT_EQ(secrets->add(item, "x"), vault::notAvailable);
    EXPECT_EQ(secrets->read(item).status, vault::notAvailable);
  }
}

TEST_F(FileVaultTest, LinksAndOtherThingsInTheWayAreRefusedAndTouchNothingElse) {
  folder.write("outside/auth0-tokens", "outside");
  folder.write("vault/linked-account/x", "");
  folder.link("vault/linked-account/auth0-tokens", "outside/auth0-tokens");
  folder.link("vault/linked-service", "outside");
  folder.write("vault/plain-file", "");
  for (const auto* service : {"linked-account", "linked-service", "plain-file"}) {
    const SecretItem item{service, "auth0-tokens"};
    EXPECT_EQ(secrets->read(item).status, vault::notAvailable) << service;
    EXPECT_NE(secrets->add(item, "x"), vault::success) << service;
    secrets->update(item, "x");
    EXPECT_EQ(folder.read("outside/auth0-tokens"), "outside") << service;
  }
  folder.link("linked-vault", "outside");
  EXPECT_EQ(makeFileVault(folder.path("linked-vault"))->add(tokens, "x"), vault::notAvailable);
}

TEST_F(FileVaultTest, AnItemLiesWhereOtherProgramsLookForItAndItsStampMovesWithEveryChange) {
  const auto absent = secrets->stamp(tokens);
  const auto moves = [&](const std::function<void()>& work) {
    const auto before = secrets->stamp(tokens);
    work();
    return secrets->stamp(tokens) != before;
  };
  EXPECT_TRUE(moves([&] { secrets->add(tokens, "one"); }));
  EXPECT_EQ(folder.mode("vault/com.vorlane.auth/auth0-tokens"), 0600U);
  EXPECT_EQ(folder.mode("vault/com.vorlane.auth"), 0700U);
  EXPECT_EQ(folder.mode("vault"), 0700U);
  EXPECT_FALSE(moves([&] { EXPECT_EQ(secrets->add(tokens, "two"), vault::duplicateItem); }));
  EXPECT_TRUE(moves([&] { makeFileVault(folder.path("vault"))->update(tokens, "two"); }));
  folder.write("vault/com.vorlane.auth/auth0-tokens", "planted");
  EXPECT_FALSE(moves([&] { EXPECT_EQ(secrets->read(tokens).bytes, "planted"); }));
  EXPECT_TRUE(moves([&] { secrets->remove(tokens); }));
  EXPECT_EQ(secrets->stamp(tokens), absent);
}

TEST_F(FileVaultTest, WithoutPermissionItIsNotAvailableAndSaysSoWithoutTheSecret) {
  ASSERT_EQ(secrets->add(tokens, "top-secret"), vault::success);
  folder.write("log", "");
  // A log is written by its owner alone: where this is root, by whom the process below becomes.
  if (::geteuid() == 0) ASSERT_EQ(::chown(folder.path("log").c_str(), 65534, 65534), 0);
  const auto succeeded = folder.withoutRightsTo("vault", [&] {
    installShellLog(ShellLog(folder.path("log"), "test"));
    const auto statuses = {secrets->read(tokens).status, secrets->update(tokens, "other-secret"),
                           secrets->add(tokens, "other-secret"), secrets->remove(tokens)};
    return static_cast<int>(4 - std::ranges::count(statuses, vault::notAvailable)) +
           (secrets->stamp(tokens) ? 1 : 0);
  });
  EXPECT_EQ(succeeded, 0);
  EXPECT_EQ(secrets->read(tokens).bytes, "top-secret");
  EXPECT_THAT(folder.read("log"), HasSubstr("com.vorlane.auth failed"));
  EXPECT_THAT(folder.read("log"), ::testing::Not(HasSubstr("secret")));
}

/// A keyring daemon with a login keyring of its own.
class Keyring {
 public:
  const testing::TemporaryFolder home;

  Keyring() {
    for (const auto* name : {"HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR"})
      ::setenv(name, home.path().c_str(), 1);
  }
  ~Keyring() { stop(); }
  /// Waits until it owns its name on the bus and has unlocked the keyring.
  void start() {
    home.write("password", "password");
    pid_ = ::fork();
    if (pid_ == 0) {
      const auto command = "exec gnome-keyring-daemon --foreground --unlock --components=secrets <" +
                           home.path("password") + " >/dev/null 2>&1";
      ::execlp("sh", "sh", "-c", command.c_str(), nullptr);
      ::_exit(127);
    }
    ASSERT_EQ(std::system("gdbus wait --session --timeout 20 org.freedesktop.secrets"), 0);
    while (!call("ReadAlias default | grep -q collection")) {
    }
  }
  void stop() {
    if (pid_ <= 0) return;
    send(SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = 0;
  }
  void send(int signal) const { ::kill(pid_, signal); }
  void lock() { ASSERT_TRUE(call("Lock \"['/org/freedesktop/secrets/collection/login']\" >/dev/null")); }

 private:
  static bool call(const std::string& method) {
    const auto command =
        "gdbus call --session -d org.freedesktop.secrets -o /org/freedesktop/secrets -m "
        "org.freedesktop.Secret.Service." +
        method;
    return std::system(command.c_str()) == 0;
  }

  pid_t pid_ = 0;
};

/// Waits for what another process's change brings over the bus.
bool eventually(const std::function<bool()>& condition) {
  for (int i = 0; i < 1000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(10ms);
  }
  return false;
}

struct SecretServiceTest : ::testing::Test {
  Keyring keyring;
  std::unique_ptr<SecretVault> secrets;

  void SetUp() override {
    installShellLog(ShellLog(keyring.home.path("log"), "test"));
    keyring.start();
    secrets = makeSecretServiceVault();
    ASSERT_TRUE(secrets);
  }
};

TEST_F(SecretServiceTest, ItAndTheFileVaultGiveTheStatusesOfTheKeychainAndALockedOneAsksNobody) {
  const auto files = makeFileVault(keyring.home.path("vault"));
  const std::string bytes("{\"a\":\"\0\xff\n\"}", 11);
  for (auto* tried : {secrets.get(), files.get()}) {
    EXPECT_EQ(tried->read(tokens).status, vault::itemNotFound);
    EXPECT_EQ(tried->update(tokens, "x"), vault::itemNotFound);
    EXPECT_EQ(tried->remove(tokens), vault::itemNotFound);
    EXPECT_EQ(tried->add(tokens, bytes), vault::success);
    EXPECT_EQ(tried->add(tokens, "other"), vault::duplicateItem);
    EXPECT_EQ(tried->read(tokens).bytes, bytes);
    EXPECT_EQ(tried->update(tokens, "third"), vault::success);
    EXPECT_EQ(tried->read(tokens).bytes, "third");
    EXPECT_EQ(tried->read({tokens.service, "other"}).status, vault::itemNotFound);
    EXPECT_EQ(tried->remove(tokens), vault::success);
  }
  EXPECT_EQ(secrets->read({tokens.service, "bad\xff"}).status, vault::notAvailable);

  ASSERT_EQ(secrets->add(tokens, "kept"), vault::success);
  keyring.lock();
  // Nobody is asked to unlock it, so this takes no time.
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(secrets->read(tokens).status, vault::interactionNotAllowed);
  EXPECT_EQ(secrets->update(tokens, "x"), vault::interactionNotAllowed);
  EXPECT_EQ(secrets->remove(tokens), vault::interactionNotAllowed);
  EXPECT_EQ(secrets->add({"com.vorlane.device", "device-id"}, "x"), vault::interactionNotAllowed);
  EXPECT_FALSE(secrets->stamp(tokens));
  EXPECT_LT(std::chrono::steady_clock::now() - began, 8s);
}

TEST_F(SecretServiceTest, TheStampMovesWhenAnotherProcessChangesTheItemAndStandsStillOtherwise) {
  const auto there = makeSecretServiceVault();
  // Whatever a change has set going has arrived once another call has been answered.
  const auto settled = [&] {
    const auto stamp = secrets->stamp(tokens);
    EXPECT_TRUE(stamp);
    secrets->read(tokens);
    return secrets->stamp(tokens) == stamp;
  };
  for (const auto& change : std::initializer_list<std::function<vault::Status()>>{
           [&] { return there->add(tokens, "one"); }, [&] { return there->update(tokens, "two"); },
           [&] { return there->remove(tokens); }}) {
    ASSERT_TRUE(eventually(settled));
    const auto before = secrets->stamp(tokens);
    ASSERT_EQ(change(), vault::success);
    EXPECT_TRUE(eventually([&] { return secrets->stamp(tokens) != before; }));
  }
}

TEST_F(SecretServiceTest, ADaemonThatHangsCostsOneBoundAndItsReturnOrANewOneIsNoticed) {
  ASSERT_EQ(secrets->add(tokens, "kept"), vault::success);
  const auto served = [&] { return secrets->read(tokens).status == vault::success; };
  keyring.send(SIGSTOP);
  const auto began = std::chrono::steady_clock::now();
  // The second waits behind the first, and must not be made once nobody waits for it.
  auto first = std::async(std::launch::async, [&] { return secrets->read(tokens).status; });
  EXPECT_EQ(secrets->update(tokens, "late"), vault::notAvailable);
  EXPECT_EQ(first.get(), vault::notAvailable);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(secrets->update(tokens, "lost"), vault::notAvailable);
  EXPECT_FALSE(secrets->stamp(tokens));
  EXPECT_LT(std::chrono::steady_clock::now() - began, 4s);
  EXPECT_TRUE(makeSecretServiceVault()) << "one that hangs is still the place of the secrets";
  EXPECT_THAT(keyring.home.read("log"), HasSubstr("the keyring does not answer"));
  keyring.send(SIGCONT);
  EXPECT_TRUE(eventually(served));
  EXPECT_EQ(secrets->read(tokens).bytes, "kept");

  const auto before = secrets->stamp(tokens);
  keyring.stop();
  keyring.start();
  EXPECT_TRUE(eventually([&] { return secrets->stamp(tokens) != before; }));
  EXPECT_TRUE(eventually(served));
  EXPECT_EQ(secrets->read(tokens).bytes, "kept");
}

TEST_F(SecretServiceTest, WithoutABusThereIsNoKeyringAndFilesAreTaken) {
  const std::string address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  Paths paths;
  paths.container = keyring.home.path();
  paths.vault = VaultKind::secretService;
  EXPECT_THROW(makeVault(paths), Failure);
  paths.vault = VaultKind::automatic;
  EXPECT_EQ(makeVault(Paths{})->read(tokens).status, vault::notAvailable) << "there is no place for files";
  EXPECT_EQ(makeVault(paths)->add(tokens, "in a file"), vault::success);
  ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
  EXPECT_EQ(makeVault(paths)->read(tokens).status, vault::itemNotFound) << "the keyring is asked";
  paths.vault = VaultKind::file;
  EXPECT_EQ(makeVault(paths)->read(tokens).bytes, "in a file");
}

}  // namespace
}  // namespace vorlane
