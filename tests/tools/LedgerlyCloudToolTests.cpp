#include "mcp/MCPServer.h"
#include "support/LogRecorder.h"
#include "tools/ToolBench.h"
#include "tools/ledgerly/LedgerlyToolModule.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/asio/io_context.hpp>

#include <atomic>
#include <span>

namespace vorlane {
namespace {

/// The tools as an assistant calls them, over a real server and store. The service is a
/// script: it keeps what it is sent, and answers the same every time. JSON has single quotes.
class LedgerlyCloudTools : public StoreTest {
 protected:
  LedgerlyCloudTools() { registry->registerModule(module); }

  Task<URLResponse> answerTo(URLRequest request) {
    const bool signedRequest =
        std::ranges::count(request.headers, "Authorization", &std::pair<std::string, std::string>::first) > 0;
    sent.push_back((signedRequest ? "" : "unsigned ") + request.url.substr(request.url.rfind('/') + 1) + " " +
                   quoted(request.body));
    last = request;
    if (duringSend) co_await duringSend();
    if (status == 0) throw TransportFailure(7, "nobody listens there");
    auto body = answer;
    std::ranges::replace(body, '\'', '"');
    co_return URLResponse{.status = status, .body = body};
  }
  Task<std::optional<std::string>> fetchToken() {
    if (duringToken) duringToken();
    co_return token;
  }

  /// The text of the content, or all of it when it is more than that, or the error's message.
  std::string call(const std::string& tool, const std::string& arguments) {
    JSONRPCRequest request{.method = "tools/call",
                           .params = {{"name", "ledgerly_" + tool}, {"arguments", unquoted(arguments)}}};
    const auto response = await(server.handle(std::move(request)));
    if (response.error) return response.error->message;
    const auto& content = response.result->at("content").as_array();
    return quoted(content.size() == 1 ? std::string(content[0].at("text").as_string())
                                      : writeJSON(JSONValue(content)));
  }
  /// What went out since this was last asked.
  std::string requests() { return boost::join(std::exchange(sent, {}), "\n"); }

  /// A sheet "s", in step with the cloud, where its number is 9.
  void putSheet(const std::string& owner = "o", const std::string& data = "{}", const char* id = "s",
                std::optional<std::int64_t> remote = 9) {
    await(queries.save({id, owner, "T", data, present, present, present, remote}));
  }
  std::string row() {
    return quoted(inFile("SELECT data, updated_at = synced_at, push_blocked_at FROM ledgerly_sheets"));
  }

  LedgerlyQueries queries = queriesOn(open());
  std::vector<std::string> sent;
  URLRequest last;
  int status = 200;  // 0: no answer comes
  std::string answer = "{'a':1}";
  std::optional<std::string> token = "secret", user = "o";
  std::atomic<int> epoch = 0;
  std::function<void()> duringToken;
  std::function<Task<>()> duringSend;
  testing::LogRecorder log;
  boost::asio::io_context archive;

  LedgerlyWebClient web{.base = "https://ledgerly.example/",
                        .bearer = [this] { return fetchToken(); },
                        .send = [this](URLRequest request) { return answerTo(std::move(request)); },
                        .currentUser = [this] { return user; }};
  std::shared_ptr<LedgerlyToolModule> module = std::make_shared<LedgerlyToolModule>(
      queries, LedgerlyAttachmentClient{web}, LedgerlyAIListClient{web, log.log()}, archive.get_executor());
  std::shared_ptr<ToolRegistry> registry = std::make_shared<ToolRegistry>();
  MCPServer server{
      registry,
      {.identityForRequest = [](const JSONRPCRequest&) { return Identity{.userID = "o"}; },
       .authorize = [](std::optional<AdminAccessRequirement>, Identity) -> Task<bool> { co_return true; },
       .accountFence = [this](const Identity&) -> AccountFence {
         return [this, since = epoch.load()] { return epoch == since; };
       }}};
};

const std::string changed = "The account changed during this request. Try again from the current account.";
const std::string signedOut = "Sign in through Vorlane before using this tool.";
const std::string notShown =
    "The files were copied on Ledgerly, but this Mac's copy of the sheet could not be refreshed, so it does "
    "not show them. Make further changes to this sheet on the web: an edit made here would upload the older "
    "copy over them.";

TEST_F(LedgerlyCloudTools, TheToolsOfTheCloudAreServedWhereThereAreClients) {
  const auto count = [&](std::optional<LedgerlyAttachmentClient> attachments,
                         std::optional<LedgerlyAIListClient> lists) {
    return LedgerlyToolModule(queries, attachments, lists, archive.get_executor()).tools().size();
  };
  EXPECT_EQ(count({}, {}), 12U);
  EXPECT_EQ(count(LedgerlyAttachmentClient{web}, {}), 16U);
  EXPECT_EQ(count({}, LedgerlyAIListClient{web, log.log()}), 14U);
  const auto tools = module->tools();
  ASSERT_EQ(tools.size(), 18U);
  std::string names;
  for (const auto& tool : std::span(tools).subspan(12)) names += tool.name.substr(9) + " ";
  EXPECT_EQ(names,
            "find_attachments read_attachment search_attachment_text attach_existing search_ai_lists "
            "get_ai_list ");
  // How a list of choices, a bounded list of numbers and an object within a list are shown.
  const auto shown = [&](std::size_t tool, std::string_view property) {
    return quoted(writeJSON(tools[tool].inputSchema.at("properties").at(property)));
  };
  EXPECT_EQ(shown(14, "kinds"),
            "{'items':{'enum':['own','shared','community','featured','share_link'],'type':'string'},"
            "'type':'array'}");
  EXPECT_EQ(shown(13, "pages"),
            "{'description':'For mode \\'pages\\': page numbers, from the outline.',"
            "'items':{'minimum':1,'type':'integer'},'maxItems':8,'type':'array'}");
  EXPECT_THAT(shown(15, "sources"),
              ::testing::AllOf(::testing::EndsWith("'maxItems':20,'minItems':1,'type':'array'}"),
                               HasSubstr("'required':['category','name'],'type':'object'},'ref':")));
}

TEST_F(LedgerlyCloudTools, ARequestCarriesThePersonsAccessAndGoesNowhereElse) {
  const std::pair<const char*, const char*> calls[] = {
      {"find_attachments", "attachments/find"},         {"read_attachment", "attachments/read"},
      {"search_attachment_text", "attachments/search"}, {"attach_existing", "attachments/attach"},
      {"search_ai_lists", "ai-lists/search"},           {"get_ai_list", "ai-lists/get"}};
  for (const auto& [tool, path] : calls) {
    call(tool,
         "{'query':'x','ref':'r','mode':'image','sheetId':'1','id':1,"
         "'sources':[{'ref':'r','itemId':'i'}]}");
    EXPECT_EQ(last.url, std::string("https://ledgerly.example/api/agent/") + path);
    EXPECT_EQ(last.method, "POST");
    EXPECT_GE(last.timeout, std::chrono::seconds(60));  // more for a large body
    EXPECT_EQ(last.silence, std::chrono::seconds(60));
    EXPECT_FALSE(last.followRedirects);
    EXPECT_THAT(last.headers,
                ::testing::UnorderedElementsAre(::testing::Pair("Authorization", "Bearer secret"),
                                                ::testing::Pair("Content-Type", "application/json"),
                                                ::testing::Pair("Accept", "application/json")));
  }
}

TEST_F(LedgerlyCloudTools, WhatTheAssistantGaveIsReadByTypeAndSentOrRefused) {
  const auto refs = [](std::size_t count) {
    std::string list;
    for (std::size_t i = 0; i < count; ++i) list += i == 0 ? "'r'" : ",'r'";
    return "'refs':[" + list + "]";
  };
  // The tool, its arguments, and what is sent; or, without a brace, the refusal.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"find_attachments", "{}", "query is required."},
      {"find_attachments", "{'query':' &nbsp;\\n'}", "query is required."},
      {"find_attachments",
       "{'query':' fx6 &amp; lut\\n','limit':99,'kinds':[],'types':['pdf','x'],"
       "'shareLink':' a&lt;b ','includeShared':'yes','includeCommunity':null,'x':1}",
       "find {'includeCommunity':null,'includeShared':'yes','kinds':[],'limit':99,'query':'fx6 & lut',"
       "'shareLink':'a<b','types':['pdf','x']}"},
      {"find_attachments", "{'query':'q','limit':true,'kinds':['own',7],'types':'pdf','shareLink':' '}",
       "find {'query':'q'}"},
      {"find_attachments", "{'query':'q','limit':2.0}", "find {'limit':2,'query':'q'}"},
      {"find_attachments", "{'query':'q','limit':2.5}", "find {'query':'q'}"},
      {"read_attachment", "{'mode':'image'}", "ref is required."},
      {"read_attachment", "{'ref':' ','mode':'image'}", "ref is required."},
      {"read_attachment", "{'ref':'r','mode':['image']}", "mode is required."},
      {"read_attachment", "{'ref':' a&amp;b ','mode':'&lt;new','query':'&amp;','pages':'1'}",
       "read {'mode':'<new','query':'&','ref':'a&amp;b'}"},
      {"read_attachment", "{'ref':'r','mode':'pages','pages':[3,0,-1,true,'4',2.0,2.5,null,3]}",
       "read {'mode':'pages','pages':[3,2,3],'ref':'r'}"},
      {"read_attachment", "{'ref':'r','mode':'pages','pages':['x']}",
       "read {'mode':'pages','pages':[],'ref':'r'}"},
      {"search_attachment_text", "{'refs':[]}", "query is required."},
      {"search_attachment_text", "{'query':'q','refs':['r',7]}",
       "refs must be refs exactly as ledgerly_find_attachments gave them."},
      {"search_attachment_text", "{'query':'q','refs':'r'}",
       "refs must be refs exactly as ledgerly_find_attachments gave them."},
      {"search_attachment_text", "{'query':'q'," + refs(21) + "}", "Give at most 20 refs in one search."},
      {"search_attachment_text", "{'query':'q','nameQuery':'n','kinds':['own']," + refs(20) + "}",
       "search {'query':'q'," + refs(20) + "}"},
      {"search_attachment_text", "{'query':'q','refs':[' a&amp; ']}",
       "search {'query':'q','refs':[' a&amp; ']}"},
      {"search_attachment_text",
       "{'query':'&lt;','refs':null,'nameQuery':'&amp;','kinds':['own'],'limit':3,'includeCommunity':true}",
       "search {'includeCommunity':true,'limit':3,'query':'<','scope':{'kinds':['own'],'nameQuery':'&'}}"},
      {"search_attachment_text", "{'query':'q','nameQuery':7,'kinds':[7],'limit':'3'}",
       "search {'query':'q','scope':{}}"},
      {"search_ai_lists", "{}", "search {'query':''}"},
      {"search_ai_lists", "{'query':' &lt; ','limit':3}", "search {'limit':3,'query':'<'}"},
      {"search_ai_lists", "{'query':null}", "query must be text."},
      {"search_ai_lists", "{'query':7}", "query must be text."},
      {"get_ai_list", "{'id':'42','maxItems':5}", "get {'id':42,'maxItems':5}"},
      {"get_ai_list", "{'id':7,'maxItems':false}", "get {'id':7}"},
  };
  for (const auto& [tool, arguments, expected] : cases) {
    const bool goesOut = expected.contains('{');
    EXPECT_EQ(call(tool, arguments), goesOut ? "{'a':1}" : expected) << tool << arguments;
    EXPECT_EQ(requests(), goesOut ? expected : "") << tool << arguments;
  }
  for (const auto* id : {"'x'", "'4x'", "'-4'", "''", "true", "4.5", "null", "'99999999999999999999'"})
    EXPECT_EQ(call("get_ai_list", "{'id':" + std::string(id) + "}"),
              "id is required: the id ledgerly_search_ai_lists gave.");
  EXPECT_EQ(requests(), "");
}

TEST_F(LedgerlyCloudTools, AnAnswerThatIsNoneIsToldInWordsForTheAssistant) {
  std::string letters;
  for (int i = 0; i < 250; ++i) letters += "é";
  const std::string step = "POST /api/agent/attachments/find → HTTP ",
                    signIn = "Ledgerly did not accept this sign-in. Sign in again from the Vorlane menu.",
                    busy = "Too many requests. Try again in a few minutes.",
                    noAccess = "MCP access is not turned on for this account.";
  const std::string failures =
      "'failures':[{'name':'a.pdf','error':'gone'},{'error':'odd'},{'name':'b','error':7},'c']";
  const std::tuple<int, std::string, std::string> cases[] = {
      {403, "{'code':'MCP_ACCESS_REQUIRED','error':'x'}", noAccess},
      {401, "{'code':'MCP_ACCESS_REQUIRED'}", noAccess},
      {429, "{'code':'MCP_ACCESS_REQUIRED'}", noAccess},
      {401, "{'code':7,'error':'x'}", signIn},
      {401, "", signIn},
      {429, "{'error':'x'}", busy},
      {429, "<html>", busy},
      {422, "{'error':'Not copied.','entries':2," + failures + "}", "Not copied.\n- a.pdf: gone\n- : odd"},
      {422, "{'error':'Not copied.'," + failures + "}", "Not copied."},
      {422, "{'error':'Not copied.','entries':2,'failures':{}}", "Not copied."},
      {404, "{'error':''}", step + "404 {\"error\":\"\"}"},
      {404, "['error']", step + "404 [\"error\"]"},
      {500, letters, step + "500 " + letters.substr(0, 400)},
      {503, "", step + "503 "},
      {503, "\xff\xfe", step + "503 "},
      {302, "moved", step + "302 moved"},
      {200, "[]", step + "200 the answer was not JSON"},
      {204, "", step + "204 the answer was not JSON"},
      {200, "{'a':", step + "200 the answer was not JSON"},
      {0, "", "nobody listens there"},
  };
  for (const auto& [code, body, text] : cases) {
    status = code;
    answer = body;
    EXPECT_EQ(call("find_attachments", "{'query':'q'}"), text) << code << body;
  }
}

TEST_F(LedgerlyCloudTools, APictureIsShownAndOtherAnswersStayAsTheyAre) {
  const std::pair<const char*, const char*> cases[] = {
      {"{'b':2,'image':{'base64':'QUJD','mimeType':'image/png','w':3},'a':1}",
       "[{'text':'{\\'a\\':1,\\'b\\':2}','type':'text'},"
       "{'data':'QUJD','mimeType':'image/png','type':'image'}]"},
      {"{'image':{'base64':'QUJD','mimeType':7}}",
       "[{'text':'{}','type':'text'},{'data':'QUJD','mimeType':'image/jpeg','type':'image'}]"},
      {"{'image':{'base64':''},'text':'t'}", "{'image':{'base64':''},'text':'t'}"},
      {"{'budgetExhausted':true,'image':'QUJD'}", "{'budgetExhausted':true,'image':'QUJD'}"},
  };
  for (const auto& [given, shown] : cases) {
    answer = given;
    EXPECT_EQ(call("read_attachment", "{'ref':'r','mode':'image'}"), shown);
  }
  // Only the reading tool shows pictures.
  answer = "{'image':{'base64':'QUJD'}}";
  EXPECT_EQ(call("find_attachments", "{'query':'q'}"), answer);
}

TEST_F(LedgerlyCloudTools, WithoutATokenOnlyWhatChangesNothingGoesOut) {
  putSheet();
  token = user = std::nullopt;
  status = 401;
  for (const auto* tool : {"find_attachments", "read_attachment", "search_attachment_text"}) {
    EXPECT_EQ(call(tool, "{'query':'q','ref':'r','mode':'outline'}"),
              "Ledgerly did not accept this sign-in. Sign in again from the Vorlane menu.");
    EXPECT_THAT(requests(), ::testing::StartsWith("unsigned "));
  }
  for (const auto* tool : {"attach_existing", "search_ai_lists", "get_ai_list"})
    EXPECT_EQ(call(tool, "{'sheetId':'s','id':1,'sources':[{'ref':'r','itemId':'i'}]}"), signedOut);
  EXPECT_EQ(requests(), "");
}

TEST_F(LedgerlyCloudTools, ACallNeverGoesOutWithAnotherAccountsToken) {
  const char* arguments =
      "{'query':'q','ref':'r','mode':'outline','id':1,'sheetId':'1','sources':[{'ref':'r','itemId':'i'}]}";
  for (const auto* tool : {"find_attachments", "read_attachment", "search_attachment_text", "attach_existing",
                           "search_ai_lists", "get_ai_list"}) {
    // Told by the fence alone, then by the account alone.
    duringToken = [&] { ++epoch; };
    EXPECT_EQ(call(tool, arguments), changed);
    duringToken = [&] { user = "other"; };
    EXPECT_EQ(call(tool, arguments), changed);
    EXPECT_EQ(requests(), "");
    duringToken = nullptr;
    user = "o";
    duringSend = [&]() -> Task<> { co_return void(++epoch); };
    EXPECT_EQ(call(tool, arguments), changed);
    EXPECT_NE(requests(), "");
    duringSend = nullptr;
  }
}

TEST_F(LedgerlyCloudTools, EverySourceIsCheckedBeforeAnyRequest) {
  putSheet();
  answer = "{'sheet':{'data':{'categories':[]}}}";
  const std::string one = "{'itemId':'i','ref':'r'}", itemless = "Source 2 needs an itemId or a newItem.",
                    nameless = "Source 2: newItem needs a category and a name.",
                    none = "Name at least one source to attach.";
  std::string twenty = one;
  for (int i = 1; i < 20; ++i) twenty += "," + one;
  const std::pair<std::string, std::string> cases[] = {
      {"", none},
      {"7", none},
      {"{" + one, none},
      {one + ",7", none},
      {twenty + "," + one, "Attach at most 20 files in one call."},
      {twenty, "[" + twenty + "]"},
      {one + ",{'ref':7,'itemId':'i'}", "Source 2 needs the ref ledgerly_find_attachments gave."},
      {one + ",{'ref':'r'}", itemless},
      {one + ",{'ref':'r','itemId':' '}", itemless},
      {one + ",{'ref':'r','newItem':'x'}", nameless},
      {one + ",{'ref':'r','newItem':{'category':'c','name':' '}}", nameless},
      {one + ",{'ref':'r','newItem':{'name':'n','subcategory':'s'}}", nameless},
      {"{'ref':' a&amp;b ','name':'&lt;n ','itemId':' &amp;i','newItem':7,'x':1},"
       "{'ref':'r','name':7,'itemId':7,'newItem':{'category':'&lt;c','name':'n','subcategory':' ','x':1}},"
       "{'ref':'r','newItem':{'category':'c','name':'n','subcategory':'&amp;s'}}",
       "[{'itemId':'&i','name':'<n','ref':'a&amp;b'},{'newItem':{'category':'<c','name':'n'},'ref':'r'},"
       "{'newItem':{'category':'c','name':'n','subcategory':'&s'},'ref':'r'}]"},
  };
  for (const auto& [sources, expected] : cases) {
    const bool goesOut = expected.starts_with('[');
    const auto list = sources.starts_with("{{") ? sources.substr(1) : "[" + sources + "]";
    EXPECT_EQ(call("attach_existing", "{'sheetId':' s ','sources':" + list + "}"),
              goesOut ? "{'sheet':null,'sheetId':'s'}" : expected);
    EXPECT_EQ(requests(), goesOut ? "attach {'sheetId':9,'sources':" + expected + "}" : "");
  }
  EXPECT_EQ(call("attach_existing", "{'sheetId':' ','sources':[" + one + "]}"), "sheetId is required.");
}

TEST_F(LedgerlyCloudTools, OnlyASheetInStepWithTheCloudIsAttachedTo) {
  const std::string unsynced = "This sheet has not synced to Ledgerly yet. Try again in a minute.",
                    dirty = "This sheet has changes that have not synced yet. Try again in a minute.";
  putSheet("o", "{}", "made", std::nullopt);
  putSheet("o", "{}", "s", 9);
  putSheet("o", "{}", "77", std::nullopt);
  putSheet("other", "{}", "theirs", 11);
  await(queries.save({"never", "o", "T", "{}", present, present, {}, 12}));
  await(
      queries.save({"edited", "o", "T", "{}", present, present + std::chrono::milliseconds(1), present, 13}));
  answer = "{'a':1,'sheet':{'id':1,'data':{'categories':[]}}}";
  // The id, the number that is sent when one is, and the answer.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"made", "", unsynced},
      {"unknown", "", unsynced},
      {"", "", "sheetId is required."},
      {"never", "", dirty},
      {"edited", "", dirty},
      {"13", "", dirty},  // found by its number
      {"s", "9", "{'a':1,'sheet':null,'sheetId':'s'}"},
      {"9", "9", "{'a':1,'sheet':null,'sheetId':'9'}"},
      {"77", "77", "{'a':1,'sheet':null,'sheetId':'77'}"},
      // What this machine has none of its own of is the cloud's to judge, and nothing here gets stale.
      {"123", "123", "{'a':1,'sheet':null,'sheetId':'123'}"},
      {"theirs", "", unsynced},
      {"11", "11", "{'a':1,'sheet':null,'sheetId':'11'}"},
  };
  for (const auto& [sheetID, number, answered] : cases) {
    EXPECT_EQ(call("attach_existing", "{'sheetId':'" + sheetID + "','sources':[{'ref':'r','itemId':'i'}]}"),
              answered);
    EXPECT_EQ(requests(),
              number.empty() ? "" : "attach {'sheetId':" + number + ",'sources':[{'itemId':'i','ref':'r'}]}");
  }
  EXPECT_EQ(inFile("SELECT id FROM ledgerly_sheets WHERE data <> '{}' ORDER BY id"), "77 s");
}

TEST_F(LedgerlyCloudTools, TheSheetIsRefreshedWithWhatTheCloudAnswered) {
  const auto attach = [&] {
    return call("attach_existing", "{'sheetId':'s','sources':[{'ref':'r','itemId':'i'}]}");
  };
  const std::string done = "{'sheet':null,'sheetId':'s'}",
                    noted = "{'note':'" + notShown + "','sheet':null,'sheetId':'s'}";
  const std::pair<const char*, const char*> answers[] = {
      {"{'sheet':{'data':{'k':1,'categories':[{'id':'c'}]}}}", "{'categories':[{'id':'c'}],'k':1}"},
      {R"({'sheet':{'data':'{\'k\':1,\'categories\':[{}]}'}})", "{'categories':[{}],'k':1}"},
      {"{'sheet':{'data':{'k':1}}}", ""},
      {"{'sheet':{'data':{'categories':null}}}", ""},
      {"{'sheet':{'data':'no JSON'}}", ""},
      {"{'sheet':{'data':'[]'}}", ""},
      {"{'sheet':{'data':7}}", ""},
      {"{'sheet':7}", ""},
      {"{}", ""},
  };
  for (const auto& [given, stored] : answers) {
    putSheet("o", "{\"old\":1}");
    await(queries.markPushBlocked("s", present));
    newSignals();
    answer = given;
    const bool refreshed = *stored != '\0';
    EXPECT_EQ(attach(), refreshed ? done : noted) << given;
    EXPECT_EQ(row(), refreshed ? stored + std::string("|1|-") : "{'old':1}|1|2026-03-01 12:00:00.000")
        << given;
    EXPECT_EQ(newSignals(), refreshed ? 1 : 0);
  }
  // An edit made meanwhile stays, and so does a sheet of which nothing was copied.
  answer = answers[0].first;
  putSheet();
  duringSend = [&] { return queries.mutateDocument("s", [](JSONMap& document) { document["edited"] = 1; }); };
  EXPECT_EQ(attach(), noted);
  EXPECT_EQ(row(), "{'edited':1}|0|-");
  putSheet();
  duringSend = nullptr;
  status = 500;
  EXPECT_EQ(attach(),
            "POST /api/agent/attachments/attach → HTTP 500 {\"sheet\":{\"data\":{\"k\":1,"
            "\"categories\":[{\"id\":\"c\"}]}}}");
  EXPECT_EQ(row(), "{}|1|-");
  // One that is gone cannot be refreshed.
  status = 200;
  duringSend = [&] { return queries.deleteSheet("s"); };
  EXPECT_EQ(attach(), noted);
  EXPECT_EQ(row(), "");
}

TEST_F(LedgerlyCloudTools, WhatWasAttachedIsKeptAlsoWhenTheAccountChangesMeanwhile) {
  answer = "{'sheet':{'data':{'categories':[]}}}";
  const auto attach = [&] {
    putSheet();
    return call("attach_existing", "{'sheetId':'s','sources':[{'ref':'r','itemId':'i'}]}");
  };
  duringToken = [&] { ++epoch; };
  EXPECT_EQ(attach(), changed);
  EXPECT_EQ(requests() + row(), "{}|1|-");
  duringToken = nullptr;
  duringSend = [&]() -> Task<> { co_return void(++epoch); };
  EXPECT_EQ(attach(), changed);
  EXPECT_EQ(row(), "{'categories':[]}|1|-");
  duringSend = nullptr;
  // While the sheet is written: the signal of the refresh is posted within the call.
  putSheet();
  auto observation = signals->observe(watched, [&] {
    if (!row().starts_with("{}")) ++epoch;
  });
  EXPECT_EQ(attach(), changed);
  EXPECT_EQ(row(), "{'categories':[]}|1|-");
}

TEST_F(LedgerlyCloudTools, AnImportedListIsFiledForWhoImportedItOrNotAtAll) {
  const auto import = [&] {
    EXPECT_THAT(call("import_sheet",
                     "{'sheetId':'s','title':'N','request':'w',"
                     "'categories':[{'name':'C','items':[{'name':'n'}]}]}"),
                HasSubstr("'itemsImported':1"));
    EXPECT_EQ(requests(), "");  // the answer does not wait for it
  };
  const auto file = [&] {
    archive.restart();
    archive.poll();
    return requests() + boost::join(log.take(), "\n");
  };
  const std::string failed = "ledgerly: adding the list to the Archive failed: ";
  const std::string filed =
      "record {'categories':[{'items':[{'name':'n'}],'name':'C'}],'name':'N','prompt':'w','sheetId':'s'}";
  import();
  EXPECT_EQ(file(), filed);
  EXPECT_EQ(last.url, "https://ledgerly.example/api/agent/ai-lists/record");
  // The account changes after the call, then while the token is fetched; then nobody is signed in.
  import();
  user = "other";
  EXPECT_EQ(file(), failed + changed);
  user = "o";
  import();
  duringToken = [&] { user = "other"; };
  EXPECT_EQ(file(), failed + changed);
  duringToken = nullptr;
  user = "o";
  import();
  token = std::nullopt;
  EXPECT_EQ(file(), failed + signedOut);
  token = "secret";
  // The service fails: the list stays, and its words fill no log.
  const std::string words(5000, 'x');
  for (const auto& [code, body, text] :
       {std::tuple(0, std::string(), std::string("nobody listens there")),
        {200, "7", "POST /api/agent/ai-lists/record → HTTP 200 the answer was not JSON"},
        {500, "{'error':'" + words + "'}", words.substr(0, 1000)}}) {
    status = code;
    answer = body;
    import();
    EXPECT_EQ(file(), filed + failed + text);
  }
  EXPECT_EQ(inFile("SELECT id, title FROM ledgerly_sheets"), "s|N");
}

}  // namespace
}  // namespace vorlane
