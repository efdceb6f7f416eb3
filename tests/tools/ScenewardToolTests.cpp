#include "base/JSONArguments.h"
#include "tools/ToolHarness.h"
#include "tools/sceneward/ScenewardToolModule.h"

namespace vorlane {
namespace {

const std::string upper = "AAAAAAAA-0000-4000-8000-00000000000F",
                  lower = "aaaaaaaa-0000-4000-8000-00000000000f";

class ScenewardTools : public DocumentHarness<ScenewardQueries> {
 protected:
  ScenewardTools() : DocumentHarness("shapes", "sceneId") {
    module = std::make_shared<ScenewardToolModule>(queries, std::weak_ptr<const ToolRegistry>());
  }
};

std::string unreadable(const std::string& key, const std::string& expected = "a list of objects") {
  return "sceneward 409 the scene holds something under '" + key + "' that is not " + expected +
         "; nothing was changed";
}

TEST_F(ScenewardTools, ReadingAnswersAsTheStoreStands) {
  await(queries.save({"old", "o", "Old", "{}", present, present, present, {}, {}}));
  await(queries.save({"theirs", "other", "T", "{}", present, present}));
  present += std::chrono::seconds(1);
  put(upper, "{}");
  put("mixed", "{'shapes':[{'id':'a'},7],'folders':{'kind':'shot'},'cues':[],'meta':[]}");
  put("s",
      "{'meta':{'name':'N','id':7,'x':null},'cues':{'c':{'a':1},'d':[]},"
      "'shapes':[{'id':'a','kind':'k','layerId':'l'},{'id':'b','kind':'k'},{'id':'a','layerId':'l'},{}],"
      "'folders':[{'id':'1','kind':'shot'},{'id':'2','kind':'cue','parentFolderId':'1'},"
      "{'id':'3','kind':'cue','parentFolderId':null},{'id':'4','parentFolderId':'1'}]}");
  const std::string stub = "{'sceneId':'" + upper + "'}", mixed = "{'sceneId':'mixed'}",
                    no = "{'sceneId':'no'}";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"list_scenes", "{'projectId':'no'}", "sceneward 404 project no not found"},
      {"list_scenes", "{'projectId':'s'}", "{'scenes':[{'id':7,'name':'N','x':null}]}"},
      {"list_scenes", "{'projectId':'mixed'}", "{'scenes':[{'id':'mixed','name':'T'}]}"},
      {"list_scenes", "{'projectId':'" + upper + "'}", "{'scenes':[{'id':'" + lower + "','name':'T'}]}"},
      {"get_scene", stub, "{}"},
      {"get_scene", no, "sceneward 404 scene no not found"},
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
  for (const char* id : {lower.c_str(), "mixed"}) await(queries.deleteProject(id));
  const std::string newest = "{'id':'s','synced':false,'title':'T','updatedAt':'2026-03-01T12:00:01Z'}",
                    both = newest +
                           ",{'id':'old','synced':true,'title':'Old','updatedAt':'2026-03-01T12:00:00Z'}";
  EXPECT_EQ(call("list_projects", "{'limit':1.0}"), "{'count':1,'limit':1,'projects':[" + newest + "]}");
  EXPECT_EQ(call("list_projects", "{'limit':0}"), "{'count':2,'limit':0,'projects':[" + both + "]}");
  EXPECT_EQ(call("list_projects", "{'limit':'1'}"), "{'count':2,'limit':null,'projects':[" + both + "]}");
}

TEST_F(ScenewardTools, ASceneIsMadeOrOverwrittenWhole) {
  await(queries.save({upper, "p", "T", "{}", present, present, present, 9, present}));
  present += std::chrono::hours(1);
  EXPECT_EQ(call("create_scene", "{'projectId':'" + upper +
                                     "','name':'N','locationId':'','sceneNumber':7,'intExt':'ANY',"
                                     "'timeOfDay':'DAY','x':'y'}"),
            "{'scene':{'id':'" + lower +
                "','intExt':'ANY','name':'N','timeOfDay':'DAY'},'storage':'local-first','synced':false}");
  EXPECT_EQ(inFile("SELECT owner_id, title, created_at, updated_at, synced_at, remote_version, "
                   "push_blocked_at FROM sceneward_projects"),
            "o|N|2026-03-01 13:00:00.000|2026-03-01 13:00:00.000|-|-|-");
  const auto scene = parseJSONMap(queries.fetch(lower)->data);
  EXPECT_EQ(quoted(writeJSON(scene.at("meta"))), "{'intExt':'ANY','timeOfDay':'DAY'}");
  EXPECT_EQ(scene.at("layers").as_array().size(), 11U);
  EXPECT_EQ(call("create_scene", "{'projectId':'Scene A','name':''}"),
            "{'scene':{'id':'Scene A','name':''},'storage':'local-first','synced':false}");
  EXPECT_THAT(call("create_scene", "{}"),
              ::testing::ContainsRegex("'id':'[-0-9a-f]{36}','name':'Untitled scene'"));
}

TEST_F(ScenewardTools, ShapesAreAddedPatchedAndRemoved) {
  const std::string layers = "{'layers':[{'id':'P','type':'props'},{'id':'L','type':'lights'}]",
                    light = "{'id':'a','kind':'light','layerId':'L'}",
                    house = "{'hasGarage':false,'housePreset':true,'id':'b','kind':'building'}",
                    two = "[{'id':'a','x':1},{'id':'b'},{'id':'a'}]", spoilt = "[{'id':'a'},7]";
  expectEdits("create_shape",
              {{layers + "}", "'shape':{'id':'a','kind':'light'}", "{'shape':" + light + "}",
                layers + ",'shapes':[" + light + "]}"},
               {layers + ",'shapes':null}", "'shape':{'id':7,'layerId':'gone'}",
                "{'shape':{'id':7,'layerId':'gone'}}", layers + ",'shapes':[{'id':7,'layerId':'gone'}]}"},
               {"[{'id':'b'}]", "'shape':{'id':'b','kind':'building','housePreset':true}",
                "{'shape':" + house + "}", "[{'id':'b'}," + house + "]"},
               {"{'shapes':'none'}", "'shape':{'id':'a'}", "{'shape':{'id':'a'}}", "[{'id':'a'}]"},
               {spoilt, "'shape':{}", unreadable("shapes"), "="},
               {"{'shapes':{'a':{}}}", "'shape':{}", unreadable("shapes"), "="}});
  expectEdits("update_shape", {{two, "'shapeId':'a','patch':{'id':'z','kind':'light','x':{'y':'&lt;'}}",
                                "{'shape':{'id':'a','kind':'light','x':{'y':'&lt;'}}}",
                                "[{'id':'a','kind':'light','x':{'y':'&lt;'}},{'id':'b'},{'id':'a'}]"},
                               {two, "'shapeId':'z','patch':{'x':1}", "{'shape':{}}", "="},
                               {two, "'shapeId':'b','patch':[]", "{'shape':{'id':'b'}}", "="},
                               {spoilt, "'shapeId':'a','patch':{'x':1}", "{'shape':{}}", "="}});
  expectEdits("delete_shape", {{"{'cues':{'c':{'a':{}}},'shapes':" + two + "}", "'shapeId':'a'",
                                "{'deleted':'a'}", "{'cues':{'c':{'a':{}}},'shapes':[{'id':'b'}]}"},
                               {"{}", "'shapeId':'a'", "{'deleted':'a'}", "="},
                               {spoilt, "'shapeId':'a'", "{'deleted':'a'}", "="}});
  put("s", "{}");
  EXPECT_THAT(call("create_shape", "'shape':7"),
              ::testing::ContainsRegex("^.'shape':.'id':'[-0-9A-F]{36}'..$"));
  for (const char* tool : {"create_shape", "update_shape", "delete_shape", "bulk_apply", "create_shot",
                           "create_cue", "upsert_keyframe", "retime_cue"})
    EXPECT_EQ(call(tool, "{'sceneId':'no'}"), "sceneward 404 scene no not found") << tool;
}

TEST_F(ScenewardTools, ABatchSeesItsOwnWorkAndCountsWhatItApplied) {
  const std::string create = "{'op':'create_shape','shape':{'id':'n'}}", house = "'id':'h','kind':'building'",
                    removal = "{'op':'delete_shape','shapeId':",
                    shapes = "[{'id':'a'},{'id':'b'},{'id':'a'}]";
  const auto update = [](const std::string& id, const std::string& patch) {
    return "{'op':'update_shape','shapeId':'" + id + "','patch':" + patch + "}";
  };
  const std::tuple<std::string, std::string, int, std::string> cases[] = {
      {"{}", "", 0, "="},
      {shapes, create + ",7", 0, "="},
      {"{}", removal + "'a'}," + update("a", "{}"), 1, "="},
      {"[{'id':'a'},7]", removal + "'a'}," + update("a", "{}"), 1, "="},
      {shapes, removal + "'a'}," + removal + "'a'}," + update("a", "{'x':1}"), 2, "[{'id':'b'}]"},
      {shapes, update("a", "{'x':1,'id':'b'}") + "," + update("b", "{'y':2}"), 2,
       "[{'id':'a','x':1},{'id':'b','y':2},{'id':'a'}]"},
      {shapes, create + "," + update("n", "{'x':1}") + "," + create + "," + update("n", "{'x':2}"), 4,
       "[{'id':'a'},{'id':'b'},{'id':'a'},{'id':'n','x':2},{'id':'n'}]"},
      {shapes, create + "," + removal + "'n'}," + create + "," + removal + "'b'}", 4,
       "[{'id':'a'},{'id':'a'},{'id':'n'}]"},
      {"[{'id':''},{'id':7},{}]", removal + "''},{'op':'delete_shape'}," + removal + "7}", 1,
       "[{'id':7},{}]"},
      {"{'layers':[{'id':'L'}]}", "{'op':'create_shape','shape':{'housePreset':true," + house + "}}", 1,
       "{'layers':[{'id':'L'}],'shapes':[{'hasGarage':false,'housePreset':true," + house +
           ",'layerId':'L'}]}"},
      {shapes,
       "{'op':'create_shape','shape':[]},{'op':'update_shape','shapeId':'a'},{'op':'x','shapeId':'a'},{}", 0,
       "="},
  };
  for (const auto& [before, operations, applied, after] : cases)
    expectEdits("bulk_apply", {{before, "'ops':[" + operations + "]",
                                "{'applied':" + std::to_string(applied) + ",'sceneId':'s'}", after}});
  expectEdits("bulk_apply", {{"[{'id':'a'},7]", "'ops':[" + create + "]", unreadable("shapes"), "="}});
}

TEST_F(ScenewardTools, TheTimelineIsFoldersAndKeyframes) {
  const std::string plain = "{'id':'c','kind':'cue','parentFolderId':''}",
                    full =
                        "{'atSeconds':3,'color':'#fff','id':'c','kind':'cue','name':'N',"
                        "'parentFolderId':'p'}";
  expectEdits("create_cue",
              {{"{'folders':null}", "'cueId':'c'", "{'cue':" + plain + "}",
                "{'cues':{'c':{}},'folders':[" + plain + "]}"},
               {"{'cues':{'c':{'a':1},'d':{}},'folders':[{'id':'c'}]}",
                "'cueId':'c','parentFolderId':'p','name':'N','atSeconds':3,'color':'#fff'",
                "{'cue':" + full + "}", "{'cues':{'c':{},'d':{}},'folders':[{'id':'c'}," + full + "]}"},
               {"{'cues':[]}", "'cueId':'c','parentFolderId':null,'name':7,'atSeconds':'3','color':7",
                "{'cue':" + plain + "}", "{'cues':{'c':{}},'folders':[" + plain + "]}"},
               {"{'folders':[{'id':'f'},7]}", "'cueId':'c'", "{'cue':" + plain + "}",
                "{'cues':{'c':{}},'folders':[{'id':'f'},7," + plain + "]}"},
               {"{'folders':{'id':'f'}}", "'cueId':'c'", "{'cue':" + plain + "}",
                "{'cues':{'c':{}},'folders':[" + plain + "]}"},
               {"{'cues':[1]}", "'cueId':'c'", unreadable("cues", "an object"), "="}});
  expectEdits("upsert_keyframe",
              {{"{}", "'cueId':'c','shapeId':'a','keyframe':{'x':1}",
                "{'cueId':'c','keyframe':{'x':1},'shapeId':'a'}", "{'cues':{'c':{'a':{'x':1}}}}"},
               {"{'cues':{'c':{'a':{'y':2},'b':7}}}", "'cueId':'c','shapeId':'a','keyframe':{'x':1}",
                "{'cueId':'c','keyframe':{'x':1},'shapeId':'a'}", "{'cues':{'c':{'a':{'x':1},'b':7}}}"},
               {"{'cues':'x'}", "'cueId':'c','shapeId':7,'keyframe':7",
                "{'cueId':'c','keyframe':{},'shapeId':''}", "{'cues':{'c':{'':{}}}}"},
               {"{'cues':{'c':[1]}}", "'cueId':'c'", unreadable("c", "an object"), "="}});
  expectEdits(
      "retime_cue",
      {{"{'folders':[{'id':'c','kind':'shot'},{'id':'c'}]}", "'cueId':'c','atSeconds':2",
        "{'atSeconds':2.0,'cueId':'c'}", "{'folders':[{'atSeconds':2.0,'id':'c','kind':'shot'},{'id':'c'}]}"},
       {"{'folders':[{'atSeconds':9,'id':'c'}]}", "'cueId':'c','atSeconds':true",
        "{'atSeconds':0.0,'cueId':'c'}", "{'folders':[{'atSeconds':0.0,'id':'c'}]}"},
       {"{'folders':[{'id':'c'},7]}", "'cueId':'c','atSeconds':2", "{'atSeconds':2.0,'cueId':'c'}", "="}});
  const std::pair<const char*, const char*> parents[] = {
      {"null", ",'parentFolderId':null"}, {"'p'", ",'parentFolderId':'p'"}, {"7", ""}};
  for (const auto& [given, stored] : parents) {
    put("s", "{'folders':[]}");
    const auto made = call("create_shot", "'name':'N','color':7,'parentFolderId':" + std::string(given));
    EXPECT_THAT(made, ::testing::MatchesRegex(".'shot':.'id':'[-0-9A-F]{36}','kind':'shot','name':'N'" +
                                              std::string(stored) + ".."));
    EXPECT_EQ(saved(), "{'folders':[" + made.substr(8, made.size() - 9) + "]}");
  }
}

}  // namespace
}  // namespace vorlane
