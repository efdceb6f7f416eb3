#include "base/JSONArguments.h"
#include "tools/ToolHarness.h"
#include "tools/ledgerly/LedgerlyToolModule.h"

namespace vorlane {
namespace {

class LedgerlyTools : public DocumentHarness<LedgerlyQueries> {
 protected:
  LedgerlyTools() : DocumentHarness("categories", "sheetId") { serve(attachments, lists); }
  void serve(std::optional<LedgerlyAttachmentClient> files, std::optional<LedgerlyAIListClient> archive) {
    module = std::make_shared<LedgerlyToolModule>(queries, files, archive, runtime.concurrent());
  }

  const LedgerlyAttachmentClient attachments;
  const LedgerlyAIListClient lists;
};

TEST_F(LedgerlyTools, AreShownInOrderAndThoseOfTheCloudWhereThereAreClients) {
  expectShown("ledgerly.txt");
  serve(attachments, {});
  EXPECT_EQ(module->tools().size(), 16U);
  serve({}, lists);
  EXPECT_EQ(module->tools().size(), 14U);
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
  put("stub", "{'id':'x','title':'y','k':1}");
  put("mixed", "[{'id':'a','items':[]},7]");
  put("s",
      "[{'id':'a','name':'A','items':[{'id':'1'}]},{'name':5,'items':[{'id':'2','categoryId':'z'}]},"
      "{'id':'b','items':[{'id':'3'},null]},{'id':'a','items':[{'id':'4'}]}]");
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"get_sheet", "{'sheetId':'stub'}", "{'id':'stub','k':1,'title':'T'}"},
      {"get_sheet", "{'sheetId':'no'}", "ledgerly 404 sheet no not found"},
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
  const std::string item = "{'checked':false,'id':'i','name':''}",
                    full = "{'checked':false,'id':'i','name':'n','notes':'&','qty':'two'}",
                    refusal = " that is not a list of objects; nothing was added";
  expectEdits(
      "add_item",
      {{"{}", "'categoryId':'c','itemId':'i'", "{'item':" + item + "}",
        "[{'id':'c','items':[" + item + "],'name':'Uncategorized'}]"},
       {"{'categories':null}", "'categoryId':'','categoryName':'&lt;A','itemId':'','name':'&lt;x'",
        "{'item':{'checked':false,'id':'','name':'<x'}}",
        "[{'id':'','items':[{'checked':false,'id':'','name':'<x'}],'name':'<A'}]"},
       // A name looks nothing up: a second category of that name is made.
       {"[{'id':'c','name':'C'}]", "'categoryId':'d','categoryName':'C','itemId':'i','notes':7,'links':7",
        "{'item':" + item + "}", "[{'id':'c','name':'C'},{'id':'d','items':[" + item + "],'name':'C'}]"},
       {"[{'id':'c','items':[{'x':1}]},{'id':'c'}]",
        "'categoryId':'c','itemId':'i','name':'n','notes':'&amp;','qty':'two'", "{'item':" + full + "}",
        "[{'id':'c','items':[{'x':1}," + full + "]},{'id':'c'}]"},
       {"{'categories':[{'id':'c'}],'k':1}", "'categoryId':'c','itemId':'i','notes':''",
        "{'item':" + item + "}", "{'categories':[{'id':'c','items':[" + item + "]}],'k':1}"},
       // What cannot be read as a list would be lost or would hide the item.
       {"[{'id':'c'},7]", "'categoryId':'c'",
        "ledgerly 409 the sheet holds something under 'categories'" + refusal, "="},
       {"[{'id':'c','items':'none'}]", "'categoryId':'c'",
        "ledgerly 409 the sheet holds something under 'items'" + refusal, "="}});
  put("s", "[]");
  call("add_item", "'links':['bad','https://a.example']");
  call("add_item", "'name':'n'");
  const auto categories = parseJSONMap(queries.fetch("s")->data).at("categories").as_array();
  ASSERT_EQ(categories.size(), 2U);  // each time a new "Uncategorized"
  EXPECT_EQ(categories[1].at("id").as_string().size(), 36U);
  EXPECT_EQ(categories[0].at("items").at(0).at("webLinks").at(0).at("title").as_string(), "a.example");
}

TEST_F(LedgerlyTools, ItemsAreEditedByTheirId) {
  const std::string rest = "{'id':'2'}]},{'items':[7,{'id':'2'}]},{'items':[{'id':'2','name':'second'}]}]",
                    two = "[{'id':'a','items':[{'checked':'yes','id':'1'}," + rest,
                    done = "[{'id':'a','items':[{'checked':true,'id':'1'}," + rest;
  expectEdits("update_item",
              {{"{}", "'itemId':'1','patch':{'name':'n'}", "{'item':{}}", "="},
               {two, "'itemId':'none','patch':7", "{'item':{}}", "="},
               {two, "'itemId':'1','patch':{'checked':true}", "{'item':{'checked':true,'id':'1'}}", done},
               {"[{'items':[{'id':'1','tags':['a'],'o':{'x':1}}]}]",
                "'itemId':'1','patch':{'id':'9','tags':[],'o':{'y':'&lt;'},'vendor':'&lt;','price':null}",
                "{'item':{'id':'1','o':{'y':'&lt;'},'price':null,'tags':[],'vendor':'<'}}",
                "[{'items':[{'id':'1','o':{'y':'&lt;'},'price':null,'tags':[],'vendor':'<'}]}]"},
               {"[{'items':[{'id':'1','webLinks':[{'url':'HTTPS://A.example'},'kept']}]}]",
                "'itemId':'1','patch':{'links':['https://a.EXAMPLE','ftp://b']}",
                "{'item':{'id':'1','webLinks':[{'url':'HTTPS://A.example'},'kept']}}", "="}});
  expectEdits("delete_item",
              {{"{}", "'itemId':'1'", "{'deleted':'1'}", "="},
               {two, "'itemId':'2'", "{'deleted':'2'}",
                "[{'id':'a','items':[{'checked':'yes','id':'1'}]},{'items':[7,{'id':'2'}]},{'items':[]}]"}});
  expectEdits("toggle_check",
              {{"{}", "'itemId':'1'", "{'checked':false,'itemId':'1'}", "="},
               {two, "'itemId':'1'", "{'checked':true,'itemId':'1'}", done},
               {"[{'items':[{'checked':true,'id':'1'}]}]", "'itemId':'1'", "{'checked':false,'itemId':'1'}",
                "[{'items':[{'checked':false,'id':'1'}]}]"}});
}

// What would make a whole sheet of a stub would take the place of the sheet that the cloud has.
TEST_F(LedgerlyTools, AnEditOfAStubFindsNothingAndOneThatWouldFillItIsRefused) {
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"add_item",
       "ledgerly 409 only the title of sheet 7 is on this computer: its contents are in the cloud, and an "
       "edit here would replace them. Nothing was changed.",
       false},
      {"update_item", "{'item':{}}", true},
      {"delete_item", "{'deleted':'1'}", true},
      {"toggle_check", "{'checked':false,'itemId':'1'}", true},
      {"delete_category", "ledgerly 409 no category matched", true},
      {"rename_category", "ledgerly 404 no category matched", true},
  };
  for (const auto& [tool, answer, moved] : cases) {
    await(queries.mergeRemoteMetadata("7", "o", "Cloud", present));
    for (int again = 0; again < 2; ++again)
      EXPECT_EQ(call(tool, "{'sheetId':'7','itemId':'1','newName':'N','patch':{'name':'N'}}"), answer);
    EXPECT_EQ(inFile("SELECT data, updated_at > synced_at FROM ledgerly_sheets"), moved ? "{}|1" : "{}|0");
    EXPECT_EQ(call(tool, "{'sheetId':'no','newName':'N'}"), "ledgerly 404 sheet no not found") << tool;
    await(queries.deleteSheet("7"));
  }
}

TEST_F(LedgerlyTools, CategoriesAreFoundRemovedAndRenamed) {
  const std::string a = "{'id':'a','items':[{'id':'1'},{'id':'2'}],'name':' Caméra &amp; Co'}",
                    b = "{'id':'b','name':'B','x':1}", two = "[" + a + "," + b + "]",
                    none = "ledgerly 409 no category matched";
  const auto refusal = [](int count) {
    return "ledgerly 409 category holds " + std::to_string(count) +
           " item(s) — pass deleteItems: true to remove them along with it";
  };
  expectEdits(
      "delete_category",
      {{two, "'x':1", none, "="},
       {"[{'x':1}]", "'categoryId':'z','categoryName':''", none, "="},
       {two, "'categoryId':'a','deleteItems':1", refusal(2), "="},
       {two, "'categoryId':'z','categoryName':'\\tCAMÉRA & CO '", refusal(2), "="},
       {"[{'id':'m','items':[7]}]", "'categoryId':'m'", refusal(1), "="},
       {two, "'categoryId':'b','categoryName':'CAMÉRA & CO'",
        "{'deleted':{'id':'b','itemsRemoved':0,'name':'B'}}", "[" + a + "]"},
       {"[{'id':'','name':'x'}," + a + "]",
        "'categoryId':'','categoryName':'caméra &amp; co','deleteItems':true",
        "{'deleted':{'id':'a','itemsRemoved':2,'name':' Caméra &amp; Co'}}", "[{'id':'','name':'x'}]"},
       {"[{'name':'n'}]", "'categoryName':'N'", "{'deleted':{'id':'','itemsRemoved':0,'name':'n'}}", "[]"}});
  expectEdits("rename_category",
              {{two, "'categoryId':'z','newName':'N'", "ledgerly 404 no category matched", "="},
               {two, "'categoryName':'b','newName':' &lt;N&gt; '",
                "{'category':{'id':'b','name':'<N>','previousName':'B'}}",
                "[" + a + ",{'id':'b','name':'<N>','x':1}]"}});
  for (const std::string blank : {"' &nbsp;\\n'", "7"})  // which is told before the sheet is looked for
    EXPECT_EQ(call("rename_category", "{'sheetId':'no','newName':" + blank + "}"),
              "ledgerly 400 newName is required");
  EXPECT_EQ(call("rename_category", "{'sheetId':'no','newName':'n'}"), "ledgerly 404 sheet no not found");
}

}  // namespace
}  // namespace vorlane
