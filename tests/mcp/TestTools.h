#pragma once

#include "mcp/ToolDefinition.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace vorlane {

/// The tools of the namespace "t" that a test adds.
struct TestTools : ToolModule {
  std::string toolNamespace() const override { return "t"; }
  std::vector<ToolDefinition> tools() const override { return list; }
  void add(const std::string& name, std::function<Task<JSONMap>(JSONMap)> run) {
    const auto handler = [run = std::move(run)](JSONMap arguments, Identity) {
      return run(std::move(arguments));
    };
    list.push_back({name, "does " + name, {{"type", "object"}}, handler, nullptr});
  }

  std::vector<ToolDefinition> list;
};

}  // namespace vorlane
