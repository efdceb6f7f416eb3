#include "tools/sceneward/ScenewardStubTools.h"

#include "base/Encodings.h"
#include "base/Failure.h"
#include "base/JSONArguments.h"
#include "tools/ToolTable.h"

#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace vorlane {
namespace {

using Providers = std::shared_ptr<LocalAIRegistry>;
using StubTool = ToolEntry<Providers>;

/// Room for a scene's worth of walls and characters.
constexpr std::int64_t visionTokens = 2048;

Task<JSONMap> listSnapshots(Providers, JSONMap arguments, Identity) {
  co_return JSONMap{
      {"sceneId", json::stringOr(arguments, "sceneId")},
      {"snapshots", JSONArray()},
      {"message", "Snapshot history is not yet wired to the local store. Track T2.5."},
  };
}

JSONMap phaseOne(std::string_view message) {
  return {{"status", "phase1_stub"}, {"message", message}};
}

Task<JSONMap> rollbackSnapshot(Providers, JSONMap, Identity) {
  co_return phaseOne("Rollback unavailable until snapshot history ships in T2.5.");
}

Task<JSONMap> ingestScript(Providers, JSONMap, Identity) {
  co_return phaseOne(
      "Script ingest returns a plan only in Phase 1; backing lands in Phase 4 (vorlane-manager).");
}

Task<JSONMap> proposeLightingPlan(Providers, JSONMap, Identity) {
  co_return phaseOne("Lighting plan synthesis ships in Phase 4 via vorlane-manager.");
}

Task<JSONMap> proposeShotlist(Providers, JSONMap, Identity) {
  co_return phaseOne("Shotlist synthesis ships in Phase 4 via vorlane-manager.");
}

/// What a model made of the call, or the failure's text. A cancellation goes on as it is.
Task<JSONMap> visionAnswer(Providers providers, std::string projectID, AICall call) {
  std::string failure;
  try {
    const auto result = co_await providers->runAndLog(std::move(call));
    co_return JSONMap{{"status", "ok"},
                      {"projectId", projectID},
                      {"providerId", result.providerID},
                      {"modelUsed", result.modelUsed},
                      {"rawText", result.text}};
  } catch (const std::exception& error) {
    if (isCancellation(error)) throw;
    failure = describe(error);
  }
  co_return JSONMap{{"status", "error"}, {"message", failure}};
}

Task<JSONMap> ingestDiagram(Providers providers, JSONMap arguments, Identity) {
  const auto projectID = json::string(arguments, "projectId");
  const auto encoded = json::string(arguments, "imageBase64");
  auto image = encoded ? base64Decoded(*encoded) : std::nullopt;
  if (!projectID || !image) throw Failure("sceneward_ingest_diagram: projectId + imageBase64 required");
  auto mimeType = json::stringOr(arguments, "mimeType", "image/jpeg");
  auto prompt =
      json::stringOr(arguments, "prompt",
                     "Describe this blocking diagram. Return JSON with walls, characters, cameras, lights.");
  if (providers == nullptr) {
    co_return JSONMap{{"status", "no_provider"},
                      {"message", "Local AI registry is unavailable for Sceneward tools"}};
  }
  if (co_await providers->provider(AITask::vision) == nullptr) {
    const auto reason = co_await providers->unavailableReason(AITask::vision);
    co_return JSONMap{{"status", "no_provider"}, {"message", reason}};
  }
  co_return co_await visionAnswer(
      providers, *projectID,
      AICall::vision(std::move(prompt), std::move(*image), std::move(mimeType), visionTokens));
}

constexpr ToolProperty snapshots[] = {{"sceneId", "string"}, {"limit", "integer"}};
constexpr std::string_view snapshotsRequired[] = {"sceneId"};
constexpr ToolProperty rollback[] = {{"sceneId", "string"}, {"versionId", "integer"}};
constexpr std::string_view rollbackRequired[] = {"sceneId", "versionId"};
constexpr ToolProperty diagram[] = {{"projectId", "string"},
                                    {"imageBase64", "string"},
                                    {"mimeType", "string"},
                                    {"prompt", "string"},
                                    {"mode", "string"}};
constexpr std::string_view diagramRequired[] = {"projectId", "imageBase64"};
constexpr ToolProperty script[] = {
    {"projectId", "string"}, {"scriptText", "string"}, {"scriptUri", "string"}};
constexpr std::string_view scriptRequired[] = {"projectId"};
constexpr ToolProperty lighting[] = {{"sceneId", "string"}, {"hints", "string"}};
constexpr std::string_view lightingRequired[] = {"sceneId"};
constexpr ToolProperty shotlist[] = {{"sceneId", "string"}, {"scriptText", "string"}, {"hints", "string"}};

constexpr StubTool table[] = {
    {"sceneward_list_snapshots",
     "Phase-1 stub: snapshot history lands in T2.5 when the sceneward_snapshots table ships.",
     {snapshots, snapshotsRequired},
     listSnapshots},
    {"sceneward_rollback_snapshot",
     "Phase-1 stub: rollback waits for the snapshots table (T2.5).",
     {rollback, rollbackRequired},
     rollbackSnapshot},
    {"sceneward_ingest_diagram",
     "Run vision analysis on a blocking diagram image. Returns the model's raw text response and the "
     "provider that answered.",
     {diagram, diagramRequired},
     ingestDiagram},
    {"sceneward_ingest_script",
     "Phase-1 stub: script-to-plan ingest mirrors the Node Phase-1 stub. Phase 4 backs it.",
     {script, scriptRequired},
     ingestScript},
    {"sceneward_propose_lighting_plan",
     "Phase-1 stub: lighting-planner agent runs in Phase 4.",
     {lighting, lightingRequired},
     proposeLightingPlan},
    {"sceneward_propose_shotlist",
     "Phase-1 stub: shotlist synthesis runs in Phase 4.",
     {shotlist, {}},
     proposeShotlist},
};

}  // namespace

std::vector<ToolDefinition> ScenewardStubTools::tools(const std::shared_ptr<LocalAIRegistry>& providers) {
  return toolDefinitions(table, providers);
}

}  // namespace vorlane
