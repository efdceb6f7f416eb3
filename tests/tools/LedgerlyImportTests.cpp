#include "tools/ToolHarness.h"
#include "tools/ledgerly/LedgerlyToolModule.h"

#include <boost/algorithm/string/replace.hpp>

#include <regex>

namespace vorlane {
namespace {

class LedgerlyImport : public DocumentHarness<LedgerlyQueries> {
 protected:
  LedgerlyImport() : DocumentHarness("categories", "sheetId") {
    module = std::make_shared<LedgerlyToolModule>(queries);
  }
  std::string import(const std::string& arguments) { return call("import_sheet", arguments); }
};

TEST_F(LedgerlyImport, OnlyWhatAnImportKnowsComesThroughAndIsDecoded) {
  const std::string link =
      "{'addedAt':'2026-03-01T12:00:00Z','id':'U','title':'a.example','url':'https://a.example'}";
  // Categories, how many categories and items these are, and the document's categories with U for
  // every UUID.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"7", "'categoriesImported':0,'itemsImported':0", "[]"},
      {"[{'name':'A'},7]", "'categoriesImported':0,'itemsImported':0", "[]"},
      {"[{},{'id':'c','name':'A &amp; B','items':7,'order':3,'expanded':false}]",
       "'categoriesImported':2,'itemsImported':0",
       "[{'id':'U','items':[],'name':'Uncategorized'},{'id':'c','items':[],'name':'A & B'}]"},
      {"[{'id':'c','name':'','items':[{'id':'i'},7]}]", "'categoriesImported':1,'itemsImported':0",
       "[{'id':'c','items':[],'name':''}]"},
      {"[{'id':7,'name':7,'items':[{'id':7,'name':7,'checked':1,'qty':null,'quantity':2,'notes':7,"
       "'tags':['a',7],'links':7,'webLinks':['https://a.example'],'foo':1}]}]",
       "'categoriesImported':1,'itemsImported':1",
       "[{'id':'U','items':[{'checked':false,'id':'U','name':'','qty':null}],'name':'Uncategorized'}]"},
      {"[{'id':'c','name':'C','items':[{'id':'','name':'&lt;n&amp;lt;','checked':true,'quantity':4,"
       "'price':'9','notes':'&quot;','tags':[],'vendor':'','location':'&#39;','webLinks':["
       "'https://a.example','ftp://b']},{'id':'i','qty':2.0,'quantity':4,'price':{'x':1},'notes':'',"
       "'tags':['&gt;','b'],'vendor':'v','location':'','links':['x','x','x','x','x','https://a.example']}]}]",
       "'categoriesImported':1,'itemsImported':2",
       "[{'id':'c','items':[{'checked':true,'id':'','location':''','name':'<n&lt;','notes':'\\'',"
       "'price':'9','qty':4,'tags':[],'webLinks':[" +
           link +
           "]},{'checked':false,'id':'i','name':'',"
           "'price':{'x':1},'qty':2.0,'tags':['>','b'],'vendor':'v'}],'name':'C'}]"}};
  static const std::regex uuid("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}");
  for (const auto& [categories, counts, expected] : cases) {
    EXPECT_EQ(import("'title':'T','categories':" + categories),
              "{" + counts + ",'sheet':{'id':'s','title':'T'}}");
    EXPECT_EQ(std::regex_replace(saved(), uuid, "U"), document(expected));
    await(queries.deleteSheet("s"));
  }
}

TEST_F(LedgerlyImport, ASheetThatIsNotThereIsMadeWhateverTheMode) {
  EXPECT_EQ(import("'mode':'append','title':'A &amp; B','categories':[{'id':'c','name':'C'}]"),
            "{'categoriesImported':1,'itemsImported':0,'sheet':{'id':'s','title':'A & B'}}");
  EXPECT_EQ(inFile("SELECT * FROM ledgerly_sheets"),
            "s|o|A & B|{\"categories\":[{\"id\":\"c\",\"items\":[],\"name\":\"C\"}]}|2026-03-01 12:00:00.000|"
            "2026-03-01 12:00:00.000|-|-|-");
  EXPECT_EQ(newSignals(), 1);
  EXPECT_THAT(import("{'sheetId':'','title':''}"), HasSubstr("'sheet':{'id':'','title':''}"));
  EXPECT_THAT(import("{}"), ::testing::ContainsRegex("'id':'[-0-9A-F]{36}','title':'Untitled'}"));
}

TEST_F(LedgerlyImport, AnExistingSheetIsReplacedOrAddedTo) {
  const std::string old = "{'id':'a','x':1}", added = "{'id':'b','items':[],'name':'B'}",
                    list = "'categories':[{'id':'b','name':'B'}]", edited = "T|.001|.000|9",
                    renamed = "N|.001|.000|9";
  const auto with = [&](const std::string& categories) {
    return "{'categories':[" + categories + "],'k':1}";
  };
  struct Case {
    std::string before, call, after, columns;
    int writes;
  };
  const Case cases[] = {
      {with(old), list, with(added), edited, 1},
      {with(old), "'mode':'other','title':'T'," + list, with(added), edited, 1},
      {with(old), "'mode':'append'," + list, with(old + "," + added), edited, 1},
      {"{'categories':'none','k':1}", "'mode':'append','title':'N'," + list, with(added), renamed, 1},
      {"{}", "'title':'N'", "[]", renamed, 1},
      // What would hide the list, cannot be read or is in the cloud alone is left as it is.
      {"{}", "'mode':'append','title':'N'," + list, "{}", "T|.000|.000|9", 0},
      {"[{},7]", "'mode':'append','title':'N'," + list, "[{},7]", "T|.000|.000|9", 0},
      {" []", "'mode':'append','title':'N'," + list, " []", "T|.000|.000|9", 0}};
  watched = "com.vorlane.store.ledgerly.someone.changed";
  for (const auto& [before, arguments, after, columns, writes] : cases) {
    SCOPED_TRACE(before + arguments);
    const auto row = doubleQuoted(document(before));
    await(queries.save({"s", "someone", "T", row, present, present, present, 9}));
    newSignals();
    present -= std::chrono::hours(1);  // the clock is set back
    EXPECT_THAT(import(arguments), writes == 0
                                       ? HasSubstr(before == " []" ? "not a JSON object" : "ledgerly 409")
                                       : HasSubstr("'title':'" + columns.substr(0, 1)));
    present += std::chrono::hours(1);
    EXPECT_EQ(saved(), document(after));
    EXPECT_EQ(inFile("SELECT title, substr(updated_at, 20), substr(synced_at, 20), remote_id "
                     "FROM ledgerly_sheets"),
              columns);
    EXPECT_EQ(newSignals(), writes);
  }
}

}  // namespace
}  // namespace vorlane
