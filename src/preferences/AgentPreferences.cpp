#include "preferences/AgentPreferences.h"

#include "base/Failure.h"
#include "base/JSON.h"
#include "base/JSONArguments.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vorlane {
namespace {

constexpr std::array<std::pair<SettingsTab, std::string_view>, 7> tabTexts{{
    {SettingsTab::account, "account"},
    {SettingsTab::mcp, "mcp"},
    {SettingsTab::localAI, "local_ai"},
    {SettingsTab::recents, "recents"},
    {SettingsTab::apps, "apps"},
    {SettingsTab::rendering, "rendering"},
    {SettingsTab::labs, "labs"},
}};

std::optional<std::map<std::string, std::string>> strings(const JSONMap* map) {
  if (map == nullptr) return std::nullopt;
  std::map<std::string, std::string> result;
  for (const auto& member : *map) {
    if (!member.value().is_string()) return std::nullopt;
    result.emplace(member.key(), member.value().get_string());
  }
  return result;
}

/// Stores the value, if there is one, and returns whether there was.
template <class Value>
bool take(Value& field, std::optional<Value> value) {
  if (!value) return false;
  field = std::move(*value);
  return true;
}

}  // namespace

std::string_view settingsTabText(SettingsTab tab) {
  return std::ranges::find(tabTexts, tab, [](const auto& entry) { return entry.first; })->second;
}

std::optional<SettingsTab> settingsTabFromText(std::string_view text) {
  const auto* found = std::ranges::find(tabTexts, text, [](const auto& entry) { return entry.second; });
  if (found == tabTexts.end()) return std::nullopt;
  return found->first;
}

std::string AgentPreferences::Snapshot::text() const {
  JSONMap picks;
  for (const auto& [task, provider] : localAIPicks) picks[task] = provider;
  JSONMap map;
  map["recentsCount"] = recentsCount;
  map["includeLedgerlyInRecents"] = includeLedgerlyInRecents;
  map["includeScenewardInRecents"] = includeScenewardInRecents;
  map["localAIPicks"] = std::move(picks);
  map["cloudFallbackForLocalAI"] = cloudFallbackForLocalAI;
  map["selectedTab"] = settingsTabText(selectedTab);
  map["renderCacheEnabled"] = renderCacheEnabled;
  return writeJSON(map);
}

std::optional<AgentPreferences::Snapshot> AgentPreferences::Snapshot::fromText(std::string_view text) try {
  const auto map = parseJSONMap(text);
  const auto tab = json::string(map, "selectedTab");
  Snapshot read;
  const bool whole = take(read.recentsCount, json::integer(map, "recentsCount")) &&
                     take(read.includeLedgerlyInRecents, json::boolean(map, "includeLedgerlyInRecents")) &&
                     take(read.includeScenewardInRecents, json::boolean(map, "includeScenewardInRecents")) &&
                     take(read.localAIPicks, strings(json::object(map, "localAIPicks"))) &&
                     take(read.cloudFallbackForLocalAI, json::boolean(map, "cloudFallbackForLocalAI")) &&
                     take(read.selectedTab, tab ? settingsTabFromText(*tab) : std::nullopt) &&
                     take(read.renderCacheEnabled, json::boolean(map, "renderCacheEnabled"));
  if (!whole) return std::nullopt;
  return read;
} catch (const JSONParseFailure&) {
  return std::nullopt;
}

AgentPreferences::Snapshot AgentPreferences::load(const UserDefaults& defaults) {
  const auto stored = defaults.data(key);
  return stored ? Snapshot::fromText(stored->bytes).value_or(Snapshot()) : Snapshot();
}

AgentPreferences::AgentPreferences(UserDefaults& defaults, Log log)
    : defaults_(defaults), log_(std::move(log)), snapshot_(load(defaults)) {}

AgentPreferences::Snapshot AgentPreferences::snapshot() const {
  const std::scoped_lock hold(lock_);
  return snapshot_;
}

template <class Value>
void AgentPreferences::set(Value Snapshot::* field, Value value) {
  {
    const std::scoped_lock change(changing_);
    Snapshot changed;
    {
      const std::scoped_lock hold(lock_);
      snapshot_.*field = std::move(value);
      changed = snapshot_;
    }
    persist(changed);
  }
  changes_.post(key);
}

/// What cannot be written stays in memory; no failure reaches the person.
void AgentPreferences::persist(const Snapshot& snapshot) {
  try {
    defaults_.apply({{key, DefaultsData{snapshot.text()}}});
  } catch (const JSONWriteFailure&) {
  } catch (const Failure& failure) {
    log_("preferences not saved: " + failure.description());
  }
}

void AgentPreferences::setRecentsCount(std::int64_t count) {
  set(&Snapshot::recentsCount, count);
}

void AgentPreferences::setIncludeLedgerlyInRecents(bool include) {
  set(&Snapshot::includeLedgerlyInRecents, include);
}

void AgentPreferences::setIncludeScenewardInRecents(bool include) {
  set(&Snapshot::includeScenewardInRecents, include);
}

void AgentPreferences::setLocalAIPicks(std::map<std::string, std::string> picks) {
  set(&Snapshot::localAIPicks, std::move(picks));
}

void AgentPreferences::setCloudFallbackForLocalAI(bool allowed) {
  set(&Snapshot::cloudFallbackForLocalAI, allowed);
}

void AgentPreferences::setSelectedTab(SettingsTab tab) {
  set(&Snapshot::selectedTab, tab);
}

void AgentPreferences::setRenderCacheEnabled(bool enabled) {
  set(&Snapshot::renderCacheEnabled, enabled);
}

Observation AgentPreferences::observe(std::function<void()> handler) {
  return changes_.observe(key, std::move(handler));
}

}  // namespace vorlane
