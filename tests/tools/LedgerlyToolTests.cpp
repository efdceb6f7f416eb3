#include "base/JsonArguments.h"
#include "tools/ToolBench.h"
#include "tools/ledgerly/LedgerlyToolModule.h"

#include <boost/algorithm/string/replace.hpp>

namespace vorlane {
namespace {

/// The tools over a real store. JSON is written with single quotes; a text that starts with
/// '[' is a document with these categories, and one of arguments goes beside the sheet "s".
class LedgerlyTools : public ToolBench {
 public:
  static std::string document(std::string text) {
    if (text.starts_with("[")) text = "{'categories':" + text + "}";
    return text;
  }
  void put(const std::string& id, const std::string& text, const std::string& owner = "o") {
    auto data = document(text);
    std::ranges::replace(data, '\'', '"');
    await(queries.save({id, owner, "T", data, present, present}));
  }
  std::string call(const std::string& tool, std::string arguments) {
    if (!arguments.starts_with("{")) arguments = "{'sheetId':'s'," + arguments + "}";
    return answer(module, tool, arguments);
  }
  std::string saved() { return quoted(queries.fetch("s").value().data); }

  LedgerlyQueries queries = queriesOn(open());
  LedgerlyToolModule module{queries};
};

TEST_F(LedgerlyTools, TheListIsInOrderAndTakesFurtherSetsAtItsEnd) {
  const LedgerlyToolModule more(queries, {[](const LedgerlyQueries&) {
                                  return std::vector<ToolDefinition>{{.name = "ledgerly_more"}};
                                }});
  EXPECT_EQ(more.toolNamespace(), "ledgerly");
  std::string list;
  for (const auto& tool : more.tools())
    list += tool.name.substr(9) + " " + quoted(writeJSON(tool.inputSchema)) + "\n";
  boost::replace_all(list, "{'type':'string'}", "STR");
  boost::replace_all(list, ",'type':'object'}", " OBJ");
  EXPECT_EQ(
      list,
      "list_sheets {'properties':{} OBJ\n"
      "get_sheet {'properties':{'sheetId':STR},'required':['sheetId'] OBJ\n"
      "list_categories {'properties':{'sheetId':STR},'required':['sheetId'] OBJ\n"
      "list_items {'properties':{'categoryId':STR,'sheetId':STR},'required':['sheetId'] OBJ\n"
      "create_sheet {'properties':{'sheetId':STR,'title':STR} OBJ\n"
      "add_item {'properties':{'categoryId':STR,'categoryName':STR,'itemId':STR,'links':{'description':"
      "'Reference links: the page the item came from, or a Google search address for it when "
      "there is none. Never an invented address.','items':{'properties':{'title':STR,'url':STR},"
      "'required':['url'] OBJ,'type':'array'},'name':STR,'notes':{'description':'The item's note: "
      "plain text or HTML, shown under the item in every view.','type':'string'},"
      "'qty':{'type':'number'},'sheetId':STR},'required':['sheetId','name'] OBJ\n"
      "update_item {'properties':{'itemId':STR,'patch':{'type':'object'},'sheetId':STR},"
      "'required':['sheetId','itemId','patch'] OBJ\n"
      "delete_item {'properties':{'itemId':STR,'sheetId':STR},'required':['sheetId','itemId'] OBJ\n"
      "toggle_check {'properties':{'itemId':STR,'sheetId':STR},'required':['sheetId','itemId'] OBJ\n"
      "delete_category {'properties':{'categoryId':STR,'categoryName':STR,"
      "'deleteItems':{'type':'boolean'},'sheetId':STR},'required':['sheetId'] OBJ\n"
      "rename_category {'properties':{'categoryId':STR,'categoryName':STR,'newName':STR,"
      "'sheetId':STR},'required':['sheetId','newName'] OBJ\n"
      "import_sheet {'properties':{'categories':{'items':{'properties':{'id':STR,'items':{'items':"
      "{'properties':{'checked':{'type':'boolean'},'id':STR,'links':{'items':{'properties':{'title':STR,"
      "'url':STR},'required':['url'] OBJ,'type':'array'},'location':STR,'name':STR,'notes':STR,"
      "'price':{'type':'number'},'qty':{'type':'number'},'tags':{'items':STR,'type':'array'},"
      "'vendor':STR},'required':['name'] OBJ,'type':'array'},'name':STR},'required':['name'] OBJ,"
      "'type':'array'},'mode':{'enum':['replace','append'],'type':'string'},'request':{'description':"
      "'The person's request in their own words, recorded with the list in their Archive.',"
      "'type':'string'},'sheetId':STR,'title':STR},'required':['categories'] OBJ\n"
      "more {}\n");
}

TEST_F(LedgerlyTools, SheetsAreListedForTheirOwnerWithoutOpeningThem) {
  put("stub", "{}");
  put("foreign", "{}", "other");
  present += std::chrono::milliseconds(1999);
  put("broken", "no JSON");
  EXPECT_EQ(call("list_sheets", "{}"),
            "{'sheets':[{'id':'broken','title':'T','updatedAt':'2026-03-01T12:00:01Z'},"
            "{'id':'stub','title':'T','updatedAt':'2026-03-01T12:00:00Z'}]}");
}

TEST_F(LedgerlyTools, ReadingAnswersAsTheDocumentStands) {
  put("stub", "{}");
  put("list", " []");
  put("mixed", "[{'id':'a','items':[]},7]");
  put("s",
      "{'id':'x','title':'y','k':1,'categories':[{'id':'a','name':'A','items':[{'id':'1'}]},"
      "{'name':5,'items':[{'id':'2','categoryId':'z'}]},{'id':'b','items':[{'id':'3'},null]},"
      "{'id':'a','items':[{'id':'4'}]}]}");
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"get_sheet", "{'sheetId':'stub'}", "{'id':'stub','title':'T'}"},
      {"get_sheet", "{'sheetId':'no'}", "ledgerly 404 sheet no not found"},
      {"get_sheet", "{'sheetId':7}", "ledgerly 404 sheet  not found"},
      {"get_sheet", "{'sheetId':'list'}", "SnapshotCodec 1 snapshot is not a JSON object"},
      {"get_sheet", "{'sheetId':'s'}",
       "{'categories':[{'id':'a','items':[{'id':'1'}],'name':'A'},{'items':[{'categoryId':'z','id':'2'}],"
       "'name':5},{'id':'b','items':[{'id':'3'},null]},{'id':'a','items':[{'id':'4'}]}],'id':'s','k':1,'"
       "title':'T'}"},
      {"list_categories", "{'sheetId':'no'}", "{'categories':[]}"},
      {"list_categories", "{'sheetId':'mixed'}", "{'categories':[],'sheetId':'mixed'}"},
      {"list_categories", "{'sheetId':'s'}",
       "{'categories':[{'id':'a','name':'A'},{'id':'','name':5},{'id':'b','name':''},{'id':'a','name':''}],"
       "'sheetId':'s'}"},
      {"list_items", "{'sheetId':'no'}", "{'items':[]}"},
      {"list_items", "{'sheetId':'stub'}", "{'items':[],'sheetId':'stub'}"},
      {"list_items", "'categoryId':7",
       "{'items':[{'categoryId':'a','id':'1'},{'categoryId':'','id':'2'},{'categoryId':'a','id':'4'}],"
       "'sheetId':'s'}"},
      {"list_items", "'categoryId':''", "{'items':[{'categoryId':'','id':'2'}],'sheetId':'s'}"},
  };
  for (const auto& [tool, arguments, answer] : cases)
    EXPECT_EQ(call(tool, arguments), answer) << tool << arguments;
  EXPECT_EQ(queries.fetch("s")->updatedAt, present);
}

TEST_F(LedgerlyTools, ASheetIsMadeOrOverwrittenWhole) {
  const auto columns = "SELECT owner_id, title, data, remote_id, synced_at FROM ledgerly_sheets";
  EXPECT_EQ(call("create_sheet", "'title':'A &amp;amp; B'"), "{'sheet':{'id':'s','title':'A &amp; B'}}");
  EXPECT_EQ(inFile(columns), "o|A &amp; B|{\"categories\":[]}|-|-");
  await(queries.save({"s", "o", "T", "{}", present, present, present, 9}));
  EXPECT_EQ(call("create_sheet", "'title':7"), "{'sheet':{'id':'s','title':'Untitled'}}");
  EXPECT_EQ(inFile(columns), "o|Untitled|{\"categories\":[]}|-|-");
  EXPECT_EQ(call("create_sheet", "{'sheetId':'','title':''}"), "{'sheet':{'id':'','title':''}}");
  EXPECT_THAT(call("create_sheet", "{}"), ::testing::ContainsRegex("'[-0-9A-F]{36}','title':'Untitled'"));
}

TEST_F(LedgerlyTools, AnItemIsAddedToTheCategoryOfThatIdOrToANewOne) {
  const Edit edits[] = {
      {"{}", "add_item", "'categoryId':'c','itemId':'i'", "{'item':{'checked':false,'id':'i','name':''}}",
       "[{'id':'c','items':[{'checked':false,'id':'i','name':''}],'name':'Uncategorized'}]"},
      {"{'categories':null}", "add_item", "'categoryId':'','categoryName':'&lt;A','itemId':'','name':'&lt;x'",
       "{'item':{'checked':false,'id':'','name':'<x'}}",
       "[{'id':'','items':[{'checked':false,'id':'','name':'<x'}],'name':'<A'}]"},
      // A name looks nothing up: a second category of that name is made.
      {"[{'id':'c','name':'C'}]", "add_item",
       "'categoryId':'d','categoryName':'C','itemId':'i','qty':'two','notes':7,'links':7",
       "{'item':{'checked':false,'id':'i','name':'','qty':'two'}}",
       "[{'id':'c','name':'C'},{'id':'d','items':[{'checked':false,'id':'i','name':'','qty':'two'}],'name':'"
       "C'}]"},
      {"[{'id':'c','items':[{'x':1}]},{'id':'c'}]", "add_item",
       "'categoryId':'c','itemId':'i','name':'n','notes':'&amp;','qty':2",
       "{'item':{'checked':false,'id':'i','name':'n','notes':'&','qty':2}}",
       "[{'id':'c','items':[{'x':1},{'checked':false,'id':'i','name':'n','notes':'&','qty':2}]},{'id':'c'}]"},
      {"{'categories':[{'id':'c'}],'k':1}", "add_item", "'categoryId':'c','itemId':'i','notes':''",
       "{'item':{'checked':false,'id':'i','name':''}}",
       "{'categories':[{'id':'c','items':[{'checked':false,'id':'i','name':''}]}],'k':1}"},
  };
  for (const auto& edit : edits) expectEdit(edit);
  // What cannot be read as a list would be lost or would hide the item.
  for (const auto& [key, before] :
       {std::pair("categories", "[{'id':'c'},7]"), {"items", "[{'id':'c','items':'none'}]"}}) {
    put("s", before);
    EXPECT_EQ(call("add_item", "'categoryId':'c'"),
              "ledgerly 409 the sheet holds something under \"" + std::string(key) +
                  "\" that is not a list of objects; nothing was added");
    EXPECT_EQ(saved(), document(before));
  }
  EXPECT_EQ(call("add_item", "{'name':'n'}"), "ledgerly 404 sheet  not found");
  put("s", "[]");
  call("add_item", "'links':['bad','https://a.example']");
  call("add_item", "'name':'n'");
  const auto categories = parseJSONMap(queries.fetch("s")->data).at("categories").as_array();
  ASSERT_EQ(categories.size(), 2U);  // each time a new "Uncategorized"
  EXPECT_EQ(categories[1].at("id").as_string().size(), 36U);
  EXPECT_EQ(categories[0].at("items").at(0).at("webLinks").at(0).at("title").as_string(), "a.example");
}

TEST_F(LedgerlyTools, ItemsAreEditedByTheirId) {
  const std::string rest = "{'id':'2'}]},{'items':[7,{'id':'2'}]},{'items':[{'id':'2','name':'second'}]}]";
  const auto two = "[{'id':'a','items':[{'checked':'yes','id':'1'}," + rest;
  const auto done = "[{'id':'a','items':[{'checked':true,'id':'1'}," + rest;
  const Edit edits[] = {
      {"{}", "update_item", "'itemId':'1','patch':{'name':'n'}", "{'item':{}}", "="},
      {two, "update_item", "'itemId':'none','patch':7", "{'item':{}}", "="},
      {two, "update_item", "'itemId':'1','patch':{'checked':true}", "{'item':{'checked':true,'id':'1'}}",
       done},
      {"[{'items':[{'id':'1','tags':['a'],'o':{'x':1}}]}]", "update_item",
       "'itemId':'1','patch':{'id':'9','tags':[],'o':{'y':'&lt;'},'vendor':'&lt;','price':null}",
       "{'item':{'id':'1','o':{'y':'&lt;'},'price':null,'tags':[],'vendor':'<'}}",
       "[{'items':[{'id':'1','o':{'y':'&lt;'},'price':null,'tags':[],'vendor':'<'}]}]"},
      {"[{'items':[{'id':'1','webLinks':[{'url':'HTTPS://A.example'},'kept']}]}]", "update_item",
       "'itemId':'1','patch':{'links':['https://a.EXAMPLE','ftp://b']}",
       "{'item':{'id':'1','webLinks':[{'url':'HTTPS://A.example'},'kept']}}", "="},
      {"{}", "delete_item", "'itemId':'1'", "{'deleted':'1'}", "="},
      {two, "delete_item", "'itemId':'2'", "{'deleted':'2'}",
       "[{'id':'a','items':[{'checked':'yes','id':'1'}]},{'items':[7,{'id':'2'}]},{'items':[]}]"},
      {"{}", "toggle_check", "'itemId':'1'", "{'checked':false,'itemId':'1'}", "="},
      {two, "toggle_check", "'itemId':'1'", "{'checked':true,'itemId':'1'}", done},
      {"[{'items':[{'checked':true,'id':'1'}]}]", "toggle_check", "'itemId':'1'",
       "{'checked':false,'itemId':'1'}", "[{'items':[{'checked':false,'id':'1'}]}]"},
  };
  for (const auto& edit : edits) expectEdit(edit);
  for (const char* tool : {"update_item", "delete_item", "toggle_check", "delete_category"})
    EXPECT_EQ(call(tool, "{'sheetId':'no'}"), "ledgerly 404 sheet no not found") << tool;
}

TEST_F(LedgerlyTools, CategoriesAreFoundRemovedAndRenamed) {
  const std::string a = "{'id':'a','items':[{'id':'1'},{'id':'2'}],'name':' Caméra &amp; Co'}",
                    b = "{'id':'b','name':'B','x':1}", two = "[" + a + "," + b + "]";
  const auto none = "ledgerly 409 no category matched";
  const auto refusal =
      "ledgerly 409 category holds 2 item(s) — pass deleteItems: true to remove them along with it";
  const Edit edits[] = {
      {two, "delete_category", "'x':1", none, "="},
      {two, "delete_category", "'categoryId':'z','categoryName':'z'", none, "="},
      {two, "delete_category", "'categoryId':'a'", refusal, "="},
      {two, "delete_category", "'categoryId':'a','deleteItems':1", refusal, "="},
      {two, "delete_category", "'categoryId':'z','categoryName':'\\tCAMÉRA & CO '", refusal, "="},
      {two, "delete_category", "'categoryId':'b','categoryName':'CAMÉRA & CO'",
       "{'deleted':{'id':'b','itemsRemoved':0,'name':'B'}}", "[" + a + "]"},
      {two, "delete_category", "'categoryId':'','categoryName':'caméra &amp; co','deleteItems':true",
       "{'deleted':{'id':'a','itemsRemoved':2,'name':' Caméra &amp; Co'}}", "[" + b + "]"},
      {"[{'name':'n'}]", "delete_category", "'categoryName':'N'",
       "{'deleted':{'id':'','itemsRemoved':0,'name':'n'}}", "[]"},
      {"[{'id':'m','items':[{'id':'1'},7]}]", "delete_category", "'categoryId':'m'", refusal, "="},
      {two, "rename_category", "'categoryId':'z','newName':'N'", "ledgerly 404 no category matched", "="},
      {two, "rename_category", "'categoryName':'b','newName':' &lt;N&gt; '",
       "{'category':{'id':'b','name':'<N>','previousName':'B'}}",
       "[" + a + ",{'id':'b','name':'<N>','x':1}]"},
  };
  for (const auto& edit : edits) expectEdit(edit);
  put("s", two);
  for (const std::string blank : {"''", "' \\u00a0\\n'", "'&nbsp;'", "7"})
    EXPECT_EQ(call("rename_category", "'newName':" + blank), "ledgerly 400 newName is required");
  EXPECT_EQ(call("rename_category", "{'sheetId':'no','newName':' '}"), "ledgerly 400 newName is required");
  EXPECT_EQ(call("rename_category", "{'sheetId':'no','newName':'n'}"), "ledgerly 404 sheet no not found");
  EXPECT_EQ(queries.fetch("s")->updatedAt, present);
}

}  // namespace
}  // namespace vorlane
