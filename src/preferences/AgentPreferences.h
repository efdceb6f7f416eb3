#pragma once

#include "base/NotificationCenter.h"
#include "base/ShellLog.h"
#include "platform/UserDefaults.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// The tabs of the settings window, in their order.
enum class SettingsTab { account, mcp, localAI, recents, apps, rendering, labs };

/// The text under which a tab is stored, and back.
std::string_view settingsTabText(SettingsTab tab);
std::optional<SettingsTab> settingsTabFromText(std::string_view text);

/// What the person chose in the settings. The record lies whole under one key of
/// the user defaults and is written whole at every change. Callable from any
/// thread; a setter waits for the write.
class AgentPreferences {
 public:
  static constexpr char key[] = "com.vorlane.agent.preferences";

  struct Snapshot {
    /// How many recents the list shows.
    std::int64_t recentsCount = 20;
    bool includeLedgerlyInRecents = true;
    bool includeScenewardInRecents = true;
    /// For each task of the local AI, the provider that was chosen.
    std::map<std::string, std::string> localAIPicks;
    /// A task may run in the cloud when its chosen model is not running.
    bool cloudFallbackForLocalAI = true;
    /// The tab last shown.
    SettingsTab selectedTab = SettingsTab::account;
    /// Finished clips are kept.
    bool renderCacheEnabled = true;

    friend bool operator==(const Snapshot&, const Snapshot&) = default;

    /// The stored form. Writing throws JSONWriteFailure for text that is not
    /// UTF-8; reading gives nothing when any key is missing or of a wrong type.
    std::string text() const;
    static std::optional<Snapshot> fromText(std::string_view text);
  };

  /// The record that `defaults` holds now, or all defaults when it holds none that
  /// is whole. For those who read the preferences beside this object.
  static Snapshot load(const UserDefaults& defaults);

  /// Loads once; later changes by other processes are not seen. `defaults` has to
  /// outlive the object.
  AgentPreferences(UserDefaults& defaults, Log log);

  Snapshot snapshot() const;
  bool renderCacheEnabled() const { return snapshot().renderCacheEnabled; }

  void setRecentsCount(std::int64_t count);
  void setIncludeLedgerlyInRecents(bool include);
  void setIncludeScenewardInRecents(bool include);
  void setLocalAIPicks(std::map<std::string, std::string> picks);
  void setCloudFallbackForLocalAI(bool allowed);
  void setSelectedTab(SettingsTab tab);
  void setRenderCacheEnabled(bool enabled);

  /// `handler` runs after every setter, on the setter's thread, when the new value
  /// can be read and has been written.
  [[nodiscard]] Observation observe(std::function<void()> handler);

 private:
  template <class Value>
  void set(Value Snapshot::* field, Value value);
  void persist(const Snapshot& snapshot);

  UserDefaults& defaults_;
  const Log log_;
  NotificationCenter changes_;
  /// Held over a change and its write, so that the last change is the last written.
  std::mutex changing_;
  mutable std::mutex lock_;
  Snapshot snapshot_;
};

}  // namespace vorlane
