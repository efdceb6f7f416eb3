#include "support/LogRecorder.h"
#include "tools/ToolHarness.h"
#include "tools/ledgerly/LedgerlyToolModule.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/asio/io_context.hpp>

namespace vorlane {
namespace {

/// The tools that work with the service, which is a script: it keeps what it is sent, and
/// answers the same every time.
class LedgerlyCloudTools : public DocumentHarness<LedgerlyQueries> {
 protected:
  LedgerlyCloudTools() : DocumentHarness("categories", "sheetId") {
    module = std::make_shared<LedgerlyToolModule>(
        queries, LedgerlyAttachmentClient{web}, LedgerlyAIListClient{web, log.log()}, archive.get_executor());
  }

  Task<URLResponse> answerTo(URLRequest request) {
    const bool isSigned =
        std::ranges::count(request.headers, "Authorization", &std::pair<std::string, std::string>::first) > 0;
    sent.push_back((isSigned ? "" : "unsigned ") + request.url.substr(request.url.rfind('/') + 1) + " " +
                   quoted(request.body));
    last = request;
    if (duringSend) co_await duringSend();
    if (status == 0) throw TransportFailure(7, "nobody listens there");
    co_return URLResponse{.status = status, .body = doubleQuoted(answer)};
  }
  Task<std::optional<std::string>> fetchToken() {
    if (duringToken) duringToken();
    co_return token;
  }
  /// What went out since this was last asked.
  std::string requests() { return boost::join(std::exchange(sent, {}), "\n"); }
  /// Expects the call to send this; or, where it has no brace, to be refused with it and send nothing.
  void expectSent(const std::string& tool, const std::string& arguments, const std::string& expected) {
    const auto answered = call(tool, arguments);
    const bool goesOut = expected.contains('{');
    EXPECT_EQ(requests(), goesOut ? expected : "") << tool << arguments;
    EXPECT_TRUE(goesOut || answered == "ledgerly 400 " + expected) << tool << arguments << answered;
  }
  /// What is filed once this lets it run, then what was logged of it.
  std::string filed() {
    archive.restart();
    archive.poll();
    return requests() + boost::join(log.take(), "\n");
  }
  /// A sheet of that number in the cloud.
  void putSheet(const std::string& id = "s", std::optional<std::int64_t> number = 9,
                const std::string& owner = "o") {
    await(queries.save({id, owner, "T", R"({"old":1})", present, present, present, number}));
  }

  std::vector<std::string> sent;
  URLRequest last;
  int status = 200;  // 0: no answer comes
  std::string answer = "{'a':1}";
  std::optional<std::string> token = "secret", user = "o";
  std::function<void()> duringToken;
  std::function<Task<>()> duringSend;
  testing::LogRecorder log;
  boost::asio::io_context archive;
  LedgerlyWebClient web{{.base = "https://ledgerly.example/",
                         .send = [this](URLRequest request) { return answerTo(std::move(request)); },
                         .bearer = [this] { return fetchToken(); },
                         .account = std::make_shared<const Account>(
                             Account{[this] { return user; }, [] { return std::int64_t{0}; }})}};
};

/// Arguments that satisfy each of the six tools.
const char* const anyArguments =
    "{'query':'q','ref':'r','mode':'image','id':1,'sheetId':'s','sources':[{'ref':'r','itemId':'i'}]}";
const std::string changed = "The account changed during this request. Try again from the current account.",
                  signedOut = "Sign in through Vorlane before using this tool.",
                  signInAgain = "Ledgerly did not accept this sign-in. Sign in again from the Vorlane menu.";

TEST_F(LedgerlyCloudTools, ACallCarriesThePersonsAccessAndNeverAnothers) {
  putSheet();
  const std::tuple<const char*, const char*, bool> calls[] = {
      {"find_attachments", "attachments/find", true},
      {"read_attachment", "attachments/read", true},
      {"search_attachment_text", "attachments/search", true},
      {"attach_existing", "attachments/attach", false},
      {"search_ai_lists", "ai-lists/search", false},
      {"get_ai_list", "ai-lists/get", false}};
  for (const auto& [tool, path, changesNothing] : calls) {
    call(tool, anyArguments);
    EXPECT_EQ(last.method + " " + last.url, std::string("POST https://ledgerly.example/api/agent/") + path);
    EXPECT_EQ(last.retryOnStaleConnection, changesNothing);
    EXPECT_GE(last.timeout, std::chrono::seconds(60));  // more for a large body
    EXPECT_EQ(last.idleTimeout, std::chrono::seconds(60));
    EXPECT_FALSE(last.followRedirects);
    EXPECT_THAT(last.headers,
                ::testing::UnorderedElementsAre(::testing::Pair("Authorization", "Bearer secret"),
                                                ::testing::Pair("Content-Type", "application/json"),
                                                ::testing::Pair("Accept", "application/json")));
    // Another account is told by the fence alone, then by the account alone.
    requests();
    duringToken = [&] { ++epoch; };
    EXPECT_EQ(call(tool, anyArguments), changed);
    duringToken = [&] { user = "other"; };
    EXPECT_EQ(call(tool, anyArguments), changed);
    EXPECT_EQ(requests(), "");
    // Without a token only what changes nothing goes out.
    duringToken = nullptr;
    token = user = std::nullopt;
    status = 401;
    EXPECT_EQ(call(tool, anyArguments), changesNothing ? signInAgain : signedOut);
    EXPECT_EQ(requests().starts_with("unsigned "), changesNothing);
    token = "secret", user = "o", status = 200;
  }
}

TEST_F(LedgerlyCloudTools, WhatTheAssistantGaveIsReadByTypeAndSentOrRefused) {
  std::string refs = "'refs':['r'";
  for (int i = 1; i < 20; ++i) refs += ",'r'";
  // The tool, its arguments, and what is sent; or, without a brace, the refusal.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"find_attachments", "{'query':' &nbsp;\\n'}", "query is required."},
      {"find_attachments",
       "{'query':' fx6 &amp; lut\\n','limit':99,'kinds':[],'types':['pdf','x'],"
       "'shareLink':' a&lt;b ','includeShared':'yes','includeCommunity':null,'x':1}",
       "find {'includeCommunity':null,'includeShared':'yes','kinds':[],'limit':99,'query':'fx6 & lut',"
       "'shareLink':'a<b','types':['pdf','x']}"},
      {"read_attachment", "{'ref':'r','mode':['image']}", "mode is required."},
      {"read_attachment", "{'ref':' a&amp;b ','mode':'&lt;new','query':'&amp;','pages':'1'}",
       "read {'mode':'<new','query':'&','ref':'a&amp;b'}"},
      {"read_attachment", "{'ref':'r','mode':'pages','pages':[3,0,-1,true,2.0,3]}",
       "read {'mode':'pages','pages':[3,2,3],'ref':'r'}"},
      {"search_attachment_text", "{'query':'q','refs':['r',7]}",
       "refs must be refs exactly as ledgerly_find_attachments gave them."},
      {"search_attachment_text", "{'query':'q'," + refs + ",'r']}", "Give at most 20 refs in one search."},
      {"search_attachment_text", "{'query':'q','nameQuery':'n','kinds':['own']," + refs + "]}",
       "search {'query':'q'," + refs + "]}"},
      {"search_attachment_text",
       "{'query':'&lt;','refs':null,'nameQuery':'&amp;','kinds':['own'],'limit':3,'includeCommunity':true}",
       "search {'includeCommunity':true,'limit':3,'query':'<','scope':{'kinds':['own'],'nameQuery':'&'}}"},
      {"search_ai_lists", "{'query':' &lt; ','limit':3}", "search {'limit':3,'query':'<'}"},
      {"search_ai_lists", "{'query':7}", "query must be text."},
      {"get_ai_list", "{'id':'42','maxItems':5}", "get {'id':42,'maxItems':5}"},
      {"get_ai_list", "{'id':7,'maxItems':false}", "get {'id':7}"},
  };
  for (const auto& [tool, arguments, expected] : cases) expectSent(tool, arguments, expected);
  for (const std::string id : {"'4x'", "'-4'", "''", "true", "'99999999999999999999'"})
    expectSent("get_ai_list", "{'id':" + id + "}", "id is required: the id ledgerly_search_ai_lists gave.");
}

TEST_F(LedgerlyCloudTools, AnAnswerIsPassedOnAPictureShownAndAFailureToldInWords) {
  std::string letters;
  for (int i = 0; i < 250; ++i) letters += "é";
  const std::string step = "POST /api/agent/attachments/find → HTTP ",
                    picture = "{'b':2,'image':{'base64':'QUJD','mimeType':7,'w':3}}",
                    none = "{'budgetExhausted':true,'image':'QUJD'}",
                    failures =
                        "'failures':[{'name':'a.pdf','error':'gone'},{'error':'odd'},{'name':'b','error':7}]";
  const std::tuple<const char*, int, std::string, std::string> cases[] = {
      {"read_attachment", 200, picture,
       "{'_content':[{'text':'{\\'b\\':2}','type':'text'},"
       "{'data':'QUJD','mimeType':'image/jpeg','type':'image'}]}"},
      {"read_attachment", 200, none, none},
      {"read_attachment", 200, "{'image':{'base64':''}}", "{'image':{'base64':''}}"},
      {"find_attachments", 200, picture, picture},
      {"find_attachments", 403, "{'code':'MCP_ACCESS_REQUIRED','error':'x'}",
       "MCP access is not turned on for this account."},
      {"find_attachments", 401, "{'code':7,'error':'x'}", signInAgain},
      {"find_attachments", 429, "{'error':'x'}", "Too many requests. Try again in a few minutes."},
      {"find_attachments", 422, "{'error':'Not copied.','entries':2," + failures + "}",
       "Not copied.\n- a.pdf: gone\n- : odd"},
      {"find_attachments", 422, "{'error':'Not copied.'," + failures + "}", "Not copied."},
      {"find_attachments", 404, "{'error':''}", step + "404 {'error':''}"},
      {"find_attachments", 500, letters, step + "500 " + letters.substr(0, 400)},
      {"find_attachments", 503, "\xff\xfe", step + "503 "},
      {"find_attachments", 204, "", step + "204 the answer was not JSON"},
      {"find_attachments", 0, "", "URLSession 7 nobody listens there"},
  };
  for (const auto& [tool, code, body, text] : cases) {
    status = code;
    answer = body;
    EXPECT_EQ(call(tool, anyArguments), text) << code << body;
  }
}

TEST_F(LedgerlyCloudTools, FilesAreAttachedToASheetInStepWithTheCloudAndEverySourceIsCheckedFirst) {
  const std::string one = "{'itemId':'i','ref':'r'}",
                    unsynced = "This sheet has not synced to Ledgerly yet. Try again in a minute.",
                    dirty = "This sheet has changes that have not synced yet. Try again in a minute.",
                    none = "Name at least one source to attach.";
  putSheet("made", std::nullopt);
  putSheet();
  putSheet("77", std::nullopt);
  putSheet("theirs", 11, "other");
  putSheet("edited", 13);
  await(queries.mutateDocument("edited", [](JSONMap&) {}));
  std::string twenty = one;
  for (int i = 1; i < 20; ++i) twenty += "," + one;
  // The sheet, the sources, and the sheet's number and the sources that are sent, or the refusal.
  // What this machine has none of its own of is the cloud's to judge.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"made", one, unsynced},
      {"unknown", one, unsynced},
      {"theirs", one, unsynced},
      {"edited", one, dirty},
      {"13", one, dirty},
      {" s ", one, "9,'sources':[" + one + "]"},
      {"9", one, "9,'sources':[" + one + "]"},
      {"77", one, "77,'sources':[" + one + "]"},
      {"123", one, "123,'sources':[" + one + "]"},
      {"11", one, "11,'sources':[" + one + "]"},
      {"", one, "sheetId is required."},
      {"s", "", none},
      {"s", one + ",7", none},
      {"s", twenty + "," + one, "Attach at most 20 files in one call."},
      {"s", twenty, "9,'sources':[" + twenty + "]"},
      {"s", one + ",{'ref':7,'itemId':'i'}", "Source 2 needs the ref ledgerly_find_attachments gave."},
      {"s", one + ",{'ref':'r'}", "Source 2 needs an itemId or a newItem."},
      {"s", "{'ref':'r','newItem':{'category':'c','name':' '}}",
       "Source 1: newItem needs a category and a name."},
      {"s", "{'ref':'r','newItem':{'name':'n'}}", "Source 1: newItem needs a category and a name."},
      {"s",
       "{'ref':' a&amp;b ','name':'&lt;n ','itemId':' &amp;i','newItem':7,'x':1},"
       "{'ref':'r','name':7,'itemId':7,'newItem':{'category':'&lt;c','name':'n','subcategory':' ','x':1}},"
       "{'ref':'r','newItem':{'category':'c','name':'n','subcategory':'&amp;s'}}",
       "9,'sources':[{'itemId':'&i','name':'<n','ref':'a&amp;b'},"
       "{'newItem':{'category':'<c','name':'n'},'ref':'r'},"
       "{'newItem':{'category':'c','name':'n','subcategory':'&s'},'ref':'r'}]"},
  };
  answer = "{'sheet':{'data':{'categories':[]}}}";
  for (const auto& [sheet, sources, expected] : cases)
    expectSent("attach_existing", "{'sheetId':'" + sheet + "','sources':[" + sources + "]}",
               expected.contains('{') ? "attach {'sheetId':" + expected + "}" : expected);
  EXPECT_EQ(inFile("SELECT id FROM ledgerly_sheets WHERE data LIKE '%categories%' ORDER BY id"), "77 s");
  EXPECT_EQ(call("attach_existing", "{'sheetId':'11','sources':[" + one + "]}"),
            "{'sheet':null,'sheetId':'11'}");  // here is no copy that got stale
}

TEST_F(LedgerlyCloudTools, TheSheetIsRefreshedWithWhatTheCloudAnswered) {
  const std::string old = "{'old':1}", one = "{'categories':[{'id':'c'}],'k':1}",
                    given = "{'sheet':{'data':" + one + "}}", done = "{'sheet':null,'sheetId':'s'}",
                    noted =
                        "{'note':'The files were copied on Ledgerly, but this Mac's copy of the sheet could "
                        "not be refreshed, so it does not show them. Make further changes to this sheet on "
                        "the web: an edit made here would upload the older copy over them.',"
                        "'sheet':null,'sheetId':'s'}";
  const auto nothing = []() -> Task<> { co_return; };
  const auto edit = [&] { return queries.mutateDocument("s", [](JSONMap& data) { data["edited"] = 1; }); };
  const auto removal = [&] { return queries.deleteSheet("s"); };
  const auto accountChange = [&]() -> Task<> { co_return void(++epoch); };
  struct Case {
    std::string answer;
    std::function<Task<>()> meanwhile;
    std::string told, row;  // its document, whether it is in step
  };
  const Case cases[] = {
      {given, nothing, done, one + "|1"},
      {R"({'sheet':{'data':'{\'k\':1,\'categories\':[{}]}'}})", nothing, done, "{'categories':[{}],'k':1}|1"},
      {"{'sheet':{'data':{'k':1}}}", nothing, noted, old + "|1"},
      {"{'sheet':{'data':'[]'}}", nothing, noted, old + "|1"},
      {"{}", nothing, noted, old + "|1"},
      {given, edit, noted, "{'edited':1,'old':1}|0"},
      {given, removal, noted, ""},
      // The files are copied, and an older copy would be uploaded over them.
      {given, accountChange, changed, one + "|1"},
  };
  const auto row = [&] { return quoted(inFile("SELECT data, updated_at = synced_at FROM ledgerly_sheets")); };
  for (const auto& [answered, meanwhile, told, expected] : cases) {
    SCOPED_TRACE(answered);
    putSheet();
    answer = answered;
    duringSend = meanwhile;
    EXPECT_EQ(call("attach_existing", anyArguments), told);
    EXPECT_EQ(row(), expected);
  }
  putSheet();
  duringSend = nullptr;
  status = 500;
  EXPECT_THAT(call("attach_existing", anyArguments), HasSubstr("attachments/attach → HTTP 500 "));
  EXPECT_EQ(row(), old + "|1");
}

TEST_F(LedgerlyCloudTools, ANewListIsFiledWithTheWordsThatAskedForIt) {
  const std::string list =
      "'request':'a &lt;list&gt;','categories':[{'name':7,'items':[{'name':''},{'id':'i','checked':true,"
      "'name':'n','qty':2,'price':1.5,'notes':'x','tags':['t'],'vendor':'v','links':['https://a.example']},"
      "{'name':'m','qty':true,'price':'9','notes':''}]},{'name':'E'}]";
  const auto entry = [](const std::string& name, const std::string& sheet) {
    return "record {'categories':[{'items':[{'name':'n','notes':'x','price':1.5,'quantity':2},{'name':'m'}],"
           "'name':'Uncategorized'},{'items':[],'name':'E'}],'name':'" +
           name + "','prompt':'a <list>','sheetId':'" + sheet + "'}";
  };
  const auto import = [&](const std::string& arguments) {
    EXPECT_THAT(call("import_sheet", "{" + arguments + "}"), HasSubstr("'itemsImported':"));
    EXPECT_EQ(requests(), "");  // the answer does not wait for it
  };
  const std::pair<std::string, std::string> cases[] = {
      {"'sheetId':'s','title':'N'," + list, entry("N", "s")},
      {"'sheetId':'s','mode':'append'," + list, ""},
      {"'sheetId':'s'," + list, entry("N", "s")},
      // An append that makes the sheet is a new list. Without items there is none.
      {"'sheetId':'t','mode':'append','categories':[{'items':[{}]}]",
       "record {'categories':[{'items':[],'name':'Uncategorized'}],'name':'Untitled','prompt':'',"
       "'sheetId':'t'}"},
      {"'sheetId':'u','request':'x','categories':[{'name':'A'}]", ""}};
  for (const auto& [arguments, expected] : cases) {
    import(arguments);
    EXPECT_EQ(filed(), expected) << arguments;
  }
  putSheet();
  import("'sheetId':'s','title':'M'," + list);
  ++epoch;  // which ends calls, and not the filing of what is stored
  EXPECT_EQ(filed(), entry("M", "9"));
}

TEST_F(LedgerlyCloudTools, AListIsFiledForWhoImportedItOrNotAtAllAndTheReasonIsLogged) {
  const std::string failed = "ledgerly: adding the list to the Archive failed: ",
                    step = "POST /api/agent/ai-lists/record → HTTP ", words(5000, 'x');
  struct Case {
    std::optional<std::string> token, user;
    int status;
    std::string answer, reason;
  };
  const Case cases[] = {
      {"secret", "other", 200, "{}", changed},
      {std::nullopt, std::nullopt, 200, "{}", signedOut},
      {"secret", "o", 0, "", "nobody listens there"},
      {"secret", "o", 200, "7", step + "200 the answer was not JSON"},
      {"secret", "o", 500, "{'error':'" + words + "'}", words.substr(0, 1000)},  // they fill no log
  };
  for (const auto& each : cases) {
    EXPECT_THAT(call("import_sheet", "'categories':[{'items':[{'name':'n'}]}]"), HasSubstr("'id':'s'"));
    token = each.token, user = each.user, status = each.status, answer = each.answer;
    const auto record = filed();
    EXPECT_EQ(record.starts_with("record {"), user == "o");
    EXPECT_THAT(record, ::testing::EndsWith(failed + each.reason));
    token = "secret", user = "o";
  }
}

}  // namespace
}  // namespace vorlane
