#include "ai/AIError.h"
#include "base/Digest.h"
#include "base/JsonArguments.h"
#include "store/ScenewardSceneSeed.h"
#include "tools/ToolBench.h"
#include "tools/sceneward/ScenewardToolModule.h"
#include "tools/sceneward/ShapeOperations.h"

#include <boost/algorithm/string/replace.hpp>
#include <boost/asio/error.hpp>

namespace vorlane {
namespace {

const std::string upper = "AAAAAAAA-0000-4000-8000-00000000000F",
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

TEST_F(ScenewardTools, TheListIsInOrderWithTheSchemasThatAreShown) {
  std::string list, words;
  for (const auto& tool : module.tools()) {
    words += tool.name + ": " + tool.description + "\n";
    list += tool.name.substr(10) + " " + quoted(writeJSON(tool.inputSchema)) + "\n";
  }
  // The words are an interface too: assistants act on them.
  EXPECT_EQ(sha256Hex(words), "c0ddc7d8a60270ce47094b96a1c5b2a445e75956b7c0aafe7044384a4d5884a4") << words;
  boost::replace_all(list, "{'type':'string'}", "STR");
  boost::replace_all(list, "{'type':'object'}", "MAP");
  boost::replace_all(list, ",'type':'object'}", " OBJ");
  boost::replace_all(list, "{'properties':", "");
  EXPECT_EQ(list,
            "list_projects {'limit':{'default':50,'description':'Max projects to return (newest first).',"
            "'minimum':1,'type':'integer'}} OBJ\n"
            "list_scenes {'projectId':STR},'required':['projectId'] OBJ\n"
            "get_scene {'sceneId':STR},'required':['sceneId'] OBJ\n"
            "list_shapes {'kind':STR,'layerId':STR,'sceneId':STR},'required':['sceneId'] OBJ\n"
            "get_shape {'sceneId':STR,'shapeId':STR},'required':['sceneId','shapeId'] OBJ\n"
            "get_cue {'cueId':STR,'sceneId':STR},'required':['sceneId','cueId'] OBJ\n"
            "list_shots {'sceneId':STR},'required':['sceneId'] OBJ\n"
            "list_cues {'sceneId':STR,'shotId':STR},'required':['sceneId'] OBJ\n"
            "create_scene {'intExt':{'enum':['INT.','EXT.','INT./EXT.'],'type':'string'},'locationId':"
            "{'description':'Groups scenes sharing a physical location; required for Location-scoped "
            "overrides to resolve.','type':'string'},'name':STR,'projectId':STR,'sceneNumber':STR,"
            "'timeOfDay':STR},'required':['projectId'] OBJ\n"
            "create_shape {'sceneId':STR,'shape':MAP},'required':['sceneId','shape'] OBJ\n"
            "update_shape {'patch':MAP,'sceneId':STR,'shapeId':STR},'required':['sceneId','shapeId','patch'] "
            "OBJ\n"
            "delete_shape {'sceneId':STR,'shapeId':STR},'required':['sceneId','shapeId'] OBJ\n"
            "bulk_apply {'ops':{'items':MAP,'type':'array'},'sceneId':STR},'required':['sceneId','ops'] OBJ\n"
            "create_shot {'color':STR,'name':STR,'parentFolderId':{'type':['string','null']},'sceneId':STR},"
            "'required':['sceneId'] OBJ\n"
            "create_cue {'atSeconds':{'type':'number'},'color':STR,'cueId':STR,'name':STR,"
            "'parentFolderId':STR,'sceneId':STR},'required':['sceneId','parentFolderId'] OBJ\n"
            "upsert_keyframe {'cueId':STR,'keyframe':MAP,'sceneId':STR,'shapeId':STR},"
            "'required':['sceneId','cueId','shapeId','keyframe'] OBJ\n"
            "retime_cue {'atSeconds':{'type':'number'},'cueId':STR,'sceneId':STR},"
            "'required':['sceneId','cueId','atSeconds'] OBJ\n"
            "list_snapshots {'limit':{'type':'integer'},'sceneId':STR},'required':['sceneId'] OBJ\n"
            "rollback_snapshot {'sceneId':STR,'versionId':{'type':'integer'}},"
            "'required':['sceneId','versionId'] OBJ\n"
            "ingest_diagram {'imageBase64':STR,'mimeType':STR,'mode':STR,'projectId':STR,'prompt':STR},"
            "'required':['projectId','imageBase64'] OBJ\n"
            "ingest_script {'projectId':STR,'scriptText':STR,'scriptUri':STR},'required':['projectId'] OBJ\n"
            "propose_lighting_plan {'hints':STR,'sceneId':STR},'required':['sceneId'] OBJ\n"
            "propose_shotlist {'hints':STR,'sceneId':STR,'scriptText':STR} OBJ\n"
            "set_workflow_stage {'sceneId':STR,'stage':{'enum':['Location','Blocking','Camera','Lighting',"
            "'Export'],'type':'string'}},'required':['sceneId','stage'] OBJ\n"
            "describe_capabilities {'namespace':{'enum':['sceneward','ledgerly','vorlane','all'],"
            "'type':'string'}} OBJ\n");
}

TEST_F(ScenewardTools, ReadingAnswersAsTheStoreStands) {
  await(queries.save({"old", "o", "Old", "no JSON", present, present, present - std::chrono::hours(1)}));
  await(queries.save({"foreign", "p", "T", "{}", present, present}));
  present += std::chrono::seconds(1);
  put(upper, "{}");
  put("list", "[]");
  await(queries.replaceData("list", "[]"));
  put("mixed", "{'shapes':[{'id':'a'},7],'folders':{'kind':'shot'},'cues':[],'meta':[]}");
  put("s",
      "{'meta':{'name':'N','id':7,'x':null},'cues':{'c':{'a':1},'d':[]},"
      "'shapes':[{'id':'a','kind':'k','layerId':'l'},{'id':'b','kind':'k'},{'id':'a','layerId':'l'},{}],"
      "'folders':[{'id':'1','kind':'shot'},{'id':'2','kind':'cue','parentFolderId':'1'},"
      "{'id':'3','kind':'cue','parentFolderId':null},{'id':'4'}]}");
  const std::string stub = "{'sceneId':'" + upper + "'}", mixed = "{'sceneId':'mixed'}",
                    no = "{'sceneId':'no'}";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"list_scenes", "{'projectId':'no'}", "sceneward 404 project no not found"},
      {"list_scenes", "{'projectId':'s'}", "{'scenes':[{'id':7,'name':'N','x':null}]}"},
      {"list_scenes", "{'projectId':'mixed'}", "{'scenes':[{'id':'mixed','name':'T'}]}"},
      {"list_scenes", "{'projectId':'" + upper + "'}", "{'scenes':[{'id':'" + lower + "','name':'T'}]}"},
      {"get_scene", stub, "{}"},
      {"get_scene", no, "sceneward 404 scene no not found"},
      {"get_scene", "{'sceneId':7}", "sceneward 404 scene  not found"},
      {"get_scene", "{'sceneId':'list'}", "SnapshotCodec 1 snapshot is not a JSON object"},
      {"list_shapes", no, "{'shapes':[]}"},
      {"list_shapes", stub, "{'count':0,'sceneId':'" + upper + "','shapes':[]}"},
      {"list_shapes", mixed, "{'count':0,'sceneId':'mixed','shapes':[]}"},
      {"list_shapes", "'kind':'k','layerId':7",
       "{'count':2,'sceneId':'s','shapes':[{'id':'a','kind':'k','layerId':'l'},{'id':'b','kind':'k'}]}"},
      {"list_shapes", "'kind':'k','layerId':'l'",
       "{'count':1,'sceneId':'s','shapes':[{'id':'a','kind':'k','layerId':'l'}]}"},
      {"list_shapes", "'layerId':''", "{'count':0,'sceneId':'s','shapes':[]}"},
      {"get_shape", "'shapeId':'a'", "{'shape':{'id':'a','kind':'k','layerId':'l'}}"},
      {"get_shape", "'shapeId':'z'", "sceneward 404 shape z not found in s"},
      {"get_shape", "{'sceneId':'mixed','shapeId':'a'}", "sceneward 404 shape a not found in mixed"},
      {"get_shape", no, "sceneward 404 scene no not found"},
      {"get_cue", "'cueId':'c'", "{'cue':{'a':1},'cueId':'c'}"},
      {"get_cue", "'cueId':'d'", "sceneward 404 cue d not found"},
      {"get_cue", mixed, "sceneward 404 cue  not found"},
      {"get_cue", no, "sceneward 404 scene no not found"},
      {"list_shots", no, "{'shots':[]}"},
      {"list_shots", mixed, "{'count':0,'sceneId':'mixed','shots':[]}"},
      {"list_shots", "'x':1", "{'count':1,'sceneId':'s','shots':[{'id':'1','kind':'shot'}]}"},
      {"list_cues", no, "{'cues':[]}"},
      {"list_cues", "'shotId':'1'",
       "{'count':1,'cues':[{'id':'2','kind':'cue','parentFolderId':'1'}],'sceneId':'s'}"},
      {"list_cues", "'shotId':null",
       "{'count':2,'cues':[{'id':'2','kind':'cue','parentFolderId':'1'},{'id':'3','kind':'cue',"
       "'parentFolderId':null}],'sceneId':'s'}"},
  };
  for (const auto& [tool, arguments, expected] : cases)
    EXPECT_EQ(call(tool, arguments), expected) << tool << arguments;
  for (const char* id : {lower.c_str(), "list", "mixed"}) await(queries.deleteProject(id));
  const std::string newest = "{'id':'s','synced':false,'title':'T','updatedAt':'2026-03-01T12:00:01Z'}",
                    both = "'projects':[" + newest +
                           ",{'id':'old','synced':true,'title':'Old','updatedAt':'2026-03-01T12:00:00Z'}]}";
  for (const auto& [limit, expected] : {std::pair("1", "{'count':1,'limit':1,'projects':[" + newest + "]}"),
                                        {"1.0", "{'count':1,'limit':1,'projects':[" + newest + "]}"},
                                        {"0", "{'count':2,'limit':0," + both},
                                        {"'1'", "{'count':2,'limit':null," + both}})
    EXPECT_EQ(call("list_projects", std::string("{'limit':") + limit + "}"), expected);
}

TEST_F(ScenewardTools, ASceneIsMadeOrOverwrittenWhole) {
  await(queries.save({upper, "p", "T", "{}", present, present, present, 9, present}));
  present += std::chrono::hours(1);
  EXPECT_EQ(call("create_scene",
                 "{'projectId':'" + upper +
                     "','name':'N','locationId':'','sceneNumber':7,'intExt':'ANY','timeOfDay':'DAY',"
                     "'x':'y'}"),
            "{'scene':{'id':'" + lower +
                "','intExt':'ANY','name':'N','timeOfDay':'DAY'},'storage':'local-first',"
                "'synced':false}");
  const auto row = queries.fetch(lower).value();
  EXPECT_EQ(row.ownerID + row.title, "oN");
  EXPECT_FALSE(row.syncedAt || row.remoteVersion || row.pushBlockedAt);
  EXPECT_EQ(row.createdAt, present);
  EXPECT_EQ(row.updatedAt, present);
  const auto scene = parseJSONMap(row.data);
  EXPECT_EQ(quoted(writeJSON(scene.at("meta"))), "{'intExt':'ANY','timeOfDay':'DAY'}");
  EXPECT_EQ(scene.at("layers").as_array().size(), 11U);
  EXPECT_EQ(call("create_scene", "{'projectId':'Scene A','name':''}"),
            "{'scene':{'id':'Scene A','name':''},'storage':'local-first','synced':false}");
  EXPECT_THAT(call("create_scene", "{}"),
              ::testing::ContainsRegex("'id':'[-0-9a-f]{36}','name':'Untitled scene'"));
}

TEST_F(ScenewardTools, ShapesAreAddedPatchedAndRemoved) {
  const std::string layers = "'layers':[{'id':'P','type':'props'},{'id':'L','type':'lights'}]";
  const std::string two = "[{'id':'a','x':1},{'id':'b'},{'id':'a'}]";
  const Edit edits[] = {
      {"{" + layers + "}", "create_shape", "'shape':{'id':'a','kind':'light'}",
       "{'shape':{'id':'a','kind':'light','layerId':'L'}}",
       "{" + layers + ",'shapes':[{'id':'a','kind':'light','layerId':'L'}]}"},
      {"{" + layers + ",'shapes':null}", "create_shape", "'shape':{'id':7,'layerId':'gone'}",
       "{'shape':{'id':7,'layerId':'gone'}}", "{" + layers + ",'shapes':[{'id':7,'layerId':'gone'}]}"},
      {two, "create_shape", "'shape':{'id':'b','kind':'building','housePreset':true}",
       "{'shape':{'hasGarage':false,'housePreset':true,'id':'b','kind':'building'}}",
       "[{'id':'a','x':1},{'id':'b'},{'id':'a'},{'hasGarage':false,'housePreset':true,'id':'b','kind':"
       "'building'}]"},
      {two, "update_shape", "'shapeId':'a','patch':{'id':'z','kind':'light','x':{'y':'&lt;'}}",
       "{'shape':{'id':'a','kind':'light','x':{'y':'&lt;'}}}",
       "[{'id':'a','kind':'light','x':{'y':'&lt;'}},{'id':'b'},{'id':'a'}]"},
      {two, "update_shape", "'shapeId':'z','patch':{'x':1}", "{'shape':{}}", "="},
      {two, "update_shape", "'shapeId':'b','patch':[]", "{'shape':{'id':'b'}}", "="},
      {"[{'id':'a'},7]", "update_shape", "'shapeId':'a','patch':{'x':1}", "{'shape':{}}", "="},
      {"{'cues':{'c':{'a':{}}},'shapes':" + two + "}", "delete_shape", "'shapeId':'a'", "{'deleted':'a'}",
       "{'cues':{'c':{'a':{}}},'shapes':[{'id':'b'}]}"},
      {"{}", "delete_shape", "'shapeId':'a'", "{'deleted':'a'}", "="},
      {"{'shapes':'none'}", "create_shape", "'shape':{'id':'a'}", "{'shape':{'id':'a'}}", "[{'id':'a'}]"},
      {"[{'id':'a'},7]", "delete_shape", "'shapeId':'a'", "{'deleted':'a'}", "="},
  };
  for (const auto& edit : edits) expectEdit(edit);
  for (const char* shapes : {"[{'id':'a'},7]", "{'shapes':{'a':{}}}"}) {
    expectRefusal(shapes, "create_shape", "'shape':{}", "shapes", "a list of objects");
    expectRefusal(shapes, "bulk_apply", "'ops':[{'op':'create_shape','shape':{}}]", "shapes",
                  "a list of objects");
    expectEdit({shapes, "bulk_apply",
                "'ops':[{'op':'update_shape','shapeId':'a','patch':{}},{'op':'delete_shape','shapeId':'a'}]",
                "{'applied':1,'sceneId':'s'}", "="});
  }
  put("s", "{}");
  EXPECT_THAT(call("create_shape", "'shape':7"),
              ::testing::ContainsRegex("^.'shape':.'id':'[-0-9A-F]{36}'..$"));
  for (const char* tool : {"create_shape", "update_shape", "delete_shape", "bulk_apply", "create_shot",
                           "create_cue", "upsert_keyframe", "retime_cue"})
    EXPECT_EQ(call(tool, "{'sceneId':'no'}"), "sceneward 404 scene no not found") << tool;
}

TEST_F(ScenewardTools, ABatchSeesItsOwnWorkAndCountsWhatItApplied) {
  const std::string create = "{'op':'create_shape','shape':{'id':'n'}}",
                    removal = "{'op':'delete_shape','shapeId':";
  const auto update = [](const std::string& id, const std::string& patch) {
    return "{'op':'update_shape','shapeId':'" + id + "','patch':" + patch + "}";
  };
  const std::string shapes = "[{'id':'a'},{'id':'b'},{'id':'a'}]";
  const std::tuple<std::string, std::string, int, std::string> cases[] = {
      {"{}", "", 0, "="},
      {"[1]", "7", 0, "="},
      {shapes, create + ",7", 0, "="},
      {"{}", removal + "'a'}", 1, "="},
      {"{}", update("a", "{}"), 0, "="},
      {shapes, removal + "'a'}," + removal + "'a'}," + update("a", "{'x':1}"), 2, "[{'id':'b'}]"},
      {shapes, update("a", "{'x':1,'id':'b'}") + "," + update("b", "{'y':2}"), 2,
       "[{'id':'a','x':1},{'id':'b','y':2},{'id':'a'}]"},
      {shapes, create + "," + update("n", "{'x':1}") + "," + create + "," + update("n", "{'x':2}"), 4,
       "[{'id':'a'},{'id':'b'},{'id':'a'},{'id':'n','x':2},{'id':'n'}]"},
      {shapes, create + "," + removal + "'n'}," + create + "," + removal + "'b'}", 4,
       "[{'id':'a'},{'id':'a'},{'id':'n'}]"},
      {"[{'id':''},{'id':7},{}]", removal + "''},{'op':'delete_shape'}," + removal + "7}", 1,
       "[{'id':7},{}]"},
      {"{'layers':[{'id':'L'}]}",
       "{'op':'create_shape','shape':{'id':'h','kind':'building','housePreset':true}}", 1,
       "{'layers':[{'id':'L'}],'shapes':[{'hasGarage':false,'housePreset':true,'id':'h','kind':'building',"
       "'layerId':'L'}]}"},
      {shapes,
       "{'op':'create_shape','shape':[]},{'op':'update_shape','shapeId':'a'},{'op':'x','shapeId':'a'},{}", 0,
       "="},
  };
  for (const auto& [before, ops, applied, after] : cases)
    expectEdit({before, "bulk_apply", "'ops':[" + ops + "]",
                "{'applied':" + std::to_string(applied) + ",'sceneId':'s'}", after});
}

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
