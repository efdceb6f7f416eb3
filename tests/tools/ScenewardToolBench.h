#pragma once

#include "tools/ToolBench.h"
#include "tools/sceneward/ScenewardToolModule.h"

namespace vorlane {

inline const std::string upper = "AAAAAAAA-0000-4000-8000-00000000000F",
                         lower = "aaaaaaaa-0000-4000-8000-00000000000f";

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

/// The tools over a real store. What does not start with '{' is a document with these shapes,
/// or arguments that go beside the scene "s".
class ScenewardTools : public ToolBench {
 public:
  ScenewardTools() { registry->registerModule(std::make_shared<ScenewardToolModule>(module)); }
  static std::string document(std::string text) {
    if (text.starts_with("[")) text = "{'shapes':" + text + "}";
    return text;
  }
  void put(const std::string& id, const std::string& text) {
    auto data = document(text);
    std::ranges::replace(data, '\'', '"');
    await(queries.save({id, "o", "T", data, present, present}));
  }
  std::string call(const std::string& tool, std::string arguments) {
    if (!arguments.starts_with("{")) arguments = "{'sceneId':'s'," + arguments + "}";
    return answer(module, tool, arguments);
  }
  std::string saved() { return quoted(queries.fetch("s").value().data); }
  /// Expects the call to be refused and the document to stay as it is.
  void expectRefusal(const std::string& before, const std::string& tool, const std::string& arguments,
                     const std::string& key, const std::string& expected) {
    put("s", before);
    EXPECT_EQ(call(tool, arguments), "sceneward 409 the scene holds something under \"" + key +
                                         "\" that is not " + expected + "; nothing was changed");
    EXPECT_EQ(saved(), document(before));
    EXPECT_EQ(queries.fetch("s")->updatedAt, present);
  }

  ScenewardQueries queries = queriesOn<ScenewardQueries>(open());
  std::shared_ptr<FakeProviders> providers = std::make_shared<FakeProviders>();
  std::shared_ptr<ToolRegistry> registry = std::make_shared<ToolRegistry>();
  ScenewardToolModule module{queries, registry, providers};
};

}  // namespace vorlane
