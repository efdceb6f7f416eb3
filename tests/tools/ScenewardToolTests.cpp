#include "ScenewardToolBench.h"
#include "base/Digest.h"
#include "base/JsonArguments.h"
#include "store/ScenewardSceneSeed.h"
#include "tools/sceneward/ShapeOperations.h"

#include <boost/algorithm/string/replace.hpp>

namespace vorlane {
namespace {

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

}  // namespace
}  // namespace vorlane
