#include "mcp/MCPRequestContext.h"
#include "tools/ToolBench.h"
#include "tools/ledgerly/LedgerlyToolModule.h"

#include <boost/algorithm/string/replace.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <chrono>
#include <regex>

namespace vorlane {
namespace {

/// The import over a real store. What it files waits until `filed` lets it run.
class LedgerlyImport : public ToolBench {
 protected:
  std::string import(const std::string& arguments) { return answer(module, "import_sheet", arguments); }
  /// What came to the archive since this was last asked, one beside the other.
  std::string filed() {
    archive.restart();
    archive.poll();
    return quoted(std::exchange(archived, {}));
  }
  /// The document's text, with U for every UUID.
  std::string saved(const std::string& id) {
    static const std::regex uuid("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}");
    return std::regex_replace(quoted(queries.fetch(id).value().data), uuid, "U");
  }
  std::string columns() {
    return inFile("SELECT title, updated_at, synced_at, remote_id FROM ledgerly_sheets WHERE id = 's'");
  }

  LedgerlyQueries queries = queriesOn(open());
  boost::asio::io_context archive;
  std::string archived;
  RecordList recordList = [this](std::string ownerID, JSONMap list) -> Task<> {
    EXPECT_EQ(ownerID, "o");  // who asked, whoever owns the sheet
    archived += writeJSON(list);
    co_return;
  };
  LedgerlyToolModule module{queries, {}, {recordList, archive.get_executor()}};
};

TEST_F(LedgerlyImport, OnlyWhatAnImportKnowsComesThroughAndIsDecoded) {
  const std::string link =
      "{'addedAt':'2026-03-01T12:00:00Z','id':'U','title':'a.example','url':'https://a.example'}";
  // Categories, how many categories and items these are, and the document's categories.
  const std::tuple<std::string, const char*, std::string> cases[] = {
      {"7", "0 0", "[]"},
      {"[{'name':'A'},7]", "0 0", "[]"},
      {"[{},{'id':'c','name':'A &amp; B','items':7,'order':3,'expanded':false}]", "2 0",
       "[{'id':'U','items':[],'name':'Uncategorized'},{'id':'c','items':[],'name':'A & B'}]"},
      {"[{'id':'c','name':'','items':[{'id':'i'},7]}]", "1 0", "[{'id':'c','items':[],'name':''}]"},
      {"[{'id':7,'name':7,'items':[{'id':7,'name':7,'checked':1,'qty':null,'quantity':2,'notes':7,"
       "'tags':['a',7],'links':7,'webLinks':['https://a.example'],'foo':1}]}]",
       "1 1",
       "[{'id':'U','items':[{'checked':false,'id':'U','name':'','qty':null}],'name':'Uncategorized'}]"},
      {"[{'id':'c','name':'C','items':[{'id':'','name':'&lt;n&amp;lt;','checked':true,'quantity':4,"
       "'price':'9','notes':'&quot;','tags':[],'vendor':'','location':'&#39;','webLinks':["
       "'https://a.example','ftp://b']},{'id':'i','qty':2.0,'quantity':4,'price':{'x':1},'notes':'',"
       "'tags':['&gt;','b'],'vendor':'v','location':'','links':['x','x','x','x','x','https://a.example']}]}]",
       "1 2",
       "[{'id':'c','items':[{'checked':true,'id':'','location':'\\'','name':'<n&lt;','notes':'\\\\'',"
       "'price':'9','qty':4,'tags':[],'webLinks':[" +
           link +
           "]},{'checked':false,'id':'i','name':'',"
           "'price':{'x':1},'qty':2.0,'tags':['>','b'],'vendor':'v'}],'name':'C'}]"}};
  for (auto [categories, counts, document] : cases) {
    const auto done = unquoted(import("{'sheetId':'s','title':'T','categories':" + categories + "}"));
    EXPECT_EQ(std::to_string(done.at("categoriesImported").to_number<int>()) + " " +
                  std::to_string(done.at("itemsImported").to_number<int>()),
              counts)
        << categories;
    boost::replace_all(document, "\\'", "'");
    EXPECT_EQ(saved("s"), "{'categories':" + document + "}");
    await(queries.deleteSheet("s"));
  }
}

TEST_F(LedgerlyImport, ASheetThatIsNotThereIsMadeWhateverTheMode) {
  const auto one = "'categories':[{'id':'c','name':'C','items':[{'id':'i','name':'n'}]}]}";
  EXPECT_EQ(import("{'sheetId':'s','mode':'append','title':'A &amp; B'," + std::string(one)),
            "{'categoriesImported':1,'itemsImported':1,'sheet':{'id':'s','title':'A & B'}}");
  EXPECT_EQ(
      inFile("SELECT * FROM ledgerly_sheets"),
      "s|o|A & B|{\"categories\":[{\"id\":\"c\",\"items\":[{\"checked\":false,\"id\":\"i\",\"name\":\"n\"}],"
      "\"name\":\"C\"}]}|2026-03-01 12:00:00.000|2026-03-01 12:00:00.000|-|-|-");
  EXPECT_EQ(newSignals(), 1);
  EXPECT_EQ(import("{'sheetId':'','title':''," + std::string(one)),
            "{'categoriesImported':1,'itemsImported':1,'sheet':{'id':'','title':''}}");
  EXPECT_THAT(import("{}"), ::testing::ContainsRegex(
                                "'itemsImported':0,'sheet':.'id':'[-0-9A-F]{36}','title':'Untitled'}"));
}

TEST_F(LedgerlyImport, AnExistingSheetIsReplacedOrAddedTo) {
  const std::string old = "{'id':'a','x':1}", added = "{'id':'b','items':[],'name':'B'}",
                    list = "'sheetId':'s','categories':[{'id':'b','name':'B'}]}";
  struct Case {
    std::string before, call, after, columns;
    int saves;
  };
  const std::string clean = "|2026-03-01 12:00:00.000|9", edited = "T|2026-03-01 12:00:00.001" + clean,
                    renamed = "N|2026-03-01 12:00:00.002" + clean;
  const auto document = [&](const std::string& categories) {
    return "{'categories':[" + categories + "],'k':1}";
  };
  const Case cases[] = {
      {document(old), "{" + list, document(added), edited, 1},
      {document(old), "{'mode':'other','title':'T'," + list, document(added), edited, 1},
      {document(old), "{'mode':'append'," + list, document(old + "," + added), edited, 1},
      {"{'categories':'none','k':1}", "{'mode':'append','title':'N'," + list, document(added), renamed, 2},
      {"{}", "{'title':'N','sheetId':'s'}", "{'categories':[]}", renamed, 2}};
  for (const auto& [before, call, after, columnsAfter, saves] : cases) {
    await(queries.save({"s", "someone", "T", writeJSON(unquoted(before)), present, present, present, 9}));
    const auto seen = signals->posts("com.vorlane.store.ledgerly.someone.changed");
    EXPECT_EQ(unquoted(import(call)).at("sheet").at("title").as_string(), columnsAfter.substr(0, 1)) << call;
    EXPECT_EQ(saved("s"), after) << call;
    EXPECT_EQ(columns(), columnsAfter) << call;
    EXPECT_EQ(signals->posts("com.vorlane.store.ledgerly.someone.changed") - seen, saves) << call;
  }
  filed();
  // What would hide the list, or cannot be read, is left as it is, and nothing is filed.
  const std::pair<const char*, const char*> refusals[] = {
      {"{'categories':[{},7]}",
       "ledgerly 409 the sheet holds something under 'categories' that is not a list of objects; nothing was "
       "added"},
      {"[]", "SnapshotCodec 1 snapshot is not a JSON object"}};
  for (auto [before, refusal] : refusals) {
    auto data = std::string(before);
    std::ranges::replace(data, '\'', '"');
    await(queries.save({"s", "o", "T", data, present, present}));
    EXPECT_EQ(
        quoted(import("{'mode':'append','title':'N','sheetId':'s','categories':[{'items':[{'name':'n'}]}]}")),
        refusal);
    EXPECT_EQ(columns() + saved("s"), "T|2026-03-01 12:00:00.000|-|-" + std::string(before));
  }
  EXPECT_EQ(filed(), "");
}

TEST_F(LedgerlyImport, ARenameLeavesWhatOthersWriteAlone) {
  await(queries.save({"s", "o", "T", "{}", present, present}));
  await(queries.markPushed("s", 9, present));
  present -= std::chrono::hours(1);  // the clock is set back
  newSignals();
  await(queries.rename("s", "N"));
  EXPECT_EQ(columns(), "N|2026-03-01 12:00:00.001|2026-03-01 12:00:00.000|9");
  await(queries.rename("none", "N"));
  EXPECT_EQ(newSignals(), 1);
}

TEST_F(LedgerlyImport, ANewListIsFiledWithTheWordsThatAskedForIt) {
  const std::string list =
      "'request':'a &lt;list&gt;','categories':[{'name':7,'items':[{'name':''},{'id':'i','checked':true,"
      "'name':'n','qty':2,'price':1.5,'notes':'x','tags':['t'],'vendor':'v','links':['https://a.example']},"
      "{'name':'m','qty':true,'price':'9','notes':''}]},{'name':'E'}]}";
  const auto entry = [](const std::string& name, const std::string& sheet) {
    return "{'categories':[{'items':[{'name':'n','notes':'x','price':1.5,'quantity':2},{'name':'m'}],"
           "'name':'Uncategorized'},{'items':[],'name':'E'}],'name':'" +
           name + "','prompt':'a <list>','sheetId':'" + sheet + "'}";
  };
  EXPECT_THAT(import("{'sheetId':'s','title':'N'," + list), ::testing::HasSubstr("'itemsImported':3"));
  EXPECT_EQ(archived, "");  // the answer did not wait for it
  EXPECT_EQ(filed(), entry("N", "s"));
  EXPECT_THAT(import("{'sheetId':'s','mode':'append'," + list), ::testing::HasSubstr("'itemsImported':3"));
  EXPECT_EQ(filed(), "");
  import("{'sheetId':'s'," + list);
  EXPECT_EQ(filed(), entry("N", "s"));
  await(queries.markPushed("s", 123, present));
  import("{'sheetId':'s','title':'M'," + list);
  EXPECT_EQ(filed(), entry("M", "123"));
  // An append that makes the sheet is a new list. Without items there is none.
  import("{'sheetId':'t','mode':'append','categories':[{'items':[{}]}]}");
  EXPECT_EQ(
      filed(),
      "{'categories':[{'items':[],'name':'Uncategorized'}],'name':'Untitled','prompt':'','sheetId':'t'}");
  import("{'sheetId':'u','request':'x','categories':[{'name':'A'}]}");
  EXPECT_EQ(filed(), "");
}

TEST_F(LedgerlyImport, FilingOutlivesTheCallAndIsNotUnderItsFence) {
  std::promise<void> mayFile, ended;
  std::vector<bool> fenced;
  const RecordList slow = [&](std::string, JSONMap) -> Task<> {
    const auto executor = co_await boost::asio::this_coro::executor;
    fenced.push_back(static_cast<bool>(MCPRequestContext::currentFence()));
    EXPECT_EQ(mayFile.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    co_await boost::asio::post(executor, boost::asio::use_awaitable);
    fenced.push_back(static_cast<bool>(MCPRequestContext::currentFence()));
    ended.set_value();
    throw Failure("the archive is away");
  };
  const LedgerlyToolModule filing(queries, {}, {slow, runtime.concurrent()});
  const auto tool = filing.tools().back();
  auto call = [&]() -> Task<JSONMap> {
    return MCPRequestContext::run(
        [] { return true; },
        [&]() -> Task<JSONMap> {
          auto answer =
              co_await tool.handler(unquoted("{'categories':[{'items':[{'name':'n'}]}]}"), {.userID = "o"});
          EXPECT_TRUE(MCPRequestContext::currentFence());
          co_return answer;
        });
  };
  EXPECT_EQ(await(call()).at("itemsImported").to_number<int>(), 1);
  mayFile.set_value();
  ended.get_future().wait();
  EXPECT_EQ(fenced, (std::vector<bool>{false, false}));
}

TEST_F(LedgerlyImport, TwentyThousandItemsLandInOneCall) {
  JSONArray items(20'000,
                  JSONMap{{"name", "Lens &amp; case"}, {"qty", 2}, {"links", {"https://a.example/lens"}}});
  const auto arguments = writeJSON(
      JSONMap{{"sheetId", "s"}, {"categories", {JSONMap{{"name", "C"}, {"items", std::move(items)}}}}});
  EXPECT_EQ(import(arguments),
            "{'categoriesImported':1,'itemsImported':20000,'sheet':{'id':'s','title':'Untitled'}}");
  std::set<std::string> ids;
  const auto document = parseJSONMap(queries.fetch("s")->data);
  for (const auto& item : document.at("categories").at(0).at("items").as_array())
    ids.emplace(item.at("id").as_string());
  EXPECT_EQ(ids.size(), 20'000U);
}

}  // namespace
}  // namespace vorlane
