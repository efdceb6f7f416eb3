#pragma once

#include "mcp/ToolDefinition.h"
#include "store/StoreFixture.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace vorlane {

/// JSON text with single quotes for double ones, and back, so that it reads well in C++.
inline std::string quoted(std::string json) {
  std::ranges::replace(json, '"', '\'');
  return json;
}
inline JSONMap unquoted(std::string json) {
  std::ranges::replace(json, '\'', '"');
  return parseJSONMap(json);
}

/// A document, a call, the answer and the document afterwards; "=" where it is as it was.
struct Edit {
  std::string before, tool, arguments, answer, after;
};

/// The tools of a module over a real store, called by name for the user "o".
class ToolBench : public StoreTest {
 protected:
  std::string answer(const ToolModule& module, std::string_view tool, const std::string& arguments) {
    const auto tools = module.tools();
    const auto found =
        std::ranges::find(tools, module.toolNamespace() + "_" + std::string(tool), &ToolDefinition::name);
    try {
      return quoted(writeJSON(await(found->handler(unquoted(arguments), {.userID = "o"}))));
    } catch (const DomainFailure& failure) {
      return failure.domain() + " " + std::to_string(failure.code()) + " " + failure.description();
    }
  }

  /// Makes the edit by the `put`, `call` and `saved` of the bench that derives from this one.
  void expectEdit(this auto& bench, const Edit& edit) {
    SCOPED_TRACE(edit.tool + " " + edit.arguments + " on " + edit.before);
    bench.put("s", edit.before);
    EXPECT_EQ(bench.call(edit.tool, edit.arguments), edit.answer);
    EXPECT_EQ(bench.saved(), bench.document(edit.after == "=" ? edit.before : edit.after));
    // A refusal and an edit that changed nothing move the time too.
    EXPECT_EQ(bench.queries.fetch("s")->updatedAt, bench.present + std::chrono::milliseconds(1));
  }
};

}  // namespace vorlane
