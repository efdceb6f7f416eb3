#include "base/JSON.h"
#include "store/LedgerlySheetPayload.h"

#include <gmock/gmock.h>

#include <string>

namespace vorlane {
namespace {

std::string cloud(const std::string& document) {
  return writeJSON(LedgerlySheetPayload::cloudForm(parseJSONMap(document)));
}

TEST(LedgerlySheetPayload, SheetsAndCategoriesTakeTheCloudsForm) {
  const std::string plain = R"("expanded":true,"id":"c","items":[],"name":"Uncategorized","order":0)";
  const std::pair<const char*, std::string> cases[] = {
      {R"({"categories":"none","theme":"dark"})", R"({"categories":[],"theme":"dark"})"},
      {R"({"categories":[{"id":"a"},1]})", R"({"categories":[]})"},
      {R"({"categories":[{"id":"c","name":7,"items":"x","expanded":1,"subcategories":{}}]})",
       R"({"categories":[{)" + plain + R"(,"subcategories":[]}]})"},
      {R"({"categories":[{"id":"c","order":9,"subcategories":[1],"x":null}]})",
       R"({"categories":[{)" + plain + R"(,"subcategories":[1],"x":null}]})"},
  };
  for (const auto& [local, expected] : cases) EXPECT_EQ(cloud(local), expected) << local;
  const auto made = LedgerlySheetPayload::cloudForm(parseJSONMap(R"({"categories":[{},{}]})"));
  const auto& second = made.at("categories").as_array()[1].as_object();
  EXPECT_EQ(second.at("order").as_int64(), 1);
  EXPECT_EQ(second.at("id").as_string().size(), 36U);
}

TEST(LedgerlySheetPayload, ItemsTakeTheCloudsForm) {
  // Some of an item's fields, and in what it then differs from the plain item.
  const std::pair<const char*, const char*> cases[] = {
      {R"({"id":"i","name":4,"checked":"yes","price":"9","notes":"","x":[1]})", R"({"x":[1]})"},
      {R"({"id":"i","qty":true,"vendor":"","location":7})", R"({})"},
      {R"({"id":"i","qty":2.5,"quantity":9,"baseQuantity":8})", R"({"baseQuantity":2.5,"quantity":2.5})"},
      {R"({"id":"i","quantity":9,"baseQuantity":"x"})", R"({"baseQuantity":"x","quantity":9})"},
      {R"({"id":"i","quantity":9})", R"({"baseQuantity":9,"quantity":9})"},
      {R"({"id":"i","quantity":"9"})", R"({"quantity":"9"})"},
      {R"({"id":"i","vendor":"V","budgetFields":{"a":1}})", R"({"budgetFields":{"a":1,"vendor":"V"}})"},
      {R"({"id":"i","location":"L","customFields":3})", R"({"customFields":{"location":"L"}})"},
      {R"({"id":"i","notes":"a note"})", R"({"notes":{"ledgerly":"a note"}})"},
      {R"({"id":"i","notes":{"sceneward":1}})", R"({"notes":{"sceneward":1}})"},
      {R"({"id":"i","notes":[1]})", R"({})"},
  };
  for (const auto& [local, difference] : cases) {
    auto expected = parseJSONMap(R"({"checked":false,"id":"i","name":"","notes":{},"order":0,"price":0.0})");
    for (const auto& [key, value] : parseJSONMap(difference)) expected[key] = value;
    const auto document = cloud(R"({"categories":[{"id":"c","items":[)" + std::string(local) + "]}]}");
    EXPECT_THAT(document, ::testing::HasSubstr("\"items\":[" + writeJSON(expected) + "]")) << local;
  }
}

}  // namespace
}  // namespace vorlane
