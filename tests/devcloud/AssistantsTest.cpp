#include "base/Digest.h"
#include "devcloud/CloudFixture.h"
#include "devcloud/SampleFiles.h"

namespace vorlane::devcloud {
namespace {

class AssistantsTest : public CloudFixture {
 protected:
  Reply post(const std::string& path, const std::string& body) {
    return sendAs(token, {"POST", "/api/agent/" + path, body});
  }
};

TEST_F(AssistantsTest, OnlyAnAccountWithAccessIsServed) {
  const std::string body = R"({"query":"","ref":"x","mode":"outline","id":1,"sheetId":1,"sources":[]})";
  for (const std::string path :
       {"attachments/find", "attachments/read", "attachments/search", "attachments/attach", "ai-lists/search",
        "ai-lists/get", "ai-lists/record"}) {
    EXPECT_EQ(send({"POST", "/api/agent/" + path, body}).status, 401) << path;
    control("POST", "people", R"({"sub":"auth0|demo","mcpAccess":false})");
    const Reply refused = post(path, body);
    EXPECT_EQ(refused.status, 403) << path;
    EXPECT_EQ(refused.at("code"), "MCP_ACCESS_REQUIRED");
    EXPECT_FALSE(refused.at("error").empty());
    control("POST", "people", R"({"sub":"auth0|demo","mcpAccess":true})");
    EXPECT_EQ(post(path, "[]").status, 400) << path;
  }
}

TEST_F(AssistantsTest, AttachmentsAreFoundByTheWordsOfTheirNamesAsFarAsThePersonAgreed) {
  const std::string attachments = "attachments/auth0%7Cdemo";
  control("POST", attachments,
          R"({"name":"rig.jpg","type":"image","kind":"shared","list":"Grip","base64":"AA=="})");
  control("POST", attachments,
          R"({"name":"Rig page","url":"https://x.test","kind":"community","item":"Rig"})");
  control("POST", attachments, R"({"name":"Rig list","kind":"share_link","shareLink":"abc","text":"rig"})");
  control("POST", attachments,
          R"({"name":"mine.pdf","ref":"a&amp;b","type":"pdf","item":"Rig","pages":["One"]})");
  cloud.putPerson({.sub = "other", .mcpAccess = true});
  cloud.putAttachment({.owner = "other", .name = "rig of another"});
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {R"("query":"FX6")", {"lut-notes.txt", "fx6-quick-guide.pdf"}},
      {R"("query":"guide fx6 camera")", {"fx6-quick-guide.pdf"}},
      {R"("query":"rig")", {"mine.pdf"}},
      {R"("query":"rig","includeShared":true)", {"rig.jpg", "mine.pdf"}},
      {R"("query":"rig","includeCommunity":true)", {"Rig page", "mine.pdf"}},
      {R"("query":"rig","includeCommunity":true,"shareLink":"abc")", {"Rig page", "Rig list", "mine.pdf"}},
      {R"("query":"rig","shareLink":"abc","kinds":["share_link"])", {}},
      {R"("query":"rig","includeShared":true,"kinds":["shared"])", {"rig.jpg"}},
      {R"("query":"camera","types":["image","text"],"limit":1)", {"lut-notes.txt"}},
      {R"("query":"nothing of the kind")", {}},
  };
  for (const auto& [body, names] : cases) {
    const Reply reply = post("attachments/find", "{" + body + "}");
    ASSERT_EQ(reply.status, 200) << reply.body;
    for (std::size_t i = 0; i <= names.size(); ++i) {
      EXPECT_EQ(reply.at("hits/" + std::to_string(i) + "/name"), i < names.size() ? names[i] : "") << body;
    }
  }
  EXPECT_EQ(post("attachments/find", R"({"query":"one rig"})").at("hits/0"), "")
      << "contents are not looked at";
  EXPECT_EQ(
      post("attachments/find", R"({"query":"mine"})").at("hits/0"),
      R"({"category":"","item":"Rig","kind":"own","list":"","name":"mine.pdf","ref":"a&amp;b","type":"pdf"})");
  for (int i = 0; i < 30; ++i) cloud.putAttachment({.owner = demo, .name = "many " + std::to_string(i)});
  EXPECT_NE(post("attachments/find", R"({"query":"many"})").at("hits/11"), "");
  EXPECT_EQ(post("attachments/find", R"({"query":"many"})").at("hits/12"), "");
  EXPECT_NE(post("attachments/find", R"({"query":"many","limit":99})").at("hits/24"), "");
  EXPECT_EQ(post("attachments/find", R"({"query":"many","limit":99})").at("hits/25"), "");
  EXPECT_EQ(post("attachments/find", R"({"query":"x","kinds":["odd"]})").at("field"), "kinds");
  EXPECT_EQ(control("POST", attachments, R"({"name":"x","type":"odd"})").at("field"), "type");
}

TEST_F(AssistantsTest, AnAttachmentIsReadInEachModeThatItsKindHas) {
  const std::tuple<std::string, int, std::string, std::string> cases[] = {
      {R"("ref":"sample-pdf","mode":"outline")", 200, "pageCount", "2"},
      {R"("ref":"sample-pdf","mode":"outline")", 200, "pages/1", R"({"line":"Frame rates","page":2})"},
      {R"("ref":"sample-pdf","mode":"search","query":"cropped FRAMES")", 200, "passages",
       R"([{"page":2,"text":"Above 60 frames per second the image is cropped by ten percent."}])"},
      {R"("ref":"sample-pdf","mode":"pages","pages":[2])", 200, "pages/0/page", "2"},
      {R"("ref":"sample-text","mode":"pages","pages":[1])", 200, "pages/0/text",
       sampleAttachments()[0].bytes},
      {R"("ref":"sample-image","mode":"image")", 200, "image",
       R"({"base64":")" + base64Encoded(samplePNG()) + R"(","mimeType":"image/png"})"},
      {R"("ref":"sample-pdf","mode":"pages","pages":[3])", 422, "error", "page 3 is beyond the last, 2"},
      {R"("ref":"sample-pdf","mode":"image")", 422, "error", "fx6-quick-guide.pdf is no picture"},
      {R"("ref":"sample-pdf","mode":"pages","pages":[1,1,1,1,1,1,1,1,1])", 400, "field", "pages"},
      {R"("ref":"sample-pdf","mode":"skim")", 400, "field", "mode"},
      {R"("ref":"sample-pdf","mode":"search")", 400, "field", "query"},
      {R"("ref":"att-77","mode":"outline")", 404, "error", "Attachment not found"},
  };
  for (const auto& [body, status, path, value] : cases) {
    const Reply reply = post("attachments/read", "{" + body + "}");
    EXPECT_EQ(reply.status, status) << body;
    EXPECT_EQ(reply.at(path), value) << body;
  }
}

TEST_F(AssistantsTest, TheTextOfManyAttachmentsIsSearchedAtOnce) {
  const std::tuple<std::string, int, std::string, std::string> cases[] = {
      {R"("query":"setup slot","scope":{})", 200, "passages/0/name", "lut-notes.txt"},
      {R"("query":"frames slot second","scope":{})", 200, "passages/0/page", "2"},
      {R"("query":"fx6","scope":{"nameQuery":"guide"})", 200, "passages/0/text", "FX6 quick guide"},
      {R"("query":"fx6","scope":{"nameQuery":"guide"})", 200, "passages/1", ""},
      {R"("query":"fx6","scope":{"kinds":["shared"]})", 200, "passages", "[]"},
      {R"("query":"fx6","refs":["sample-text"])", 200, "passages/0/ref", "sample-text"},
      {R"("query":"fx6","refs":["sample-text","nothing"])", 404, "error", "Attachment not found"},
      {R"("query":"fx6")", 400, "field", "scope"},
  };
  for (const auto& [body, status, path, value] : cases) {
    const Reply reply = post("attachments/search", "{" + body + "}");
    EXPECT_EQ(reply.status, status) << body;
    EXPECT_EQ(reply.at(path), value) << body;
  }
}

TEST_F(AssistantsTest, AttachingCopiesAllOrNothing) {
  const JSONMap data =
      parseJSONMap(R"({"categories":[{"id":"C","name":"Cam","items":[{"id":"I","name":"Body"}],
      "subcategories":[{"id":"S","name":"Sub","items":[{"id":"J","name":"Lens"},{"id":"K","name":"Body"}]}]}]})");
  const Sheet sheet = cloud.putSheet({.owner = demo, .name = "Kit", .data = data});
  cloud.putAttachment(
      {.ref = "theirs", .owner = demo, .name = "t.txt", .kind = "community", .list = "Theirs"});
  // One of the refs that copies would be given.
  cloud.putAttachment({.ref = "att-4", .owner = demo, .name = "4.txt"});
  const std::string start = R"({"sheetId":)" + std::to_string(sheet.id) + R"(,"sources":[)";
  const std::size_t known = cloud.attachments(demo).size();
  const std::tuple<std::string, int, std::string, std::string> refused[] = {
      {R"({"ref":"sample-pdf","name":"g","itemId":"I"},{"ref":"odd","name":"o","itemId":"X"})", 422,
       "failures", R"([{"error":"There is no such attachment.","name":"o"}])"},
      {R"({"ref":"sample-pdf","name":"g","itemId":"X"})", 422, "failures/0/error",
       R"(There is no item "X" in this sheet.)"},
      {R"({"ref":"sample-pdf","name":"g","itemId":"Body"})", 422, "entries/0/attached", "false"},
      {R"({"ref":"sample-pdf","name":"g"})", 400, "field", "sources[0].itemId"},
      {R"({"ref":"sample-pdf","newItem":{"name":"n"}})", 400, "field", "sources[0].newItem.category"},
      {R"({"ref":"sample-pdf","itemId":"I","newItem":{"category":"c","name":"n"}})", 400, "field",
       "sources[0].newItem"},
      {"", 400, "field", "sources"},
  };
  for (const auto& [sources, status, path, value] : refused) {
    const Reply reply = post("attachments/attach", start + sources + "]}");
    EXPECT_EQ(reply.status, status) << sources;
    EXPECT_EQ(reply.at(path), value) << reply.body;
  }
  EXPECT_EQ(post("attachments/attach", R"({"sheetId":7,"sources":[]})").at("error"), "Sheet not found");
  EXPECT_EQ(writeJSON(cloud.sheets(demo).at(0).json()), writeJSON(sheet.json())) << "nothing has changed";
  EXPECT_EQ(cloud.attachments(demo).size(), known);

  time = time.load() + std::chrono::seconds(5);
  const Reply done = post("attachments/attach", start + R"(
      {"ref":"sample-pdf","name":"g","itemId":"Lens"},
      {"ref":"theirs","name":"t","newItem":{"category":"New","subcategory":"Deep","name":"Paper"}},
      {"ref":"sample-text","name":"n","newItem":{"category":"New","subcategory":"Deep","name":"Paper"}}]})");
  ASSERT_EQ(done.status, 200) << done.body;
  EXPECT_EQ(done.at("attached"), "3");
  EXPECT_EQ(cloud.attachments(demo).size(), known + 3) << "none has taken another's place";
  const std::string paper = "sheet/data/categories/1/subcategories/0/items/";
  EXPECT_EQ(done.at("sheet/data/categories/0/subcategories/0/items/0/attachments/0/name"),
            "fx6-quick-guide.pdf");
  EXPECT_EQ(done.at(paper + "0/attachments/0/source"), R"({"kind":"community","list":"Theirs"})");
  EXPECT_EQ(done.at(paper + "0/attachments/1/type"), "text");
  EXPECT_EQ(done.at(paper + "1"), "") << "one new item for both";
  EXPECT_EQ(done.at("sheet/data"), writeJSON(cloud.sheets(demo).at(0).data));
  EXPECT_GT(cloud.sheets(demo).at(0).updatedAt, sheet.updatedAt);
  const Reply found = post("attachments/find", R"({"query":"paper kit"})");
  EXPECT_EQ(found.at("hits/0/ref"), done.at(paper + "0/attachments/0/ref"));
  EXPECT_EQ(found.at("hits/0/kind"), "own");
}

TEST_F(AssistantsTest, AListIsRecordedSearchedAndReadByItsOwnerAlone) {
  const std::string items = R"("categories":[{"name":"Night","items":[
      {"name":"Lamp","quantity":2,"price":3.5,"notes":")" +
                            std::string(200, 'n') + R"("},{"name":"Gel"}]}])";
  const auto record = [&](const std::string& name, const std::string& prompt) {
    time = time.load() + std::chrono::seconds(1);
    return post("ai-lists/record",
                R"({"name":")" + name + R"(","prompt":")" + prompt + R"(","sheetId":"s",)" + items + "}");
  };
  EXPECT_EQ(record("Harbour", "night exterior").body, R"({"id":1,"success":true})");
  for (int i = 0; i < 6; ++i) record("List", "day");
  EXPECT_EQ(post("ai-lists/search", R"({"query":"Night harb"})").at("lists/0/topCategories"), R"(["Night"])");
  EXPECT_EQ(post("ai-lists/search", R"({"query":"day"})").at("lists/0/id"), "7") << "the newest first";
  EXPECT_NE(post("ai-lists/search", R"({"query":""})").at("lists/4"), "");
  EXPECT_EQ(post("ai-lists/search", R"({"query":""})").at("lists/5"), "");
  EXPECT_EQ(post("ai-lists/search", R"({"query":"","limit":1})").at("lists/1"), "");

  const Reply whole = post("ai-lists/get", R"({"id":1})");
  EXPECT_EQ(whole.at("list/categories/0/items/0/quantity"), "2");
  EXPECT_EQ(whole.at("list/categories/0/items/0/notes"), std::string(160, 'n') + "\u2026");
  EXPECT_EQ(whole.at("list/truncated"), "false");
  const Reply part = post("ai-lists/get", R"({"id":1,"maxItems":1})");
  EXPECT_EQ(part.at("list/categories/0/items/1"), "");
  EXPECT_EQ(part.at("list/truncated"), "true");

  cloud.putPerson({.sub = "other", .mcpAccess = true});
  const std::int64_t theirs = cloud.putAIList({.owner = "other", .name = "T"}).id;
  for (const std::string& id : {std::to_string(theirs), std::string("99")}) {
    EXPECT_EQ(post("ai-lists/get", R"({"id":)" + id + "}").status, 404);
  }
  const std::tuple<std::string, std::string> wrong[] = {
      {R"({"name":"x","prompt":"","sheetId":1,"categories":[]})", "sheetId"},
      {R"({"name":"x","prompt":"","sheetId":"","categories":{}})", "categories"},
      {R"({"name":"x","prompt":"","sheetId":"","categories":[{"name":"c","items":[{"name":"i","qty":1}]}]})",
       "categories[0].items[0].qty"},
      {R"({"name":"x","prompt":"","sheetId":"","categories":[{"name":"c","items":[{"name":"i","price":"1"}]}]})",
       "categories[0].items[0].price"}};
  for (const auto& [body, field] : wrong) EXPECT_EQ(post("ai-lists/record", body).at("field"), field);
  EXPECT_EQ(cloud.aiLists(demo).size(), 7U);
  EXPECT_EQ(control("GET", "ai-lists/auth0%7Cdemo").at("lists/6/prompt"), "night exterior");
  EXPECT_EQ(
      control("POST", "ai-lists/other", R"({"name":"c","prompt":"","sheetId":"","categories":[]})").at("id"),
      "9");
}

TEST(SampleFiles, ThePDFHasAnObjectWhereverItsTableSaysSo) {
  const std::string file = pdfWithPages({"A (b) \\ \u00E9\u20AC", "two"});
  EXPECT_THAT(file, HasSubstr("(A \\(b\\) \\\\ \\351?) Tj"));
  EXPECT_THAT(file, HasSubstr("/Count 2"));
  const std::size_t table = std::stoul(file.substr(file.rfind("startxref\n") + 10));
  EXPECT_EQ(file.substr(table, 7), "xref\n0 ");
  const std::size_t count = std::stoul(file.substr(table + 7));
  const std::size_t rows = file.find('\n', table + 7) + 1;
  for (std::size_t i = 1; i < count; ++i) {
    const std::size_t at = std::stoul(file.substr(rows + 20 * i, 10));
    EXPECT_TRUE(file.substr(at).starts_with(std::to_string(i) + " 0 obj\n"));
  }
}

}  // namespace
}  // namespace vorlane::devcloud
