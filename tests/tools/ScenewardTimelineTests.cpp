#include "ScenewardToolBench.h"
#include "ai/AIError.h"
#include "base/JsonArguments.h"

#include <boost/asio/error.hpp>

namespace vorlane {
namespace {

TEST_F(ScenewardTools, TheTimelineIsFoldersAndKeyframes) {
  const Edit edits[] = {
      {"{'folders':null}", "create_cue", "'cueId':'c'", "{'cue':{'id':'c','kind':'cue','parentFolderId':''}}",
       "{'cues':{'c':{}},'folders':[{'id':'c','kind':'cue','parentFolderId':''}]}"},
      {"{'cues':{'c':{'a':1},'d':{}},'folders':[{'id':'c'}]}", "create_cue",
       "'cueId':'c','parentFolderId':'p','name':'N','atSeconds':3,'color':'#fff'",
       "{'cue':{'atSeconds':3,'color':'#fff','id':'c','kind':'cue','name':'N','parentFolderId':'p'}}",
       "{'cues':{'c':{},'d':{}},'folders':[{'id':'c'},{'atSeconds':3,'color':'#fff','id':'c','kind':'cue',"
       "'name':'N','parentFolderId':'p'}]}"},
      {"{'cues':[]}", "create_cue", "'cueId':'c','parentFolderId':null,'name':7,'atSeconds':'3','color':7",
       "{'cue':{'id':'c','kind':'cue','parentFolderId':''}}",
       "{'cues':{'c':{}},'folders':[{'id':'c','kind':'cue','parentFolderId':''}]}"},
      {"{}", "upsert_keyframe", "'cueId':'c','shapeId':'a','keyframe':{'x':1}",
       "{'cueId':'c','keyframe':{'x':1},'shapeId':'a'}", "{'cues':{'c':{'a':{'x':1}}}}"},
      {"{'cues':{'c':{'a':{'y':2},'b':7}}}", "upsert_keyframe",
       "'cueId':'c','shapeId':'a','keyframe':{'x':1}", "{'cueId':'c','keyframe':{'x':1},'shapeId':'a'}",
       "{'cues':{'c':{'a':{'x':1},'b':7}}}"},
      {"{'cues':{'c':null}}", "upsert_keyframe", "'cueId':'c','shapeId':7,'keyframe':7",
       "{'cueId':'c','keyframe':{},'shapeId':''}", "{'cues':{'c':{'':{}}}}"},
      {"{'folders':[{'id':'c','kind':'shot'},{'id':'c'}]}", "retime_cue", "'cueId':'c','atSeconds':2",
       "{'atSeconds':2.0,'cueId':'c'}", "{'folders':[{'atSeconds':2.0,'id':'c','kind':'shot'},{'id':'c'}]}"},
      {"{'folders':[{'atSeconds':9,'id':'c'}]}", "retime_cue", "'cueId':'c','atSeconds':true",
       "{'atSeconds':0.0,'cueId':'c'}", "{'folders':[{'atSeconds':0.0,'id':'c'}]}"},
      {"{'cues':'x'}", "upsert_keyframe", "'cueId':'c','shapeId':'s'",
       "{'cueId':'c','keyframe':{},'shapeId':'s'}", "{'cues':{'c':{'s':{}}}}"},
      {"{'folders':[{'id':'c'},7]}", "retime_cue", "'cueId':'c','atSeconds':2",
       "{'atSeconds':2.0,'cueId':'c'}", "="},
  };
  for (const auto& edit : edits) expectEdit(edit);
  for (const char* tool : {"create_shot", "create_cue"})
    expectRefusal("{'folders':[{'id':'f'},7]}", tool, "'cueId':'c'", "folders", "a list of objects");
  expectRefusal("{'cues':[1]}", "create_cue", "'cueId':'c'", "cues", "an object");
  expectRefusal("{'cues':{'c':[1]}}", "upsert_keyframe", "'cueId':'c'", "c", "an object");
  const std::pair<const char*, const char*> parents[] = {{"'parentFolderId':null", ",'parentFolderId':null"},
                                                         {"'parentFolderId':'p'", ",'parentFolderId':'p'"},
                                                         {"'parentFolderId':7", ""},
                                                         {"'x':1", ""}};
  for (const auto& [argument, stored] : parents) {
    put("s", "{'folders':[]}");
    const auto made = call("create_shot", "'name':'N','color':7," + std::string(argument));
    EXPECT_THAT(made, ::testing::MatchesRegex(".'shot':.'id':'[-0-9A-F]{36}','kind':'shot','name':'N'" +
                                              std::string(stored) + ".."));
    EXPECT_EQ(saved(), "{'folders':[" + made.substr(8, made.size() - 9) + "]}");
  }
}

TEST_F(ScenewardTools, PlaceholdersAnswerAtOnceAndTouchNothing) {
  const std::pair<const char*, const char*> cases[] = {
      {"list_snapshots",
       "{'message':'Snapshot history is not yet wired to the local store. Track T2.5.','sceneId':'s',"
       "'snapshots':[]}"},
      {"rollback_snapshot",
       "{'message':'Rollback unavailable until snapshot history ships in T2.5.','status':'phase1_stub'}"},
      {"ingest_script",
       "{'message':'Script ingest returns a plan only in Phase 1; backing lands in Phase 4 "
       "(vorlane-manager).','status':'phase1_stub'}"},
      {"propose_lighting_plan",
       "{'message':'Lighting plan synthesis ships in Phase 4 via vorlane-manager.','status':'phase1_stub'}"},
      {"propose_shotlist",
       "{'message':'Shotlist synthesis ships in Phase 4 via vorlane-manager.','status':'phase1_stub'}"},
      {"set_workflow_stage",
       "{'applied':true,'message':'Stage recorded in MCP response; persistence column lands in a "
       "follow-up.','sceneId':'s','stage':'Anything'}"},
  };
  for (const auto& [tool, expected] : cases) EXPECT_EQ(call(tool, "'stage':'Anything'"), expected);
  EXPECT_EQ(inFile("SELECT COUNT(*) FROM sceneward_projects"), "0");
}

TEST_F(ScenewardTools, CapabilitiesAreThoseOfTheWholeRegistry) {
  struct Other : ToolModule {
    std::string toolNamespace() const override { return "ledgerly"; }
    std::vector<ToolDefinition> tools() const override {
      return {{.name = "ledgerly_x", .description = "X."}};
    }
  };
  registry->registerModule(std::make_shared<Other>());
  const auto other = "{'count':1,'tools':[{'description':'X.','name':'ledgerly_x','namespace':'ledgerly'}]}";
  EXPECT_EQ(call("describe_capabilities", "{'namespace':'ledgerly'}"), other);
  EXPECT_EQ(call("describe_capabilities", "{'namespace':'ledgerly_x'}"), "{'count':0,'tools':[]}");
  for (const auto& [argument, count] : {std::pair("{}", 26),
                                        {"{'namespace':'all'}", 26},
                                        {"{'namespace':7}", 26},
                                        {"{'namespace':'sceneward'}", 25}})
    EXPECT_THAT(call("describe_capabilities", argument),
                ::testing::StartsWith("{'count':" + std::to_string(count) + ","));
  registry = nullptr;  // which nothing else keeps alive
  EXPECT_EQ(call("describe_capabilities", "{}"), "{'count':0,'tools':[]}");
}

TEST_F(ScenewardTools, ADiagramGoesToWhoeverSeesPictures) {
  const std::string image = "{'projectId':'p','imageBase64':'AP8='";
  const ScenewardToolModule alone(queries, registry);
  EXPECT_EQ(answer(alone, "ingest_diagram", image + "}"),
            "{'message':'Local AI registry is unavailable for Sceneward tools','status':'no_provider'}");
  EXPECT_EQ(call("ingest_diagram", image + "}"),
            "{'message':'Nothing runs vision tasks.','status':'no_provider'}");
  for (const char* bad : {"{'projectId':'p'}", "{'imageBase64':'AP8='}",
                          "{'projectId':'p','imageBase64':'AP8'}", "{'projectId':'p','imageBase64':7}"})
    EXPECT_EQ(failureOf([&] { call("ingest_diagram", bad); }),
              "sceneward_ingest_diagram: projectId + imageBase64 required");
  providers->one = std::make_shared<FakeProviders::Provider>();
  providers->answer = [](AICall call) {
    EXPECT_EQ(call.task, AITask::vision);
    EXPECT_EQ(call.imageBytes, std::string("\0\xff", 2));
    return AIResult{.text = *call.imageMimeType + ": " + call.prompt, .modelUsed = "m", .providerID = "fake"};
  };
  EXPECT_EQ(call("ingest_diagram", image + ",'mimeType':'image/png','prompt':'P'}"),
            "{'modelUsed':'m','projectId':'p','providerId':'fake','rawText':'image/png: P','status':'ok'}");
  EXPECT_THAT(
      call("ingest_diagram", image + "}"),
      HasSubstr("'image/jpeg: Describe this blocking diagram. Return JSON with walls, characters, cameras, "
                "lights.'"));
  providers->answer = [](AICall) -> AIResult { throw AIError::transport("the model hung up"); };
  EXPECT_EQ(call("ingest_diagram", image + "}"), "{'message':'the model hung up','status':'error'}");
  providers->answer = [](AICall) -> AIResult {
    throw boost::system::system_error(boost::asio::error::operation_aborted);
  };
  EXPECT_ANY_THROW(call("ingest_diagram", image + "}"));
}

}  // namespace
}  // namespace vorlane
