#pragma once

#include "mcp/MCPRequestContext.h"
#include "mcp/ToolDefinition.h"
#include "store/StoreFixture.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>

namespace vorlane {

/// JSON text with single quotes for double ones, and back, so that it reads well in C++.
inline std::string quoted(std::string json) {
  std::ranges::replace(json, '"', '\'');
  return json;
}
inline std::string doubleQuoted(std::string json) {
  std::ranges::replace(json, '\'', '"');
  return json;
}
inline JSONMap unquoted(std::string json) {
  return parseJSONMap(doubleQuoted(std::move(json)));
}

/// The tools of a module over a real store, called by name for the user "o".
class ToolHarness : public StoreTest {
 protected:
  /// The answer, or what the failure says.
  std::string call(const std::string& tool, const std::string& arguments) {
    const auto tools = module->tools();
    const auto found = std::ranges::find(tools, module->toolNamespace() + "_" + tool, &ToolDefinition::name);
    const auto handler = [&] { return found->handler(unquoted(arguments), {.userID = "o"}); };
    const auto fence = [this, since = epoch.load()] { return epoch == since; };
    try {
      return quoted(writeJSON(await(MCPRequestContext::run(fence, handler))));
    } catch (const DomainFailure& failure) {
      return quoted(failure.domain() + " " + std::to_string(failure.code()) + " " + failure.description());
    } catch (const std::exception& error) {
      return quoted(describe(error));
    }
  }
  /// Names, words and schemas are an interface too: assistants act on them. What they are, and
  /// what `calls` are answered, stands in a file of golden/.
  void expectShown(const std::string& file, std::initializer_list<const char*> calls = {}) {
    std::string shown;
    for (const auto& tool : module->tools())
      shown += tool.name + ": " + tool.description + "\n" + writeJSON(tool.inputSchema) + "\n";
    for (const char* tool : calls)
      shown += std::string(tool) + " answers " + call(tool, "{'sceneId':'s','stage':'Anything'}") + "\n";
    std::ifstream golden(std::string(GOLDEN) + file);
    EXPECT_EQ(shown, std::string(std::istreambuf_iterator<char>(golden), {}));
  }

  std::shared_ptr<ToolModule> module;
  /// Moves on when the account changes, which ends the calls that run.
  std::atomic<int> epoch = 0;
};

/// A document, arguments, the answer and the document afterwards; "=" where it is as it was.
struct Edit {
  std::string before, arguments, answer, after;
};

/// Tools that work on stored documents. A text that starts with '[' is a document with this
/// under `list`, and arguments without a brace go beside the id of the document "s".
template <class Queries>
class DocumentHarness : public ToolHarness {
 protected:
  DocumentHarness(std::string list, std::string id) : list_(std::move(list)), id_(std::move(id)) {}

  std::string document(const std::string& text) const {
    return text.starts_with("[") ? "{'" + list_ + "':" + text + "}" : text;
  }
  void put(const std::string& id, const std::string& text, const std::string& owner = "o") {
    await(queries.save({id, owner, "T", doubleQuoted(document(text)), present, present}));
  }
  std::string call(const std::string& tool, const std::string& arguments) {
    const bool whole = arguments.starts_with("{");
    return ToolHarness::call(tool, whole ? arguments : "{'" + id_ + "':'s'," + arguments + "}");
  }
  std::string saved() { return quoted(queries.fetch("s").value().data); }
  void expectEdits(const std::string& tool, std::initializer_list<Edit> edits) {
    for (const auto& [before, arguments, answer, after] : edits) {
      SCOPED_TRACE(tool + " " + arguments + " on " + before);
      put("s", before);
      EXPECT_EQ(call(tool, arguments), answer);
      EXPECT_EQ(saved(), document(after == "=" ? before : after));
      // An edit that changed nothing moves the time too, one that could not be made does not.
      const std::chrono::milliseconds moved(answer.contains("; nothing was ") ? 0 : 1);
      EXPECT_EQ(queries.fetch("s")->updatedAt, present + moved);
    }
  }

  Queries queries = queriesOn<Queries>(open());

 private:
  std::string list_, id_;
};

}  // namespace vorlane
