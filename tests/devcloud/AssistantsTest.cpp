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
    control("POST", "people", R"({"sub":"auth0|demo","mcpAccess":true})");
    EXPECT_EQ(post(path, "[]").status, 400) << path;
  }
}

TEST_F(AssistantsTest, AttachmentsAreFoundAsFarAsThePersonAgreedReadAsTheirKindAllowsAndSearched) {
  const std::string attachments = "attachments/auth0%7Cdemo";
  for (const char* made :
       {R"({"name":"rig.jpg","type":"image","kind":"shared","list":"Grip","base64":"AA=="})",
        R"({"name":"Rig list","kind":"share_link","shareLink":"abc","text":"rig"})",
        R"({"name":"mine.pdf","ref":"a&amp;b","type":"pdf","item":"Rig","pages":["One"]})"}) {
    control("POST", attachments, made);
  }
  cloud.call(&People::put, {.sub = "other", .mcpAccess = true});
  cloud.call(&Attachments::put, {.owner = "other", .name = "rig of another"});
  const std::tuple<std::string, std::string, int, std::string, std::string> cases[] = {
      {"find", R"("query":"rig")", 200, "hits",
       R"([{"category":"","item":"Rig","kind":"own","list":"","name":"mine.pdf","ref":"a&amp;b","type":"pdf"}])"},
      {"find", R"("query":"rig","includeShared":true)", 200, "hits/0/name", "rig.jpg"},
      {"find", R"("query":"rig","shareLink":"abc","includeCommunity":true)", 200, "hits/0/name", "Rig list"},
      {"read", R"("ref":"sample-pdf","mode":"outline")", 200, "pages/1",
       R"({"line":"Frame rates","page":2})"},
      {"read", R"("ref":"sample-text","mode":"pages","pages":[1])", 200, "pages/0/text",
       sampleAttachments()[0].bytes},
      {"read", R"("ref":"sample-pdf","mode":"pages","pages":[3])", 422, "error",
       "page 3 is beyond the last, 2"},
      {"search", R"("query":"frames slot second","scope":{})", 200, "passages/0/page", "2"},
      {"search", R"("query":"fx6","refs":["sample-text","nothing"])", 404, "error", "Attachment not found"},
  };
  for (const auto& [action, body, status, path, value] : cases) {
    const Reply reply = post("attachments/" + action, "{" + body + "}");
    EXPECT_EQ(reply.status, status) << body;
    EXPECT_EQ(reply.at(path), value) << body;
  }
}

TEST_F(AssistantsTest, AttachingCopiesAllOrNothing) {
  const JSONMap data =
      parseJSONMap(R"({"categories":[{"id":"C","name":"Cam","items":[{"id":"I","name":"Body"}],
      "subcategories":[{"id":"S","name":"Sub","items":[{"id":"J","name":"Lens"},{"id":"K","name":"Body"}]}]}]})");
  const Sheet sheet = cloud.call(&Sheets::put, {.owner = demo, .name = "Kit", .data = data});
  cloud.call(&Attachments::put,
             {.ref = "theirs", .owner = demo, .name = "t.txt", .kind = "community", .list = "Theirs"});
  // One of the refs that copies would be given.
  cloud.call(&Attachments::put, {.ref = "att-4", .owner = demo, .name = "4.txt"});
  const std::string start = R"({"sheetId":)" + std::to_string(sheet.id) + R"(,"sources":[)";
  const std::size_t known = cloud.call(&Attachments::ownedBy, demo).size();
  const Reply refused = post("attachments/attach", start + R"({"ref":"sample-pdf","name":"g","itemId":"I"},
                                                              {"ref":"odd","name":"o","itemId":"X"}]})");
  EXPECT_EQ(refused.status, 422);
  EXPECT_EQ(refused.at("failures"), R"([{"error":"There is no such attachment.","name":"o"}])");
  const Reply ambiguous =
      post("attachments/attach", start + R"({"ref":"sample-pdf","name":"g","itemId":"Body"}]})");
  EXPECT_EQ(ambiguous.at("entries/0/attached"), "false");
  EXPECT_EQ(writeJSON(cloud.call(&Sheets::ownedBy, demo).at(0).json()), writeJSON(sheet.json()))
      << "nothing has changed";
  EXPECT_EQ(cloud.call(&Attachments::ownedBy, demo).size(), known);
  const Reply done = post("attachments/attach", start + R"(
      {"ref":"sample-pdf","name":"g","itemId":"Lens"},
      {"ref":"theirs","name":"t","newItem":{"category":"New","subcategory":"Deep","name":"Paper"}},
      {"ref":"sample-text","name":"n","newItem":{"category":"New","subcategory":"Deep","name":"Paper"}}]})");
  ASSERT_EQ(done.status, 200) << done.body;
  EXPECT_EQ(cloud.call(&Attachments::ownedBy, demo).size(), known + 3) << "none has taken another's place";
  const std::string paper = "sheet/data/categories/1/subcategories/0/items/";
  EXPECT_EQ(done.at(paper + "1"), "") << "one new item for both";
  EXPECT_EQ(done.at("sheet/data"), writeJSON(cloud.call(&Sheets::ownedBy, demo).at(0).data));
}

}  // namespace
}  // namespace vorlane::devcloud
