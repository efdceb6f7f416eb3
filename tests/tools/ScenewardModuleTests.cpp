#include "ai/AIError.h"
#include "tools/ToolHarness.h"
#include "tools/sceneward/ScenewardToolModule.h"

#include <boost/asio/error.hpp>

namespace vorlane {
namespace {

/// A registry whose one provider, when there is one, answers as the test says.
struct FakeProviders : LocalAIRegistry {
  struct Provider : LocalAIProvider {
    std::string id() const override { return "fake"; }
    std::set<AICapability> capabilities() const override { return {AICapability::visionAnalyze}; }
    Task<AIResult> run(AICall) override { co_return AIResult(); }
  };
  Task<std::shared_ptr<LocalAIProvider>> provider(AITask task) override {
    if (one && one->covers(task)) co_return one;
    co_return nullptr;
  }
  Task<std::string> unavailableReason(AITask task) override {
    co_return "Nothing runs " + std::string(rawValue(task)) + " tasks.";
  }
  Task<AIResult> runAndLog(AICall call) override { co_return answer(std::move(call)); }

  std::shared_ptr<Provider> one;
  std::function<AIResult(AICall)> answer;
};

class ScenewardModule : public ToolHarness {
 protected:
  ScenewardModule() { serve(providers); }
  void serve(std::shared_ptr<LocalAIRegistry> with) {
    module = std::make_shared<ScenewardToolModule>(queries, registry, std::move(with));
    registry->registerModule(module);
  }

  ScenewardQueries queries = queriesOn<ScenewardQueries>(open());
  std::shared_ptr<FakeProviders> providers = std::make_shared<FakeProviders>();
  std::shared_ptr<ToolRegistry> registry = std::make_shared<ToolRegistry>();
};

TEST_F(ScenewardModule, IsShownInOrderAndItsPlaceholdersTouchNothing) {
  expectShown("sceneward.txt", {"list_snapshots", "rollback_snapshot", "ingest_script",
                                "propose_lighting_plan", "propose_shotlist", "set_workflow_stage"});
  EXPECT_EQ(inFile("SELECT COUNT(*) FROM sceneward_projects"), "0");
}

TEST_F(ScenewardModule, CapabilitiesAreThoseOfTheWholeRegistry) {
  struct Other : ToolModule {
    std::string toolNamespace() const override { return "ledgerly"; }
    std::vector<ToolDefinition> tools() const override {
      return {{.name = "ledgerly_x", .description = "X."}};
    }
  };
  registry->registerModule(std::make_shared<Other>());
  EXPECT_EQ(call("describe_capabilities", "{'namespace':'ledgerly'}"),
            "{'count':1,'tools':[{'description':'X.','name':'ledgerly_x','namespace':'ledgerly'}]}");
  for (const auto& [wanted, count] : {std::pair("'all'", 26), {"7", 26}, {"'sceneward'", 25}, {"'x'", 0}})
    EXPECT_THAT(call("describe_capabilities", "{'namespace':" + std::string(wanted) + "}"),
                ::testing::StartsWith("{'count':" + std::to_string(count) + ","));
  registry = nullptr;  // which nothing else keeps alive
  EXPECT_EQ(call("describe_capabilities", "{}"), "{'count':0,'tools':[]}");
}

TEST_F(ScenewardModule, ADiagramGoesToWhoeverSeesPictures) {
  const auto ingest = [&](const std::string& rest = "") {
    return call("ingest_diagram", "{'projectId':'p','imageBase64':'AP8='" + rest + "}");
  };
  serve(nullptr);
  EXPECT_EQ(ingest(),
            "{'message':'Local AI registry is unavailable for Sceneward tools','status':'no_provider'}");
  serve(providers);
  EXPECT_EQ(ingest(), "{'message':'Nothing runs vision tasks.','status':'no_provider'}");
  for (const char* bad : {"{'projectId':'p'}", "{'imageBase64':'AP8='}",
                          "{'projectId':'p','imageBase64':'AP8'}", "{'projectId':'p','imageBase64':7}"})
    EXPECT_EQ(call("ingest_diagram", bad), "sceneward_ingest_diagram: projectId + imageBase64 required");
  providers->one = std::make_shared<FakeProviders::Provider>();
  providers->answer = [](AICall call) {
    EXPECT_EQ(call.task, AITask::vision);
    EXPECT_EQ(call.imageBytes, std::string("\0\xff", 2));
    return AIResult{.text = *call.imageMimeType + ": " + call.prompt, .modelUsed = "m", .providerID = "fake"};
  };
  EXPECT_EQ(ingest(",'mimeType':'image/png','prompt':'P'"),
            "{'modelUsed':'m','projectId':'p','providerId':'fake','rawText':'image/png: P','status':'ok'}");
  EXPECT_THAT(ingest(), HasSubstr("'image/jpeg: Describe this blocking diagram. Return JSON with walls, "
                                  "characters, cameras, lights.'"));
  providers->answer = [](AICall) -> AIResult { throw AIError::transport("the model hung up"); };
  EXPECT_EQ(ingest(), "{'message':'the model hung up','status':'error'}");
  providers->answer = [](AICall) -> AIResult {
    throw boost::system::system_error(boost::asio::error::operation_aborted);
  };
  EXPECT_FALSE(ingest().starts_with("{"));  // it goes on as it is
}

}  // namespace
}  // namespace vorlane
