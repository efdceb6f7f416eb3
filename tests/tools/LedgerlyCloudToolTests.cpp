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

/// Arguments that satisfy each of the six tools.
const char* const anyArguments =
    "{'query':'q','ref':'r','mode':'image','id':1,'sheetId':'s','sources':[{'ref':'r','itemId':'i'}]}";
const std::string changed = "The account changed during this request. Try again from the current account.";
const std::string signedOut = "Sign in through Vorlane before using this tool.";
const std::string signInAgain = "Ledgerly did not accept this sign-in. Sign in again from the Vorlane menu.";
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
  // How a bounded list of numbers and an object within a list are shown.
  EXPECT_EQ(quoted(writeJSON(tools[13].inputSchema.at("properties").at("pages"))),
            "{'description':'For mode \\'pages\\': page numbers, from the outline.',"
            "'items':{'minimum':1,'type':'integer'},'maxItems':8,'type':'array'}");
  EXPECT_THAT(quoted(writeJSON(tools[15].inputSchema.at("properties").at("sources"))),
              ::testing::AllOf(::testing::EndsWith("'maxItems':20,'minItems':1,'type':'array'}"),
                               HasSubstr("'required':['category','name'],'type':'object'},'ref':")));
}

TEST_F(LedgerlyCloudTools, ACallCarriesThePersonsAccessAndNeverAnothers) {
  putSheet();
  const std::tuple<const char*, const char*, bool> calls[] = {
      {"find_attachments", "attachments/find", true},
      {"read_attachment", "attachments/read", true},
      {"search_attachment_text", "attachments/search", true},
      {"attach_existing", "attachments/attach", false},
      {"search_ai_lists", "ai-lists/search", false},
      {"get_ai_list", "ai-lists/get", false}};
  for (const auto& [tool, path, alsoUnsigned] : calls) {
    call(tool, anyArguments);
    EXPECT_EQ(last.url, std::string("https://ledgerly.example/api/agent/") + path);
    EXPECT_EQ(last.method, "POST");
    EXPECT_GE(last.timeout, std::chrono::seconds(60));  // more for a large body
    EXPECT_EQ(last.silence, std::chrono::seconds(60));
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
    duringToken = nullptr;
    user = "o";
    duringSend = [&]() -> Task<> { co_return void(++epoch); };
    EXPECT_EQ(call(tool, anyArguments), changed);
    EXPECT_NE(requests(), "");
    duringSend = nullptr;
    // Without a token only what changes nothing goes out.
    token = user = std::nullopt;
    status = 401;
    EXPECT_EQ(call(tool, anyArguments), alsoUnsigned ? signInAgain : signedOut);
    EXPECT_EQ(requests().starts_with("unsigned "), alsoUnsigned);
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
      {"read_attachment", "{'ref':'r','mode':'pages','pages':[3,0,-1,true,'4',2.0,2.5,null,3]}",
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
  for (const auto& [tool, arguments, expected] : cases) {
    const bool goesOut = expected.contains('{');
    EXPECT_EQ(call(tool, arguments), goesOut ? "{'a':1}" : expected) << tool << arguments;
    EXPECT_EQ(requests(), goesOut ? expected : "") << tool << arguments;
  }
  for (const auto* id : {"'4x'", "'-4'", "''", "true", "4.5", "'99999999999999999999'"})
    EXPECT_EQ(call("get_ai_list", "{'id':" + std::string(id) + "}"),
              "id is required: the id ledgerly_search_ai_lists gave.");
  EXPECT_EQ(requests(), "");
}

TEST_F(LedgerlyCloudTools, AnAnswerThatIsNoneIsToldInWordsForTheAssistant) {
  std::string letters;
  for (int i = 0; i < 250; ++i) letters += "é";
  const std::string step = "POST /api/agent/attachments/find → HTTP ",
                    busy = "Too many requests. Try again in a few minutes.",
                    noAccess = "MCP access is not turned on for this account.";
  const std::string failures =
      "'failures':[{'name':'a.pdf','error':'gone'},{'error':'odd'},{'name':'b','error':7},'c']";
  const std::tuple<int, std::string, std::string> cases[] = {
      {403, "{'code':'MCP_ACCESS_REQUIRED','error':'x'}", noAccess},
      {401, "{'code':7,'error':'x'}", signInAgain},
      {429, "{'error':'x'}", busy},
      {422, "{'error':'Not copied.','entries':2," + failures + "}", "Not copied.\n- a.pdf: gone\n- : odd"},
      {404, "{'error':''}", step + "404 {\"error\":\"\"}"},
      {500, letters, step + "500 " + letters.substr(0, 400)},
      {503, "\xff\xfe", step + "503 "},
      {204, "", step + "204 the answer was not JSON"},
      {0, "", "nobody listens there"},
  };
  for (const auto& [code, body, text] : cases) {
    status = code;
    answer = body;
    EXPECT_EQ(call("find_attachments", "{'query':'q'}"), text) << code << body;
  }
}

TEST_F(LedgerlyCloudTools, APictureIsShownByTheReadingToolAndOtherAnswersStayAsTheyAre) {
  const std::string picture = "{'b':2,'image':{'base64':'QUJD','mimeType':7,'w':3}}",
                    none = "{'budgetExhausted':true,'image':'QUJD'}";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"read_attachment", picture,
       "[{'text':'{\\'b\\':2}','type':'text'},{'data':'QUJD','mimeType':'image/jpeg','type':'image'}]"},
      {"read_attachment", none, none},
      {"find_attachments", picture, picture},
  };
  for (const auto& [tool, given, shown] : cases) {
    answer = given;
    EXPECT_EQ(call(tool, anyArguments), shown);
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
      {one + ",7", none},
      {twenty + "," + one, "Attach at most 20 files in one call."},
      {twenty, "[" + twenty + "]"},
      {one + ",{'ref':7,'itemId':'i'}", "Source 2 needs the ref ledgerly_find_attachments gave."},
      {one + ",{'ref':'r'}", itemless},
      {one + ",{'ref':'r','newItem':{'category':'c','name':' '}}", nameless},
      {"{'ref':' a&amp;b ','name':'&lt;n ','itemId':' &amp;i','newItem':7,'x':1},"
       "{'ref':'r','name':7,'itemId':7,'newItem':{'category':'&lt;c','name':'n','subcategory':' ','x':1}},"
       "{'ref':'r','newItem':{'category':'c','name':'n','subcategory':'&amp;s'}}",
       "[{'itemId':'&i','name':'<n','ref':'a&amp;b'},{'newItem':{'category':'<c','name':'n'},'ref':'r'},"
       "{'newItem':{'category':'c','name':'n','subcategory':'&s'},'ref':'r'}]"},
  };
  for (const auto& [sources, expected] : cases) {
    const bool goesOut = expected.starts_with('[');
    EXPECT_EQ(call("attach_existing", "{'sheetId':' s ','sources':[" + sources + "]}"),
              goesOut ? "{'sheet':null,'sheetId':'s'}" : expected);
    EXPECT_EQ(requests(), goesOut ? "attach {'sheetId':9,'sources':" + expected + "}" : "");
  }
}

TEST_F(LedgerlyCloudTools, OnlyASheetInStepWithTheCloudIsAttachedTo) {
  const std::string unsynced = "This sheet has not synced to Ledgerly yet. Try again in a minute.",
                    dirty = "This sheet has changes that have not synced yet. Try again in a minute.";
  putSheet("o", "{}", "made", std::nullopt);
  putSheet();
  putSheet("o", "{}", "77", std::nullopt);
  putSheet("other", "{}", "theirs", 11);
  await(
      queries.save({"edited", "o", "T", "{}", present, present + std::chrono::milliseconds(1), present, 13}));
  answer = "{'sheet':{'id':1,'data':{'categories':[]}}}";
  // The id, and the number that is sent or the refusal. What this machine has none of its own of
  // is the cloud's to judge, and nothing here gets stale.
  const std::pair<std::string, std::string> cases[] = {{"made", unsynced},   {"unknown", unsynced},
                                                       {"theirs", unsynced}, {"edited", dirty},
                                                       {"13", dirty},        {"s", "9"},
                                                       {"9", "9"},           {"77", "77"},
                                                       {"123", "123"},       {"11", "11"}};
  for (const auto& [sheetID, expected] : cases) {
    const bool goesOut = expected.size() < 4;
    EXPECT_EQ(call("attach_existing", "{'sheetId':'" + sheetID + "','sources':[{'ref':'r','itemId':'i'}]}"),
              goesOut ? "{'sheet':null,'sheetId':'" + sheetID + "'}" : expected);
    EXPECT_EQ(requests(),
              goesOut ? "attach {'sheetId':" + expected + ",'sources':[{'itemId':'i','ref':'r'}]}" : "");
  }
  EXPECT_EQ(inFile("SELECT id FROM ledgerly_sheets WHERE data <> '{}' ORDER BY id"), "77 s");
}

TEST_F(LedgerlyCloudTools, TheSheetIsRefreshedWithWhatTheCloudAnswered) {
  const auto attach = [&] { return call("attach_existing", anyArguments); };
  const std::string done = "{'sheet':null,'sheetId':'s'}", kept = "{'categories':[{'id':'c'}],'k':1}|1|-",
                    noted = "{'note':'" + notShown + "','sheet':null,'sheetId':'s'}";
  const std::pair<const char*, const char*> answers[] = {
      {"{'sheet':{'data':{'k':1,'categories':[{'id':'c'}]}}}", "{'categories':[{'id':'c'}],'k':1}"},
      {R"({'sheet':{'data':'{\'k\':1,\'categories\':[{}]}'}})", "{'categories':[{}],'k':1}"},
      {"{'sheet':{'data':{'k':1}}}", ""},
      {"{'sheet':{'data':'[]'}}", ""},
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
  // What was attached is kept also when the account changes meanwhile: during the request, then
  // while the sheet is written, as the signal of the refresh is posted within the call.
  putSheet();
  duringSend = [&]() -> Task<> { co_return void(++epoch); };
  EXPECT_EQ(attach(), changed);
  EXPECT_EQ(row(), kept);
  duringSend = nullptr;
  putSheet();
  auto observation = signals->observe(watched, [&] {
    if (!row().starts_with("{}")) ++epoch;
  });
  EXPECT_EQ(attach(), changed);
  EXPECT_EQ(row(), kept);
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
  EXPECT_THAT(last.url, ::testing::EndsWith("/api/agent/ai-lists/record"));
  // The account changes after the call, then while the token is fetched; then nobody is signed in.
  const std::tuple<std::optional<std::string>, bool, std::string> who[] = {
      {"secret", false, changed}, {"secret", true, changed}, {std::nullopt, true, signedOut}};
  for (const auto& [held, stays, text] : who) {
    import();
    token = held;
    if (!stays) user = "other";
    if (stays && held) duringToken = [&] { user = "other"; };
    EXPECT_EQ(file(), failed + text);
    token = "secret", user = "o", duringToken = nullptr;
  }
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
